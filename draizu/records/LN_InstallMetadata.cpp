#include <draizu/records/LN_InstallMetadata.h>

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/catalogue/LN_InfoUpdates.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Failures_p.h>
#include <draizu/records/LN_JsonFiles.h>

#include <QFile>
#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QSet>
#include <QStringList>

#include <system_error>

using namespace Qt::StringLiterals;

namespace {

constexpr int currentFormatVersion = 1;

QString const overviewName = u"overview.json"_s;
QString const newName = u"new.json"_s;
QString const crashName = u"crash.json"_s;

// Any entry counts, dot files included: they are ordinary files of an installation here. An
// empty path would be the working directory, which is no installation.
bool holdsInstallation(QString const & path)
{
    QDir const directory(path);
    return !path.isEmpty() && directory.exists()
           && !directory.isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

} // namespace

LN_InstallMetadata::LN_InstallMetadata() = default;

LN_InstallMetadata::LN_InstallMetadata(QDir const & directory_)
    : directory(directory_)
{
    if (QFile::exists(directory.absoluteFilePath(overviewName)))
        load(overviewName);
    if (!QFile::exists(directory.absoluteFilePath(newName)))
        return;

    LN_InstallMetadata intended;
    intended.directory = directory;
    intended.load(newName);

    QList<LN_ComponentMetadata> const fromOverview = differingComponents_(*this, intended);
    QList<LN_ComponentMetadata> const fromNew = differingComponents_(intended, *this);
    if (fromOverview.isEmpty() && fromNew.isEmpty())
        return;

    // A change touches one installation; that is the one whose files must be accounted for.
    LN_ComponentMetadata newer = fromNew.isEmpty() ? LN_ComponentMetadata() : fromNew.constFirst();
    LN_ComponentMetadata const older = fromOverview.isEmpty() ? LN_ComponentMetadata() : fromOverview.constFirst();
    if (newer.product == LN_ProductID::Invalid)
        newer.product = older.product;

    QString const productKey = QString::fromLatin1(productName(newer.product));
    newer.pendingFiles.insert(productKey, mergeFileLists_(newer, older, productKey));

    QSet<QString> names;
    for (auto it = newer.features.constBegin(); it != newer.features.constEnd(); ++it)
        names.insert(it.key());
    for (auto it = older.features.constBegin(); it != older.features.constEnd(); ++it)
        names.insert(it.key());
    for (QString const & name : std::as_const(names)) {
        if (!newer.features.contains(name))
            newer.features.insert(name, QString());
        newer.pendingFiles.insert(name, mergeFileLists_(newer, older, name));
    }

    interruptedNew = newer;
    interruptedOld = older;
    installations.insert(newer.installDir, newer);
    if (older.installDir != newer.installDir)
        installations.remove(older.installDir);
}

LN_InstallMetadata::LN_InstallMetadata(QDir const & directory_, QString const & name)
    : directory(directory_)
{
    load(name);
}

void LN_InstallMetadata::load(QString const & name)
{
    load(LN_Failures::valueOrThrow(readJsonFile(directory.absoluteFilePath(name)),
                                   u"Failed to read JSON file %1: "_s.arg(name)),
         name);
}

void LN_InstallMetadata::load(QJsonDocument const & document, QString const & name)
{
    if (!document.isObject())
        throw LN_Exception(name + u" not an object.\nIt is likely the JSON file is corrupt."_s);
    QJsonObject const root = document.object();

    int const formatVersion = root.value(u"format version"_s).toInt(0);
    if (formatVersion == 0)
        throw LN_Exception(name
                           + u" is missing a \"format version\" member.\nIt is likely the JSON file is corrupt."_s);
    if (formatVersion > currentFormatVersion)
        throw LN_Exception(
            name + u" is too new to be read by this version of the Launcher.\nUpdate the Orvanis Launcher."_s);

    QJsonObject const table = root.value(u"installations"_s).toObject();
    for (auto it = table.constBegin(); it != table.constEnd(); ++it)
        installations.insert(QDir::fromNativeSeparators(it.key()), LN_ComponentMetadata(it));
}

void LN_InstallMetadata::save(QString const & name)
{
    QJsonObject table;
    for (auto it = installations.begin(); it != installations.end(); ++it)
        table.insert(it.key(), it->save(directory));
    QJsonObject const root{
        {u"format version"_s, currentFormatVersion},
        {u"installations"_s, table},
    };
    writeJsonFile(QJsonDocument(root), directory.absoluteFilePath(name));
}

void LN_InstallMetadata::saveFinal()
{
    LN_ErrorStruct const invalid =
        LN_Failures::resultOf(std::make_error_code(std::errc::state_not_recoverable), [this] { validate_(); });
    if (invalid.isError()) {
        save(crashName);
        throw LN_Exception(u"The launcher's internal state is corrupted (%1). Submit %2 for debugging."_s.arg(
            invalid.message, directory.absoluteFilePath(crashName)));
    }

    save(overviewName);

    // Only now that "overview.json" names the new manifests may the old ones go, together
    // with "new.json" and any earlier "crash.json".
    QSet<QString> keep{directory.absoluteFilePath(overviewName)};
    for (LN_ComponentMetadata const & record : std::as_const(installations)) {
        keep.insert(record.productFiles);
        for (QString const & path : record.features)
            keep.insert(path);
        for (QString const & path : record.sofsFiles)
            keep.insert(path);
    }
    QStringList const names = directory.entryList({u"*.json"_s}, QDir::Files, QDir::Unsorted);
    for (QString const & name : names) {
        QString const path = directory.absoluteFilePath(name);
        if (!keep.contains(path))
            QFile::remove(path);
    }
}

LN_ComponentMetadata LN_InstallMetadata::get(QString const & directory_) const
{
    return installations.value(directory_);
}

QList<LN_ComponentMetadata> LN_InstallMetadata::getAll() const
{
    return installations.values();
}

void LN_InstallMetadata::insert(LN_ComponentMetadata const & record)
{
    installations.insert(record.installDir, record);
}

void LN_InstallMetadata::remove(QString const & directory_)
{
    installations.remove(directory_);
}

bool LN_InstallMetadata::isTaken(QString const & directory_) const
{
    return installations.contains(directory_);
}

QList<QVersionNumber> LN_InstallMetadata::getInstalledProductVersions(LN_ProductID product) const
{
    QList<QVersionNumber> versions;
    for (LN_ComponentMetadata const & record : installations) {
        if (record.product == product)
            versions.append(record.version);
    }
    return versions;
}

QSet<QVersionNumber> LN_InstallMetadata::getInstalledProductOapiVersions(LN_ProductID product) const
{
    QSet<QVersionNumber> versions;
    for (LN_ComponentMetadata const & record : installations) {
        if (record.product == product)
            versions.insert(record.oapiVersion);
    }
    return versions;
}

QList<QString> LN_InstallMetadata::getInstalledOrvanisVersions() const
{
    QList<QString> versions;
    for (QVersionNumber const & version : getInstalledProductVersions(Product_Orvanis))
        versions.append(version.toString());
    return versions;
}

LN_ComponentMetadata LN_InstallMetadata::getProduct(LN_ProductID product) const
{
    for (LN_ComponentMetadata const & record : installations) {
        if (record.product == product)
            return record;
    }
    return {};
}

LN_ComponentMetadata LN_InstallMetadata::getLatestAvailableInstallation(LN_ProductID product) const
{
    LN_ComponentMetadata const * best = nullptr;
    for (LN_ComponentMetadata const & record : installations) {
        // The disk is asked only about a record that would win.
        if (record.product == product
            && QVersionNumber::compare(record.version, best ? best->version : QVersionNumber()) > 0
            && record.ready && holdsInstallation(record.installDir))
            best = &record;
    }
    return best ? *best : LN_ComponentMetadata();
}

QList<LN_ComponentMetadata> LN_InstallMetadata::getNonexistentOrvanisInstallations() const
{
    QList<LN_ComponentMetadata> gone;
    for (LN_ComponentMetadata const & record : installations) {
        if (record.product == Product_Orvanis && !holdsInstallation(record.installDir))
            gone.append(record);
    }
    return gone;
}

QString LN_InstallMetadata::getInstallDirectory(LN_ProductID product, QVersionNumber const & version) const
{
    for (LN_ComponentMetadata const & record : installations) {
        if (record.product == product && QVersionNumber::compare(record.version, version) == 0)
            return record.installDir;
    }
    return {};
}

QString LN_InstallMetadata::getInstallDirectory(LN_ProductID product, QString const & version) const
{
    return getInstallDirectory(product, QVersionNumber::fromString(version));
}

bool LN_InstallMetadata::hasProduct(LN_ProductID product, QVersionNumber const & version) const
{
    for (LN_ComponentMetadata const & record : installations) {
        if (record.product == product && (version.isNull() || QVersionNumber::compare(record.version, version) == 0))
            return true;
    }
    return false;
}

bool LN_InstallMetadata::hasCompatibleOrvanis(LN_AvailableInfo const & info) const
{
    return hasCompatibleOrvanis_(info.oapiVersion, info.version);
}

bool LN_InstallMetadata::hasCompatibleOrvanis(LN_ComponentMetadata const & record) const
{
    return hasCompatibleOrvanis_(record.oapiVersion, record.version);
}

// The engine API decides; the version number is the fallback for plug-ins that predate it.
bool LN_InstallMetadata::hasCompatibleOrvanis_(QVersionNumber const & oapiVersion,
                                               QVersionNumber const & version) const
{
    bool sameVersion = false;
    for (LN_ComponentMetadata const & record : installations) {
        if (record.product != Product_Orvanis)
            continue;
        if (QVersionNumber::compare(record.oapiVersion, oapiVersion) == 0)
            return true;
        sameVersion = sameVersion || QVersionNumber::compare(record.version, version) == 0;
    }
    return sameVersion;
}

void LN_InstallMetadata::merge(LN_InfoUpdates const & updates)
{
    // Records by build, so that the cost grows with the sum of records and updates, not their
    // product. The identity's platform text is coarser than the platform itself, so each
    // candidate is compared again in full.
    QMultiHash<LN_InfoUpdates::BuildIdentifier, LN_ComponentMetadata *> byBuild;
    byBuild.reserve(installations.size());
    for (LN_ComponentMetadata & record : installations)
        byBuild.insert({record.version, record.platformInfo, record.buildType}, &record);

    for (LN_InfoUpdate const & update : updates) {
        auto const [first, last] = byBuild.equal_range({update.version, update.platform, update.buildType});
        for (auto it = first; it != last; ++it) {
            LN_ComponentMetadata & record = **it;
            if (record.platformInfo == update.platform && record.buildType == update.buildType
                && QVersionNumber::compare(record.version, update.version) == 0) {
                record.tags = update.tags;
                record.releaseDate = update.releaseDate;
            }
        }
    }
}

void LN_InstallMetadata::validate_() const
{
    for (auto it = installations.constBegin(); it != installations.constEnd(); ++it) {
        if (it.key().isEmpty())
            throw LN_Exception("Key was empty");
        if (it.key() != it->installDir)
            throw LN_Exception("Key did not match installation directory");
        it->validate_();
    }
}

QList<LN_ComponentMetadata> LN_InstallMetadata::differingComponents_(LN_InstallMetadata const & a,
                                                                     LN_InstallMetadata const & b)
{
    QList<LN_ComponentMetadata> differing;
    for (LN_ComponentMetadata const & record : a.installations) {
        auto const other = b.installations.constFind(record.installDir);
        if (record.ready && other != b.installations.constEnd() && record == *other)
            continue;
        differing.append(record);
    }
    return differing;
}

QList<LN_FileMetadata> LN_InstallMetadata::mergeFileLists_(LN_ComponentMetadata const & newer,
                                                          LN_ComponentMetadata const & older, QString const & name)
{
    QList<LN_FileMetadata> merged = newer.getFiles(name);
    QSet<QString> newPaths;
    newPaths.reserve(merged.size());
    for (LN_FileMetadata & file : merged) {
        file.checksum.clear();
        file.size = -1;
        newPaths.insert(file.path);
    }

    bool const moved = newer.installDir != older.installDir;
    QDir const oldRoot(older.installDir);
    QList<LN_FileMetadata> olderFiles = older.getFiles(name);
    for (LN_FileMetadata & file : olderFiles) {
        if (moved)
            file.path = oldRoot.absoluteFilePath(file.path);
        if (newPaths.contains(file.path))
            continue;
        file.checksum.clear();
        file.size = -1;
        merged.append(std::move(file));
    }
    return merged;
}
