#include <draizu/io/LN_FileOpener.h>

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_Archive_p.h>
#include <draizu/io/LN_ArchiveFile_p.h>
#include <draizu/io/LN_DiskFile.h>
#include <draizu/io/LN_Urls.h>
#include <draizu/options/LN_CouldInstall.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QUrl>
#include <QUrlQuery>

#include <archive.h>
#include <archive_entry.h>

using namespace Qt::StringLiterals;

namespace {

// The launcher's own installers sit at the top of an offline installer, beside "data/".
QStringList const launcherInstallerNames = {
    u"install-orvanis-launcher.exe"_s,
    u"install_orvanis_launcher.sh"_s,
    u"orvanis_launcher.dmg"_s,
};

} // namespace

LN_FileOpener::LN_FileOpener(QNetworkAccessManager * manager, LN_InstallerOptions const & installerOptions,
                             QByteArray token)
    : networkManager_(manager)
    , authToken_(std::move(token))
{
    setInstallerOptions(installerOptions);
}

LN_FileOpener::LN_FileOpener(QNetworkAccessManager * manager, QDir const & directory, QByteArray token)
    : sourcePath_(directory.path())
    , networkManager_(manager)
    , authToken_(std::move(token))
{
}

LN_FileOpener::~LN_FileOpener() = default;

void LN_FileOpener::setInstallerOptions(LN_InstallerOptions const & installerOptions)
{
    options_ = installerOptions;
    if (options_.offlineInstaller != sourcePath_) {
        sourcePath_ = options_.offlineInstaller;
        state_ = State_Unresolved;
    }
}

void LN_FileOpener::setVersion(QVersionNumber const & version)
{
    state_ = State_Unresolved;
    options_.version = version;
}

void LN_FileOpener::computeState_()
{
    if (sourcePath_.isEmpty()) {
        state_ = State_Network;
        return;
    }

    // A file named by the user is trusted to hold the build that was asked for.
    if (QFileInfo(sourcePath_).isFile() && !LN_AvailableInfo::fromFile(sourcePath_).isEmpty()) {
        state_ = State_Archive;
        return;
    }

    // The walk goes on after a hit, so that of several suitable archives the last one wins.
    QDirIterator files(sourcePath_, QDir::Files);
    while (files.hasNext()) {
        QString const path = files.next();
        QList<LN_AvailableInfo> const builds = LN_AvailableInfo::fromFile(path);
        for (LN_AvailableInfo const & build : builds) {
            if (LN_Util::couldInstall(options_, build)) {
                sourcePath_ = path;
                state_ = State_Archive;
                break;
            }
        }
    }

    if (state_ == State_Unresolved && QFileInfo(QDir(sourcePath_).filePath(u"data/overview.json"_s)).isFile())
        state_ = State_Directory;
}

LN_FileOpener::TypedResult<LN_IODevice> LN_FileOpener::openFile(QString const & name)
{
    if (state_ == State_Unresolved)
        computeState_();

    switch (state_) {
    case State_Network:
        return makeGenericResult_(downloadFile(name));
    case State_Archive:
        return openArchiveFile_(name);
    case State_Directory:
        return openDiskFile_(name);
    case State_Unresolved:
        break;
    }
    return notLocated_();
}

LN_FileOpener::TypedResult<LN_IODevice> LN_FileOpener::openSofsFile(QString const & name)
{
    if (state_ == State_Unresolved)
        computeState_();

    switch (state_) {
    case State_Network:
        return makeGenericResult_(
            downloadFile(QUrl(LN_Urls::instance().getUrl(LN_Urls::Url_DownloadSofs) + name, QUrl::TolerantMode)));
    case State_Archive:
        return openArchiveFile_(u"sofs/"_s + name);
    case State_Directory:
        return openDiskFile_(u"data/sofs/"_s + name);
    case State_Unresolved:
        break;
    }
    return notLocated_();
}

LN_FileOpener::TypedResult<LN_IODevice> LN_FileOpener::openLicenseFile(QString const & name)
{
    return {nullptr, make_error_code(LN_FileError::FileNotFound), u"%1 was not found"_s.arg(name)};
}

