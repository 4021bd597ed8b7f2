#pragma once

#include <draizu/draizu_export.h>

#include <QString>
#include <QVersionNumber>

/// Describes a launcher build: by default this launcher's own. A plain value record, copied at
/// will; it reads nothing and cannot fail.
struct DRAIZU_EXPORT LN_LauncherVersionInfo
{
    /// This launcher: launcherVersion, no extra text, and the compiler tag of its build.
    LN_LauncherVersionInfo();
    /// Another launcher build, as given.
    LN_LauncherVersionInfo(QVersionNumber launcher, QString text, QString compilerTag);

    /// The launcher's version.
    QVersionNumber version;
    /// Free text about the build; nothing here reads it.
    QString extraText;
    /// Compiler tag of the launcher's build.
    QString compiler;
};
