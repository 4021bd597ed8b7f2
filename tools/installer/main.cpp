// draizu-installer: installs, changes, repairs, lists, verifies and uninstalls the products of
// an offline installer or the site. The verbs take the library's command line; list, available
// and verify are the installer's own; --server NAME offers the same work over the request
// protocol. docs/installer.md describes the commands, the files it keeps and its exit statuses.

#include "CommandError.h"
#include "Commands.h"
#include "Console.h"
#include "ProtocolFront.h"
#include "Recovery.h"

#include <draizu/core/LN_Exception.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_InstallMetadata.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QNetworkAccessManager>
#include <QStandardPaths>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QString description()
{
    QStringList commands;
    for (OwnCommand const & command : Commands::ownCommands())
        commands << command.syntax;
    return u"Installs the products of the Orvanis family from an offline installer or the site.\n\n"
           u"Verbs: install, extract, modify, repair, uninstall.\n"
           u"Commands: %1.\n"
           u"Give --help after a verb or command for its options."_s.arg(commands.join(u", "_s));
}

// Where the installer keeps its records and logs unless told otherwise.
QString dataDirectory()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)).filePath(u"Marlux"_s);
}

QString optionOrEnvironment(QCommandLineParser const & parser, QString const & option, char const * variable,
                            QString const & fallback)
{
    if (parser.isSet(option))
        return parser.value(option);
    QString const value = qEnvironmentVariable(variable);
    return value.isEmpty() ? fallback : value;
}

void addGlobalOptions(QCommandLineParser & parser)
{
    parser.setApplicationDescription(description());
    parser.addHelpOption();
    parser.addOptions({
        {u"json"_s, u"Write one JSON object per line: progress, messages, and the result last."_s},
        {u"repository"_s,
         u"The directory of the installation records (DRAIZU_REPOSITORY; default <data home>/Marlux/installations)."_s,
         u"dir"_s},
        {u"preferences"_s, u"The launcher's preferences file (DRAIZU_PREFERENCES; default the user's own)."_s,
         u"file"_s},
        {u"log-dir"_s, u"Where the log of each operation is written (default <data home>/Marlux/logs)."_s, u"dir"_s},
        {u"scan-timeout"_s, u"Give up on an offline installer whose scan makes no progress for this long (default 60)."_s,
         u"seconds"_s},
        {u"only-if-newer"_s, u"Do nothing when the same or a newer version of the product is installed already."_s},
        {u"server"_s, u"Serve the request protocol on the client's local server <name> instead of a command."_s,
         u"name"_s},
    });
}

int runOwnCommand(Context & context, QCommandLineParser & parser, QStringList const & arguments,
                  OwnCommand const & command)
{
    parser.clearPositionalArguments();
    parser.addPositionalArgument(command.name, command.description, command.syntax);
    parser.addOptions(command.options);
    if (!parser.parse(arguments))
        throw CommandError(Exit_Usage, parser.errorText());
    if (parser.isSet(u"help"_s)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return Exit_Success;
    }
    return command.run(context, parser, parser.positionalArguments().mid(1));
}

int run(QStringList const & arguments, Console & output, QString & command)
{
    QCommandLineParser parser;
    addGlobalOptions(parser);
    parser.addPositionalArgument(u"command"_s, u"A verb or a command"_s);
    parser.parse(arguments);
    command = parser.positionalArguments().value(0);

    QString const data = dataDirectory();
    QDir const repositoryDirectory(optionOrEnvironment(parser, u"repository"_s, "DRAIZU_REPOSITORY",
                                                       QDir(data).filePath(u"installations"_s)));
    if (!QDir().mkpath(repositoryDirectory.path()))
        throw CommandError(Exit_Failure, u"Cannot create the repository directory "_s + repositoryDirectory.path());
    QNetworkAccessManager network;
    bool stallOk = false;
    int const stallSeconds = parser.value(u"scan-timeout"_s).toInt(&stallOk);
    ProtocolFront::Settings const settings{
        repositoryDirectory, optionOrEnvironment(parser, u"preferences"_s, "DRAIZU_PREFERENCES", {}),
        parser.isSet(u"log-dir"_s) ? parser.value(u"log-dir"_s) : QDir(data).filePath(u"logs"_s),
        stallOk && stallSeconds > 0 ? stallSeconds : 60};
    QDir().mkpath(settings.logDirectory);
    if (parser.isSet(u"server"_s))
        return ProtocolFront::serve(parser.value(u"server"_s), settings, network);
    LN_InstallMetadata repository(repositoryDirectory);
    Recovery::adoptInterruptedUninstall(repository);
    Recovery::measureUnknownSizes(repository);
    Context context{output, repository, network, settings.preferencesPath, settings.logDirectory,
                    settings.scanStallSeconds, {}};

    for (OwnCommand const & own : Commands::ownCommands()) {
        if (own.name == command)
            return runOwnCommand(context, parser, arguments, own);
    }

    LN_InstallerOptions::addOptions(parser, arguments, repository);
    if (parser.isSet(u"help"_s)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return Exit_Success;
    }
    return Commands::operations(context, parser);
}

} // namespace

int main(int argc, char * argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"draizu-installer"_s);
    QStringList const arguments = QCoreApplication::arguments();
    Console console(arguments.contains(u"--json"_s));
    QString command;
    try {
        return run(arguments, console, command);
    } catch (CommandError const & error) {
        return console.finish(command, error.code, error.message);
    } catch (std::exception const & error) {
        // The library throws this for an operation on a directory that holds no installation.
        QString const text = QString::fromUtf8(error.what());
        bool const notFound = text.endsWith(u" does not contain an installation."_s);
        return console.finish(command, notFound ? Exit_NotFound : Exit_Failure, text);
    }
}
