#include <draizu/platform/LN_HostFileSystem_p.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t defaultDirectoryMode = 0755;
constexpr qsizetype smallestBuffer = 64 * 1024;

class FileDescriptor
{
public:
    explicit FileDescriptor(int fd)
        : fd_(fd)
    {
    }
    ~FileDescriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    FileDescriptor(FileDescriptor const &) = delete;
    FileDescriptor & operator=(FileDescriptor const &) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

int openDirectory(QByteArray const & name)
{
    return ::open(name.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

int syncDirectory(QByteArray const & name)
{
    FileDescriptor const directory(openDirectory(name));
    if (directory.get() < 0)
        return errno;
    // Some file systems cannot sync a directory and say so; there is nothing to wait for.
    if (::fsync(directory.get()) != 0 && errno != EINVAL)
        return errno;
    return 0;
}

QByteArray parentDirectory(QString const & path)
{
    return QFile::encodeName(QFileInfo(path).absolutePath());
}

// For file systems without RENAME_NOREPLACE: a hard link refuses an existing target as
// renameat2 would. Directories cannot be linked, so for them the test and the move are two
// steps.
int renameByLink(QByteArray const & from, QByteArray const & to)
{
    struct stat source {};
    if (::lstat(from.constData(), &source) != 0)
        return errno;
    if (S_ISDIR(source.st_mode)) {
        struct stat target {};
        if (::lstat(to.constData(), &target) == 0)
            return EEXIST;
        if (errno != ENOENT)
            return errno;
        return ::rename(from.constData(), to.constData()) == 0 ? 0 : errno;
    }
    if (::link(from.constData(), to.constData()) != 0)
        return errno;
    if (::unlink(from.constData()) != 0) {
        int const error = errno;
        ::unlink(to.constData());
        return error;
    }
    return 0;
}

} // namespace

int LN_HostFileSystem::makeDirectory(QString const & path, LN_SecurityAttributes const * attributes)
{
    QByteArray const name = QFile::encodeName(path);
    bool const explicitMode = attributes && attributes->mode >= 0;
    mode_t const mode = explicitMode ? static_cast<mode_t>(attributes->mode) : defaultDirectoryMode;
    if (::mkdir(name.constData(), mode) != 0)
        return errno;

    int result = 0;
    // mkdir's mode passes through the umask; bits that were asked for are meant exactly.
    if (explicitMode && ::chmod(name.constData(), mode) != 0)
        result = errno;
    if (result == 0 && attributes && (attributes->owner >= 0 || attributes->group >= 0)) {
        uid_t const owner = attributes->owner >= 0 ? static_cast<uid_t>(attributes->owner) : static_cast<uid_t>(-1);
        gid_t const group = attributes->group >= 0 ? static_cast<gid_t>(attributes->group) : static_cast<gid_t>(-1);
        if (::chown(name.constData(), owner, group) != 0)
            result = errno;
    }
    if (result != 0)
        ::rmdir(name.constData());
    return result;
}

int LN_HostFileSystem::changeOwner(QString const & path, LN_Sid const & owner)
{
    QByteArray const name = QFile::encodeName(path);
    uid_t const user = owner.kind == LN_Sid::Sid_User ? static_cast<uid_t>(owner.id) : static_cast<uid_t>(-1);
    gid_t const group = owner.kind == LN_Sid::Sid_Group ? static_cast<gid_t>(owner.id) : static_cast<gid_t>(-1);
    return ::lchown(name.constData(), user, group) == 0 ? 0 : errno;
}

LN_HostFileSystem::DirectoryListing LN_HostFileSystem::listDirectory(QString const & path)
{
    DirectoryListing listing;
    // O_NOFOLLOW keeps a recursive walk inside the tree: a link to a directory is a leaf.
    int const fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        listing.openError = errno == ELOOP ? ENOTDIR : errno;
        return listing;
    }
    DIR * const directory = ::fdopendir(fd);
    if (!directory) {
        listing.openError = errno;
        ::close(fd);
        return listing;
    }
    for (;;) {
        errno = 0;
        dirent const * const entry = ::readdir(directory);
        if (!entry) {
            listing.readError = errno;
            break;
        }
        QByteArray const entryName(entry->d_name);
        if (entryName == "." || entryName == "..")
            continue;
        listing.names.append(QFile::decodeName(entryName));
    }
    ::closedir(directory);
    return listing;
}

int LN_HostFileSystem::renameNoReplace(QString const & from, QString const & to)
{
    QByteArray const source = QFile::encodeName(from);
    QByteArray const target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) != 0) {
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        if (int const error = renameByLink(source, target))
            return error;
    }

    QByteArray const targetDirectory = parentDirectory(to);
    if (int const error = syncDirectory(targetDirectory))
        return error;
    QByteArray const sourceDirectory = parentDirectory(from);
    if (sourceDirectory != targetDirectory)
        return syncDirectory(sourceDirectory);
    return 0;
}

int LN_HostFileSystem::readSequentially(QString const & path, qsizetype bufferSize,
                                        std::function<void(char const * data, qsizetype size)> const & consume)
{
    // O_NONBLOCK so that a named pipe in a tree reads as empty instead of waiting for a writer.
    FileDescriptor const file(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (file.get() < 0)
        return errno;

    struct stat status {};
    if (::fstat(file.get(), &status) != 0)
        return errno;
    // A small file needs no large buffer, and many small files are the common case.
    qsizetype size = bufferSize;
    if (S_ISREG(status.st_mode) && status.st_size < size)
        size = std::max(smallestBuffer, static_cast<qsizetype>(status.st_size) + 1);
    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);

    auto const buffer = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(size));
    for (;;) {
        ssize_t const count = ::read(file.get(), buffer.get(), static_cast<std::size_t>(size));
        if (count > 0) {
            consume(buffer.get(), count);
            continue;
        }
        if (count == 0 || errno == EAGAIN)
            return 0;
        if (errno != EINTR)
            return errno;
    }
}

bool LN_HostFileSystem::isAbsolutePath(QString const & path)
{
    return path.startsWith(u'/');
}

int LN_HostFileSystem::fileVersion(QString const & path, QVersionNumber * version)
{
    *version = QVersionNumber();
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return errno == ENOENT ? 0 : errno;

    // Executables here carry no version resource; the installation keeps it in a text file
    // beside them.
    QString const versionFile = QFileInfo(path).absoluteDir().filePath(QStringLiteral("VERSION"));
    FileDescriptor const file(::open(QFile::encodeName(versionFile).constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (file.get() < 0)
        return errno == ENOENT ? 0 : errno;

    char buffer[256];
    ssize_t count = 0;
    do {
        count = ::read(file.get(), buffer, sizeof buffer);
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        return errno;
    QByteArray firstLine(buffer, count);
    if (qsizetype const end = firstLine.indexOf('\n'); end >= 0)
        firstLine.truncate(end);
    *version = QVersionNumber::fromString(QString::fromUtf8(firstLine).trimmed());
    return 0;
}
