#pragma once

#include "Console.h"

#include <QCommandLineOption>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

class LN_InstallMetadata;
class LN_InstallerOptions;
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
    /// Asked between the files of an operation; true stops and undoes it. Empty: never.
    std::function<bool()> cancelled;
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
/// The operations of a verb of the library's command line (install, extract, modify, repair,
/// uninstall).
int operations(Context & context, QCommandLineParser const & parser);
/// One operation, however its options were made. `given` names the options that the caller
/// chose explicitly, which preferences do not override; `order` is the offline installer's
/// archive order, empty for a directory or the site.
int perform(Context & context, LN_InstallerOptions const & options, QStringList const & given,
            QHash<QString, qsizetype> const & order);

} // namespace Commands
