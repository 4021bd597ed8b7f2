#include <draizu/core/LN_FixedLocations.h>

#include <QMutex>
#include <QMutexLocker>

#include <array>
#include <optional>

namespace {

constexpr std::array<char16_t const *, LN_FixedLocations::LocationCount> defaults = {
    u"/opt/oqueue-server",         // OQueueServerDir
    u"/opt/oqueue-client",         // OQueueClientDir
    u"/opt/marlux/orvanis-server", // OserverDir
    u"/mnt/oq",                    // SharedFolderMount
    u"nobody",                     // ServiceAccount
    u"/opt",                       // OldInstallationsRoot
    u"/usr/sbin",                  // LicenseServerDir
    u"mrlxnetd",                   // LicenseServerExecutable
};

struct Overrides
{
    QMutex mutex;
    std::array<std::optional<QString>, LN_FixedLocations::LocationCount> values;
};

Overrides & overrides()
{
    static Overrides instance;
    return instance;
}

} // namespace

QString LN_FixedLocations::value(Location location)
{
    Overrides & state = overrides();
    QMutexLocker const lock(&state.mutex);
    return state.values[location].value_or(defaultValue(location));
}

QString LN_FixedLocations::defaultValue(Location location)
{
    return QString::fromUtf16(defaults[location]);
}

void LN_FixedLocations::setForTesting(Location location, QString const & value)
{
    Overrides & state = overrides();
    QMutexLocker const lock(&state.mutex);
    state.values[location] = value;
}

void LN_FixedLocations::resetForTesting()
{
    Overrides & state = overrides();
    QMutexLocker const lock(&state.mutex);
    state.values.fill(std::nullopt);
}
