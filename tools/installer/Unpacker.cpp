#include "Unpacker.h"

#include "CommandError.h"
#include "InstallPaths.h"
#include "Sha256.h"

#include <draizu/io/LN_DiskFile.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_InstallMetadata.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <memory>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 bufferSize = 1 << 20;

// The kind of what lies at the path, without following a link: 0 when nothing does.
mode_t kindAt(QString const & path)
{
    struct stat status = {};
    if (lstat(QFile::encodeName(path).constData(), &status) != 0)
        return 0;
    return status.st_mode & S_IFMT;
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// Programs live in bin/; the manifest carries no permissions.
QFileDevice::Permissions permissionsFor(QString const & relativePath)
{
    QFileDevice::Permissions permissions = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
                                           | QFileDevice::ReadOther;
    if (relativePath.startsWith(u"bin/"_s))
        permissions |= QFileDevice::ExeOwner | QFileDevice::ExeGroup | QFileDevice::ExeOther;
    return permissions;
}

// The record of the build, before any file list is known.
LN_ComponentMetadata recordOf(LN_InstallerOptions const & options, LN_AvailableInfo const & build)
{
    LN_ComponentMetadata record;
    record.product = options.product;
    record.version = build.version;
    record.oapiVersion = build.oapiVersion;
    record.installDir = options.installDir();
    record.releaseDate = build.releaseDate;
    record.tags = build.tags;
    record.buildType = build.buildType;
    record.label = build.label;
    record.platformInfo = build.platform;
    record.otherOptions = options.otherOptions;
    return record;
}

} // namespace

Unpacker::Unpacker(LN_FileOpener & opener, QHash<QString, qsizetype> archiveOrder, Report report)
    : opener_(opener)
    , archiveOrder_(std::move(archiveOrder))
    , report_(std::move(report))
{
}

void Unpacker::install(LN_InstallerOptions const & options, LN_AvailableInfo const & build,
                       LN_InstallMetadata & repository, bool recorded)
{
    target_ = options.installDir();
    if (target_.isEmpty())
        throw CommandError(Exit_Usage, u"No installation directory was given"_s);
    mode_t const targetKind = kindAt(target_);
    if (targetKind != 0 && targetKind != S_IFDIR)
        throw CommandError(Exit_Failure, u"%1 is not a directory"_s.arg(target_));

    QHash<QString, QList<LN_FileMetadata>> manifests = readManifests_(options, build);
    LN_ComponentMetadata const interrupted = repository.get(target_);
    QSet<QString> owned;
    for (LN_FileMetadata const & file : interrupted.allFiles())
        owned.insert(file.path);
    QList<LN_FileMetadata> files = plan_(manifests, owned);

    if (recorded) {
        LN_ComponentMetadata record = recordOf(options, build);
        for (auto it = manifests.constBegin(); it != manifests.constEnd(); ++it) {
            if (productFromString(it.key()) != record.product)
                record.features.insert(it.key(), QString());
            record.setFiles(it.key(), it.value());
        }
        repository.insert(record);
        repository.save(u"new.json"_s);
    }
    try {
        writeAll_(files);
    } catch (...) {
        removeWritten_();
        if (recorded) {
            repository.remove(target_);
            if (!interrupted.installDir.isEmpty())
                repository.insert(interrupted);
            repository.saveFinal();
        }
        throw;
    }
    // The commit reads every manifest back to check it: the lists of this run go first, which
    // halves the peak memory of a large installation.
    manifests = {};
    files = {};
    firstCopies_ = {};
    archiveOrder_ = {};
    if (recorded) {
        repository.installations[target_].ready = true;
        repository.saveFinal();
    }
}

