#include <draizu/platform/LN_KnownFolders_p.h>

#include <QStandardPaths>

// The XDG configuration folder is what follows a user here ($XDG_CONFIG_HOME or ~/.config);
// the cache and data folders are the machine's.
QString LN_KnownFolders::roamingAppData()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
}
