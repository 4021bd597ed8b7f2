#pragma once

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/catalogue/LN_LauncherVersionInfo.h>
#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>
#include <draizu/prefs/LN_Preferences.h>

#include <QList>
#include <QString>
#include <QVersionNumber>
#include <QtGlobal>

class LN_InstallMetadata;
class LN_InstallerOptions;
class QNetworkAccessManager;

/// The questions asked before an operation starts: would it change anything, does its target
/// need elevated rights, how much disk it takes, is a newer launcher on offer, and which local
/// oserver is present. They read options, catalogues and records, so they are defined here,
/// beside the repository, rather than with the general utilities of host.
///
/// Only needsAdmin touches the disk, by trying to write, and only it throws; the service and
/// network questions block for one request. Stateless; any thread, as far as the records
/// passed in allow.
namespace LN_Util {

/// Whether the operation needs an install step: always for install and repair, never for
/// uninstall and move; otherwise when the options ask for another version, build type,
/// platform or product than the installation recorded at existingInstallDir, or for a feature
/// it lacks. Never fails.
DRAIZU_EXPORT bool doesInstall(LN_InstallerOptions const & options, LN_InstallMetadata const & metadata);

/// needsAdmin of the part before the last "/" (or "." without one) and the name after it.
DRAIZU_EXPORT bool needsAdmin(QString const & path);
/// Whether writing `fileName` into `directory` is refused for lack of rights, found out by
/// creating the directory, or the nearest missing one on its way, and then the file. A
/// directory made here stays behind; a file made here is removed, an existing one is left as
/// it was. An existing directory is cut back to its parent before the file is tried, so pass
/// it with a trailing "/" to probe the directory itself. Only "/" separates. Throws
/// LN_Exception "Unable to create directory ..." or "Unable to create file ..." for any
/// failure other than a refusal.
DRAIZU_EXPORT bool needsAdmin(QString const & directory, QString const & fileName);

/// The catalogue's size of the build's product with the features the options select, in
/// bytes; -1 when the build is not of the options' product. Never fails.
DRAIZU_EXPORT qint64 diskSpaceRequired(LN_InstallerOptions const & options, LN_AvailableInfo const & build);
/// diskSpaceRequired of the first build that couldInstall serves; -1 when none does.
DRAIZU_EXPORT qint64 diskSpaceRequired(LN_InstallerOptions const & options, QList<LN_AvailableInfo> const & builds);

/// The newest build on the site for this system's processor; the default element without a
/// manager, when the site cannot be read or lists none. Blocks until the site answers; lets a
/// faulty catalogue's LN_Exception through.
DRAIZU_EXPORT LN_AvailableInfo checkForLatestVersion(QNetworkAccessManager * manager);

/// The best Orvanis build above the launcher's version that meets the minimums, ranked for the
/// update track, the launcher's build type and maturity, the newer first among equal ranks;
/// the default element when none qualifies. Never fails.
DRAIZU_EXPORT LN_AvailableInfo getLauncherUpdateVersion(QList<QVersionNumber> const & minimumVersions,
                                                        QList<LN_AvailableInfo> const & builds,
                                                        LN_Preferences::UpdateTrack track,
                                                        LN_LauncherVersionInfo launcher);

/// Whether the version meets the minimum of its major.minor line or, where the list has no
/// such line, is newer than every line listed; false for an empty list. Never fails.
DRAIZU_EXPORT bool meetsMinimumVersions(QList<QVersionNumber> const & minimumVersions, QVersionNumber const & version);

/// The version of the local oserver's program, registered as the service "OrvanisServer"; a
/// null version when no such service exists. A service manager that cannot be reached, a
/// service that cannot be opened or a configuration that cannot be read give an error with a
/// sentence of their own. Throws as getFileVersion does for a version file it cannot read.
DRAIZU_EXPORT LN_Result<QVersionNumber> getOserverVersion();

/// applicationRoot joined with "data/oserver_version.txt". Needs a QCoreApplication.
DRAIZU_EXPORT QString oserverVersionFilePath();

/// "orvanis[-<build type>]-<version>-<platform>.iso" for the options. Never fails.
DRAIZU_EXPORT QString defaultInstallerName(LN_InstallerOptions const & options);

} // namespace LN_Util
