#pragma once

#include "Commands.h"

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorStruct.h>

#include <QStringList>

#include <memory>

class LN_FileOpener;
class LN_InstallerOptions;
class LN_Preferences;

/// The steps that an install and its plan share, so that the plan says what the install does.
namespace InstallSteps {

/// The exit status of a failure of the library: a line that names nothing to be found is "not
/// found", any other fault of the line a usage error, anything else a failure.
ExitCode exitCodeOf(LN_ErrorStruct const & error);
/// The catalogue element of the product's build that the options name, read through the opener.
/// Throws CommandError when the catalogue cannot be read or holds no such build.
LN_AvailableInfo findBuild(LN_FileOpener & opener, LN_InstallerOptions const & options);
/// The preferences of --preferences or DRAIZU_PREFERENCES, else the user's own.
std::unique_ptr<LN_Preferences> preferencesOf(Context const & context);
/// Fills what the command line left open: the preferences first, then the fixed defaults. A
/// feature whose option is among the `given` option names keeps the line's choice.
void applyDefaults(LN_InstallerOptions & options, QStringList const & given, LN_Preferences const & preferences,
                   LN_AvailableInfo const & build);

} // namespace InstallSteps
