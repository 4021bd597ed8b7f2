#pragma once

#include <draizu/draizu_export.h>

class LN_InstallerOptions;
struct LN_AvailableInfo;

namespace LN_Util {

/// Whether the catalogue element can serve the options: the same platform (when the options
/// name one), version, build type and product, and every feature the options select among
/// the element's direct sub-features. Never fails.
DRAIZU_EXPORT bool couldInstall(LN_InstallerOptions const & options, LN_AvailableInfo const & build);

} // namespace LN_Util
