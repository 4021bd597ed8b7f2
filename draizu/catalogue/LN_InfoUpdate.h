#pragma once

#include <draizu/catalogue/LN_PlatformInfo.h>

#include <QDate>
#include <QString>
#include <QStringList>
#include <QVersionNumber>

/// What the site says today about one build: the parts of a catalogue element that may change
/// after the build was installed, with the build's identity beside them. A plain value record,
/// copied at will; it cannot fail.
struct LN_InfoUpdate
{
    /// Version of the build.
    QVersionNumber version;
    /// Version of the engine API; null for a build the catalogue gives without one.
    QVersionNumber oapiVersion;
    /// System the build is made for.
    LN_PlatformInfo platform;
    /// Build type; empty for an ordinary build.
    QString buildType;
    /// Tags as the catalogue gives them now.
    QStringList tags;
    /// Release date; null when the catalogue gives none.
    QDate releaseDate;
};