QHash<QString, QList<LN_FileMetadata>> Unpacker::readManifests_(LN_InstallerOptions const & options,
                                                                LN_AvailableInfo const & build)
{
    QHash<QString, QList<LN_FileMetadata>> manifests;
    auto read = [&](LN_AvailableFeature const & feature, QString const & key) {
        LN_Result<QList<LN_FileMetadata>> const files = LN_FileMetadata::fileMetadataForInstall(feature, opener_);
        if (files.isError())
            throw CommandError(Exit_NotFound, u"The file list %1 cannot be read: %2"_s.arg(feature.files,
                                                                                         files.error.message));
        manifests.insert(key, files.value);
    };
    read(build.feature, QString::fromLatin1(productName(options.product)));
    QList<LN_AvailableFeature> pending = build.feature.features;
    while (!pending.isEmpty()) {
        LN_AvailableFeature const feature = pending.takeFirst();
        if (options.isSelected(feature.name))
            read(feature, feature.name);
        pending.append(feature.features);
    }
    return manifests;
}

// Every file once, checked before anything is written, in the order of the archive.
QList<LN_FileMetadata> Unpacker::plan_(QHash<QString, QList<LN_FileMetadata>> const & manifests,
                                       QSet<QString> const & owned) const
{
    QList<LN_FileMetadata> files;
    QSet<QString> planned;
    for (QList<LN_FileMetadata> const & list : manifests) {
        for (LN_FileMetadata const & file : list) {
            if (planned.contains(file.path))
                continue;
            checkPlace_(file.path, owned);
            planned.insert(file.path);
            files.append(file);
        }
    }
    if (!archiveOrder_.isEmpty()) {
        auto const position = [this](LN_FileMetadata const & file) {
            return archiveOrder_.value(u"data/"_s + file.source, archiveOrder_.size());
        };
        std::ranges::stable_sort(files, {}, position);
    }
    return files;
}

void Unpacker::checkPlace_(QString const & relativePath, QSet<QString> const & owned) const
{
    if (!InstallPaths::isInside(relativePath))
        throw CommandError(Exit_Failure,
                           u"The file list names \"%1\", which lies outside the installation directory"_s.arg(
                               relativePath));
    // Nothing is written through a link or over something that is not ours.
    qsizetype slash = relativePath.indexOf(u'/');
    while (slash > 0) {
        QString const directory = relativePath.left(slash);
        if (!knownDirectories_.contains(directory)) {
            mode_t const kind = kindAt(InstallPaths::join(target_, directory));
            if (kind != 0 && kind != S_IFDIR)
                throw CommandError(Exit_Failure, u"%1 cannot be installed: %2 is not a directory"_s.arg(
                                                     relativePath, InstallPaths::join(target_, directory)));
        }
        slash = relativePath.indexOf(u'/', slash + 1);
    }
    mode_t const kind = kindAt(InstallPaths::join(target_, relativePath));
    if (kind != 0 && (!owned.contains(relativePath) || kind != S_IFREG))
        throw CommandError(Exit_Failure, u"%1 already exists and is not part of this installation"_s.arg(
                                             InstallPaths::join(target_, relativePath)));
}

void Unpacker::writeAll_(QList<LN_FileMetadata> const & files)
{
    qint64 total = 0;
    for (LN_FileMetadata const & file : files)
        total += std::max<qint64>(file.size, 0);
    makeDirectories_(QString());
    qint64 done = 0;
    for (LN_FileMetadata const & file : files)
        writeFile_(file, done, total);
    report_(LN_Message::progress(total, total, u"Installed %1 files"_s.arg(files.size())));
}

