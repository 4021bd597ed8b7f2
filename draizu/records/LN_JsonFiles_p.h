#pragma once

#include <QJsonDocument>
#include <QString>

class LN_FileOpener;

/// A manifest of a build, opened through the opener and parsed. Throws LN_Exception with
/// "Failed to open <location>: <reason>" or the parser's text.
QJsonDocument readInstallManifest(QString const & location, LN_FileOpener & opener);
