#pragma once

#include <draizu/platform/LN_SecurityAttributes.h>
#include <draizu/platform/LN_Sid.h>

#include <QString>
#include <QStringList>
#include <QVersionNumber>

#include <functional>

/// The operating system's side of the host file utilities. Every function that returns an
/// `int` gives 0 on success and the system's error number otherwise.
namespace LN_HostFileSystem {

/// Creates one directory (the parent must exist) and applies the attributes, which may be
/// null. A directory whose attributes cannot be applied is removed again.
int makeDirectory(QString const & path, LN_SecurityAttributes const * attributes);

/// Gives the file, directory or link itself (never what a link points to) a new owner: a
/// user sid replaces the owning user, a group sid the owning group.
int changeOwner(QString const & path, LN_Sid const & owner);

struct DirectoryListing
{
    int openError = 0;  ///< ENOTDIR for a file, and for a link, which is never entered
    int readError = 0;  ///< the listing broke off
    QStringList names;  ///< without "." and ".."
};
DirectoryListing listDirectory(QString const & path);

/// Moves without replacing an existing target, and has the move on disk before returning.
int renameNoReplace(QString const & from, QString const & to);

/// Reads the file from start to end through one buffer of at most `bufferSize` bytes,
/// handing each piece to `consume`.
int readSequentially(QString const & path, qsizetype bufferSize,
                     std::function<void(char const * data, qsizetype size)> const & consume);

/// True when the path names the same file whatever the working directory.
bool isAbsolutePath(QString const & path);

/// The version the system records for an executable or library; a null version when it
/// records none.
int fileVersion(QString const & path, QVersionNumber * version);

} // namespace LN_HostFileSystem
