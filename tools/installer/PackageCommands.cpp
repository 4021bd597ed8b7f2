#include "PackageCommands.h"

#include "CommandError.h"
#include "InstallSteps.h"

#include <draizu/api/LN_Message.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/packages/LN_AvailablePackageLoader.h>
#include <draizu/packages/LN_AvailablePackageResult.h>
#include <draizu/packages/LN_OrvanisPackageUtil.h>
#include <draizu/packages/LN_Package.h>
#include <draizu/prefs/LN_Preferences.h>

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

QString const offlineOption = u"offline-installer"_s;
QString const sourceOption = u"source"_s;
QString const targetOption = u"target"_s;

// The packages of an unpacked installer, whose document the library reads from archives only.
QList<LN_AvailablePackage> unpackedPackages(QString const & directory, QStringList & errors)
{
    QFile document(QDir(directory).filePath(u"packages/packages.json"_s));
    if (!document.open(QIODevice::ReadOnly))
        return {};
    LN_AvailablePackageResult result = LN_AvailablePackage::fromJson(QJsonDocument::fromJson(document.readAll()), true);
    errors += result.errors;
    for (LN_AvailablePackage & package : result.packages)
        package.offlineInstallerPath = directory;
    return result.packages;
}

// What the offline installer and the sources offer; the preferences name the sources unless
// --source does.
QList<LN_AvailablePackage> offered(Context & context, QCommandLineParser const & parser, QStringList & errors)
{
    QList<LN_AvailablePackage> packages;
    LN_AvailablePackageLoader loader;
    QString const offline = parser.value(offlineOption);
    if (!offline.isEmpty()) {
        if (QFileInfo(offline).isDir())
            packages = unpackedPackages(offline, errors);
        else
            loader.getAvailablePackages(offline, &context.network, packages);
        return packages;
    }
    QList<QUrl> sources;
    for (QString const & source : parser.values(sourceOption))
        sources.append(QUrl(source));
    if (sources.isEmpty()) {
        sources = InstallSteps::preferencesOf(context)->getPackageSourceUrls();
    }
    loader.getAvailablePackages(sources, &context.network, packages);
    errors += loader.getErrors();
    return packages;
}

QString targetDirectory(QCommandLineParser const & parser)
{
    if (parser.isSet(targetOption))
        return QDir(parser.value(targetOption)).absolutePath();
    return LN_OrvanisPackageUtil::getPackageDirectories().constLast();
}

// The packages to install, each after those it requires; a requirement no source offers fails.
QList<LN_AvailablePackage> withRequirements(QList<LN_AvailablePackage> const & available, QStringList const & names)
{
    QHash<QString, LN_AvailablePackage> byName;
    for (LN_AvailablePackage const & package : available)
        byName.insert(package.name, package);
    QList<LN_AvailablePackage> ordered;
    QSet<QString> visited;
    std::function<void(QString const &, QString const &)> visit = [&](QString const & name, QString const & by) {
        if (visited.contains(name))
            return;
        visited.insert(name);
        auto const found = byName.constFind(name);
        if (found == byName.constEnd())
            throw CommandError(Exit_NotFound, by.isEmpty()
                                                  ? u"No package source offers %1"_s.arg(name)
                                                  : u"%1 requires %2, which no package source offers"_s.arg(by, name));
        for (QString const & required : found->requiredPackages)
            visit(required, name);
        ordered.append(*found);
    };
    for (QString const & name : names)
        visit(name, {});
    return ordered;
}

ExitCode exitCodeOf(LN_Package::InstallResult const & result)
{
    switch (result.status) {
    case LN_Package::Success:
    case LN_Package::Skipped:
        return Exit_Success;
    case LN_Package::Rejected:
        return result.message == u"Checksum did not match"_s ? Exit_ChecksumMismatch : Exit_Failure;
    case LN_Package::Failed:
        break;
    }
    return Exit_Failure;
}

int available(Context & context, QCommandLineParser const & parser)
{
    QStringList errors;
    QJsonArray list;
    for (LN_AvailablePackage const & package : offered(context, parser, errors)) {
        list.append(QJsonObject{{u"name"_s, package.name}, {u"display name"_s, package.displayName},
                                {u"version"_s, package.version.toString()}, {u"description"_s, package.description},
                                {u"requires"_s, QJsonArray::fromStringList(package.requiredPackages)}});
        context.console.line(u"%1 %2  %3%4"_s.arg(package.name, package.version.toString(), package.displayName,
                                                 package.requiredPackages.isEmpty()
                                                     ? QString()
                                                     : u"  (requires "_s + package.requiredPackages.join(u", "_s) + u')'));
    }
    for (QString const & error : std::as_const(errors))
        context.console.report(LN_Message::warn(error));
    return context.console.finish(u"packages available"_s, Exit_Success, {},
                                  {{u"packages"_s, list}, {u"errors"_s, QJsonArray::fromStringList(errors)}});
}

