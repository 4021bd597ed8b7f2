#pragma once

#include "Commands.h"

/// `packages`: the add-on packages that the configured sources and an offline installer offer,
/// and those installed in a package directory.
///
///     packages available [--offline-installer PATH] [--source URL]...
///     packages install NAME... [--offline-installer PATH] [--source URL]... [--target DIR]
///     packages installed [--target DIR]
///     packages remove NAME... [--target DIR]
namespace PackageCommands {

/// The row of the installer's command table.
OwnCommand command();

} // namespace PackageCommands
