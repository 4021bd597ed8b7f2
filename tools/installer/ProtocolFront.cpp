#include "ProtocolFront.h"

#include "ArchiveScan.h"
#include "CommandError.h"
#include "Commands.h"
#include "Console.h"
#include "Recovery.h"

#include <draizu/api/LN_ApiRequest.h>
#include <draizu/api/LN_ApiSocket.h>
#include <draizu/api/LN_AutoApiRequest.h>
#include <draizu/api/LN_IApiHandler.h>
#include <draizu/catalogue/LN_InstallOption.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_InstallMetadata.h>

#include <QAbstractEventDispatcher>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QPointer>

#include <climits>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

using ProtocolFront::Settings;

LN_ApiRequest::Result statusOf(int exitCode)
{
    switch (exitCode) {
    case Exit_Success:
        return LN_ApiRequest::Result_Ok;
    case Exit_Usage:
        return LN_ApiRequest::Result_BadRequest;
    case Exit_NotFound:
        return LN_ApiRequest::Result_NotFound;
    default:
        return LN_ApiRequest::Result_ServerError;
    }
}

// PROGRESS carries 32-bit numbers; byte counts of a large build are scaled down to fit.
void forwardProgress(LN_ApiRequest & request, qint64 current, qint64 total)
{
    qint64 const scale = total / INT_MAX + 1;
    request.progress(int(current / scale), int(total / scale));
}

// The command line's own form of a call: positional arguments, then each named one as an
// option, a `true` as a bare flag.
QStringList commandLineOf(QString const & name, QJsonArray const & args, QJsonObject const & kwargs)
{
    QStringList line{QCoreApplication::applicationFilePath(), name};
    for (QJsonValue const & value : args)
        line << value.toVariant().toString();
    for (auto it = kwargs.constBegin(); it != kwargs.constEnd(); ++it) {
        if (it.value().isBool()) {
            if (it.value().toBool())
                line << u"--"_s + it.key();
            continue;
        }
        line << u"--"_s + it.key() << it.value().toVariant().toString();
    }
    return line;
}

// The options of an operation: the first argument or "options", as a JSON object or its text.
LN_InstallerOptions optionsOf(QJsonArray const & args, QJsonObject const & kwargs, LN_InstallerOptions::Verb verb)
{
    QJsonValue const value = args.isEmpty() ? kwargs.value(u"options"_s) : args.first();
    QString const text = value.isObject() ? QString::fromUtf8(QJsonDocument(value.toObject()).toJson()) : value.toString();
    LN_Result<LN_InstallerOptions> parsed = LN_InstallerOptions::deserialize(text);
    if (parsed.isError())
        throw CommandError(Exit_Usage, u"The options cannot be read: "_s + parsed.error.message);
    parsed.value.verb = verb;
    return parsed.value;
}

// What the command line takes from the repository, for options that come whole: an install
// over a recorded directory changes that installation, and a change starts from the record,
// the caller's explicit choices winning.
void completeFromRecord(LN_InstallerOptions & options, LN_InstallMetadata const & repository)
{
    if (options.verb == LN_InstallerOptions::Install && repository.isTaken(options.installDir())) {
        options.verb = LN_InstallerOptions::Modify;
        options.setExistingInstallDir(options.installDir());
        options.setInstallDir(QString());
    }
    if (options.verb == LN_InstallerOptions::Install || options.verb == LN_InstallerOptions::Extract)
        return;
    LN_ComponentMetadata const record = repository.get(options.existingInstallDir());
    if (record.installDir.isEmpty())
        throw CommandError(Exit_NotFound,
                           u"%1 does not contain an installation."_s.arg(options.existingInstallDir()));
    options.product = record.product;
    if (options.version.isNull())
        options.version = record.version;
    if (!options.isBuildTypeSet())
        options.setBuildType(record.buildType);
    if (options.platform.isEmpty())
        options.platform = record.platformInfo.toString();
    for (auto it = record.otherOptions.constBegin(); it != record.otherOptions.constEnd(); ++it)
        options.otherOptions.insert(it.key(), options.otherOptions.value(it.key(), it.value()));
    for (auto it = record.features.constBegin(); it != record.features.constEnd(); ++it)
        options.features.insert(it.key(), options.features.value(it.key(), true));
}

int runOperation(Context & context, LN_InstallerOptions options)
{
    completeFromRecord(options, context.repository);
    QHash<QString, qsizetype> order;
    QFileInfo const source(options.offlineInstaller);
    if (!options.offlineInstaller.isEmpty() && source.exists() && !source.isDir()) {
        ArchiveScan const scan(options.offlineInstaller, context.scanStallSeconds);
        if (scan.outcome == ArchiveScan::Stalled)
            throw CommandError(Exit_Failure, scan.message);
        order = scan.order;
    }
    // Every feature of the options is the caller's choice, which preferences do not override.
    QStringList given;
    for (LN_InstallOption const & row : orvanisInstallOptions) {
        if (options.features.contains(QString::fromUtf8(row.name)))
            given << QString::fromUtf8(row.optionId);
    }
    return Commands::perform(context, options, given, order);
}

int runOwnCommand(Context & context, OwnCommand const & command, QJsonArray const & args, QJsonObject const & kwargs)
{
    QCommandLineParser parser;
    parser.addOptions(command.options);
    if (!parser.parse(commandLineOf(command.name, args, kwargs)))
        throw CommandError(Exit_Usage, parser.errorText());
    return command.run(context, parser, parser.positionalArguments().mid(1));
}

