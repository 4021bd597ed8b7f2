#include <draizu/records/LN_OldInstallations.h>

#include <draizu/core/LN_FixedLocations.h>
#include <draizu/host/LN_Service.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_ServiceProgram_p.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QString const orvanisProgram = u"bin/orvanis"_s;

struct EngineFolder
{
    QString folder;
    QString feature;
};

QList<EngineFolder> const engineFolders = {{u"3dsmax"_s, u"Engine 3ds Max"_s},
                                           {u"maya"_s, u"Engine Maya"_s},
                                           {u"unity"_s, u"Engine Unity"_s},
                                           {u"unreal"_s, u"Engine Unreal"_s}};

bool allFiles(QDir const & directory, QStringList const & names)
{
    for (QString const & name : names) {
        if (!QFileInfo(directory.filePath(name)).isFile())
            return false;
    }
    return true;
}

QVersionNumber versionFileOf(QDir const & directory)
{
    QFile file(directory.filePath(u"VERSION"_s));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QVersionNumber::fromString(QString::fromUtf8(file.readAll()));
}

// getFileVersion throws for a version file it cannot read; here that is no version.
QVersionNumber programVersion(QString const & path)
{
    try {
        return LN_Util::getFileVersion(path);
    } catch (std::exception const &) {
        return {};
    }
}

QString repositoryForm(QDir const & directory)
{
    return LN_InstallerOptions::canonicalInstallPath(directory.absolutePath());
}

// The record's own reader brings job-queue records up to date from their files (the client's
// server address, the server's service name), so these records are read through it.
LN_ComponentMetadata jobQueueRecord(QDir const & directory, LN_ProductID product)
{
    QJsonObject const body{{u"product"_s, QString::fromLatin1(productName(product))},
                           {u"version"_s, versionFileOf(directory).toString()},
                           {u"imported"_s, true},
                           {u"hasUninstaller"_s, true},
                           {u"ready"_s, true}};
    QJsonObject const entry{{repositoryForm(directory), body}};
    return LN_ComponentMetadata(entry.constBegin());
}

QString firstCapture(QString const & text, QString const & pattern)
{
    return QRegularExpression(pattern).match(text).captured(1);
}

} // namespace

QList<QString> LN_Util::findOldOrvanisInstallations()
{
    QDir const root(LN_FixedLocations::value(LN_FixedLocations::OldInstallationsRoot));
    QList<QString> found;
    QFileInfoList const entries = root.entryInfoList({u"orvanis*"_s}, QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden,
                                                     QDir::Name);
    for (QFileInfo const & entry : entries) {
        if (QFileInfo(QDir(entry.filePath()).filePath(orvanisProgram)).isFile())
            found.append(repositoryForm(QDir(entry.filePath())));
    }
    return found;
}

QList<QString> LN_Util::findOldOQueueInstallations()
{
    QList<QString> found;
    for (LN_ComponentMetadata const & record : {metadataForOldOQueueClient(), metadataForOldOQueueServer()}) {
        if (record.product != LN_ProductID::Invalid)
            found.append(record.installDir);
    }
    return found;
}

LN_ComponentMetadata LN_Util::metadataForOldInstallation(QDir const & directory)
{
    LN_ComponentMetadata const licenseServer = metadataForOldLicenseServer();
    if (licenseServer.product != LN_ProductID::Invalid && licenseServer.installDir == repositoryForm(directory))
        return licenseServer;
    for (auto const builder : {metadataForOldOrvanisInstallation, &LN_Util::metadataForOldOQueueClient,
                               &LN_Util::metadataForOldOQueueServer}) {
        LN_ComponentMetadata record = builder(directory);
        if (record.product != LN_ProductID::Invalid)
            return record;
    }
    return {};
}

