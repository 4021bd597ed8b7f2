#include <draizu/platform/LN_WriteProbe_p.h>

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int LN_WriteProbe::makeDirectory(QString const & path)
{
    QByteArray const name = QFile::encodeName(path);
    int result = 0;
    do {
        result = ::mkdir(name.constData(), 0755);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

int LN_WriteProbe::openForWriting(QString const & path, bool mustBeNew)
{
    QByteArray const name = QFile::encodeName(path);
    int const flags = O_WRONLY | O_CREAT | O_CLOEXEC | (mustBeNew ? O_EXCL : 0);
    int fd = -1;
    do {
        fd = ::open(name.constData(), flags, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return errno;
    return ::close(fd) == 0 ? 0 : errno;
}

LN_WriteProbe::Outcome LN_WriteProbe::outcomeOf(int error)
{
    switch (error) {
    case 0:
        return Outcome::Done;
    case EACCES:
    case EPERM:
    case EROFS:
        return Outcome::AccessDenied;
    case ENOENT:
        return Outcome::PathNotFound;
    case EEXIST:
        return Outcome::AlreadyExists;
    default:
        return Outcome::Other;
    }
}
