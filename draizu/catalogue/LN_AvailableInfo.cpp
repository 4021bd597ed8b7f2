#include <draizu/catalogue/LN_AvailableInfo.h>

#include <draizu/io/LN_Archive_p.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/io/LN_JsonFromFile.h>
#include <draizu/io/LN_Urls.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonValue>
#include <QNetworkReply>
#include <QSet>
#include <QUrl>

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <compare>
#include <memory>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

QString const catalogueEntry = u"data/overview.json"_s;
QString const alphaTag = u"Alpha"_s;
QString const betaTag = u"Beta"_s;
QString const productionTag = u"Production"_s;
constexpr la_int64_t maximumCatalogueSize = 0x40000000;
// A reader that keeps asking to be retried is not going to recover.
constexpr int maximumRetries = 16;

struct ArchiveReadFree
{
    void operator()(archive * reader) const { archive_read_free(reader); }
};
using ArchiveReader = std::unique_ptr<archive, ArchiveReadFree>;

QDate dateValue(QJsonObject const & object, QString const & key)
{
    return QDate::fromString(object.value(key).toString(), Qt::ISODate);
}

QVersionNumber versionValue(QJsonValue const & value)
{
    return QVersionNumber::fromString(value.toString());
}

QList<LN_LicenseInfo> licensesValue(QJsonObject const & object)
{
    QList<LN_LicenseInfo> licenses;
    QJsonArray const agreements = object.value(u"license agreements"_s).toArray();
    licenses.reserve(agreements.size());
    for (QJsonValue const & agreement : agreements)
        licenses.append(LN_LicenseInfo(agreement.toObject()));
    return licenses;
}

LN_PlatformInfo platformValue(QJsonObject const & object)
{
    return LN_PlatformInfo::fromStrings(object.value(u"os name"_s).toString(), object.value(u"compiler"_s).toString());
}

bool isGold(QJsonObject const & object)
{
    return object.value(u"release_type"_s).toString() == u"gold"_s;
}

// Catalogues list the builds of every system; only those of the one this library was built for
// can be installed here.
constexpr LN_PlatformInfo::Os runningOs()
{
#if defined(Q_OS_WIN)
    return LN_PlatformInfo::Os_Windows;
#elif defined(Q_OS_MACOS)
    return LN_PlatformInfo::Os_MacOs;
#else
    return LN_PlatformInfo::Os_Linux;
#endif
}

LN_ErrorStruct availableInfoError(LN_AvailableInfoError code, QString const & message)
{
    return LN_ErrorStruct{make_error_code(code), message};
}

// User-given paths reach the reader through the local 8-bit encoding, read back as UTF-8: the
// identity where the locale is UTF-8, and elsewhere a name the encoding cannot hold is not
// found, as callers have always been told.
QList<LN_AvailableInfo> fromLocalFile(QString const & path)
{
    return LN_AvailableInfo::fromFile(QString::fromUtf8(path.toLocal8Bit()));
}

// Read twice, the second reading being the one kept: a file that stops being an installer in
// between gets a message of its own, as callers have always been told.
LN_Result<QList<LN_AvailableInfo>> fromInstallerFile(QString const & path)
{
    if (fromLocalFile(path).isEmpty())
        return availableInfoError(LN_AvailableInfoError::InvalidFormat,
                                  u"\"%1\" is not a valid offline installer file"_s.arg(path));
    QList<LN_AvailableInfo> builds = fromLocalFile(path);
    if (builds.isEmpty())
        return availableInfoError(LN_AvailableInfoError::InvalidFormat,
                                  u"\"%1\" is a file but contains no versions"_s.arg(path));
    return builds;
}

// The feature's owner is this element as it was being built; copies keep that address.
LN_AvailableInfo elementOf(LN_AvailableInfo const & header, QJsonObject const & feature)
{
    LN_AvailableInfo element = header;
    element.feature = LN_AvailableFeature(feature, element);
    return element;
}

// Format 1 takes one version or a list of them; the parse of each may be empty.
QList<QVersionNumber> minimumLauncherVersionsValue(QJsonValue const & value)
{
    if (value.isString())
        return {versionValue(value)};
    if (!value.isArray())
        throw LN_Exception("Invalid minimum launcher version number");
    QList<QVersionNumber> versions;
    QJsonArray const texts = value.toArray();
    for (QJsonValue const & text : texts)
        versions.append(versionValue(text));
    return versions;
}

