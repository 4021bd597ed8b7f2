#include <draizu/host/LN_Util.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_ErrorCode.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/platform/LN_HostFileSystem_p.h>
#include <draizu/platform/LN_OpenFiles_p.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStorageInfo>
#include <QThread>

#include <openssl/evp.h>

#include <cerrno>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr int copyAttemptsWhenOverwriting = 1;
constexpr int copyAttemptsOtherwise = 5;
constexpr qsizetype checksumBufferSize = 256 * 1024;

// A dangling link exists as far as removing and replacing are concerned.
bool existsWithoutFollowing(QString const & path)
{
    QFileInfo const info(path);
    return info.exists() || info.isSymLink();
}

LN_ErrorStruct fileError(QFileDevice::FileError error, QString const & message)
{
    return {std::error_code(static_cast<int>(error), QFileErrorCategory()), message};
}

// One copy attempt, with the failing step's error when it did not copy.
struct CopyAttempt
{
    bool copied = false;
    bool removalFailed = false;
    QFileDevice::FileError code = QFileDevice::NoError;
    QString text;
};

CopyAttempt attemptCopy(QString const & source, QString const & target, bool overwrite)
{
    if (overwrite && existsWithoutFollowing(target)) {
        QFile existing(target);
        if (!existing.remove())
            return {false, true, existing.error(), existing.errorString()};
    }
    QFile file(source);
    if (file.copy(target))
        return {true, false, QFileDevice::NoError, QString()};
    return {false, false, file.error(), file.errorString()};
}

QString fromWide(wchar_t const * path)
{
    return path ? QString::fromWCharArray(path) : QString();
}

struct DigestContextFree
{
    void operator()(EVP_MD_CTX * context) const { EVP_MD_CTX_free(context); }
};

struct DigestFree
{
    void operator()(EVP_MD * digest) const { EVP_MD_free(digest); }
};

// Fetched once: an implicit fetch on every file would cost a provider lookup per file, and
// installations hold many small files.
EVP_MD const * sha256()
{
    static std::unique_ptr<EVP_MD, DigestFree> const fetched(EVP_MD_fetch(nullptr, "SHA256", nullptr));
    return fetched ? fetched.get() : EVP_sha256();
}

QByteArray hashFileContents(QString const & path)
{
    std::unique_ptr<EVP_MD_CTX, DigestContextFree> const context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), sha256(), nullptr) != 1)
        return QByteArray();
    bool updated = true;
    int const error = LN_HostFileSystem::readSequentially(
        path, checksumBufferSize, [&context, &updated](char const * data, qsizetype size) {
            updated = updated && EVP_DigestUpdate(context.get(), data, static_cast<std::size_t>(size)) == 1;
        });
    if (error != 0 || !updated)
        return QByteArray();

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &length) != 1)
        return QByteArray();
    return QByteArray(reinterpret_cast<char const *>(digest), static_cast<qsizetype>(length));
}

} // namespace

LN_ErrorStruct LN_Util::changeOwner(QString const & path, LN_Sid * owner)
{
    int const error = owner ? LN_HostFileSystem::changeOwner(path, *owner) : EINVAL;
    if (error != 0)
        return LN_ErrorStruct::fromWindowsError(error, u"Failed to set file security information: "_s);
    return {};
}

LN_ErrorStruct LN_Util::changeOwner(wchar_t * path, LN_Sid * owner)
{
    return changeOwner(fromWide(path), owner);
}

LN_ErrorStruct LN_Util::changeOwner(wchar_t const * path, LN_Sid * owner)
{
    return changeOwner(fromWide(path), owner);
}

LN_ErrorStruct LN_Util::changeOwnerRecursive(QString const & path, LN_Sid * owner)
{
    LN_ErrorStruct const own = changeOwner(path, owner);
    if (own.isError())
        return own;

    LN_HostFileSystem::DirectoryListing const listing = LN_HostFileSystem::listDirectory(path);
    if (listing.openError == ENOTDIR)
        return {};
    if (listing.openError != 0)
        return LN_ErrorStruct::fromWindowsError(listing.openError, u"Failed to search path: "_s);
    QString const directory = path.endsWith(u'/') ? path : path + u'/';
    for (QString const & name : listing.names) {
        LN_ErrorStruct const child = changeOwnerRecursive(directory + name, owner);
        if (child.isError())
            return child;
    }
    if (listing.readError != 0)
        return LN_ErrorStruct::fromWindowsError(listing.readError, u"Failed to iterate directory: "_s);
    return {};
}

LN_ErrorStruct LN_Util::changeOwnerRecursive(wchar_t const * path, LN_Sid * owner)
{
    return changeOwnerRecursive(fromWide(path), owner);
}