LN_ComponentMetadata LN_Util::metadataForOldOrvanisInstallation(QDir const & directory)
{
    if (!isOldOrvanisInstallation(directory, true))
        return {};
    LN_ComponentMetadata record;
    record.product = Product_Orvanis;
    record.installDir = repositoryForm(directory);
    record.imported = true;
    record.ready = true;
    record.hasUninstaller = hasUninstaller(directory);

    QFile setup(directory.filePath(u"orvanis_setup_bash"_s));
    QString const text = setup.open(QIODevice::ReadOnly) ? QString::fromUtf8(setup.readAll()) : QString();
    QString const python = firstCapture(text, uR"(\bOHP=[\s\S]*python(\d+)\.\d+libs)"_s);
    if (!python.isEmpty() && python != u"2"_s)
        record.buildType = u"py"_s + python;
    QStringList segments;
    for (QString const & pattern : {uR"(\bORVANIS_MAJOR_RELEASE=(\d+))"_s, uR"(\bORVANIS_MINOR_RELEASE=(\d+))"_s,
                                    uR"(\bORVANIS_BUILD_VERSION=(\d+(?:\.\d+)?))"_s}) {
        QString const segment = firstCapture(text, pattern);
        if (segment.isEmpty())
            break;
        segments.append(segment);
    }
    // Without a setup file the program's own version stands in.
    record.version = segments.isEmpty() ? programVersion(directory.filePath(orvanisProgram))
                                        : QVersionNumber::fromString(segments.join(u'.'));

    for (EngineFolder const & engine : engineFolders) {
        if (QFileInfo(directory.filePath(u"engine/"_s + engine.folder)).isDir())
            record.features.insert(engine.feature, QString());
    }
    return record;
}

LN_ComponentMetadata LN_Util::metadataForOldOQueueClient(QDir const & directory)
{
    if (!allFiles(directory, {u"oqnode.py"_s, u"oqnode.ini"_s, u"Uninstall OQueue Client"_s}))
        return {};
    return jobQueueRecord(directory, Product_OQueueClient);
}

LN_ComponentMetadata LN_Util::metadataForOldOQueueClient()
{
    return metadataForOldOQueueClient(QDir(LN_FixedLocations::value(LN_FixedLocations::OQueueClientDir)));
}

LN_ComponentMetadata LN_Util::metadataForOldOQueueServer(QDir const & directory)
{
    if (!allFiles(directory, {u"oqserverservice"_s, u"oqserver.ini"_s, u"Uninstall OQueue Server"_s}))
        return {};
    return jobQueueRecord(directory, Product_OQueueServer);
}

LN_ComponentMetadata LN_Util::metadataForOldOQueueServer()
{
    return metadataForOldOQueueServer(QDir(LN_FixedLocations::value(LN_FixedLocations::OQueueServerDir)));
}

LN_ComponentMetadata LN_Util::metadataForOldLicenseServer()
{
    if (!hasOldLicenseServer())
        return {};
    QDir const directory(LN_FixedLocations::value(LN_FixedLocations::LicenseServerDir));
    LN_ComponentMetadata record;
    record.product = productFromString(u"License Server"_s);
    record.installDir = repositoryForm(directory);
    record.version =
        programVersion(directory.filePath(LN_FixedLocations::value(LN_FixedLocations::LicenseServerExecutable)));
    record.imported = true;
    record.ready = true;
    return record;
}

bool LN_Util::isOldOrvanisInstallation(QDir const & directory, bool allowNoUninstaller)
{
    if (!directory.exists())
        return false;
    if (!allowNoUninstaller && !hasUninstaller(directory))
        return false;
    return QFileInfo(directory.filePath(orvanisProgram)).isFile();
}

bool LN_Util::hasUninstaller(QDir const & directory)
{
    return directory.exists() && QFileInfo(directory.filePath(u"Uninstall Orvanis"_s)).isFile();
}

bool LN_Util::hasOldLicenseServer()
{
    LN_Service::ServiceConfigResult const result = LN_Service::queryService(u"OrvanisLicenseServer"_s);
    return result.config && QFileInfo(LN_ServiceProgram::programOf(result.config->binaryPath)).isFile();
}
