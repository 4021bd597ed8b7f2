#pragma once

class LN_InstallMetadata;

/// What the installer makes of the repository's own recovery before any command looks at it.
namespace Recovery {

/// An interrupted uninstall leaves, once the repository has recovered it, a record without a
/// directory that names the old files by absolute paths, where no command can reach it. It is
/// put back under its directory, not ready, with the description of the installation it was
/// and its files relative again, so that `list` shows it, `verify` names what is gone, and
/// `uninstall` or `repair` finishes the job. Only the table in memory changes; nothing fails.
void adoptInterruptedUninstall(LN_InstallMetadata & repository);

/// A recovered record names its files with unknown sizes, which the repository refuses to
/// commit: every other command would fail until the installation is repaired. Each such file
/// gets the size it has on disk (0 when it is gone) and no digest, which `verify` reports as
/// changed and `repair` restores. Only the table in memory changes; nothing fails.
void measureUnknownSizes(LN_InstallMetadata & repository);

} // namespace Recovery
