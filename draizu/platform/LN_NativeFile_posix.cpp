#include <draizu/platform/LN_NativeFile_p.h>

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t defaultFileMode = 0644;

} // namespace

int LN_NativeFile::createNew(QString const & path, LN_SecurityAttributes const * attributes, LN_NativeHandle * handle)
{
    *handle = LN_InvalidNativeHandle;
    QByteArray const name = QFile::encodeName(path);
    bool const explicitMode = attributes && attributes->mode >= 0;
    mode_t const mode = explicitMode ? static_cast<mode_t>(attributes->mode) : defaultFileMode;
    int fd = -1;
    do {
        fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return errno;

    int result = 0;
    // open's mode passes through the umask; bits that were asked for are meant exactly.
    if (explicitMode && ::fchmod(fd, mode) != 0)
        result = errno;
    if (result == 0 && attributes && (attributes->owner >= 0 || attributes->group >= 0)) {
        uid_t const owner = attributes->owner >= 0 ? static_cast<uid_t>(attributes->owner) : static_cast<uid_t>(-1);
        gid_t const group = attributes->group >= 0 ? static_cast<gid_t>(attributes->group) : static_cast<gid_t>(-1);
        if (::fchown(fd, owner, group) != 0)
            result = errno;
    }
    if (result != 0) {
        // The file was made by this call (O_EXCL), so removing it takes nothing from anyone.
        ::close(fd);
        ::unlink(name.constData());
        return result;
    }
    *handle = fd;
    return 0;
}

bool LN_NativeFile::isPathNotFound(int error)
{
    return error == ENOENT;
}

int LN_NativeFile::close(LN_NativeHandle handle)
{
    // No retry on EINTR: Linux releases the descriptor whatever close returns.
    return ::close(handle) == 0 ? 0 : errno;
}

int LN_NativeFile::flush(LN_NativeHandle handle)
{
    return ::fsync(handle) == 0 ? 0 : errno;
}

int LN_NativeFile::read(LN_NativeHandle handle, char * buffer, unsigned long size, unsigned long * count)
{
    *count = 0;
    ssize_t result = -1;
    do {
        result = ::read(handle, buffer, size);
    } while (result < 0 && errno == EINTR);
    if (result < 0)
        return errno;
    *count = static_cast<unsigned long>(result);
    return 0;
}

int LN_NativeFile::write(LN_NativeHandle handle, char const * buffer, unsigned long size, unsigned long * count)
{
    *count = 0;
    ssize_t result = -1;
    do {
        result = ::write(handle, buffer, size);
    } while (result < 0 && errno == EINTR);
    if (result < 0)
        return errno;
    *count = static_cast<unsigned long>(result);
    return 0;
}
