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

/// File system, text and version helpers used throughout the library: owners, copies,
/// removals, renames, checksums, free space, path tests and number formatting.
///
/// Functions that return LN_ErrorStruct report failure in it, with the system's error number
/// (or the QFile error for copies) and a sentence that names the path; functions that return
/// nothing throw LN_Exception with such a sentence, but openHandlesToFile never fails.
/// Removing, owning and hashing never follow a symbolic link, and no walk through a tree enters
/// a linked directory. The file functions cost a few system calls per entry and block their
/// caller; copyFile may sleep between attempts. All are stateless and may be called from any
/// thread.
namespace LN_Util {

/// The unit steps of formatNumber.
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
/// security information: <system text>", also for a null owner.
DRAIZU_EXPORT LN_ErrorStruct changeOwner(QString const & path, LN_Sid * owner);
/// changeOwner for a wide path; a null path is the empty one.
DRAIZU_EXPORT LN_ErrorStruct changeOwner(wchar_t * path, LN_Sid * owner);
/// changeOwner for a wide path; a null path is the empty one.
DRAIZU_EXPORT LN_ErrorStruct changeOwner(wchar_t const * path, LN_Sid * owner);

/// changeOwner on the path and everything below it. Links inside the tree get the owner
/// themselves and are not entered. Stops at the first failure and returns it; a directory
/// that cannot be listed gives "Failed to search path: ", one whose listing breaks off
/// "Failed to iterate directory: ".
DRAIZU_EXPORT LN_ErrorStruct changeOwnerRecursive(QString const & path, LN_Sid * owner);
/// changeOwnerRecursive for a wide path; a null path is the empty one.
DRAIZU_EXPORT LN_ErrorStruct changeOwnerRecursive(wchar_t const * path, LN_Sid * owner);

/// Creates one directory and applies `attributes` (may be null) exactly, whatever the umask.
/// The parent must exist, and an existing directory is an error: "Failed to create <path>: ".
DRAIZU_EXPORT LN_ErrorStruct createDirectoryWithOwner(QString const & path,
                                                      LN_SecurityAttributes const * const & attributes);

/// Creates the directory and every missing parent, each with `attributes` (may be null).
/// Fails as createDirectoryWithOwner does at the first directory it cannot make, so an
/// existing directory is an error too.
DRAIZU_EXPORT LN_ErrorStruct createDirectoriesWithOwner(QString const & path,
                                                        LN_SecurityAttributes const * const & attributes);

/// Copies one file, first making the target's directory when asked ("Unable to create
/// directory <dir>"). With `overwrite` an existing target is removed first and there is one
/// attempt; without it there are five; each failed attempt pauses LN_Waits::CopyRetry. Fails
/// with "Unable to remove <target>: ..." or "Unable to copy <source> to <target>: ...", the
/// code in QFileErrorCategory.
DRAIZU_EXPORT LN_ErrorStruct copyFile(QString const & source, QString const & target, bool overwrite,
                                      bool makeDirectories);

/// Copies every file below `source`, dot files included, to the same relative place below
/// `target` through copyFile, making directories as needed; empty directories are not copied.
/// Throws "Unable to copy from <source>: Directory does not exist", or copyFile's text at the
/// first file that fails, leaving what was copied so far.
DRAIZU_EXPORT void copyTree(QDir source, QDir const & target, bool overwrite);
/// copyTree with the source given by its path.
DRAIZU_EXPORT void copyTree(QString const & source, QDir const & target, bool overwrite);
/// copyTree with the target given by its path.
DRAIZU_EXPORT void copyTree(QDir source, QString const & target, bool overwrite);
/// copyTree with both given by their paths.
DRAIZU_EXPORT void copyTree(QString const & source, QString const & target, bool overwrite);

/// Removes a file or a link (not what it points to). Something already gone is no error;
/// otherwise throws "Could not remove \"<path>\": <reason>".
DRAIZU_EXPORT void removeFile(QString const & path);
/// Removes an empty directory. Something already gone is no error; otherwise throws
/// "Could not remove \"<path>\"".
DRAIZU_EXPORT void removeDir(QDir const & dir);
/// Removes a directory and everything below it, hidden entries included, without following
/// links. Throws as removeFile and removeDir do at the first entry that stays.
DRAIZU_EXPORT void removeTree(QString const & path);
/// Moves a file or directory; never replaces an existing target, and the move is on disk
/// when the call returns. Throws "Failed to rename <from> to <to>: <system text>".
DRAIZU_EXPORT void rename(QString const & from, QString const & to);

/// The raw 32-byte SHA-256 digest of the file's contents, read in one pass. For a symbolic
/// link, the digest of its target path relative to the link's directory, in UTF-8; the link
/// is not followed. Empty when the file cannot be read.
DRAIZU_EXPORT QByteArray checksum(QString const & path);

/// Free bytes on the file system that holds the path, or its nearest existing parent when the
/// path does not exist yet; a negative number when the system cannot tell.
DRAIZU_EXPORT qint64 diskSpaceAvailable(QString const & path);

/// Replaces `processes` with the processes that hold the file open, each once; empty when
/// there are none or when that cannot be found out. Looks at every process of the system.
DRAIZU_EXPORT void openHandlesToFile(QString const & path, QList<LN_ProcessInfo> & processes);

/// True when `child` lies below a non-empty `parent`, compared as text; only "/" separates.
DRAIZU_EXPORT bool isParentDir(QString const & parent, QString const & child);
/// True when either path lies below the other; false for equal paths.
DRAIZU_EXPORT bool isParentOrChildDir(QString const & a, QString const & b);
/// True when the path depends on the working directory; on this system, not starting with "/".
DRAIZU_EXPORT bool isRelativePath(QString const & path);
/// The opposite of isRelativePath.
DRAIZU_EXPORT bool isAbsolutePath(QString const & path);

/// The number with two decimals and a unit letter (k, M, G, T) after `suffix` once it is above
/// one step ("1.50 k"); at or below one step, the plain number and `suffix`.
DRAIZU_EXPORT QString formatNumber(qint64 value, Base base, QString suffix);
/// A byte count for people in binary steps: "512 B", "2.00 KB"; "Unknown" for a negative count.
DRAIZU_EXPORT QString numBytesToString(qint64 bytes);

/// The text with every occurrence of a key of `values` replaced by its value, in one pass:
/// replaced text is not searched again. Keys are literal text, not patterns.
DRAIZU_EXPORT QString replace(QString const & text, QHash<QString, QString> const & values);

/// Compares major and minor versions only: -1, 0 or 1; a missing segment counts as 0.
DRAIZU_EXPORT int versionMMCmp(QVersionNumber const & a, QVersionNumber const & b);

/// getFileVersion for a wide path; a null path is the empty one.
DRAIZU_EXPORT QVersionNumber getFileVersion(wchar_t const * path);
/// The version recorded for an executable or library: the first line of a file "VERSION"
/// beside it. A null version when either is missing; throws "Unable to read version info from
/// <path>: <system text>" when the version file is there but cannot be read.
DRAIZU_EXPORT QVersionNumber getFileVersion(QString const & path);

/// A request for site traffic: redirects followed and HTTP/2 allowed. Cannot fail.
DRAIZU_EXPORT QNetworkRequest createHttpRequest(QUrl const & url);

/// The installation the running program belongs to: the parent of its executable's directory.
/// Needs a QCoreApplication.
DRAIZU_EXPORT QString applicationRoot();

/// Reads a yes/no option's value; callers decide what Empty and Unrecognised mean.
DRAIZU_EXPORT YesNoResult getYesNoOption(QString const & value);

} // namespace LN_Util