// One function of the front. It works inside exec; between files it turns the event loop, which
// is how a CANCEL reaches it.
class InstallerFunction final : public LN_IApiHandler
{
public:
    using Body = std::function<int(Context &, QJsonArray const &, QJsonObject const &)>;

    InstallerFunction(QString const & name, Settings const & settings, QNetworkAccessManager & network, Body body)
        : LN_IApiHandler(name, {})
        , settings_(settings)
        , network_(network)
        , body_(std::move(body))
    {
    }

    bool isValid() const override { return true; }

    void cancel(LN_ApiRequest * request) override
    {
        cancelRequested_ = true;
        request->cancel(LN_ApiRequest::Cancel_Accepted, {});
    }

    void exec(LN_ApiRequest * request, QJsonArray const & args, QJsonObject const & kwargs) override
    {
        LN_AutoApiRequest const guard(request);
        QPointer<LN_ApiRequest> const alive(request);
        cancelRequested_ = false;
        QJsonObject result;
        Console console([&](QJsonObject const & object) { forward_(alive, object, result); });
        int code = Exit_Failure;
        try {
            LN_InstallMetadata repository(settings_.repository);
            Recovery::adoptInterruptedUninstall(repository);
            Recovery::measureUnknownSizes(repository);
            Context context{console, repository, network_, settings_.preferencesPath, settings_.logDirectory,
                            settings_.scanStallSeconds, [this] {
                                QCoreApplication::processEvents();
                                return cancelRequested_;
                            }};
            code = body_(context, args, kwargs);
        } catch (CommandError const & error) {
            code = console.finish(name(), error.code, error.message);
        } catch (std::exception const & error) {
            code = console.finish(name(), Exit_Failure, QString::fromUtf8(error.what()));
        }
        if (!alive)
            return;
        if (code != Exit_Success && cancelRequested_)
            result.insert(u"cancelled"_s, true);
        if (code == Exit_Success)
            alive->complete(result);
        else
            alive->fail(statusOf(code), result);
    }

private:
    static void forward_(QPointer<LN_ApiRequest> const & request, QJsonObject const & object, QJsonObject & result)
    {
        QString const type = object.value(u"type"_s).toString();
        if (type == u"result"_s)
            result = object;
        if (!request)
            return;
        QString const text = object.value(u"message"_s).toString();
        if (type == u"progress"_s)
            forwardProgress(*request, object.value(u"current"_s).toInteger(), object.value(u"total"_s).toInteger());
        else if (type == u"info"_s)
            request->message(text);
        else if (type == u"warning"_s)
            request->warn(text);
        else if (type == u"error"_s)
            request->error(text);
    }

    Settings const & settings_;
    QNetworkAccessManager & network_;
    Body body_;
    bool cancelRequested_ = false;
};

} // namespace

int ProtocolFront::serve(QString const & serverName, Settings const & settings, QNetworkAccessManager & network)
{
    LN_ApiSocket socket;
    LN_ApiRequestEngine & engine = socket.engine();
    auto const add = [&](QString const & name, InstallerFunction::Body body) {
        engine.registerFunction(
            QSharedPointer<LN_IApiHandler>(new InstallerFunction(name, settings, network, std::move(body))));
    };
    for (OwnCommand const & command : Commands::ownCommands()) {
        if (QStringList{u"list"_s, u"available"_s, u"plan"_s, u"verify"_s}.contains(command.name))
            add(command.name, [command](Context & context, QJsonArray const & args, QJsonObject const & kwargs) {
                return runOwnCommand(context, command, args, kwargs);
            });
    }
    for (LN_InstallerOptions::Verb const verb : {LN_InstallerOptions::Install, LN_InstallerOptions::Modify,
                                                 LN_InstallerOptions::Repair, LN_InstallerOptions::Uninstall}) {
        add(LN_InstallerOptions::verbString(verb), [verb](Context & context, QJsonArray const & args,
                                                           QJsonObject const & kwargs) {
            return runOperation(context, optionsOf(args, kwargs, verb));
        });
    }

    QString error;
    if (socket.start(serverName, error) != 0) {
        std::fprintf(stderr, "draizu-installer: cannot connect to %s: %s\n", qPrintable(serverName), qPrintable(error));
        return Exit_Failure;
    }
    // The engine ends on SHUTDOWN, at once when nothing runs; a client that goes without one
    // ends it once the running request has finished.
    bool clientGone = false;
    // Destroyed before the socket, whose teardown must not reach these handlers.
    QObject const watcher;
    auto const leaveIfDone = [&] {
        if (engine.hasShutdown())
            QCoreApplication::exit(clientGone ? Exit_Failure : Exit_Success);
    };
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &watcher,
                     leaveIfDone);
    QObject::connect(&socket, &LN_ApiSocket::shutdown, &watcher, leaveIfDone);
    QObject::connect(&socket.connection(), &QLocalSocket::disconnected, &watcher, [&] {
        if (engine.shutdownRequested())
            return;
        clientGone = true;
        std::fputs("draizu-installer: the client closed the connection; exiting\n", stderr);
        engine.requestShutdown();
    });
    return QCoreApplication::exec();
}
