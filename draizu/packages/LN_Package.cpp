#include <draizu/packages/LN_Package.h>

#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_Archive_p.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/io/LN_NetworkFile.h>
#include <draizu/packages/LN_DigestStream_p.h>
#include <draizu/packages/LN_PackageStaging_p.h>

#include <QDir>
#include <QFile>
#include <QSet>
#include <QTemporaryFile>
#include <QUrl>

#include <archive.h>
#include <archive_entry.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t blockSize = 10240;
constexpr qint64 streamBufferSize = 1048576;
constexpr qint64 downloadReadSize = 262144;

// Time, ACL, file flags, extended attributes, Mac metadata and clearing no-change flags, as the
// packages were made; then refusal of ".." components, of writing through links and of
// absolute paths, since a package is a server's or a stranger's.
constexpr int installFlags = ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_ACL | ARCHIVE_EXTRACT_FFLAGS
                             | ARCHIVE_EXTRACT_XATTR | ARCHIVE_EXTRACT_MAC_METADATA
                             | ARCHIVE_EXTRACT_CLEAR_NOCHANGE_FFLAGS;
constexpr int secureFlags = ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_SYMLINKS
                            | ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS;

struct ArchiveFree
{
    void operator()(archive * reader) const { archive_read_free(reader); }
};
using Reader = std::unique_ptr<archive, ArchiveFree>;

LN_Package::InstallResult failed(archive * reader)
{
    return {LN_Package::Failed, LN_Archive::errorText(reader)};
}

// An empty text for an entry that may be written, else why not. The cleaned form catches what
// the patterns miss: "..", absolute paths and any other way out of the root.
QString checkEntry(archive_entry * entry, QString const & path)
{
    QString const cleaned = QDir::cleanPath(path);
    if (path.startsWith(u"../"_s) || path.contains(u"/../"_s) || path.endsWith(u"/.."_s) || path.contains(u'\\')
        || cleaned == u".."_s || cleaned.startsWith(u"../"_s) || QDir::isAbsolutePath(cleaned))
        return u"illegal path"_s;
    mode_t const type = archive_entry_filetype(entry);
    if (type != AE_IFDIR && type != AE_IFREG)
        return u"illegal file type"_s;
    return QString();
}

Reader openZip(QString const & zipPath, LN_Package::InstallResult & failure)
{
    Reader reader(archive_read_new());
    if (!reader) {
        failure = {LN_Package::Failed, u"insufficient memory"_s};
        return nullptr;
    }
    if (archive_read_support_format_zip_seekable(reader.get()) != ARCHIVE_OK
        || archive_read_support_filter_none(reader.get()) != ARCHIVE_OK
        || archive_read_open_filename(reader.get(), QFile::encodeName(zipPath).constData(), blockSize) != ARCHIVE_OK) {
        failure = failed(reader.get());
        return nullptr;
    }
    return reader;
}

// Feeds an inner zip to libarchive from the offline installer's stream.
struct StreamSource
{
    LN_IODevice * device;
    std::unique_ptr<char[]> buffer = std::make_unique<char[]>(streamBufferSize);

    static la_ssize_t read(archive * reader, void * context, void const ** block)
    {
        auto * source = static_cast<StreamSource *>(context);
        std::error_code ec;
        QString message;
        qint64 const count = source->device->read(source->buffer.get(), streamBufferSize, ec, message);
        if (count < 0)
            archive_set_error(reader, EIO, "%s", message.toUtf8().constData());
        *block = source->buffer.get();
        return static_cast<la_ssize_t>(count);
    }
};

LN_Package::InstallResult installStream(LN_IODevice & device, QDir const & target,
                                        LN_Package::Progress const & progress)
{
    qint64 const size = device.size();
    Reader const reader(archive_read_new());
    if (!reader)
        return {LN_Package::Failed, u"insufficient memory"_s};
    StreamSource source{&device};
    archive_read_support_format_all(reader.get());
    archive_read_support_filter_all(reader.get());
    if (archive_read_open(reader.get(), &source, nullptr, &StreamSource::read, nullptr) != ARCHIVE_OK)
        return failed(reader.get());

    LN_PackageStaging staging(target, secureFlags);
    if (!staging.isValid())
        return {LN_Package::Failed, staging.errorText()};
    for (;;) {
        archive_entry * entry = nullptr;
        int const status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status != ARCHIVE_OK)
            return failed(reader.get());
        QString const path = LN_Archive::entryPathname(entry);
        if (path.isEmpty())
            continue;
        if (QString const reason = checkEntry(entry, path); !reason.isEmpty())
            return {LN_Package::Rejected, reason};
        progress(static_cast<int>(archive_filter_bytes(reader.get(), 0) * 100 / size), 100,
                 u"Installing %1"_s.arg(target.filePath(path)));
        if (staging.extract(reader.get(), entry, path) != ARCHIVE_OK)
            return failed(reader.get());
    }
    if (QString const error = staging.commit(); !error.isEmpty())
        return {LN_Package::Failed, error};
    return {};
}

} // namespace

