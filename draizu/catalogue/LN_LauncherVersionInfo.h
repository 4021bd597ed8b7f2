#pragma once

#include <draizu/draizu_export.h>

#include <QString>
#include <QVersionNumber>

/// Describes a launcher build: by default this launcher's own.
struct DRAIZU_EXPORT LN_LauncherVersionInfo
{
    LN_LauncherVersionInfo();
    LN_LauncherVersionInfo(QVersionNumber launcher, QString text, QString compilerTag);

    QVersionNumber version;
    QString extraText;
    /// Compiler tag of the launcher's build.
    QString compiler;
};
