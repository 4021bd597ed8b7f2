#pragma once

#include "Commands.h"

class LN_FileOpener;
class LN_InstallerOptions;
struct LN_AvailableInfo;

/// `plan`: what an install, modify or uninstall line would do, without changing anything:
/// whether it installs anything, whether the target needs elevated rights, the space it needs
/// against the space free at the nearest existing parent, the files it would add, replace and
/// remove, and whether a newer launcher is on offer.
///
///     plan -- VERB ARGUMENTS... [OPTIONS]
namespace PlanCommand {

/// The row of the installer's command table.
OwnCommand command();

/// Throws CommandError, with both figures, when the free space at the target is less than the
/// files of the build that the options select; reads their manifests through the opener.
void refuseIfShort(LN_FileOpener & opener, LN_InstallerOptions const & options, LN_AvailableInfo const & build);

} // namespace PlanCommand