// A content named by several files is read from the installer once: the archive only reads
// forward, and asking for an entry again would cost a pass. The others copy the first, checked
// all the same.
void Unpacker::writeFile_(LN_FileMetadata const & file, qint64 & done, qint64 total)
{
    qsizetype const slash = file.path.lastIndexOf(u'/');
    makeDirectories_(slash < 0 ? QString() : file.path.left(slash));
    QString const path = InstallPaths::join(target_, file.path);
    QString const partial = QFileInfo(path).dir().filePath(u'.' + QFileInfo(path).fileName() + u".draizu-part"_s);
    QFile out(partial);
    written_.append(partial);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        throw CommandError(Exit_Failure, u"Cannot write %1: %2"_s.arg(partial, out.errorString()));

    std::unique_ptr<LN_IODevice> source;
    QString const firstCopy = firstCopies_.value(file.source);
    if (firstCopy.isEmpty()) {
        LN_FileOpener::TypedResult<LN_IODevice> opened = opener_.openFile(file.source);
        if (opened.isError())
            throw CommandError(Exit_NotFound, u"%1 cannot be read from the offline installer: %2"_s.arg(
                                                  file.source, opened.message));
        source = std::move(opened.device);
    } else {
        source = std::make_unique<LN_DiskFile>(firstCopy);
        std::error_code ec;
        QString message;
        if (!source->open(ec, message))
            throw CommandError(Exit_Failure, u"Reading %1 failed: %2"_s.arg(firstCopy, message));
    }
    if (buffer_.isEmpty())
        buffer_.resize(bufferSize);
    Sha256 hash;
    qint64 size = 0;
    std::error_code ec;
    QString message;
    for (qint64 read; (read = source->read(buffer_.data(), bufferSize, ec, message)) != 0;) {
        if (read < 0)
            throw CommandError(Exit_Failure, u"Reading %1 failed: %2"_s.arg(file.source, message));
        hash.addData(buffer_.constData(), read);
        if (out.write(buffer_.constData(), read) != read)
            throw CommandError(Exit_Failure, u"Cannot write %1: %2"_s.arg(partial, out.errorString()));
        size += read;
        done += read;
        report_(LN_Message::progress(std::min(done, total), total, u"Installing "_s + file.path));
    }
    out.setPermissions(permissionsFor(file.path));
    out.close();

    QByteArray const digest = hash.result();
    if (digest != file.checksum || size != file.size)
        throw CommandError(Exit_ChecksumMismatch,
                           u"Checksum mismatch for %1: expected SHA-256 %2 (%3 bytes), got %4 (%5 bytes)"_s.arg(
                               file.path, QString::fromLatin1(file.checksum.toHex()), QString::number(file.size),
                               QString::fromLatin1(digest.toHex()), QString::number(size)));
    if (std::rename(QFile::encodeName(partial).constData(), QFile::encodeName(path).constData()) != 0)
        throw CommandError(Exit_Failure, u"Cannot move %1 into place: %2"_s.arg(path, systemError()));
    written_.last() = path;
    if (firstCopy.isEmpty())
        firstCopies_.insert(file.source, path);
}

void Unpacker::makeDirectories_(QString const & relativeDirectory)
{
    if (knownDirectories_.contains(relativeDirectory))
        return;
    qsizetype const slash = relativeDirectory.lastIndexOf(u'/');
    if (!relativeDirectory.isEmpty())
        makeDirectories_(slash < 0 ? QString() : relativeDirectory.left(slash));
    QString const path = relativeDirectory.isEmpty() ? target_ : InstallPaths::join(target_, relativeDirectory);
    mode_t const kind = kindAt(path);
    if (kind == 0 && relativeDirectory.isEmpty()) {
        // Missing parents of the target are made as well, and removed with it on failure.
        QStringList missing;
        for (QString parent = path; kindAt(parent) == 0; parent = QFileInfo(parent).path())
            missing.prepend(parent);
        for (QString const & directory : std::as_const(missing)) {
            if (!QDir().mkdir(directory))
                throw CommandError(Exit_Failure, u"Cannot create the directory %1"_s.arg(directory));
            createdDirectories_.append(directory);
        }
    } else if (kind == 0) {
        if (!QDir().mkdir(path))
            throw CommandError(Exit_Failure, u"Cannot create the directory %1"_s.arg(path));
        createdDirectories_.append(path);
    } else if (kind != S_IFDIR) {
        throw CommandError(Exit_Failure, u"%1 is not a directory"_s.arg(path));
    }
    knownDirectories_.insert(relativeDirectory);
}

// Undoes this run: its files, then the directories it made, deepest first.
void Unpacker::removeWritten_()
{
    for (QString const & path : std::as_const(written_))
        QFile::remove(path);
    for (auto it = createdDirectories_.crbegin(); it != createdDirectories_.crend(); ++it)
        QDir().rmdir(*it);
    written_.clear();
    createdDirectories_.clear();
}