LN_ErrorStruct LN_Util::createDirectoryWithOwner(QString const & path, LN_SecurityAttributes const * const & attributes)
{
    int const error = LN_HostFileSystem::makeDirectory(path, attributes);
    if (error != 0)
        return LN_ErrorStruct::fromWindowsError(error, u"Failed to create %1: "_s.arg(path));
    return {};
}

LN_ErrorStruct LN_Util::createDirectoriesWithOwner(QString const & path, LN_SecurityAttributes const * const & attributes)
{
    LN_ErrorStruct const first = createDirectoryWithOwner(path, attributes);
    if (!first.isError() || first.code.value() != ENOENT)
        return first;

    // A trailing separator names the same directory, so the search for the parent starts
    // before it. Only "/" separates on this platform; a backslash is part of a name.
    qsizetype const separator = path.size() < 2 ? -1 : path.lastIndexOf(u'/', path.size() - 2);
    if (separator < 0)
        return first;
    LN_ErrorStruct const parent = createDirectoriesWithOwner(path.left(separator + 1), attributes);
    if (parent.isError())
        return parent;
    return createDirectoryWithOwner(path, attributes);
}

LN_ErrorStruct LN_Util::copyFile(QString const & source, QString const & target, bool overwrite, bool makeDirectories)
{
    if (makeDirectories) {
        QString const directory = QFileInfo(target).absolutePath();
        if (!QDir().mkpath(directory))
            return fileError(QFileDevice::UnspecifiedError, u"Unable to create directory "_s + directory);
    }

    // One attempt when overwriting and five otherwise: callers rely on this asymmetry.
    int const attempts = overwrite ? copyAttemptsWhenOverwriting : copyAttemptsOtherwise;
    CopyAttempt last;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        last = attemptCopy(source, target, overwrite);
        if (last.copied)
            return {};
        QThread::msleep(static_cast<unsigned long>(LN_Waits::ms(LN_Waits::CopyRetry)));
    }
    if (last.removalFailed)
        return fileError(last.code, u"Unable to remove %1: %2"_s.arg(target, last.text));
    return fileError(last.code, u"Unable to copy %1 to %2: %3"_s.arg(source, target, last.text));
}

void LN_Util::copyTree(QDir source, QDir const & target, bool overwrite)
{
    if (!source.exists())
        throw LN_Exception(u"Unable to copy from %1: Directory does not exist"_s.arg(source.absolutePath()));

    // Dot files are ordinary files of an installation here, not hidden ones.
    source.setFilter(QDir::Files | QDir::Hidden);
    QDirIterator files(source, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QString const file = files.next();
        LN_ErrorStruct const error = copyFile(file, target.filePath(source.relativeFilePath(file)), overwrite, true);
        if (error.isError())
            throw LN_Exception(error.message);
    }
}

void LN_Util::copyTree(QString const & source, QDir const & target, bool overwrite)
{
    copyTree(QDir(source), target, overwrite);
}

void LN_Util::copyTree(QDir source, QString const & target, bool overwrite)
{
    copyTree(std::move(source), QDir(target), overwrite);
}

void LN_Util::copyTree(QString const & source, QString const & target, bool overwrite)
{
    copyTree(QDir(source), QDir(target), overwrite);
}

void LN_Util::removeFile(QString const & path)
{
    QFile file(path);
    if (!file.remove() && existsWithoutFollowing(path))
        throw LN_Exception(u"Could not remove \"%1\": %2"_s.arg(path, file.errorString()));
}

void LN_Util::removeDir(QDir const & dir)
{
    QString const path = dir.absolutePath();
    if (!QDir().rmdir(path) && existsWithoutFollowing(path))
        throw LN_Exception(u"Could not remove \"%1\""_s.arg(path));
}

