#pragma once

#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QDir>
#include <QJsonDocument>
#include <QString>

/// Reading and writing of the repository's JSON files: the table and the file manifests. Read
/// failures are returned, write failures thrown. Nothing is locked: one process at a time
/// writes a repository.

/// Parses the whole file. An empty path gives an empty document with success and touches no
/// file. A file that cannot be opened, read or parsed gives code 1 of QFileErrorCategory with
/// the reason as text, and an empty document.
DRAIZU_EXPORT LN_Result<QJsonDocument> readJsonFile(QString const & path);

/// Writes the document compact, replacing the file's content in place (no temporary name, no
/// rename); the parent directory is created as needed. Throws LN_Exception on failure.
DRAIZU_EXPORT void writeJsonFile(QJsonDocument const & document, QString const & path);

/// The first path in `directory` that does not exist, with 1, 2, 3 ... put in for the last
/// "%1" of `pattern`. So an existing manifest is never overwritten.
DRAIZU_EXPORT QString uniqueManifestPath(QString const & pattern, QDir const & directory);
