#include <draizu/platform/LN_OpenFiles_p.h>

#include <draizu/platform/LN_HostFileSystem_p.h>

#include <QFile>

#include <sys/stat.h>

namespace {

QString const procRoot = QStringLiteral("/proc");

bool isProcessId(QString const & name, qint64 * pid)
{
    bool ok = false;
    *pid = name.toLongLong(&ok);
    return ok && *pid > 0;
}

QString processName(QString const & processDirectory)
{
    QFile comm(processDirectory + QStringLiteral("/comm"));
    if (!comm.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromLocal8Bit(comm.readAll()).trimmed();
}

bool holdsFile(QString const & processDirectory, dev_t device, ino_t inode)
{
    QString const fdDirectory = processDirectory + QStringLiteral("/fd");
    for (QString const & descriptor : LN_HostFileSystem::listDirectory(fdDirectory).names) {
        // stat follows the descriptor's link to the open file itself, which also finds a
        // file that was renamed or reached through another name.
        struct stat status {};
        QByteArray const name = QFile::encodeName(fdDirectory + u'/' + descriptor);
        if (::stat(name.constData(), &status) == 0 && status.st_dev == device && status.st_ino == inode)
            return true;
    }
    return false;
}

} // namespace

QList<LN_ProcessInfo> LN_OpenFiles::processesHolding(QString const & path)
{
    QList<LN_ProcessInfo> processes;
    struct stat target {};
    if (::stat(QFile::encodeName(path).constData(), &target) != 0)
        return processes;

    for (QString const & entry : LN_HostFileSystem::listDirectory(procRoot).names) {
        qint64 pid = 0;
        if (!isProcessId(entry, &pid))
            continue;
        QString const processDirectory = procRoot + u'/' + entry;
        if (holdsFile(processDirectory, target.st_dev, target.st_ino))
            processes.append(LN_ProcessInfo{pid, processName(processDirectory)});
    }
    return processes;
}
