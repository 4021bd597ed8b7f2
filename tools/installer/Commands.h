#pragma once

#include "Console.h"

#include <QString>

class LN_InstallMetadata;
class QCommandLineParser;
class QNetworkAccessManager;

/// What every command of draizu-installer works with.
struct Context
{
    Console & console;
    LN_InstallMetadata & repository;
    QNetworkAccessManager & network;
    QString preferencesPath; ///< empty: the user's own preferences
    QString logDirectory;
    int scanStallSeconds = 60;
};

/// The commands; each returns its exit status and throws CommandError or LN_Exception.
namespace Commands {

/// The installations in the repository.
int list(Context & context);
/// The builds of an offline installer, or of the site when none is given.
int available(Context & context, QString const & offlineInstaller);
/// Every recorded file of the installation against its manifest: missing, changed, extra.
int verify(Context & context, QString const & directory);
/// The operations of a verb of the library's command line (install, extract, uninstall).
int operations(Context & context, QCommandLineParser const & parser);

} // namespace Commands