// The catalogue entry's object; nothing for one that is too large, cannot be read or is no JSON.
std::optional<QJsonObject> readCatalogue(archive * reader, archive_entry * entry)
{
    la_int64_t const size = archive_entry_size(entry);
    if (size < 0 || size > maximumCatalogueSize)
        return std::nullopt;
    QByteArray bytes(qsizetype(size), Qt::Uninitialized);
    la_ssize_t const read = archive_read_data(reader, bytes.data(), size_t(size));
    if (read < 0)
        return std::nullopt;
    bytes.truncate(read);

    LN_JsonUtils::JsonResult const json = LN_JsonUtils::jsonFromBytes(bytes);
    if (json.isError())
        return std::nullopt;
    return json.value.object();
}

// An installer must hold every content list that its catalogue names, one level deep.
bool holdsContentLists(QList<LN_AvailableInfo> const & catalogue, QSet<QString> const & seen)
{
    QString const dataDirectory = u"data/"_s;
    for (LN_AvailableInfo const & element : catalogue) {
        if (!seen.contains(dataDirectory + element.feature.files))
            return false;
        for (LN_AvailableFeature const & feature : element.feature.features) {
            if (!seen.contains(dataDirectory + feature.files))
                return false;
        }
    }
    return true;
}

bool isReleased(LN_AvailableInfo const & build)
{
    return !build.tags.contains(alphaTag) && !build.tags.contains(betaTag) && build.buildType.isEmpty();
}

template <typename Predicate>
LN_AvailableInfo firstOf(QList<LN_AvailableInfo> const & catalogue, Predicate const & fits)
{
    auto const found = std::find_if(catalogue.cbegin(), catalogue.cend(), fits);
    return found == catalogue.cend() ? LN_AvailableInfo() : *found;
}


} // namespace

QList<LN_AvailableInfo> LN_AvailableInfo::fromJsonDocument(QJsonDocument const & document)
{
    if (!document.isArray())
        throw LN_Exception("Expected JSON array.");

    QList<LN_AvailableInfo> catalogue;
    QJsonArray const blocks = document.array();
    for (QJsonValue const & block : blocks)
        catalogue.append(fromJson_(block.toObject()));
    return catalogue;
}

QList<LN_AvailableInfo> LN_AvailableInfo::fromJson_(QJsonObject const & block)
{
    switch (block.value(u"format version"_s).toInt(0)) {
    case 0:
        return fromFormat0_(block);
    case 1:
        return fromFormat1_(block);
    default:
        // Written by a newer site for newer launchers.
        return {};
    }
}

QList<LN_AvailableInfo> LN_AvailableInfo::fromFormat0_(QJsonObject const & block)
{
    LN_AvailableInfo header;
    header.version = versionValue(block.value(u"version"_s));
    if (header.version.isNull())
        throw LN_Exception("Invalid version number");
    header.tags = parseTags_(block.value(u"tags"_s).toArray());
    if (isGold(block))
        header.tags.append(productionTag);
    header.buildType = block.value(u"build type"_s).toString();
    header.releaseDate = dateValue(block, u"release date"_s);
    QVersionNumber const minimumLauncherVersion = versionValue(block.value(u"minimum launcher version"_s));
    if (minimumLauncherVersion.isNull())
        throw LN_Exception("Invalid minimum launcher version number");
    header.minimumLauncherVersions = {minimumLauncherVersion};
    header.licenses = licensesValue(block);
    header.platform = platformValue(block);

    QList<LN_AvailableInfo> elements;
    QJsonArray const products = block.value(u"products"_s).toArray();
    elements.reserve(products.size());
    for (QJsonValue const & product : products)
        elements.append(elementOf(header, product.toObject()));
    return elements;
}

