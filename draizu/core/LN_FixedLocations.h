#pragma once

#include <draizu/draizu_export.h>

#include <QString>

/// The fixed places and names of the system that the products are installed to or run under.
/// Each has a fixed default; a test may redirect one through setForTesting, and every reader
/// asks here at the moment it needs the value. Safe from any thread.
class DRAIZU_EXPORT LN_FixedLocations
{
public:
    /// The places and names, each with its default on this system.
    enum Location {
        OQueueServerDir,         ///< "/opt/oqueue-server": where the OQueue server is installed
        OQueueClientDir,         ///< "/opt/oqueue-client": where the OQueue client is installed
        OserverDir,              ///< "/opt/marlux/orvanis-server": where the local oserver is installed
        SharedFolderMount,       ///< "/mnt/oq": where OQueue clients mount the shared folder
        ServiceAccount,          ///< "nobody": the account the OQueue client runs as
        OldInstallationsRoot,    ///< "/opt": older installers put Orvanis in its "orvanis*" directories
        LicenseServerDir,        ///< "/usr/sbin": where an older installer put the licence server
        LicenseServerExecutable, ///< "mrlxnetd": the licence server's program in LicenseServerDir
        LocationCount            ///< the number of locations, not a location
    };

    /// The value now in force: a test's setting, else the default. Never fails.
    static QString value(Location location);
    /// The fixed default, whatever a test has set. Never fails.
    static QString defaultValue(Location location);

    /// Replaces one value for the rest of the process, or until resetForTesting.
    static void setForTesting(Location location, QString const & value);
    /// Puts every value back to its default.
    static void resetForTesting();
};
