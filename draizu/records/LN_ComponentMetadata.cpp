#include <draizu/records/LN_ComponentMetadata.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Failures_p.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_JsonFiles.h>

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QSettings>
#include <QStringList>

#include <algorithm>
#include <numeric>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

QHash<QString, QString> stringTable(QJsonValue const & value)
{
    QHash<QString, QString> table;
    QJsonObject const object = value.toObject();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it)
        table.insert(it.key(), it.value().toString());
    return table;
}

QJsonObject stringTableToJson(QHash<QString, QString> const & table)
{
    QJsonObject object;
    for (auto it = table.constBegin(); it != table.constEnd(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

QString versionText(QVersionNumber const & version)
{
    return version.isNull() ? QString() : version.toString();
}

// The whole content of a small text file in the installation, or nothing when it cannot be
// opened.
std::optional<QString> readTextFile(QString const & path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return std::nullopt;
    return QString::fromUtf8(file.readAll());
}

// The repository writes the plug-ins under their older engine names, which every reader of
// the product names understands.
QString productJsonName(LN_ProductID product)
{
    switch (product) {
    case Product_Engine3dsMax:
        return u"Engine 3ds Max"_s;
    case Product_EngineMaya:
        return u"Engine Maya"_s;
    case Product_EngineUnity:
        return u"Engine Unity"_s;
    case Product_EngineUnreal:
        return u"Engine Unreal"_s;
    default:
        return QString::fromLatin1(productName(product));
    }
}

QString manifestStem(QString const & feature)
{
    QString stem = feature;
    stem.replace(u' ', u'_');
    // A feature name comes from a catalogue; a separator in it must not place the manifest
    // outside the repository directory.
    stem.replace(u'/', u'_');
    stem.replace(u'\\', u'_');
    return stem;
}

// A manifest object is kept sorted by key, so entries inserted in key order are appended
// instead of shifting the ones behind them. For a repeated path the last entry counts, as it
// would with insertion in list order.
QJsonObject manifestObject(QList<LN_FileMetadata> const & files)
{
    std::vector<qsizetype> order(size_t(files.size()));
    std::iota(order.begin(), order.end(), qsizetype(0));
    std::stable_sort(order.begin(), order.end(),
                     [&files](qsizetype a, qsizetype b) { return files.at(a).path < files.at(b).path; });

    QJsonObject object;
    for (size_t i = 0; i < order.size(); ++i) {
        if (i + 1 < order.size() && files.at(order[i + 1]).path == files.at(order[i]).path)
            continue;
        LN_FileMetadata const & file = files.at(order[i]);
        object.insert(file.path,
                      QJsonArray{file.source, QString::fromLatin1(file.checksum.toBase64()), file.size});
    }
    return object;
}

QJsonObject sofsManifestObject(QList<LN_SofsFileMetadata> const & files)
{
    QJsonObject entries;
    for (LN_SofsFileMetadata const & file : files)
        entries.insert(file.path, QJsonObject{{u"required"_s, file.required}});
    return QJsonObject{{u"files"_s, entries}};
}

} // namespace

LN_ComponentMetadata::LN_ComponentMetadata(QJsonObject::const_iterator entry)
    : installDir(QDir::fromNativeSeparators(entry.key()))
{
    QJsonObject const body = entry.value().toObject();
    version = QVersionNumber::fromString(body.value(u"version"_s).toString());
    oapiVersion = QVersionNumber::fromString(body.value(u"oapi version"_s).toString());
    forOrvanis = QVersionNumber::fromString(body.value(u"forOrvanis"_s).toString());
    releaseDate = QDate::fromString(body.value(u"release date"_s).toString(), Qt::ISODate);
    buildType = body.value(u"build type"_s).toString();
    label = body.value(u"label"_s).toString();
    platformInfo = LN_PlatformInfo::fromStrings(body.value(u"os name"_s).toString(),
                                                body.value(u"compiler"_s).toString());
    product = productFromString(body.value(u"product"_s).toString());
    productFiles = body.value(u"product_files"_s).toString();
    ready = body.value(u"ready"_s).toBool(false);
    imported = body.value(u"imported"_s).toBool(false);
    hasUninstaller = body.value(u"hasUninstaller"_s).toBool(false);
    failedUninstall = body.value(u"failedUninstall"_s).toBool(false);
    features = stringTable(body.value(u"features"_s));
    sofsFiles = stringTable(body.value(u"sofs_files"_s));
    otherOptions = stringTable(body.value(u"other options"_s));
    QJsonArray const tagArray = body.value(u"tags"_s).toArray();
    tags.reserve(tagArray.size());
    for (QJsonValue const tag : tagArray)
        tags.append(tag.toString());

    readProductFiles_();
}

void LN_ComponentMetadata::readProductFiles_()
{
    QDir const dir(installDir);
    if (product == Product_OQueueClient) {
        if (std::optional<QString> const text = readTextFile(dir.filePath(u"VERSION"_s))) {
            QVersionNumber const onDisk = QVersionNumber::fromString(*text);
            if (onDisk != version) {
                version = onDisk;
                imported = true;
            }
        }
        QString const ini = dir.filePath(u"oqnode.ini"_s);
        if (QFile::exists(ini)) {
            QSettings const settings(ini, QSettings::IniFormat);
            otherOptions.insert(u"server"_s, settings.value(u"main/server"_s).toString());
            otherOptions.insert(u"port"_s, settings.value(u"main/port"_s).toString());
        }
    } else if (product == Product_OQueueServer) {
        if (std::optional<QString> const text = readTextFile(dir.filePath(u"oqservicename"_s)))
            otherOptions.insert(u"service-name"_s, *text);
    }
}

QJsonObject LN_ComponentMetadata::save(QDir const & directory)
{
    auto const belongs = [this](QString const & feature) {
        return productFromString(feature) == product || features.contains(feature);
    };

    for (auto it = pendingFiles.constBegin(); it != pendingFiles.constEnd(); ++it) {
        if (!belongs(it.key()))
            continue;
        QString const path = uniqueManifestPath(manifestStem(it.key()) + u"_%1.json"_s, directory);
        writeJsonFile(QJsonDocument(manifestObject(it.value())), path);
        if (productFromString(it.key()) == product)
            productFiles = path;
        else
            features[it.key()] = path;
    }
    pendingFiles.clear();

    for (auto it = pendingSofsFiles.constBegin(); it != pendingSofsFiles.constEnd(); ++it) {
        if (!belongs(it.key()) || it.value().isEmpty())
            continue;
        QString const path = uniqueManifestPath(manifestStem(it.key()) + u"_sofs_%1.json"_s, directory);
        writeJsonFile(QJsonDocument(sofsManifestObject(it.value())), path);
        sofsFiles[it.key()] = path;
    }

    QJsonArray tagArray;
    for (QString const & tag : tags)
        tagArray.append(tag);

    return QJsonObject{
        {u"build type"_s, buildType},
        {u"label"_s, label},
        {u"os name"_s, platformInfo.osString()},
        {u"compiler"_s, platformInfo.compiler},
        {u"features"_s, stringTableToJson(features)},
        {u"other options"_s, stringTableToJson(otherOptions)},
        {u"product"_s, productJsonName(product)},
        {u"product_files"_s, productFiles},
        {u"sofs_files"_s, stringTableToJson(sofsFiles)},
        {u"ready"_s, ready},
        {u"imported"_s, imported},
        {u"hasUninstaller"_s, hasUninstaller},
        {u"failedUninstall"_s, failedUninstall},
        {u"release date"_s, releaseDate.toString(Qt::ISODate)},
        {u"tags"_s, tagArray},
        {u"version"_s, versionText(version)},
        {u"oapi version"_s, versionText(oapiVersion)},
        {u"forOrvanis"_s, versionText(forOrvanis)},
    };
}

QList<LN_FileMetadata> LN_ComponentMetadata::getFiles(QString const & feature) const
{
    if (product == LN_ProductID::Invalid)
        return {};
    auto const pending = pendingFiles.constFind(feature);
    if (pending != pendingFiles.constEnd())
        return *pending;

    QString const path = productFromString(feature) == product ? productFiles : features.value(feature);
    LN_Result<QJsonDocument> const document = readJsonFile(path);
    if (document.isError())
        return {};
    return LN_FileMetadata::fileMetadataFromJson(document.value.object()).value;
}

void LN_ComponentMetadata::setFiles(QString const & feature, QList<LN_FileMetadata> const & files)
{
    pendingFiles.insert(feature, files);
}

QList<LN_SofsFileMetadata> LN_ComponentMetadata::getSofsFiles(QString const & feature) const
{
    auto const pending = pendingSofsFiles.constFind(feature);
    if (pending != pendingSofsFiles.constEnd())
        return *pending;

    QString const path = sofsFiles.value(feature);
    if (path.isEmpty())
        return {};
    LN_Result<QJsonDocument> const document = readJsonFile(path);
    if (document.isError())
        return {};
    // A damaged manifest, whole or in one entry, reads as no files.
    LN_Result<QList<LN_SofsFileMetadata>> files = LN_Failures::resultOf(
        make_error_code(LN_AvailableInfoError::InvalidFormat),
        [&document, &path] { return LN_SofsFileMetadata::fromJsonData(document.value, path); });
    if (files.isError())
        return {};
    return std::move(files.value);
}

void LN_ComponentMetadata::setSofsFiles(QString const & feature, QList<LN_SofsFileMetadata> const & files)
{
    pendingSofsFiles.insert(feature, files);
}

QList<LN_FileMetadata> LN_ComponentMetadata::allFiles() const
{
    QList<LN_FileMetadata> files = getFiles(QString::fromLatin1(productName(product)));
    for (auto it = features.constBegin(); it != features.constEnd(); ++it)
        files.append(getFiles(it.key()));
    return files;
}

QList<LN_SofsFileMetadata> LN_ComponentMetadata::allSofsFiles() const
{
    QList<LN_SofsFileMetadata> files = getSofsFiles(QString::fromLatin1(productName(product)));
    for (auto it = features.constBegin(); it != features.constEnd(); ++it)
        files.append(getSofsFiles(it.key()));
    return files;
}

QList<LN_FileMetadata> LN_ComponentMetadata::computeAllFiles() const
{
    // The walk pairs the files: the second of each pair gives path and size, the first its
    // digest. Readers of these lists depend on that shape, odd last record included.
    QDir const root(installDir);
    QList<LN_FileMetadata> files;
    QDirIterator it(installDir, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QString const first = it.next();
        QString const second = it.next();
        files.emplaceBack(root.relativeFilePath(second), QString(), LN_Util::checksum(first), it.fileInfo().size());
    }
    return files;
}

bool LN_ComponentMetadata::containsFile(QString const & path) const
{
    QList<LN_FileMetadata> const files = allFiles();
    return std::any_of(files.cbegin(), files.cend(),
                       [&path](LN_FileMetadata const & file) { return file.path == path; });
}

qint64 LN_ComponentMetadata::installedSize() const
{
    qint64 total = 0;
    for (LN_FileMetadata const & file : allFiles())
        total += file.size;
    return total;
}

qint64 LN_ComponentMetadata::installedSize(QString const & feature) const
{
    if (productFromString(feature) != product && !features.contains(feature))
        return 0;
    qint64 total = 0;
    for (LN_FileMetadata const & file : getFiles(feature))
        total += file.size;
    return total;
}

bool LN_ComponentMetadata::getYesNoOption(QString const & key) const
{
    switch (LN_Util::getYesNoOption(otherOptions.value(key))) {
    case LN_Util::Yes:
        return true;
    case LN_Util::No:
    case LN_Util::Empty:
        return false;
    case LN_Util::Unrecognised:
        break;
    }
    throw LN_Exception(u"Expected \"yes\" or \"no\" for option "_s + key);
}

LN_InstallerOptions LN_ComponentMetadata::installOptions() const
{
    if (installDir.isEmpty())
        throw LN_Exception("Does not refer to an existing installation");

    LN_InstallerOptions options;
    options.product = product;
    options.version = version;
    if (!forOrvanis.isNull())
        options.otherOptions.insert(u"for-orvanis"_s, forOrvanis.toString());
    options.setBuildType(buildType);
    options.platform = platformInfo.toString();
    options.setExistingInstallDir(installDir);
    for (auto it = features.constBegin(); it != features.constEnd(); ++it)
        options.features.insert(it.key(), true);
    // Replaces the table as a whole, "for-orvanis" above included: the record's own options
    // are what the installation was made with.
    options.otherOptions = otherOptions;
    return options;
}

// Defined with the record, which is the higher of the two layers: the options see records only
// through this declaration.
LN_InstallerOptions LN_InstallerOptions::uninstall(LN_ComponentMetadata const & record, bool forced)
{
    LN_InstallerOptions options = record.installOptions();
    options.verb = Uninstall;
    options.product = record.product;
    options.force = forced;
    options.features.clear();
    options.otherOptions.clear();
    return options;
}

bool LN_ComponentMetadata::supportsPackages() const
{
    return product == Product_Orvanis && QVersionNumber::compare(version, QVersionNumber(17, 5, 134)) > 0;
}

QString LN_ComponentMetadata::shortString() const
{
    QString text = u"%1 %2"_s.arg(QString::fromLatin1(productName(product)),
                                  version.isNull() ? u"(unknown version)"_s : version.toString());
    if (!buildType.isEmpty())
        text += u" - "_s + buildType;
    return text;
}

QString LN_ComponentMetadata::detailsString() const
{
    if (!imported) {
        QStringList const featureNames = features.keys();
        QString text = u"Details for %1\nCompiled with %2 (%3)\nInstallation Directory: %4\nFeatures: %5\n"
                       u"Release Date: %6\nOAPI Version: %7\nSize on disk: %8"_s.arg(
                           shortString(), platformInfo.compiler, platformInfo.osString(), installDir,
                           featureNames.join(u", "_s), releaseDate.toString(Qt::TextDate), oapiVersion.toString(),
                           LN_Util::numBytesToString(installedSize()));
        if (!forOrvanis.isNull())
            text += u"\nFor Orvanis: %1"_s.arg(forOrvanis.toString());
        return text;
    }
    if (product == Product_OQueueClient)
        return u"Details for %1\nInstallation Directory: %2\nNote: This installation has been imported or upgraded "
               u"by the OQueue Server"_s.arg(shortString(), installDir);
    QString text = u"Details for %1\nInstallation Directory: %2\nNote: This is an imported installation"_s.arg(
        shortString(), installDir);
    if (!hasUninstaller && product != Product_OQueueServer)
        text += u", and no Orvanis Uninstaller is detected in installation directory"_s;
    return text;
}

void LN_ComponentMetadata::validate_() const
{
    if (product == LN_ProductID::Invalid)
        throw LN_Exception("invalid product");
    if (!platformInfo.isValid() && !imported)
        throw LN_Exception("invalid platform info");
    for (LN_FileMetadata const & file : allFiles()) {
        if (!file.checksum.isEmpty() && file.checksum.size() != 32)
            throw LN_Exception("invalid checksum");
        if (file.size < 0)
            throw LN_Exception("invalid filesize");
    }
}

bool operator==(LN_ComponentMetadata const & a, LN_ComponentMetadata const & b)
{
    return a.version == b.version && a.oapiVersion == b.oapiVersion && a.forOrvanis == b.forOrvanis
        && a.installDir == b.installDir && a.releaseDate == b.releaseDate && a.tags == b.tags
        && a.buildType == b.buildType && a.product == b.product && a.features == b.features
        && a.otherOptions == b.otherOptions && a.imported == b.imported && a.hasUninstaller == b.hasUninstaller;
}
