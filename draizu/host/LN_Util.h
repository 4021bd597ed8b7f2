#pragma once

#include <draizu/core/LN_ErrorStruct.h>
#include <draizu/draizu_export.h>
#include <draizu/platform/LN_ProcessInfo.h>
#include <draizu/platform/LN_SecurityAttributes.h>
#include <draizu/platform/LN_Sid.h>

#include <QByteArray>
#include <QDir>
#include <QHash>
#include <QList>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>
#include <QVersionNumber>

/// File system, text and version helpers used throughout the library. Functions that return
/// LN_ErrorStruct report failure in it; those that return nothing throw LN_Exception.
namespace LN_Util {

enum Base {
    Decimal = 0, ///< steps of 1000
    Binary = 1,  ///< steps of 1024
};

/// How a yes/no option's value reads.
enum YesNoResult {
    Yes = 0,          ///< "yes", in any case
    No = 1,           ///< "no", in any case
    Empty = 2,        ///< the empty value
    Unrecognised = 3, ///< any other word
};

/// Gives the file, directory or link itself a new owner; a link is not followed. A user sid
/// replaces the owning user, a group sid the owning group. Fails with "Failed to set file
/// security information: ...".
DRAIZU_EXPORT LN_ErrorStruct changeOwner(QString const & path, LN_Sid * owner);
DRAIZU_EXPORT LN_ErrorStruct changeOwner(wchar_t * path, LN_Sid * owner);
DRAIZU_EXPORT LN_ErrorStruct changeOwner(wchar_t const * path, LN_Sid * owner);

/// changeOwner on the path and everything below it. Links inside the tree get the owner
/// themselves and are not entered. Stops at the first failure and returns it.
DRAIZU_EXPORT LN_ErrorStruct changeOwnerRecursive(QString const & path, LN_Sid * owner);
DRAIZU_EXPORT LN_ErrorStruct changeOwnerRecursive(wchar_t const * path, LN_Sid * owner);

/// Creates one directory and applies `attributes` (may be null) to it. The parent must exist,
/// and an existing directory is an error ("Failed to create <path>: ...").
DRAIZU_EXPORT LN_ErrorStruct createDirectoryWithOwner(QString const & path,
                                                      LN_SecurityAttributes const * const & attributes);

/// Creates the directory and every missing parent, each with `attributes` (may be null).
/// An existing directory is an error, as for createDirectoryWithOwner.
DRAIZU_EXPORT LN_ErrorStruct createDirectoriesWithOwner(QString const & path,
                                                        LN_SecurityAttributes const * const & attributes);

/// Copies one file. With `overwrite` an existing target is removed first and there is one
/// attempt; without it there are five, with a pause (LN_Waits::CopyRetry) after each failure.
/// Errors carry the QFile error code (QFileErrorCategory).
DRAIZU_EXPORT LN_ErrorStruct copyFile(QString const & source, QString const & target, bool overwrite,
                                      bool makeDirectories);

/// Copies every file below `source` to the same relative place below `target`, creating
/// directories as needed; empty directories are not copied. Throws on the first failure.
DRAIZU_EXPORT void copyTree(QDir source, QDir const & target, bool overwrite);
DRAIZU_EXPORT void copyTree(QString const & source, QDir const & target, bool overwrite);
DRAIZU_EXPORT void copyTree(QDir source, QString const & target, bool overwrite);
DRAIZU_EXPORT void copyTree(QString const & source, QString const & target, bool overwrite);

/// Removes a file or a link (not what it points to). Something already gone is no error.
DRAIZU_EXPORT void removeFile(QString const & path);
/// Removes an empty directory. Something already gone is no error.
DRAIZU_EXPORT void removeDir(QDir const & dir);
/// Removes a directory and everything below it, without following links.
DRAIZU_EXPORT void removeTree(QString const & path);
/// Moves a file or directory; never replaces an existing target, and the move is on disk
/// when the call returns.
DRAIZU_EXPORT void rename(QString const & from, QString const & to);

/// The raw 32-byte SHA-256 digest of the file's contents. For a symbolic link, the digest of
/// its target path relative to the link's directory, in UTF-8; the link is not followed.
/// Empty when the file cannot be read.
DRAIZU_EXPORT QByteArray checksum(QString const & path);

/// Free bytes on the file system that holds the path, or its nearest existing parent.
DRAIZU_EXPORT qint64 diskSpaceAvailable(QString const & path);

/// Fills `processes` with the processes that hold the file open; empty when there are none
/// or when that cannot be found out.
DRAIZU_EXPORT void openHandlesToFile(QString const & path, QList<LN_ProcessInfo> & processes);

/// True when `child` lies below `parent`; only "/" separates.
DRAIZU_EXPORT bool isParentDir(QString const & parent, QString const & child);
DRAIZU_EXPORT bool isParentOrChildDir(QString const & a, QString const & b);
/// Whether the path depends on the working directory.
DRAIZU_EXPORT bool isRelativePath(QString const & path);
DRAIZU_EXPORT bool isAbsolutePath(QString const & path);

/// The number with a unit letter (k, M, G, T) placed after `suffix` once it is above one step.
DRAIZU_EXPORT QString formatNumber(qint64 value, Base base, QString suffix);
/// A byte count for people: "512 B", "2.00 KB"; "Unknown" for a negative count.
DRAIZU_EXPORT QString numBytesToString(qint64 bytes);

/// The text with every occurrence of a key of `values` replaced by its value, in one pass.
DRAIZU_EXPORT QString replace(QString const & text, QHash<QString, QString> const & values);

/// Compares major and minor versions only: -1, 0 or 1.
DRAIZU_EXPORT int versionMMCmp(QVersionNumber const & a, QVersionNumber const & b);

/// The version recorded for an executable or library: the first line of a file "VERSION"
/// beside it. A null version when there is none; throws when it cannot be read.
DRAIZU_EXPORT QVersionNumber getFileVersion(wchar_t const * path);
DRAIZU_EXPORT QVersionNumber getFileVersion(QString const & path);

/// A request for site traffic: redirects followed and HTTP/2 allowed.
DRAIZU_EXPORT QNetworkRequest createHttpRequest(QUrl const & url);

/// The installation the running program belongs to: the parent of its executable's directory.
DRAIZU_EXPORT QString applicationRoot();

/// Reads a yes/no option's value; callers decide what the empty value means.
DRAIZU_EXPORT YesNoResult getYesNoOption(QString const & value);

} // namespace LN_Util
