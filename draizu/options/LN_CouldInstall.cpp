#include <draizu/options/LN_CouldInstall.h>

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <algorithm>

bool LN_Util::couldInstall(LN_InstallerOptions const & options, LN_AvailableInfo const & build)
{
    if (!options.platform.isEmpty() && LN_PlatformInfo::fromString(options.platform) != build.platform)
        return false;
    if (options.version != build.version)
        return false;
    if (options.buildType() != build.buildType)
        return false;
    if (options.product != productFromString(build.feature.name))
        return false;
    for (auto it = options.features.cbegin(); it != options.features.cend(); ++it) {
        if (!it.value())
            continue;
        auto const named = [&it](LN_AvailableFeature const & feature) { return feature.name == it.key(); };
        bool const offered = std::any_of(build.feature.features.cbegin(), build.feature.features.cend(), named);
        if (!offered)
            return false;
    }
    return true;
}
