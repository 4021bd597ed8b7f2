#pragma once

#include "Console.h"

#include <QCommandLineOption>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

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

/// A command of the installer's own (not a verb of the library's command line).
struct OwnCommand
{
    QString name;
    QString syntax;      ///< for the help, as "verify DIR"
    QString description; ///< for the help
    QList<QCommandLineOption> options;
    /// Runs with the positional arguments after the name; returns the exit status and throws
    /// CommandError or LN_Exception.
    std::function<int(Context &, QCommandLineParser const &, QStringList const &)> run;
};

/// The commands; each returns its exit status and throws CommandError or LN_Exception.
namespace Commands {

/// The installer's own commands, in the order of the help.
QList<OwnCommand> ownCommands();
/// The operations of a verb of the library's command line (install, extract, uninstall).
int operations(Context & context, QCommandLineParser const & parser);

} // namespace Commands