QList<LN_AvailableInfo> LN_AvailableInfo::fromFormat1_(QJsonObject const & block)
{
    QJsonValue const products = block.value(u"products"_s);
    if (!products.isArray())
        throw LN_Exception("Error: Expected array");
    bool const gold = isGold(block);

    QList<LN_AvailableInfo> elements;
    QJsonArray const productArray = products.toArray();
    for (QJsonValue const & product : productArray) {
        if (!product.isObject())
            throw LN_Exception("Error: Expected object");
        elements.append(fromProduct_(product.toObject(), gold));
    }
    return elements;
}

// A product of format 1: its own element, then one for each entry of its "features".
QList<LN_AvailableInfo> LN_AvailableInfo::fromProduct_(QJsonObject const & product, bool gold)
{
    LN_AvailableInfo header;
    header.releaseDate = dateValue(product, u"release date"_s);
    header.tags = parseTags_(product.value(u"tags"_s).toArray());
    if (gold)
        header.tags.append(productionTag);
    header.version = versionValue(product.value(u"version"_s));
    if (header.version.isNull())
        throw LN_Exception("Invalid product version number");
    header.oapiVersion = versionValue(product.value(u"oapi version"_s));
    header.minimumLauncherVersions = minimumLauncherVersionsValue(product.value(u"minimum launcher version"_s));
    header.buildType = product.value(u"build type"_s).toString();
    header.label = product.value(u"label"_s).toString();
    header.platform = platformValue(product);
    header.licenses = licensesValue(product);

    QList<LN_AvailableInfo> elements = {elementOf(header, product)};
    QJsonArray const features = product.value(u"features"_s).toArray();
    for (QJsonValue const & feature : features)
        elements.append(elementOf(header, feature.toObject()));
    return elements;
}

QStringList LN_AvailableInfo::parseTags_(QJsonArray const & array)
{
    QStringList tags;
    tags.reserve(array.size());
    for (QJsonValue const & tag : array) {
        if (!tag.isString())
            throw LN_Exception(u"Invalid JSON. Expected string, got "_s + LN_JsonUtils::jsonTypeToString(tag));
        tags.append(tag.toString());
    }
    return tags;
}

QList<LN_AvailableInfo> LN_AvailableInfo::fromFile(QString const & path)
{
    ArchiveReader reader(archive_read_new());
    if (!reader || LN_Archive::openFile(reader.get(), path) != ARCHIVE_OK)
        return {};

    QList<LN_AvailableInfo> catalogue;
    QSet<QString> seen;
    int retries = 0;
    for (;;) {
        archive_entry * entry = nullptr;
        int const status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status == ARCHIVE_RETRY && ++retries <= maximumRetries)
            continue;
        // Warnings too: an archive that cannot be read cleanly is not installed from.
        if (status != ARCHIVE_OK)
            return {};
        retries = 0;

        QString const name = LN_Archive::entryPathname(entry);
        seen.insert(name);
        if (name != catalogueEntry)
            continue;
        std::optional<QJsonObject> const block = readCatalogue(reader.get(), entry);
        if (!block)
            return {};
        catalogue.append(fromJson_(*block));
    }
    if (!seen.contains(catalogueEntry) || !holdsContentLists(catalogue, seen))
        return {};
    return catalogue;
}

bool LN_AvailableInfo::isOfflineArchiveFile(QString const & path)
{
    return !fromFile(path).isEmpty();
}

bool LN_AvailableInfo::hasSofsFiles() const
{
    if (!feature.sofsFiles.isEmpty())
        return true;
    QList<LN_AvailableFeature> pending = feature.features;
    for (qsizetype i = 0; i < pending.size(); ++i) {
        if (!pending.at(i).sofsFiles.isEmpty())
            return true;
        // Copied first: appending may move the list's storage under a reference into it.
        QList<LN_AvailableFeature> const children = pending.at(i).features;
        pending.append(children);
    }
    return false;
}

QString LN_AvailableInfo::toString() const
{
    QString const suffix = buildType.isEmpty() ? QString() : u"-"_s + buildType;
    QString const labelPart = label.isEmpty() ? QString() : u" (%1)"_s.arg(label);
    return version.toString() + suffix + labelPart + u" ("_s + labelPart + u')';
}

bool LN_AvailableInfo::hasFeature(QString const & name) const
{
    return feature.hasFeature(name);
}

