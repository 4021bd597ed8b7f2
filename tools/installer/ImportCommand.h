#pragma once

#include "Commands.h"

/// `import`: the installations that older installers left without records. Without arguments
/// it lists those found; given directories, or --all, it records them in the repository with
/// the files they hold now, so that list, verify and uninstall treat them like the others.
///
///     import [DIR...] [--all]
namespace ImportCommand {

/// The row of the installer's command table.
OwnCommand command();

} // namespace ImportCommand
