#pragma once

#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QtGlobal>

class LN_FileOpener;
struct LN_AvailableFeature;

/// One file of a product or feature, as a manifest lists it. The same manifest form serves a
/// build's catalogue (read before installing) and the installation repository.
///
/// A manifest is a JSON object keyed by file path; each value is the array
/// [source, base64 of the SHA-256 digest, size]. A plain value. The readers mix two failure
/// forms on purpose: a file that cannot be read is a returned failure, a malformed entry or a
/// source of the wrong shape throws LN_Exception.
struct DRAIZU_EXPORT LN_FileMetadata
{
    /// Empty path, source and digest, size 0.
    LN_FileMetadata() = default;
    /// Takes the raw digest.
    LN_FileMetadata(QString path, QString source, QByteArray checksum, qint64 size);
    /// Takes the digest as base64 text.
    LN_FileMetadata(QString path, QString source, QString const & checksumBase64, qint64 size);

    /// Relative to the installation directory, with forward slashes.
    QString path;
    /// Carried through unchanged; empty for a list computed from disk.
    QString source;
    /// Raw SHA-256 digest of 32 bytes, or empty.
    QByteArray checksum;
    /// Bytes; -1 in a list merged after an interrupted change.
    qint64 size = 0;

    /// The manifest of a feature offered by a build, read through the opener. Throws
    /// LN_Exception when it cannot be opened or parsed, is not an object, or has a malformed
    /// entry.
    static LN_Result<QList<LN_FileMetadata>> fileMetadataForInstall(LN_AvailableFeature const & feature,
                                                                   LN_FileOpener & opener);
    /// A manifest on disk. A file that cannot be read or parsed is returned as a failure; a
    /// malformed entry throws.
    static LN_Result<QList<LN_FileMetadata>> fileMetadataFromJson(QString const & path);
    /// The entries of a manifest object, in key order; backslashes in keys become forward
    /// slashes. A value that is not an array of three elements throws LN_Exception
    /// ("Expected an array", "Expected an array with 3 values"); the element types are not
    /// checked.
    static LN_Result<QList<LN_FileMetadata>> fileMetadataFromJson(QJsonObject const & object);

    /// Member-wise equality.
    friend bool operator==(LN_FileMetadata const &, LN_FileMetadata const &) = default;
};