void LN_Util::removeTree(QString const & path)
{
    QDirIterator entries(path, QDir::Dirs | QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (entries.hasNext()) {
        QString const entry = entries.next();
        QFileInfo const info = entries.fileInfo();
        if (info.isDir() && !info.isSymLink())
            removeTree(entry);
        else
            removeFile(entry);
    }
    removeDir(QDir(path));
}

void LN_Util::rename(QString const & from, QString const & to)
{
    int const error = LN_HostFileSystem::renameNoReplace(from, to);
    if (error != 0)
        throw LN_Exception(u"Failed to rename %1 to %2: %3"_s.arg(from, to, LN_ErrorCode::errcodeToString(error)));
}

QByteArray LN_Util::checksum(QString const & path)
{
    QFileInfo const info(path);
    if (info.isSymLink()) {
        QString const target = QDir(info.absolutePath()).relativeFilePath(info.symLinkTarget());
        return QCryptographicHash::hash(target.toUtf8(), QCryptographicHash::Sha256);
    }
    return hashFileContents(path);
}

qint64 LN_Util::diskSpaceAvailable(QString const & path)
{
    QDir dir(path);
    while (!dir.exists()) {
        QString const current = dir.absolutePath();
        QString const parent = QDir::cleanPath(current + u'/' + u".."_s);
        if (parent == current)
            break;
        dir.setPath(parent);
    }
    return QStorageInfo(dir).bytesFree();
}

void LN_Util::openHandlesToFile(QString const & path, QList<LN_ProcessInfo> & processes)
{
    processes = LN_OpenFiles::processesHolding(path);
}

bool LN_Util::isParentDir(QString const & parent, QString const & child)
{
    return !parent.isEmpty() && child.size() > parent.size() && child.startsWith(parent)
        && child.at(parent.size()) == u'/';
}

bool LN_Util::isParentOrChildDir(QString const & a, QString const & b)
{
    return isParentDir(a, b) || isParentDir(b, a);
}

bool LN_Util::isRelativePath(QString const & path)
{
    return !LN_HostFileSystem::isAbsolutePath(path);
}

bool LN_Util::isAbsolutePath(QString const & path)
{
    return LN_HostFileSystem::isAbsolutePath(path);
}

QString LN_Util::formatNumber(qint64 value, Base base, QString suffix)
{
    static constexpr char16_t letters[] = {u'k', u'M', u'G', u'T'};
    static constexpr int lastLetter = 3;

    qint64 const step = base == Binary ? 1024 : 1000;
    if (value <= step)
        return QString::number(value) + suffix;

    qint64 divisor = 1;
    int letter = -1;
    while (letter < lastLetter && divisor * step < value) {
        divisor *= step;
        ++letter;
    }
    QChar const unit(letters[letter]);

    if (base == Binary)
        return QString::number(static_cast<double>(value) / static_cast<double>(divisor), 'f', 2) + suffix + unit;

    qint64 whole = value / divisor;
    qint64 rest = value % divisor;
    while (rest > 1000)
        rest /= 10;
    qint64 fraction = rest / 10;
    if (rest % 10 > 4) {
        if (fraction == 99) {
            ++whole;
            fraction = 0;
        } else {
            ++fraction;
        }
    }
    return u"%1.%2%3%4"_s.arg(QString::number(whole), QString::number(fraction).rightJustified(2, u'0'), suffix,
                              QString(unit));
}

QString LN_Util::numBytesToString(qint64 bytes)
{
    if (bytes < 0)
        return u"Unknown"_s;
    QString text = formatNumber(bytes, Binary, u" "_s);
    if (text.endsWith(u'k'))
        text.back() = u'K';
    return text + u'B';
}

QString LN_Util::replace(QString const & text, QHash<QString, QString> const & values)
{
    if (values.isEmpty())
        return text;
    QStringList alternatives;
    alternatives.reserve(values.size());
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        alternatives.append(QRegularExpression::escape(it.key()));
    QRegularExpression const keys(alternatives.join(u'|'));

    QString result;
    qsizetype copied = 0;
    QRegularExpressionMatchIterator matches = keys.globalMatch(text);
    while (matches.hasNext()) {
        QRegularExpressionMatch const match = matches.next();
        result += QStringView(text).mid(copied, match.capturedStart() - copied);
        result += values.value(match.captured());
        copied = match.capturedEnd();
    }
    result += QStringView(text).mid(copied);
    return result;
}

int LN_Util::versionMMCmp(QVersionNumber const & a, QVersionNumber const & b)
{
    if (a.majorVersion() != b.majorVersion())
        return a.majorVersion() < b.majorVersion() ? -1 : 1;
    if (a.minorVersion() != b.minorVersion())
        return a.minorVersion() < b.minorVersion() ? -1 : 1;
    return 0;
}

QVersionNumber LN_Util::getFileVersion(wchar_t const * path)
{
    return getFileVersion(fromWide(path));
}

QVersionNumber LN_Util::getFileVersion(QString const & path)
{
    QVersionNumber version;
    int const error = LN_HostFileSystem::fileVersion(path, &version);
    if (error != 0)
        throw LN_Exception(u"Unable to read version info from %1: %2"_s.arg(path, LN_ErrorCode::errcodeToString(error)));
    return version;
}

QNetworkRequest LN_Util::createHttpRequest(QUrl const & url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QVariant(true));
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, QVariant(true));
    return request;
}

QString LN_Util::applicationRoot()
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + u"/.."_s);
}

LN_Util::YesNoResult LN_Util::getYesNoOption(QString const & value)
{
    if (value.compare(u"yes"_s, Qt::CaseInsensitive) == 0)
        return Yes;
    if (value.compare(u"no"_s, Qt::CaseInsensitive) == 0)
        return No;
    if (value.isEmpty())
        return Empty;
    return Unrecognised;
}
