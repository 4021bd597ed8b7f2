#include "PlanCommand.h"

#include "CommandError.h"
#include "InstallSteps.h"

#include <draizu/catalogue/LN_InstallOption.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_CouldInstall.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/prefs/LN_Preferences.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_InstallPlanning.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>

#include <memory>

using namespace Qt::StringLiterals;
using namespace InstallSteps;

namespace {

struct Plan
{
    QStringList added;
    QStringList replaced;
    QStringList removed;
    qint64 required = 0; ///< bytes of the files written
};

// The manifests of the product and of every selected feature at any depth, by path; a path
// named twice is written once.
QHash<QString, LN_FileMetadata> filesOf(LN_FileOpener & opener, LN_InstallerOptions const & options,
                                        LN_AvailableInfo const & build)
{
    QHash<QString, LN_FileMetadata> files;
    QList<LN_AvailableFeature> pending{build.feature};
    while (!pending.isEmpty()) {
        LN_AvailableFeature const feature = pending.takeFirst();
        pending.append(feature.features);
        if (feature.name != build.feature.name && !options.isSelected(feature.name))
            continue;
        LN_Result<QList<LN_FileMetadata>> const list = LN_FileMetadata::fileMetadataForInstall(feature, opener);
        if (list.isError())
            throw CommandError(Exit_NotFound, u"The file list %1 cannot be read: %2"_s.arg(feature.files,
                                                                                         list.error.message));
        for (LN_FileMetadata const & file : list.value)
            files.insert(file.path, file);
    }
    return files;
}

Plan planOf(QHash<QString, LN_FileMetadata> const & files, LN_ComponentMetadata const & old)
{
    Plan plan;
    QHash<QString, LN_FileMetadata> recorded;
    for (LN_FileMetadata const & file : old.allFiles())
        recorded.insert(file.path, file);
    for (LN_FileMetadata const & file : files) {
        auto const before = recorded.constFind(file.path);
        bool const kept = old.ready && before != recorded.constEnd() && before->checksum == file.checksum
                          && before->size == file.size;
        if (kept)
            continue;
        (before == recorded.constEnd() ? plan.added : plan.replaced).append(file.path);
        plan.required += std::max<qint64>(file.size, 0);
    }
    for (QString const & path : recorded.keys()) {
        if (!files.contains(path))
            plan.removed.append(path);
    }
    plan.added.sort();
    plan.replaced.sort();
    plan.removed.sort();
    return plan;
}

QString nearestExisting(QString const & path)
{
    QString current = QFileInfo(path).absoluteFilePath();
    while (!QFileInfo(current).isDir() && current != QFileInfo(current).path())
        current = QFileInfo(current).path();
    return current;
}

// Probes with a file of its own in the nearest existing directory; the probe leaves nothing.
bool needsAdmin(QString const & directory)
{
    QString const existing = nearestExisting(directory);
    return LN_Util::needsAdmin(existing == u"/"_s ? existing : existing + u'/',
                               u".draizu-plan-%1"_s.arg(QCoreApplication::applicationPid()));
}

QJsonObject planOperation(Context & context, LN_InstallerOptions options, QStringList const & given)
{
    bool const removes = options.verb == LN_InstallerOptions::Uninstall;
    LN_ComponentMetadata const old = context.repository.get(options.existingInstallDir());
    LN_FileOpener opener(&context.network, options);
    QJsonObject result{{u"verb"_s, options.verbString()},
                       {u"product"_s, QString::fromLatin1(productName(options.product))},
                       {u"installs"_s, LN_Util::doesInstall(options, context.repository)}};
    Plan plan;
    QString target = options.existingInstallDir();
    if (removes) {
        result.insert(u"version"_s, old.version.toString());
        plan = planOf({}, old);
    } else {
        LN_AvailableInfo const build = findBuild(opener, options);
        std::unique_ptr<LN_Preferences> const preferences = preferencesOf(context);
        if (options.verb == LN_InstallerOptions::Install || options.verb == LN_InstallerOptions::Extract)
            applyDefaults(options, given, *preferences, build);
        if (!options.installDir().isEmpty())
            target = options.installDir();
        plan = planOf(filesOf(opener, options, build), old);
        LN_Result<QList<LN_AvailableInfo>> const builds =
            LN_AvailableInfo::availableOrvanisVersions(opener, options.offlineInstaller);
        LN_AvailableInfo const launcher = LN_Util::getLauncherUpdateVersion(
            build.minimumLauncherVersions, builds.value, preferences->launcherUpdateTrack(), LN_LauncherVersionInfo());
        result.insert(u"version"_s, build.version.toString());
        result.insert(u"catalogue size"_s, LN_Util::diskSpaceRequired(options, build));
        result.insert(u"launcher update"_s, launcher.version.isNull() ? QJsonValue() : launcher.version.toString());
    }
    qint64 const free = LN_Util::diskSpaceAvailable(target);
    result.insert(u"directory"_s, target);
    result.insert(u"needs admin"_s, needsAdmin(target));
    result.insert(u"space required"_s, plan.required);
    result.insert(u"space free"_s, free);
    result.insert(u"free at"_s, nearestExisting(target));
    result.insert(u"enough space"_s, free < 0 || plan.required <= free);
    result.insert(u"added"_s, QJsonArray::fromStringList(plan.added));
    result.insert(u"replaced"_s, QJsonArray::fromStringList(plan.replaced));
    result.insert(u"removed"_s, QJsonArray::fromStringList(plan.removed));

    context.console.line(u"%1 %2 %3 in %4: %5"_s.arg(options.verbString(), result[u"product"_s].toString(),
                                                     result[u"version"_s].toString(), target,
                                                     result[u"installs"_s].toBool() ? u"installs files"_s
                                                                                   : u"installs nothing"_s));
    context.console.line(u"  elevated rights: %1"_s.arg(result[u"needs admin"_s].toBool() ? u"needed"_s
                                                                                          : u"not needed"_s));
    context.console.line(u"  space: %1 needed, %2 free at %3"_s.arg(LN_Util::numBytesToString(plan.required),
                                                                     LN_Util::numBytesToString(free),
                                                                     nearestExisting(target)));
    context.console.line(u"  files: %1 added, %2 replaced, %3 removed"_s.arg(
        QString::number(plan.added.size()), QString::number(plan.replaced.size()), QString::number(plan.removed.size())));
    if (result.contains(u"launcher update"_s))
        context.console.line(u"  newer launcher: %1"_s.arg(result[u"launcher update"_s].isNull()
                                                               ? u"none"_s
                                                               : result[u"launcher update"_s].toString()));
    return result;
}

int plan(Context & context, QStringList const & verbLine)
{
    QStringList const arguments = QStringList{QCoreApplication::applicationFilePath()} + verbLine;
    QCommandLineParser parser;
    parser.addOptions({{u"json"_s, u"JSON output"_s}, {u"only-if-newer"_s, u"As for the verb"_s}});
    LN_InstallerOptions::addOptions(parser, arguments, context.repository);
    if (!parser.parse(arguments))
        throw CommandError(Exit_Usage, parser.errorText());
    LN_FileOpener opener(&context.network, LN_InstallerOptions());
    LN_Result<QList<LN_InstallerOptions>> const parsed = LN_InstallerOptions::fromArgs(parser, context.repository,
                                                                                         opener);
    if (parsed.isError())
        throw CommandError(exitCodeOf(parsed.error), parsed.error.message);
    QJsonArray operations;
    bool enough = true;
    for (LN_InstallerOptions const & options : parsed.value) {
        QJsonObject const operation = planOperation(context, options, parser.optionNames());
        enough = enough && operation[u"enough space"_s].toBool();
        operations.append(operation);
    }
    return context.console.finish(u"plan"_s, Exit_Success,
                                  enough ? QString() : u"There is not enough disk space for this operation"_s,
                                  {{u"operations"_s, operations}});
}

} // namespace

OwnCommand PlanCommand::command()
{
    return {u"plan"_s, u"plan -- VERB ARGUMENTS... [OPTIONS]"_s,
            u"What an install, modify or uninstall line would do, changing nothing"_s, {},
            [](Context & context, QCommandLineParser const &, QStringList const & arguments) {
                if (arguments.isEmpty())
                    throw CommandError(Exit_Usage, u"Incorrect number of arguments"_s);
                return plan(context, arguments);
            }};
}

void PlanCommand::refuseIfShort(LN_FileOpener & opener, LN_InstallerOptions const & options,
                                LN_AvailableInfo const & build)
{
    qint64 const free = LN_Util::diskSpaceAvailable(options.installDir());
    if (free < 0)
        return;
    qint64 required = 0;
    for (LN_FileMetadata const & file : filesOf(opener, options, build))
        required += std::max<qint64>(file.size, 0);
    if (required > free)
        throw CommandError(Exit_Failure, u"Not enough disk space to install into %1: %2 needed, %3 free at %4"_s.arg(
                                             options.installDir(), LN_Util::numBytesToString(required),
                                             LN_Util::numBytesToString(free), nearestExisting(options.installDir())));
}