int install(Context & context, QCommandLineParser const & parser, QStringList const & names)
{
    QStringList errors;
    QList<LN_AvailablePackage> const packages = withRequirements(offered(context, parser, errors), names);
    QDir const target(targetDirectory(parser));
    LN_Package::Progress const progress = [&](int value, int maximum, QString const & text) {
        context.console.report(maximum < 0 ? LN_Message::info(text) : LN_Message::progress(value, maximum, text));
    };
    QStringList installed;
    for (LN_AvailablePackage const & package : packages) {
        context.console.report(LN_Message::info(u"Installing the package %1 into %2"_s.arg(package.name, target.path())));
        LN_Package::InstallResult result;
        if (!package.offlineInstallerPath.isEmpty()) {
            LN_InstallerOptions options;
            options.offlineInstaller = package.offlineInstallerPath;
            LN_FileOpener opener(&context.network, options);
            result = LN_Package::installZipPackagesFromZipStream(opener, {package.name}, target, progress);
        } else {
            result = LN_Package::downloadAndInstallZipPackages(&context.network, package.url, {package.name},
                                                                package.checksum, target, progress);
        }
        if (exitCodeOf(result) != Exit_Success)
            throw CommandError(exitCodeOf(result), u"The package %1 was not installed: %2"_s.arg(package.name,
                                                                                             result.message));
        installed << package.name;
    }
    return context.console.finish(u"packages install"_s, Exit_Success,
                                  u"Installed into %1: %2"_s.arg(target.path(), installed.join(u", "_s)),
                                  {{u"installed"_s, QJsonArray::fromStringList(installed)}});
}

int installedPackages(Context & context, QCommandLineParser const & parser)
{
    QJsonArray list;
    for (LN_OrvanisPackage const & package : LN_OrvanisPackageUtil::parsePackageFiles(targetDirectory(parser))) {
        list.append(QJsonObject{{u"name"_s, package.packageName()}, {u"version"_s, package.version().toString()},
                                {u"file"_s, package.filePath()}});
        context.console.line(u"%1 %2"_s.arg(package.packageName(), package.version().toString()));
    }
    return context.console.finish(u"packages installed"_s, Exit_Success, {}, {{u"packages"_s, list}});
}

int remove(Context & context, QCommandLineParser const & parser, QStringList const & names)
{
    QDir const target(targetDirectory(parser));
    for (QString const & name : names) {
        QString const description = target.filePath(name + u".json"_s);
        if (name.contains(u'/') || !QFileInfo::exists(description))
            throw CommandError(Exit_NotFound, u"No package %1 is installed in %2"_s.arg(name, target.path()));
        LN_Package::InstallResult const result = LN_Package::uninstallPackage(description);
        if (result.status == LN_Package::Failed)
            throw CommandError(Exit_Failure, u"The package %1 was not removed: %2"_s.arg(name, result.message));
    }
    return context.console.finish(u"packages remove"_s, Exit_Success,
                                  u"Removed from %1: %2"_s.arg(target.path(), names.join(u", "_s)));
}

} // namespace

OwnCommand PackageCommands::command()
{
    return {u"packages"_s,
            u"packages available|install NAME...|installed|remove NAME..."_s,
            u"Add-on packages: what the sources or an offline installer offer, and what is installed"_s,
            {{offlineOption, u"The offline installer whose packages are offered"_s, u"path"_s},
             {sourceOption, u"A package source, instead of those of the preferences (repeatable)"_s, u"url"_s},
             {targetOption, u"The package directory (default: the one beside the application)"_s, u"dir"_s}},
            [](Context & context, QCommandLineParser const & parser, QStringList const & arguments) {
                QString const action = arguments.value(0);
                QStringList const names = arguments.mid(1);
                bool const takesNames = action == u"install"_s || action == u"remove"_s;
                if (takesNames == names.isEmpty())
                    throw CommandError(Exit_Usage, u"Incorrect number of arguments"_s);
                if (action == u"available"_s)
                    return available(context, parser);
                if (action == u"install"_s)
                    return install(context, parser, names);
                if (action == u"installed"_s)
                    return installedPackages(context, parser);
                if (action == u"remove"_s)
                    return remove(context, parser, names);
                throw CommandError(Exit_Usage, u"Unknown packages action \"%1\""_s.arg(action));
            }};
}
