#pragma once

#include <draizu/draizu_export.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include <QDir>
#include <QList>
#include <QString>

/// Installations that older installers left without records, found on disk and described by a
/// record each, so that they can be listed and removed like the others. Every record made here
/// is imported, has no file manifests and may have an unknown platform; its directory is in
/// the repository's form.
///
/// Orvanis lies in the directories directly under LN_FixedLocations::OldInstallationsRoot
/// whose names begin with "orvanis", the job-queue products in their fixed directories, and
/// the licence server is found through the service manager. Nothing here reports an error:
/// what cannot be read gives the empty record, whose product is Invalid, or stays out of a
/// list. Each call reads the disk afresh, a few files per directory; the licence server costs
/// one request to the service manager. Stateless; any thread.
namespace LN_Util {

/// The Orvanis installations under the root, each with "bin/orvanis" as a file, whether or
/// not an uninstaller lies beside it; absolute paths in name order.
DRAIZU_EXPORT QList<QString> findOldOrvanisInstallations();
/// The directories of the job-queue client and server records that are found.
DRAIZU_EXPORT QList<QString> findOldOQueueInstallations();

/// The record of whatever older installation lies in the directory: the licence server when
/// the directory is its own, else the first of Orvanis, the job-queue client and the server
/// that is found there; the empty record otherwise.
DRAIZU_EXPORT LN_ComponentMetadata metadataForOldInstallation(QDir const & directory);
/// The record of an Orvanis installation, "bin/orvanis" in it, with version, Python build
/// type and engine plug-ins read from "orvanis_setup_bash" and "engine/"; the empty record
/// for a directory without "bin/orvanis".
DRAIZU_EXPORT LN_ComponentMetadata metadataForOldOrvanisInstallation(QDir const & directory);
/// The record of a job-queue client: "oqnode.py", "oqnode.ini" and "Uninstall OQueue Client"
/// must be files in the directory, the version is read from "VERSION", and the server's address
/// from the ini file as for every client record. The empty record otherwise.
DRAIZU_EXPORT LN_ComponentMetadata metadataForOldOQueueClient(QDir const & directory);
/// metadataForOldOQueueClient of the client's fixed directory.
DRAIZU_EXPORT LN_ComponentMetadata metadataForOldOQueueClient();
/// The record of a job-queue server: "oqserverservice", "oqserver.ini" and "Uninstall OQueue
/// Server" must be files in the directory, the version is read from "VERSION" and the service
/// name from "oqservicename". The empty record otherwise.
DRAIZU_EXPORT LN_ComponentMetadata metadataForOldOQueueServer(QDir const & directory);
/// metadataForOldOQueueServer of the server's fixed directory.
DRAIZU_EXPORT LN_ComponentMetadata metadataForOldOQueueServer();
/// The record "License Server" in LN_FixedLocations::LicenseServerDir, its version that of the
/// program named by LicenseServerExecutable; the empty record without hasOldLicenseServer.
DRAIZU_EXPORT LN_ComponentMetadata metadataForOldLicenseServer();

/// Whether the directory holds "bin/orvanis" as a file and, unless `allowNoUninstaller`, an
/// uninstaller beside it.
DRAIZU_EXPORT bool isOldOrvanisInstallation(QDir const & directory, bool allowNoUninstaller);
/// Whether the directory exists and "Uninstall Orvanis" in it is a file.
DRAIZU_EXPORT bool hasUninstaller(QDir const & directory);
/// Whether the service manager knows "OrvanisLicenseServer" and its program exists as a file.
DRAIZU_EXPORT bool hasOldLicenseServer();

} // namespace LN_Util
