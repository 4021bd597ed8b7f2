#pragma once

#include "Commands.h"

/// The account on the site: `login` (a password read from the terminal, or a credentials file),
/// `whoami` and `logout`. The session is kept for the next run in the file "session" beside the
/// repository directory, readable by its owner only; without one, `whoami` takes the session of
/// the local oserver, and `logout` tells the oserver to drop it as well.
namespace AccountCommands {

/// The rows of the installer's command table.
QList<OwnCommand> commands();

} // namespace AccountCommands
