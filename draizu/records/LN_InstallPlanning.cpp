#include <draizu/records/LN_InstallPlanning.h>

#include <draizu/core/LN_ErrorCode.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/host/LN_Service.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_CouldInstall.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/platform/LN_WriteProbe_p.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_ServiceProgram_p.h>

#include <QDir>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;
using Probe = LN_WriteProbe::Outcome;

namespace {

QString const oserverService = u"OrvanisServer"_s;

int trackPoints(LN_AvailableInfo const & build, LN_Preferences::UpdateTrack track)
{
    bool const prerelease = build.tags.contains(u"Alpha"_s) || build.tags.contains(u"Beta"_s);
    switch (track) {
    case LN_Preferences::Track_Production:
        return build.tags.contains(u"Production"_s) ? 12 : 0;
    case LN_Preferences::Track_Daily:
        if (prerelease)
            return 0;
        return build.isProductionBuild() ? 4 : 12;
    case LN_Preferences::Track_Beta:
        return prerelease ? 12 : 4;
    }
    return 0;
}

int rank(LN_AvailableInfo const & build, LN_Preferences::UpdateTrack track, LN_LauncherVersionInfo const & launcher)
{
    int const buildType = build.buildType == launcher.extraText ? 16 : 0;
    int const maturity = build.isProductionBuild() ? 3 : build.tags.contains(u"Alpha"_s) ? 1 : 2;
    return buildType + trackPoints(build, track) + maturity;
}

// The service manager reports each step's failure with a sentence of its own; the step decides
// which sentence of ours stands for it.
LN_Result<QVersionNumber> oserverQueryFailure(LN_Service::ServiceConfigResult const & result)
{
    auto const failure = [&result](QString const & sentence) {
        int const code = result.errorCode != 0 ? static_cast<int>(result.errorCode) : EIO;
        return LN_Result<QVersionNumber>(LN_ErrorStruct{std::error_code(code, std::generic_category()), sentence});
    };
    if (result.errorMessage.startsWith(u"Failed to open service manager"_s))
        return failure(u"An error occurred when attempting to open the service manager."_s);
    if (result.errorMessage.startsWith(u"Failed to query service config"_s))
        return failure(u"An error occurred when attempting to read the service configuration."_s);
    if (result.errorCode == ENOENT)
        return QVersionNumber();
    return failure(u"An error occurred when attempting to open the service."_s);
}

} // namespace

bool LN_Util::doesInstall(LN_InstallerOptions const & options, LN_InstallMetadata const & metadata)
{
    switch (options.verb) {
    case LN_InstallerOptions::Install:
    case LN_InstallerOptions::Repair:
        return true;
    case LN_InstallerOptions::Uninstall:
    case LN_InstallerOptions::Move:
        return false;
    default:
        break;
    }
    LN_ComponentMetadata const record = metadata.get(options.existingInstallDir());
    if (!options.version.isNull() && options.version != record.version)
        return true;
    if (options.isBuildTypeSet() && options.buildType() != record.buildType)
        return true;
    if (options.platform != record.platformInfo.toString())
        return true;
    if (options.product == LN_ProductID::Invalid && record.product != LN_ProductID::Invalid)
        return true;
    for (auto it = options.features.constBegin(); it != options.features.constEnd(); ++it) {
        if (it.value() && !record.features.contains(it.key()))
            return true;
    }
    return false;
}

bool LN_Util::needsAdmin(QString const & path)
{
    qsizetype const slash = path.lastIndexOf(u'/');
    if (slash < 0)
        return needsAdmin(u"."_s, path);
    return needsAdmin(path.left(slash), path.mid(slash + 1));
}

