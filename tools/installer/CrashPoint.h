#pragma once

/// The file-count trigger of the crash-safety tests, for tests only: when the environment
/// variable DRAIZU_INSTALLER_TEST_KILL_AFTER holds a number N, the process kills itself with
/// SIGKILL right after the N-th file step of an operation (a file written under its temporary
/// name, renamed into place, or removed). Without the variable every call is a counter
/// increment. A real kill lands anywhere; this one lands where the test asks, so that a loop
/// over N reaches every stage of install, modify, repair and uninstall.
namespace CrashPoint {

/// Counts one file step; never returns when it is the one the test chose.
void fileStepDone();

} // namespace CrashPoint
