#include "Unpacker.h"

#include "CommandError.h"
#include "CrashPoint.h"
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
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 bufferSize = 1 << 20;

struct stat statusAt(QString const & path)
{
    struct stat status = {};
    if (lstat(QFile::encodeName(path).constData(), &status) != 0)
        status.st_mode = 0;
    return status;
}

// The kind of what lies at the path, without following a link: 0 when nothing does.
mode_t kindAt(QString const & path)
{
    return statusAt(path).st_mode & S_IFMT;
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

QString temporaryFor(QString const & path)
{
    QFileInfo const info(path);
    return info.dir().filePath(u'.' + info.fileName() + u".draizu-part"_s);
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

// The record of the build, before any file list is known. "only-if-newer" asks something of
// one operation and is not an option of the installation.
LN_ComponentMetadata recordOf(LN_InstallerOptions const & options, LN_AvailableInfo const & build,
                              QString const & directory)
{
    LN_ComponentMetadata record;
    record.product = options.product;
    record.version = build.version;
    record.oapiVersion = build.oapiVersion;
    record.installDir = directory;
    record.releaseDate = build.releaseDate;
    record.tags = build.tags;
    record.buildType = build.buildType;
    record.label = build.label;
    record.platformInfo = build.platform;
    record.otherOptions = options.otherOptions;
    record.otherOptions.remove(u"only-if-newer"_s);
    return record;
}

// Puts the repository back as it was before the operation: a committed record is committed
// again, an interrupted one goes back to "new.json", where the next load finds it as before.
void restoreRecord(LN_InstallMetadata & repository, QString const & target, LN_ComponentMetadata const & old)
{
    repository.remove(target);
    if (!old.installDir.isEmpty())
        repository.insert(old);
    if (old.installDir.isEmpty() || old.ready)
        repository.saveFinal();
    else
        repository.save(u"new.json"_s);
}

} // namespace

Unpacker::Unpacker(LN_FileOpener & opener, QHash<QString, qsizetype> archiveOrder, Report report, Cancelled cancelled)
    : opener_(opener)
    , archiveOrder_(std::move(archiveOrder))
    , report_(std::move(report))
    , cancelled_(std::move(cancelled))
{
}

Unpacker::Outcome Unpacker::apply(LN_InstallerOptions const & options, LN_AvailableInfo const & build,
                                  LN_InstallMetadata & repository, Mode mode)
{
    target_ = options.installDir().isEmpty() ? options.existingInstallDir() : options.installDir();
    if (target_.isEmpty())
        throw CommandError(Exit_Usage, u"No installation directory was given"_s);
    mode_t const targetKind = kindAt(target_);
    if (targetKind != 0 && targetKind != S_IFDIR)
        throw CommandError(Exit_Failure, u"%1 is not a directory"_s.arg(target_));
    oldDirectory_ = options.existingInstallDir().isEmpty() ? target_ : options.existingInstallDir();

    Manifests manifests = readManifests_(options, build);
    LN_ComponentMetadata const old = repository.get(oldDirectory_);
    Manifests oldLists = listsOf_(old);
    if (!old.installDir.isEmpty() && !old.ready)
        removeStrayTemporaries_(old);
    Plan plan = plan_(manifests, old, oldLists, mode);

    bool const recordChanges = mode != Extract && !(mode == Repair && old.ready);
    if (recordChanges) {
        LN_ComponentMetadata const record = recordFor_(options, build, manifests, old, oldLists);
        repository.remove(oldDirectory_);
        repository.insert(record);
        repository.save(u"new.json"_s);
    }
    // The commit reads every manifest back to check it: the lists of this run go first, which
    // halves the peak memory of a large installation.
    manifests = {};
    oldLists = {};
    try {
        stageAll_(plan.toWrite);
    } catch (...) {
        undo_();
        if (recordChanges)
            restoreRecord(repository, target_, old);
        throw;
    }
    Outcome outcome;
    for (LN_FileMetadata const & file : std::as_const(plan.toWrite))
        outcome.written.append(file.path);
    outcome.removed = plan.toRemove;
    outcome.unchanged = plan.unchanged;
    plan.toWrite = {};
    firstCopies_ = {};
    archiveOrder_ = {};

    moveIntoPlace_();
    removeAll_(outcome.removed, false);
    if (oldDirectory_ != target_)
        QDir().rmdir(oldDirectory_);
    if (recordChanges) {
        repository.installations[target_].ready = true;
        repository.saveFinal();
    }
    return outcome;
}

Unpacker::Outcome Unpacker::uninstall(QString const & directory, LN_InstallMetadata & repository, bool force)
{
    target_ = oldDirectory_ = directory;
    LN_ComponentMetadata const record = repository.get(directory);
    Outcome outcome;
    for (LN_FileMetadata const & file : record.allFiles()) {
        QString const path = oldPath_(file.path);
        if (path.isEmpty())
            report_(LN_Message::warn(u"Not removed, it lies outside the installation: %1"_s.arg(file.path)));
        else
            outcome.removed.append(path);
    }
    outcome.removed.removeDuplicates();
    repository.remove(directory);
    repository.save(u"new.json"_s);
    removeAll_(outcome.removed, force);
    QDir().rmdir(directory);
    repository.saveFinal();
    return outcome;
}

Unpacker::Manifests Unpacker::readManifests_(LN_InstallerOptions const & options, LN_AvailableInfo const & build)
{
    Manifests manifests;
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

// The record's lists, each read from its manifest once.
Unpacker::Manifests Unpacker::listsOf_(LN_ComponentMetadata const & record) const
{
    Manifests lists;
    if (record.installDir.isEmpty())
        return lists;
    lists.insert(QString::fromLatin1(productName(record.product)),
                 record.getFiles(QString::fromLatin1(productName(record.product))));
    for (auto it = record.features.constBegin(); it != record.features.constEnd(); ++it)
        lists.insert(it.key(), record.getFiles(it.key()));
    return lists;
}

// Every file once, checked before anything is written, in the order of the archive. A file the
// ready record lists with the same content is trusted without a read, except in a repair; any
// other file already in place is hashed, and kept when it is what the manifest says.
Unpacker::Plan Unpacker::plan_(Manifests const & manifests, LN_ComponentMetadata const & old,
                               Manifests const & oldLists, Mode mode)
{
    bool const sameDirectory = oldDirectory_ == target_;
    QHash<QString, LN_FileMetadata> recorded;
    if (sameDirectory) {
        for (QList<LN_FileMetadata> const & list : oldLists) {
            for (LN_FileMetadata const & file : list)
                recorded.insert(file.path, file);
        }
    }
    QSet<QString> const owned(recorded.keyBegin(), recorded.keyEnd());

    Plan plan;
    QSet<QString> planned;
    QList<LN_FileMetadata> candidates;
    for (QList<LN_FileMetadata> const & list : manifests) {
        for (LN_FileMetadata const & file : list) {
            if (planned.contains(file.path))
                continue;
            if (!InstallPaths::isInside(file.path))
                throw CommandError(
                    Exit_Failure,
                    u"The file list names \"%1\", which lies outside the installation directory"_s.arg(file.path));
            planned.insert(file.path);
            candidates.append(file);
        }
    }
    for (qsizetype i = 0; i < candidates.size(); ++i) {
        LN_FileMetadata const & file = candidates.at(i);
        auto const previous = recorded.constFind(file.path);
        if (previous != recorded.constEnd()) {
            bool const trusted = mode != Repair && old.ready && previous->checksum == file.checksum
                                 && previous->size == file.size;
            if (!trusted) {
                checkCancel_();
                report_(LN_Message::progress(i + 1, candidates.size(), u"Checking "_s + file.path));
            }
            if (trusted || isIntact_(InstallPaths::join(target_, file.path), file)) {
                ++plan.unchanged;
                continue;
            }
        }
        checkPlace_(file.path, owned);
        plan.toWrite.append(file);
    }
    if (!archiveOrder_.isEmpty()) {
        auto const position = [this](LN_FileMetadata const & file) {
            return archiveOrder_.value(u"data/"_s + file.source, archiveOrder_.size());
        };
        std::ranges::stable_sort(plan.toWrite, {}, position);
    }

    if (mode == Extract)
        return plan;
    QSet<QString> removed;
    for (QList<LN_FileMetadata> const & list : oldLists) {
        for (LN_FileMetadata const & file : list) {
            if (sameDirectory && planned.contains(file.path))
                continue;
            QString const path = oldPath_(file.path);
            if (path.isEmpty())
                report_(LN_Message::warn(u"Not removed, it lies outside the installation: %1"_s.arg(file.path)));
            else if (!removed.contains(path))
                plan.toRemove.append(path);
            removed.insert(path);
        }
    }
    return plan;
}

LN_ComponentMetadata Unpacker::recordFor_(LN_InstallerOptions const & options, LN_AvailableInfo const & build,
                                          Manifests const & manifests, LN_ComponentMetadata const & old,
                                          Manifests const & oldLists) const
{
    LN_ComponentMetadata record = recordOf(options, build, target_);
    QString const productKey = QString::fromLatin1(productName(record.product));
    // A list that the committed record has already is not written again: a change of one
    // feature costs that feature's manifest, not the product's.
    bool const reuse = old.ready && oldDirectory_ == target_;
    for (auto it = manifests.constBegin(); it != manifests.constEnd(); ++it) {
        bool const isProduct = it.key() == productKey;
        QString const oldManifest = isProduct ? old.productFiles : old.features.value(it.key());
        bool const same = reuse && !oldManifest.isEmpty() && oldLists.value(it.key()) == it.value();
        if (same && isProduct)
            record.productFiles = oldManifest;
        else if (!isProduct)
            record.features.insert(it.key(), same ? oldManifest : QString());
        if (!same)
            record.setFiles(it.key(), it.value());
    }
    return record;
}

// Where a file of the starting record lies. A record merged after an interrupted move names the
// files of the old directory by absolute paths; anything else must lie inside.
QString Unpacker::oldPath_(QString const & recorded) const
{
    if (InstallPaths::isInside(recorded))
        return InstallPaths::join(oldDirectory_, recorded);
    if (QDir::isAbsolutePath(recorded) && QDir::cleanPath(recorded) == recorded)
        return recorded;
    return {};
}

bool Unpacker::isIntact_(QString const & path, LN_FileMetadata const & expected)
{
    struct stat const status = statusAt(path);
    if ((status.st_mode & S_IFMT) != S_IFREG || status.st_size != expected.size)
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    if (buffer_.isEmpty())
        buffer_.resize(bufferSize);
    Sha256 hash;
    for (qint64 read; (read = file.read(buffer_.data(), bufferSize)) > 0;)
        hash.addData(buffer_.constData(), read);
    return hash.result() == expected.checksum;
}

void Unpacker::checkPlace_(QString const & relativePath, QSet<QString> const & owned) const
{
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

void Unpacker::checkCancel_() const
{
    if (cancelled_ && cancelled_())
        throw CommandError(Exit_Failure, u"The operation was cancelled; the installation is as it was"_s);
}

// A kill leaves the temporary file that was being written; the next run over the interrupted
// record clears those of every file that either state names.
void Unpacker::removeStrayTemporaries_(LN_ComponentMetadata const & record) const
{
    for (LN_FileMetadata const & file : record.allFiles()) {
        QString const path = oldPath_(file.path);
        if (!path.isEmpty() && kindAt(temporaryFor(path)) == S_IFREG)
            QFile::remove(temporaryFor(path));
    }
}

void Unpacker::stageAll_(QList<LN_FileMetadata> const & files)
{
    qint64 total = 0;
    for (LN_FileMetadata const & file : files)
        total += std::max<qint64>(file.size, 0);
    makeDirectories_(QString());
    qint64 done = 0;
    for (LN_FileMetadata const & file : files) {
        checkCancel_();
        stageFile_(file, done, total);
        CrashPoint::fileStepDone();
    }
    report_(LN_Message::progress(total, total, u"Wrote %1 files"_s.arg(files.size())));
}

// A content named by several files is read from the installer once: the archive only reads
// forward, and asking for an entry again would cost a pass. The others copy the first, checked
// all the same.
void Unpacker::stageFile_(LN_FileMetadata const & file, qint64 & done, qint64 total)
{
    qsizetype const slash = file.path.lastIndexOf(u'/');
    makeDirectories_(slash < 0 ? QString() : file.path.left(slash));
    QString const path = InstallPaths::join(target_, file.path);
    QString const temporary = temporaryFor(path);
    QFile out(temporary);
    staged_.append({temporary, path});
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        throw CommandError(Exit_Failure, u"Cannot write %1: %2"_s.arg(temporary, out.errorString()));

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
            throw CommandError(Exit_Failure, u"Cannot write %1: %2"_s.arg(temporary, systemError()));
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
    if (firstCopy.isEmpty())
        firstCopies_.insert(file.source, temporary);
}

// Past this point nothing is undone: a failure leaves the record not ready, for the next run.
void Unpacker::moveIntoPlace_()
{
    for (Staged const & file : std::as_const(staged_)) {
        if (std::rename(QFile::encodeName(file.temporary).constData(), QFile::encodeName(file.path).constData()) != 0)
            throw CommandError(Exit_Failure, u"Cannot move %1 into place: %2"_s.arg(file.path, systemError()));
        CrashPoint::fileStepDone();
    }
    staged_.clear();
    createdDirectories_.clear();
}

// Exactly the recorded files, never through a link; then the directories they leave empty,
// deepest first. A user's file keeps its directory.
void Unpacker::removeAll_(QStringList const & paths, bool ignoreErrors)
{
    QSet<QString> parents;
    for (qsizetype i = 0; i < paths.size(); ++i) {
        QString const & path = paths.at(i);
        report_(LN_Message::progress(i + 1, paths.size(), u"Removing "_s + path));
        if (::unlink(QFile::encodeName(path).constData()) != 0 && errno != ENOENT) {
            QString const message = u"Cannot remove %1: %2"_s.arg(path, systemError());
            if (!ignoreErrors)
                throw CommandError(Exit_Failure, message);
            report_(LN_Message::warn(message));
        }
        CrashPoint::fileStepDone();
        for (QString const & root : {target_, oldDirectory_}) {
            if (!path.startsWith(root + u'/'))
                continue;
            for (QString parent = QFileInfo(path).path(); parent != root; parent = QFileInfo(parent).path())
                parents.insert(parent);
            break;
        }
    }
    QStringList ordered = parents.values();
    std::ranges::sort(ordered, std::greater{}, [](QString const & p) { return p.count(u'/'); });
    for (QString const & parent : std::as_const(ordered))
        QDir().rmdir(parent);
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

// Undoes the writing: the temporary files, then the directories this run made, deepest first.
void Unpacker::undo_()
{
    for (Staged const & file : std::as_const(staged_))
        QFile::remove(file.temporary);
    for (auto it = createdDirectories_.crbegin(); it != createdDirectories_.crend(); ++it)
        QDir().rmdir(*it);
    staged_.clear();
    createdDirectories_.clear();
}
