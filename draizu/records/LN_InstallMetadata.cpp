#include <draizu/records/LN_InstallMetadata.h>

#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Failures_p.h>
#include <draizu/records/LN_JsonFiles.h>

#include <QFile>
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