bool LN_Util::needsAdmin(QString const & directory, QString const & fileName)
{
    QString current = directory;
    for (;;) {
        int const error = LN_WriteProbe::makeDirectory(current);
        if (error == 0)
            break;
        QString const failed = current;
        qsizetype const slash = current.lastIndexOf(u'/');
        // A path without a separator ("." of a bare file name) is kept: there is nothing to cut.
        current = slash < 0 ? current : current.left(slash);
        Probe const outcome = LN_WriteProbe::outcomeOf(error);
        if (outcome == Probe::PathNotFound && slash >= 0)
            continue;
        if (outcome == Probe::AccessDenied)
            return true;
        if (outcome == Probe::AlreadyExists || outcome == Probe::PathNotFound)
            break;
        throw LN_Exception(u"Unable to create directory \"%1\": %2"_s.arg(
            failed, LN_ErrorCode::errcodeToString(static_cast<unsigned long>(error))));
    }

    QString const file = current + u'/' + fileName;
    int error = LN_WriteProbe::openForWriting(file, true);
    if (error == 0) {
        removeFile(file);
        return false;
    }
    if (LN_WriteProbe::outcomeOf(error) == Probe::AlreadyExists) {
        error = LN_WriteProbe::openForWriting(file, false);
        if (error == 0)
            return false;
    }
    if (LN_WriteProbe::outcomeOf(error) == Probe::AccessDenied)
        return true;
    throw LN_Exception(u"Unable to create file \"%1\": %2"_s.arg(
        file, LN_ErrorCode::errcodeToString(static_cast<unsigned long>(error))));
}

qint64 LN_Util::diskSpaceRequired(LN_InstallerOptions const & options, LN_AvailableInfo const & build)
{
    if (productFromString(build.feature.name) != options.product)
        return -1;
    qint64 size = build.feature.size;
    for (LN_AvailableFeature const & feature : build.feature.features) {
        if (options.features.value(feature.name, false))
            size += feature.size;
    }
    return size;
}

qint64 LN_Util::diskSpaceRequired(LN_InstallerOptions const & options, QList<LN_AvailableInfo> const & builds)
{
    for (LN_AvailableInfo const & build : builds) {
        if (couldInstall(options, build))
            return diskSpaceRequired(options, build);
    }
    return -1;
}

LN_AvailableInfo LN_Util::checkForLatestVersion(QNetworkAccessManager * manager)
{
    if (!manager)
        return {};
    LN_FileOpener opener(manager, LN_InstallerOptions());
    LN_Result<QList<LN_AvailableInfo>> const builds = LN_AvailableInfo::availableOrvanisVersions(opener, QString());
    LN_AvailableInfo latest;
    if (builds.isError())
        return latest;
    for (LN_AvailableInfo const & build : builds.value) {
        if (build.platform.isCompatibleArchitecture() && QVersionNumber::compare(build.version, latest.version) > 0)
            latest = build;
    }
    return latest;
}

LN_AvailableInfo LN_Util::getLauncherUpdateVersion(QList<QVersionNumber> const & minimumVersions,
                                                   QList<LN_AvailableInfo> const & builds,
                                                   LN_Preferences::UpdateTrack track, LN_LauncherVersionInfo launcher)
{
    QList<LN_AvailableInfo> candidates;
    for (LN_AvailableInfo const & build : builds) {
        if (QVersionNumber::compare(build.version, launcher.version) > 0
            && meetsMinimumVersions(minimumVersions, build.version) && build.feature.name == u"Orvanis"_s)
            candidates.append(build);
    }
    if (candidates.isEmpty())
        return {};
    std::ranges::stable_sort(candidates, [&](LN_AvailableInfo const & a, LN_AvailableInfo const & b) {
        int const rankA = rank(a, track, launcher);
        int const rankB = rank(b, track, launcher);
        return rankA != rankB ? rankA > rankB : QVersionNumber::compare(a.version, b.version) > 0;
    });
    return candidates.constFirst();
}

bool LN_Util::meetsMinimumVersions(QList<QVersionNumber> const & minimumVersions, QVersionNumber const & version)
{
    bool lineAbove = false;
    for (QVersionNumber const & minimum : minimumVersions) {
        int const line = versionMMCmp(minimum, version);
        if (line == 0)
            return QVersionNumber::compare(minimum, version) <= 0;
        lineAbove = lineAbove || line > 0;
    }
    return !minimumVersions.isEmpty() && !lineAbove;
}

LN_Result<QVersionNumber> LN_Util::getOserverVersion()
{
    LN_Service::ServiceConfigResult const result = LN_Service::queryService(oserverService);
    if (!result.config)
        return oserverQueryFailure(result);
    return getFileVersion(LN_ServiceProgram::programOf(result.config->binaryPath));
}

QString LN_Util::oserverVersionFilePath()
{
    return QDir(applicationRoot()).filePath(u"data/oserver_version.txt"_s);
}

QString LN_Util::defaultInstallerName(LN_InstallerOptions const & options)
{
    QString const buildType = options.buildType().isEmpty() ? QString() : u'-' + options.buildType();
    return u"orvanis%1-%2-%3.iso"_s.arg(buildType, options.version.toString(), options.platform);
}