LN_FileOpener::TypedResult<LN_NetworkFile> LN_FileOpener::downloadFile(QString const & file)
{
    QUrl url(LN_Urls::instance().getUrl(LN_Urls::Url_DownloadInstaller), QUrl::TolerantMode);
    QUrlQuery query;
    query.addQueryItem(u"file"_s, file);
    query.addQueryItem(u"platform"_s, options_.platform);
    query.addQueryItem(u"version"_s, options_.version.toString());
    query.addQueryItem(u"cdn"_s, u""_s);
    if (!options_.buildType().isEmpty())
        query.addQueryItem(u"product"_s, u"orvanis-%1"_s.arg(options_.buildType()));
    url.setQuery(query);
    return downloadFile(url);
}

LN_FileOpener::TypedResult<LN_NetworkFile> LN_FileOpener::downloadFile(QUrl const & url)
{
    QNetworkRequest request = LN_Util::createHttpRequest(url);
    if (!authToken_.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + authToken_);

    TypedResult<LN_NetworkFile> result;
    result.device = std::make_unique<LN_NetworkFile>(networkManager_, request);
    result.device->open(result.error, result.message);
    return result;
}

LN_FileOpener::TypedResult<LN_IODevice> LN_FileOpener::openArchiveFile_(QString name)
{
    if (!launcherInstallerNames.contains(name) && !name.startsWith(u"packages"_s))
        name.prepend(u"data/"_s);

    TypedResult<LN_IODevice> result;
    // The archive only reads forward: an entry behind the current position means a new pass.
    if ((!archive_ || seenEntries_.contains(name)) && !reopenArchive_(result.error, result.message))
        return result;

    for (;;) {
        archive_entry * entry = nullptr;
        int const status = archive_read_next_header(archive_.get(), &entry);
        if (status == ARCHIVE_EOF) {
            result.error = make_error_code(LN_FileError::FileNotFound);
            result.message = u"%1 was not found in %2"_s.arg(name, sourcePath_);
            // Every name has now been passed: whatever is asked next starts a new pass.
            archive_.reset();
            return result;
        }
        if (status != ARCHIVE_OK) {
            result.error = make_error_code(LN_FileError::ArchiveError);
            result.message = LN_Archive::errorText(archive_.get());
            // libarchive refuses every further call on a reader in this state; the next
            // request starts from a fresh one.
            if (status == ARCHIVE_FATAL)
                archive_.reset();
            return result;
        }

        QString const pathname = LN_Archive::entryPathname(entry);
        seenEntries_.insert(pathname);
        if (pathname == name) {
            result.device = std::make_unique<LN_ArchiveFile>(archive_.get(), entry);
            return result;
        }
    }
}

bool LN_FileOpener::reopenArchive_(std::error_code & ec, QString & message)
{
    seenEntries_.clear();
    archive_.reset(archive_read_new());
    if (!archive_) {
        ec = make_error_code(LN_FileError::ArchiveError);
        message = u"Out of memory"_s;
        return false;
    }
    if (LN_Archive::openFile(archive_.get(), sourcePath_) != ARCHIVE_OK) {
        ec = make_error_code(LN_FileError::ArchiveError);
        message = LN_Archive::errorText(archive_.get());
        archive_.reset();
        return false;
    }
    return true;
}

void LN_FileOpener::ArchiveFree::operator()(struct archive * reader) const
{
    archive_read_free(reader);
}

LN_FileOpener::TypedResult<LN_IODevice> LN_FileOpener::openDiskFile_(QString const & relativePath) const
{
    TypedResult<LN_IODevice> result;
    result.device = std::make_unique<LN_DiskFile>(QDir(sourcePath_).absoluteFilePath(relativePath));
    result.device->open(result.error, result.message);
    return result;
}

LN_FileOpener::TypedResult<LN_IODevice> LN_FileOpener::makeGenericResult_(TypedResult<LN_NetworkFile> && result)
{
    return {std::move(result.device), result.error, std::move(result.message)};
}

LN_FileOpener::TypedResult<LN_IODevice> LN_FileOpener::notLocated_()
{
    return {nullptr, make_error_code(LN_FileError::FileNotFound), u"Could not locate a valid offline installer"_s};
}