LN_Result<QList<LN_AvailableInfo>> LN_AvailableInfo::availableOrvanisVersions(LN_FileOpener & opener,
                                                                            QString const & path)
{
    if (!path.isEmpty())
        return availableOrvanisVersionsFromPath(path);

    // The site's list is of this system's builds already, so nothing is filtered.
    LN_FileOpener::TypedResult<LN_NetworkFile> const download =
        opener.downloadFile(QUrl(LN_Urls::instance().getUrl(LN_Urls::Url_Versions), QUrl::TolerantMode));
    if (download.isError())
        return LN_ErrorStruct{download.error, download.message};
    LN_Result<QJsonDocument> const document = LN_JsonUtils::jsonFromFile(*download.device);
    if (document.isError())
        return document.error;
    return fromJsonDocument(document.value);
}

LN_Result<QList<LN_AvailableInfo>> LN_AvailableInfo::availableOrvanisVersionsFromPath(QString const & path)
{
    QFileInfo const info(path);
    if (!info.isFile() && !info.isDir()) {
        if (info.exists())
            return availableInfoError(LN_AvailableInfoError::NoVersionsFound, u"available versions is empty"_s);
        return availableInfoError(LN_AvailableInfoError::NoVersionsFound,
                                  u"Unable to read available versions from \"%1\": Path does not exist"_s.arg(path));
    }
    LN_Result<QList<LN_AvailableInfo>> found = info.isFile() ? fromInstallerFile(path) : fromDirectory_(path);
    if (found.isError())
        return found;
    found.value.removeIf([](LN_AvailableInfo const & build) {
        return !build.platform.isCompatibleArchitecture() || build.platform.os != runningOs();
    });
    return found;
}

// An unpacked installer's "overview.json", or else the offline installer files in the directory.
LN_Result<QList<LN_AvailableInfo>> LN_AvailableInfo::fromDirectory_(QString const & path)
{
    QDir const directory(path);
    QList<LN_AvailableInfo> builds;
    if (directory.exists(u"overview.json"_s)) {
        LN_ExceptionFile overview(directory.filePath(u"overview.json"_s), QIODevice::ReadOnly | QIODevice::Text);
        LN_Result<QJsonDocument> const document = LN_JsonUtils::jsonFromFile(overview);
        if (document.isError())
            return document.error;
        if (!document.value.isObject())
            return availableInfoError(LN_AvailableInfoError::InvalidFormat,
                                      overview.filename() + u" is not valid. Expected object."_s);
        builds = fromJson_(document.value.object());
    } else {
        QDirIterator files(path, QDir::Files);
        while (files.hasNext())
            builds.append(fromLocalFile(files.next()));
    }
    if (builds.isEmpty())
        return availableInfoError(LN_AvailableInfoError::NoVersionsFound,
                                  u"available versions from directory \"%1\" found no results"_s.arg(path));
    return builds;
}

LN_Result<QList<LN_AvailableInfo>> LN_AvailableInfo::getProductInfo(LN_FileOpener & opener)
{
    LN_FileOpener::TypedResult<LN_IODevice> const overview = opener.openFile(u"overview.json"_s);
    if (overview.isError())
        return LN_ErrorStruct{overview.error, overview.message};
    LN_Result<QJsonDocument> const document = LN_JsonUtils::jsonFromFile(*overview.device);
    if (document.isError()) {
        if (document.error.code == std::error_code(QNetworkReply::ContentNotFoundError, QNetworkFileErrorCategory()))
            return availableInfoError(LN_AvailableInfoError::VersionNotAvailable,
                                      u"The selected version is not available"_s);
        return document.error;
    }
    if (!document.value.isObject())
        return availableInfoError(LN_AvailableInfoError::InvalidFormat,
                                  overview.device->filename() + u" is not valid. Expected object."_s);
    return fromJson_(document.value.object());
}

bool operator==(LN_AvailableInfo const & a, LN_AvailableInfo const & b)
{
    return a.version == b.version && a.buildType == b.buildType && a.platform.toString() == b.platform.toString();
}

bool operator!=(LN_AvailableInfo const & a, LN_AvailableInfo const & b)
{
    return !(a == b);
}