LN_Package::ValidationResult LN_Package::validatePackage(QString const & zipPath)
{
    InstallResult failure;
    Reader const reader = openZip(zipPath, failure);
    if (!reader)
        return {failure.status, failure.message, 0, 0, {}};
    return validatePackage(reader.get());
}

LN_Package::ValidationResult LN_Package::validatePackage(archive * reader)
{
    QStringList jsonFiles;
    QSet<QString> folders;
    qint64 entryCount = 0;
    qint64 totalBytes = 0;
    for (;;) {
        archive_entry * entry = nullptr;
        int const status = archive_read_next_header(reader, &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status != ARCHIVE_OK)
            return {Failed, LN_Archive::errorText(reader), 0, 0, {}};
        QString const path = LN_Archive::entryPathname(entry);
        if (QString const reason = checkEntry(entry, path); !reason.isEmpty())
            return {Rejected, reason, 0, 0, {}};

        mode_t const type = archive_entry_filetype(entry);
        qsizetype const slash = path.indexOf(u'/');
        if (slash >= 0) {
            folders.insert(path.first(slash));
            ++entryCount;
            if (type == AE_IFREG)
                totalBytes += archive_entry_size(entry);
        } else if (path.endsWith(u".json"_s)) {
            if (type != AE_IFREG)
                return {Rejected, u"package JSON file must be a file"_s, 0, 0, {}};
            jsonFiles.append(path);
        } else {
            if (type != AE_IFDIR)
                return {Rejected, u"files found that do not belong to a package"_s, 0, 0, {}};
            folders.insert(path);
        }
    }

    if (jsonFiles.size() != folders.size())
        return {Rejected, u"mismatched numbers of package files and folders"_s, 0, 0, {}};
    for (QString const & jsonFile : std::as_const(jsonFiles)) {
        QString const stem = jsonFile.chopped(5);
        if (!folders.contains(stem))
            return {Rejected, u"no files found for "_s + stem, 0, 0, {}};
    }
    return {Success, QString(), entryCount, totalBytes, folders.values()};
}

LN_Package::InstallResult LN_Package::installPackages(QString const & zipPath, QSet<QString> packages,
                                                      QDir const & target, Progress progress)
{
    ValidationResult const validation = validatePackage(zipPath);
    if (validation.status != Success)
        return {validation.status, validation.message};
    QSet<QString> const offered(validation.packages.cbegin(), validation.packages.cend());
    // The names are not part of the text: its callers show it as it has always read.
    if (!offered.contains(packages))
        return {Rejected, u"The following packages were not found: "_s};
    if (packages.isEmpty())
        packages = offered;

    InstallResult failure;
    Reader const reader = openZip(zipPath, failure);
    if (!reader)
        return failure;
    LN_PackageStaging staging(target, installFlags | secureFlags);
    if (!staging.isValid())
        return {Failed, staging.errorText()};

    qint64 bytesDone = 0;
    for (;;) {
        archive_entry * entry = nullptr;
        int const status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status != ARCHIVE_OK)
            return failed(reader.get());
        QString const path = LN_Archive::entryPathname(entry);
        if (QString const reason = checkEntry(entry, path); !reason.isEmpty())
            return {Rejected, reason};
        qsizetype const slash = path.indexOf(u'/');
        bool const selected = slash >= 0 ? packages.contains(path.first(slash))
                                         : path.endsWith(u".json"_s) && packages.contains(path.chopped(5));
        if (!selected)
            continue;
        // A selection of description files and empty folders has nothing to count: it is whole.
        int const percent = validation.totalBytes > 0 ? static_cast<int>(bytesDone * 100 / validation.totalBytes) : 100;
        progress(percent, 100, u"Installing %1"_s.arg(path));
        if (staging.extract(reader.get(), entry, path) != ARCHIVE_OK)
            return failed(reader.get());
        bytesDone += archive_entry_size(entry);
    }
    if (QString const error = staging.commit(); !error.isEmpty())
        return {Failed, error};
    return {};
}

