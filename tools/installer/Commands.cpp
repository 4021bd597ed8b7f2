#include "Commands.h"

#include "AccountCommands.h"
#include "ArchiveScan.h"
#include "CommandError.h"
#include "ImportCommand.h"
#include "InstallPaths.h"
#include "InstallSteps.h"
#include "PackageCommands.h"
#include "PlanCommand.h"
#include "Unpacker.h"

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_CouldInstall.h>
#include <draizu/options/LN_DiskReader.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/prefs/LN_Preferences.h>
#include <draizu/records/LN_InstallMetadata.h>

#include <QCommandLineParser>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>
#include <cstdlib>
#include <memory>

using namespace Qt::StringLiterals;
using namespace InstallSteps;

namespace {

QString channelOf(LN_AvailableInfo const & build)
{
    for (QString const & tag : {u"Alpha"_s, u"Beta"_s, u"Production"_s}) {
        if (build.tags.contains(tag))
            return tag.toLower();
    }
    return u"unreleased"_s;
}


// An archive is scanned once by the installer itself before the library reads it: a scan that
// hangs stops here, and the order found lets every file be read in one pass.
QHash<QString, qsizetype> scanOfflineInstaller(Context & context, QString const & path)
{
    QFileInfo const info(path);
    if (path.isEmpty() || !info.exists() || info.isDir())
        return {};
    ArchiveScan const scan(path, context.scanStallSeconds);
    if (scan.outcome == ArchiveScan::Stalled) {
        context.console.finish(u"scan"_s, Exit_Failure, scan.message);
        // The scanning thread cannot be stopped; nothing of this process is worth more cleanup.
        std::_Exit(Exit_Failure);
    }
    return scan.order;
}

bool isUpToDate(LN_InstallMetadata const & repository, LN_InstallerOptions const & options)
{
    QList<QVersionNumber> const installed = repository.getInstalledProductVersions(options.product);
    return std::ranges::any_of(installed, [&](QVersionNumber const & version) {
        return QVersionNumber::compare(version, options.version) >= 0;
    });
}

int install(Context & context, QStringList const & given, LN_InstallerOptions options,
            QHash<QString, qsizetype> const & order)
{
    QString const command = options.verbString();
    if (options.isOptionSet(u"only-if-newer"_s) && isUpToDate(context.repository, options))
        return context.console.finish(command, Exit_Success,
                                      u"%1 %2 or newer is installed already; nothing to do"_s.arg(
                                          QString::fromLatin1(productName(options.product)),
                                          options.version.toString()));
    LN_FileOpener opener(&context.network, options);
    LN_AvailableInfo const build = findBuild(opener, options);
    if (options.verb == LN_InstallerOptions::Install || options.verb == LN_InstallerOptions::Extract)
        applyDefaults(options, given, *preferencesOf(context), build);
    PlanCommand::refuseIfShort(opener, options, build);
    context.console.openLog(QDir(context.logDirectory).filePath(options.defaultLogFileName()));
    context.console.report(LN_Message::info(u"Installing %1 %2 into %3"_s.arg(
        QString::fromLatin1(productName(options.product)), build.version.toString(), options.installDir())));

    Unpacker unpacker(opener, order, [&](LN_Message const & message) { context.console.report(message); },
                      context.cancelled);
    unpacker.apply(options, build, context.repository,
                   options.verb == LN_InstallerOptions::Extract ? Unpacker::Extract : Unpacker::Install);
    return context.console.finish(command, Exit_Success, u"%1 %2 is installed in %3"_s.arg(
                                                             QString::fromLatin1(productName(options.product)),
                                                             build.version.toString(), options.installDir()),
                                  {{u"directory"_s, options.installDir()}, {u"version"_s, build.version.toString()}});
}

QString countsOf(Unpacker::Outcome const & outcome)
{
    return u"%1 files written, %2 removed, %3 unchanged"_s.arg(QString::number(outcome.written.size()),
                                                             QString::number(outcome.removed.size()),
                                                             QString::number(outcome.unchanged));
}

// Modify and repair: the recorded installation is brought to the build of the options.
Unpacker::Outcome change(Context & context, LN_InstallerOptions const & options, QHash<QString, qsizetype> const & order,
                         Unpacker::Mode mode, LN_AvailableInfo & build)
{
    LN_FileOpener opener(&context.network, options);
    build = findBuild(opener, options);
    context.console.openLog(QDir(context.logDirectory).filePath(options.defaultLogFileName()));
    Unpacker unpacker(opener, order, [&](LN_Message const & message) { context.console.report(message); },
                      context.cancelled);
    return unpacker.apply(options, build, context.repository, mode);
}

// The install becomes a modify where an installation is recorded already (the library decides).
// One that never finished is completed, whatever "only-if-newer" says.
int modify(Context & context, LN_InstallerOptions options, QHash<QString, qsizetype> const & order)
{
    LN_ComponentMetadata const record = context.repository.get(options.existingInstallDir());
    if (record.ready && options.isOptionSet(u"only-if-newer"_s) && isUpToDate(context.repository, options))
        return context.console.finish(u"modify"_s, Exit_Success,
                                      u"%1 is installed in %2 already; nothing to do"_s.arg(record.shortString(),
                                                                                           record.installDir));
    if (options.isMove() && context.repository.isTaken(options.installDir()))
        throw CommandError(Exit_Failure,
                           u"%1 cannot be moved to %2, which holds another installation"_s.arg(record.installDir,
                                                                                              options.installDir()));
    context.console.report(LN_Message::info(
        (record.ready ? u"Changing the installation in "_s : u"Completing the interrupted installation in "_s)
        + record.installDir));
    LN_AvailableInfo build;
    Unpacker::Outcome const outcome = change(context, options, order, Unpacker::Install, build);
    QString const directory = options.isMove() ? options.installDir() : options.existingInstallDir();
    return context.console.finish(u"modify"_s, Exit_Success,
                                  u"%1 %2 is installed in %3: %4"_s.arg(QString::fromLatin1(productName(options.product)),
                                                                       build.version.toString(), directory,
                                                                       countsOf(outcome)),
                                  {{u"directory"_s, directory},
                                   {u"version"_s, build.version.toString()},
                                   {u"written"_s, outcome.written.size()},
                                   {u"removed"_s, outcome.removed.size()}});
}

int repair(Context & context, LN_InstallerOptions const & options, QHash<QString, qsizetype> const & order)
{
    QString const directory = options.existingInstallDir();
    LN_AvailableInfo build;
    Unpacker::Outcome const outcome = change(context, options, order, Unpacker::Repair, build);
    for (QString const & path : outcome.written)
        context.console.line(u"repaired "_s + path);
    return context.console.finish(u"repair"_s, Exit_Success,
                                  u"%1: %2 files repaired, %3 removed, %4 intact"_s.arg(
                                      directory, QString::number(outcome.written.size()),
                                      QString::number(outcome.removed.size()), QString::number(outcome.unchanged)),
                                  {{u"directory"_s, directory},
                                   {u"repaired"_s, QJsonArray::fromStringList(outcome.written)},
                                   {u"removed"_s, QJsonArray::fromStringList(outcome.removed)}});
}

int uninstall(Context & context, LN_InstallerOptions const & options)
{
    QString const directory = options.existingInstallDir();
    LN_ComponentMetadata const record = context.repository.get(directory);
    context.console.openLog(QDir(context.logDirectory).filePath(options.defaultLogFileName()));
    LN_FileOpener opener(&context.network, options);
    Unpacker unpacker(opener, {}, [&](LN_Message const & message) { context.console.report(message); });
    Unpacker::Outcome const outcome = unpacker.uninstall(directory, context.repository, options.force);
    return context.console.finish(u"uninstall"_s, Exit_Success,
                                  u"%1 is uninstalled from %2"_s.arg(record.shortString(), directory),
                                  {{u"directory"_s, directory}, {u"files"_s, outcome.removed.size()}});
}

int list(Context & context)
{
    QList<LN_ComponentMetadata> records = context.repository.getAll();
    std::ranges::sort(records, {}, &LN_ComponentMetadata::installDir);
    QJsonArray installations;
    for (LN_ComponentMetadata const & record : std::as_const(records)) {
        qint64 const size = record.installedSize();
        installations.append(QJsonObject{{u"product"_s, QString::fromLatin1(productName(record.product))},
                                         {u"version"_s, record.version.toString()},
                                         {u"build type"_s, record.buildType},
                                         {u"platform"_s, record.platformInfo.toString()},
                                         {u"directory"_s, record.installDir},
                                         {u"size"_s, size},
                                         {u"ready"_s, record.ready}});
        context.console.line(u"%1  %2  %3  %4  %5%6"_s.arg(record.shortString(), record.platformInfo.toString(),
                                                          record.installDir, LN_Util::numBytesToString(size),
                                                          record.ready ? u"ready"_s : u"NOT READY"_s,
                                                          record.ready ? QString() : u" (interrupted)"_s));
    }
    if (records.isEmpty())
        context.console.line(u"Nothing is installed."_s);
    return context.console.finish(u"list"_s, Exit_Success, {}, {{u"installations"_s, installations}});
}

int available(Context & context, QString const & offlineInstaller)
{
    scanOfflineInstaller(context, offlineInstaller);
    LN_FileOpener opener(&context.network, LN_InstallerOptions());
    LN_Result<QList<LN_AvailableInfo>> const builds = LN_AvailableInfo::availableOrvanisVersions(opener,
                                                                                                 offlineInstaller);
    if (builds.isError())
        return context.console.finish(u"available"_s, exitCodeOf(builds.error), builds.error.message);
    QJsonArray list;
    for (LN_AvailableInfo const & build : builds.value) {
        if (productFromString(build.feature.name) == LN_ProductID::Invalid)
            continue;
        bool const installable = build.launcherCanInstall();
        list.append(QJsonObject{{u"product"_s, build.feature.name}, {u"version"_s, build.version.toString()},
                                {u"build type"_s, build.buildType}, {u"platform"_s, build.platform.toString()},
                                {u"channel"_s, channelOf(build)}, {u"installable"_s, installable}});
        context.console.line(u"%1 %2%3  %4  %5%6"_s.arg(build.feature.name, build.version.toString(),
                                                       build.buildType.isEmpty() ? QString() : u'-' + build.buildType,
                                                       build.platform.toString(), channelOf(build),
                                                       installable ? QString() : u"  (needs a newer launcher)"_s));
    }
    return context.console.finish(u"available"_s, Exit_Success, {}, {{u"builds"_s, list}});
}

int verify(Context & context, QString const & directory)
{
    QString const canonical = LN_InstallerOptions::canonicalInstallPath(directory);
    LN_ComponentMetadata const record = context.repository.get(canonical);
    if (record.installDir.isEmpty())
        throw CommandError(Exit_NotFound, u"%1 does not contain an installation."_s.arg(canonical));

    QJsonArray missing, changed, extra;
    QSet<QString> recorded;
    QList<LN_FileMetadata> const files = record.allFiles();
    for (qsizetype i = 0; i < files.size(); ++i) {
        LN_FileMetadata const & file = files.at(i);
        recorded.insert(file.path);
        context.console.report(LN_Message::progress(i + 1, files.size(), u"Checking "_s + file.path));
        QString const path = InstallPaths::join(canonical, file.path);
        QFileInfo const info(path);
        if (!info.exists() && !info.isSymLink()) {
            missing.append(file.path);
            context.console.line(u"missing  "_s + file.path);
        } else if (info.size() != file.size || LN_Util::checksum(path) != file.checksum) {
            changed.append(file.path);
            context.console.line(u"changed  "_s + file.path);
        }
    }
    QDirIterator walk(canonical, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        QString const path = QDir(canonical).relativeFilePath(walk.next());
        if (!recorded.contains(path)) {
            extra.append(path);
            context.console.line(u"extra    "_s + path);
        }
    }
    bool const intact = missing.isEmpty() && changed.isEmpty();
    QString const summary = u"%1: %2 files checked, %3 missing, %4 changed, %5 not from the installation"_s.arg(
        canonical, QString::number(files.size()), QString::number(missing.size()), QString::number(changed.size()),
        QString::number(extra.size()));
    return context.console.finish(u"verify"_s, intact ? Exit_Success : Exit_ChecksumMismatch, summary,
                                  {{u"missing"_s, missing}, {u"changed"_s, changed}, {u"extra"_s, extra}});
}

// Throws the usage error unless the command got that many arguments.
void expectArguments(QStringList const & arguments, qsizetype count)
{
    if (arguments.size() != count)
        throw CommandError(Exit_Usage, u"Incorrect number of arguments"_s);
}

} // namespace