bool operator<(LN_AvailableInfo const & a, LN_AvailableInfo const & b)
{
    if (int const byVersion = QVersionNumber::compare(a.version, b.version); byVersion != 0)
        return byVersion < 0;
    if (int const byBuildType = a.buildType.compare(b.buildType); byBuildType != 0)
        return byBuildType < 0;
    return a.platform.toString() < b.platform.toString();
}

bool operator>(LN_AvailableInfo const & a, LN_AvailableInfo const & b)
{
    return b < a;
}

bool operator<=(LN_AvailableInfo const & a, LN_AvailableInfo const & b)
{
    return a < b || a == b;
}

bool operator>=(LN_AvailableInfo const & a, LN_AvailableInfo const & b)
{
    return b < a || b == a;
}

LN_AvailableInfo LN_AvailableInfo::getMatchingVersion(LN_ComponentMetadata const & component,
                                                      QList<LN_AvailableInfo> const & catalogue)
{
    // The product's name lookup costs most, so it is asked last.
    return firstOf(catalogue, [&component](LN_AvailableInfo const & build) {
        return build.version == component.version && build.buildType == component.buildType
            && build.platform == component.platformInfo && build.hasProduct(component.product);
    });
}

LN_AvailableInfo LN_AvailableInfo::getProduct(QList<LN_AvailableInfo> const & catalogue, QString const & name)
{
    return firstOf(catalogue, [&name](LN_AvailableInfo const & build) { return build.hasProduct(name); });
}

LN_AvailableInfo LN_AvailableInfo::latestDailyVersion(QList<LN_AvailableInfo> const & catalogue)
{
    return latestReleasedVersion_(catalogue, false);
}

LN_AvailableInfo LN_AvailableInfo::latestProductionVersion(QList<LN_AvailableInfo> const & catalogue)
{
    return latestReleasedVersion_(catalogue, true);
}

LN_AvailableInfo LN_AvailableInfo::latestReleasedVersion_(QList<LN_AvailableInfo> const & catalogue,
                                                          bool productionOnly)
{
    // The null version of the default element is below every real one.
    LN_AvailableInfo const nothing;
    LN_AvailableInfo const * best = &nothing;
    for (LN_AvailableInfo const & build : catalogue) {
        // Strictly newer only: of equal versions the first stays.
        if (isReleased(build) && build.version > best->version
            && (!productionOnly || build.tags.contains(productionTag)))
            best = &build;
    }
    return *best;
}

LN_AvailableInfo LN_AvailableInfo::upgradeVersionFor(QString const & product, QVersionNumber const & minimum,
                                                     QString const & buildType,
                                                     QList<LN_AvailableInfo> const & catalogue)
{
    LN_AvailableInfo const nothing;
    LN_AvailableInfo const * best = &nothing;
    for (LN_AvailableInfo const & build : catalogue) {
        // At or above: of equal versions the last wins, and the minimum itself is an answer.
        if (build.tags.contains(productionTag) && build.buildType == buildType && build.version >= best->version
            && build.version >= minimum && build.hasProduct(product))
            best = &build;
    }
    return *best;
}

bool LN_AvailableInfo::launcherCanInstall() const
{
    return launcherCanInstall(launcherVersion);
}

bool LN_AvailableInfo::launcherCanInstall(QVersionNumber const & launcher) const
{
    auto const launcherLine = std::pair(launcher.segmentAt(0), launcher.segmentAt(1));
    for (QVersionNumber const & minimum : minimumLauncherVersions) {
        auto const line = std::pair(minimum.segmentAt(0), minimum.segmentAt(1)) <=> launcherLine;
        // The argument only picks the line: what must reach the minimum is this launcher.
        if (line == 0)
            return minimum <= launcherVersion;
        if (line > 0)
            return false;
    }
    // Every minimum is of an older line; a build that names none at all is not installable.
    return !minimumLauncherVersions.isEmpty();
}

bool LN_AvailableInfo::isProductionBuild() const
{
    return isReleased(*this) && tags.contains(productionTag);
}

bool LN_AvailableInfo::hasProduct(QString const & name) const
{
    return feature.name == name;
}

bool LN_AvailableInfo::hasProduct(LN_ProductID const & product) const
{
    return productFromString(feature.name) == product;
}