LN_Package::InstallResult LN_Package::installZipPackagesFromZipStream(LN_FileOpener & opener, QSet<QString> packages,
                                                                      QDir const & target, Progress progress)
{
    if (packages.isEmpty()) {
        QString const text = u"No packages selected to install"_s;
        progress(-1, -1, text);
        return {Failed, text};
    }
    for (QString const & name : std::as_const(packages)) {
        QString const fileName = u"packages/%1.zip"_s.arg(name);
        LN_FileOpener::TypedResult<LN_IODevice> opened = opener.openFile(fileName);
        if (opened.isError()) {
            QString const text = u"%1 was skipped. Failed to open %2: %3\nPlease check if this file exists in the "
                                 "offline installer."_s.arg(name, fileName, opened.message);
            progress(-1, -1, text);
            return {Skipped, text};
        }
        qint64 const size = opened.device->size();
        if (size < 1) {
            QString const text = u"%1 was skipped. Failed open %2. Please check if this file exists in offline "
                                 "installer."_s.arg(name, fileName);
            progress(static_cast<int>(size), static_cast<int>(size), text);
            return {Skipped, text};
        }
        progress(0, 100, u"Opening %1"_s.arg(fileName));
        if (InstallResult result = installStream(*opened.device, target, progress); result.status != Success)
            return result;
    }
    return {};
}

LN_Package::InstallResult LN_Package::downloadAndInstallZipPackages(QNetworkAccessManager * manager, QUrl const & url,
                                                                    QSet<QString> packages,
                                                                    LN_AvailablePackage::Checksum const & checksum,
                                                                    QDir const & target, Progress progress)
{
    QTemporaryFile file;
    if (!file.open())
        return {Failed, file.errorString()};
    LN_NetworkFile stream(manager, LN_Util::createHttpRequest(url));
    std::error_code ec;
    QString message;
    LN_DigestStream digest(checksum.algorithm);
    auto const buffer = std::make_unique<char[]>(downloadReadSize);
    if (stream.open(ec, message)) {
        for (;;) {
            qint64 const count = stream.read(buffer.get(), downloadReadSize, ec, message);
            if (count == 0)
                break;
            if (count < 0)
                return {Failed, u"Failed to download %1: %2"_s.arg(stream.filename(), message)};
            if (file.write(buffer.get(), count) != count)
                return {Failed, file.errorString()};
            digest.add(buffer.get(), count);
        }
    } else {
        return {Failed, u"Failed to download %1: %2"_s.arg(stream.filename(), message)};
    }
    if (!checksum.value.isEmpty() && digest.result() != checksum.value)
        return {Rejected, u"Checksum did not match"_s};
    if (!file.flush())
        return {Failed, file.errorString()};
    return installPackages(file.fileName(), std::move(packages), target, std::move(progress));
}

LN_Package::InstallResult LN_Package::downloadAndInstallZipPackages(QNetworkAccessManager * manager, QUrl const & url,
                                                                    QSet<QString> packages, QDir const & target,
                                                                    Progress progress)
{
    return downloadAndInstallZipPackages(manager, url, std::move(packages),
                                         LN_AvailablePackage::Checksum{QCryptographicHash::Sha256, QByteArray()},
                                         target, std::move(progress));
}

LN_Package::InstallResult LN_Package::uninstallPackage(QString const & jsonPath)
{
    bool const jsonMissing = !jsonPath.endsWith(u".json"_s) || !QFileInfo::exists(jsonPath);
    QString const folder = jsonPath.chopped(std::min<qsizetype>(5, jsonPath.size()));
    bool const folderFound = QFileInfo(folder).isDir();
    try {
        if (!jsonMissing)
            LN_Util::removeFile(jsonPath);
        if (folderFound)
            LN_Util::removeTree(folder);
    } catch (std::exception const & e) {
        return {Failed, QString::fromUtf8(e.what())};
    }
    if (jsonMissing)
        return {Skipped, u"Warning: Couldn't find package json file:\n\"%1\".\nIgnored."_s.arg(jsonPath)};
    if (folderFound)
        return {};
    return {Skipped, u"Warning: Couldn't find package content folder:\n\"%1\".\nIgnored."_s.arg(folder)};
}
