#pragma once

#include <draizu/draizu_export.h>
#include <draizu/packages/LN_AvailablePackage.h>

#include <QSet>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <functional>

class LN_FileOpener;
class QDir;
class QNetworkAccessManager;
class QUrl;
struct archive;

/// Checks, installs and removes add-on packages. A package zip holds, for each package P, a
/// description file "P.json" and a folder "P" at its top level, and nothing else; entries must
/// be plain files and folders whose paths stay inside the archive's root ("illegal path",
/// "illegal file type" otherwise).
///
/// Installing writes each package into a staging folder inside the target and moves its folder
/// and description file into place only once every entry was written: a failure leaves no half
/// package behind, and an earlier version of it stays as it was. Entries are extracted with
/// libarchive's protections against paths that leave the staging folder and against writing
/// through links; the working directory is the staging folder while an entry is written.
///
/// Expected failures come back as results with a readable message, never as exceptions.
/// Synchronous: progress is reported on the caller's thread through a callback that must be
/// callable, with a value out of a maximum (both -1 for a bare message) and a text.
namespace LN_Package {

/// The outcome of an operation.
enum Status {
    Success = 0,  ///< done
    Skipped = 1,  ///< not done, for a reason that is only a warning
    Rejected = 2, ///< the package or its data is not acceptable
    Failed = 3,   ///< the archive or the system failed, or there was nothing to do
};

/// What an install or removal came to. A plain value record.
struct InstallResult
{
    /// The outcome.
    Status status = Success;
    /// Why it was not a success; empty on Success.
    QString message;
};

/// What the check of a package zip found. A plain value record; the counts and names are
/// zero or empty unless `status` is Success.
struct ValidationResult
{
    /// The outcome.
    Status status = Success;
    /// Why it was not a success.
    QString message;
    /// Entries inside package folders, folders included.
    qint64 entryCount = 0;
    /// Bytes of the plain files inside package folders; description files are not counted.
    qint64 totalBytes = 0;
    /// The package names, in no particular order.
    QStringList packages;
};

/// The progress callback: value, maximum, text.
using Progress = std::function<void(int value, int maximum, QString text)>;

/// Checks the zip at `zipPath` against the package layout, reading its headers only. Failed
/// with libarchive's text when the file cannot be read as a zip.
DRAIZU_EXPORT ValidationResult validatePackage(QString const & zipPath);
/// The same check over an archive already open, read to its end or to the first fault, which
/// decides the message.
DRAIZU_EXPORT ValidationResult validatePackage(struct archive * reader);

/// Installs the named packages of the zip (all of them for an empty set) into `target`, which
/// is made when missing; the zip is checked whole before anything is written. Rejected with
/// the check's message, or "The following packages were not found: " when a name is absent;
/// Failed with libarchive's or the file system's text.
DRAIZU_EXPORT InstallResult installPackages(QString const & zipPath, QSet<QString> packages, QDir const & target,
                                            Progress progress);

/// Installs from an offline installer, where each package is a zip of its own at
/// "packages/<name>.zip", every entry of it. Stops at the first package that does not install:
/// Skipped when its zip cannot be opened or is empty, Rejected at an entry that fails the
/// entry check, Failed with libarchive's text, or with "No packages selected to install" for an
/// empty set. Packages installed before the one that stopped stay installed.
DRAIZU_EXPORT InstallResult installZipPackagesFromZipStream(LN_FileOpener & opener, QSet<QString> packages,
                                                            QDir const & target, Progress progress);

/// Downloads the zip into a temporary file, hashing it on the way, and installs it as
/// installPackages does. Failed with "Failed to download <url>: <reason>" or the temporary
/// file's error; Rejected with "Checksum did not match" when a non-empty digest differs. The
/// download reports no progress. Blocks in a local event loop while waiting for data.
DRAIZU_EXPORT InstallResult downloadAndInstallZipPackages(QNetworkAccessManager * manager, QUrl const & url,
                                                          QSet<QString> packages,
                                                          LN_AvailablePackage::Checksum const & checksum,
                                                          QDir const & target, Progress progress);
/// The same without a digest to check.
DRAIZU_EXPORT InstallResult downloadAndInstallZipPackages(QNetworkAccessManager * manager, QUrl const & url,
                                                          QSet<QString> packages, QDir const & target,
                                                          Progress progress);

/// Removes an installed package: its description file at `jsonPath` and the folder named by
/// that path less its last five characters. Skipped, after removing what is there, when one of
/// the two is missing; Failed with the file system's text when a removal fails.
DRAIZU_EXPORT InstallResult uninstallPackage(QString const & jsonPath);

} // namespace LN_Package