int Commands::perform(Context & context, LN_InstallerOptions const & options, QStringList const & given,
                      QHash<QString, qsizetype> const & order)
{
    switch (options.verb) {
    case LN_InstallerOptions::Install:
    case LN_InstallerOptions::Extract:
        return install(context, given, options, order);
    case LN_InstallerOptions::Modify:
        return modify(context, options, order);
    case LN_InstallerOptions::Repair:
        return repair(context, options, order);
    case LN_InstallerOptions::Uninstall:
        return uninstall(context, options);
    default:
        throw CommandError(Exit_Failure, u"%1 is not available in this version of draizu-installer"_s.arg(
                                           options.verbString()));
    }
}

QList<OwnCommand> Commands::ownCommands()
{
    QCommandLineOption const offlineInstaller(u"offline-installer"_s, u"The location of an offline installer file"_s,
                                              u"path"_s);
    QList<OwnCommand> commands{
        {u"list"_s, u"list"_s, u"The installations in the repository"_s, {},
         [](Context & context, QCommandLineParser const &, QStringList const & arguments) {
             expectArguments(arguments, 0);
             return list(context);
         }},
        {u"available"_s, u"available"_s, u"The builds of an offline installer, or of the site without one"_s,
         {offlineInstaller},
         [](Context & context, QCommandLineParser const & parser, QStringList const & arguments) {
             expectArguments(arguments, 0);
             return available(context, parser.value(u"offline-installer"_s));
         }},
        {u"verify"_s, u"verify DIR"_s, u"Check every recorded file of an installation"_s, {},
         [](Context & context, QCommandLineParser const &, QStringList const & arguments) {
             expectArguments(arguments, 1);
             return verify(context, arguments.at(0));
         }},
        PackageCommands::command(),
        PlanCommand::command(),
        ImportCommand::command(),
    };
    commands += AccountCommands::commands();
    return commands;
}

int Commands::operations(Context & context, QCommandLineParser const & parser)
{
    QString const offlineInstaller = parser.optionNames().contains(u"offline-installer"_s)
                                         ? parser.value(u"offline-installer"_s)
                                         : QString();
    QHash<QString, qsizetype> const order = scanOfflineInstaller(context, offlineInstaller);
    LN_FileOpener opener(&context.network, LN_InstallerOptions());
    LN_Result<QList<LN_InstallerOptions>> const parsed =
        LN_InstallerOptions::fromArgs(parser, context.repository, opener);
    if (parsed.isError())
        throw CommandError(exitCodeOf(parsed.error), parsed.error.message);

    int status = Exit_Success;
    for (LN_InstallerOptions const & options : parsed.value)
        status = perform(context, options, parser.optionNames(), order);
    return status;
}
