#include "RunitSupervisor.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QThread>

#include <csignal>

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The children of this process that have not ended, zombies left out.
QList<qint64> runningChildren()
{
    QList<qint64> children;
    for (QString const & name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/") + name + QStringLiteral("/stat"));
        if (name.toLongLong() <= 0 || !stat.open(QIODevice::ReadOnly))
            continue;
        QByteArray const line = stat.readAll();
        QList<QByteArray> const fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1 && fields[0] != "Z" && fields[1].toLongLong() == ::getpid())
            children.append(name.toLongLong());
    }
    return children;
}

} // namespace

RunitSupervisor::~RunitSupervisor()
{
    stop();
}

bool RunitSupervisor::start()
{
    if (!root_.isValid() || !QDir(root_.path()).mkdir(QStringLiteral("sv")))
        return false;
    ::chmod(QFile::encodeName(root_.path()).constData(), 0755);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    runsvdir_.setProcessChannelMode(QProcess::MergedChannels);
    runsvdir_.setStandardOutputFile(root_.filePath(QStringLiteral("runsvdir.log")));
    runsvdir_.start(QStringLiteral("runsvdir"), {QStringLiteral("-P"), directory()});
    if (!runsvdir_.waitForStarted())
        return false;
    qputenv("SVDIR", QFile::encodeName(directory()));
    return true;
}

QString RunitSupervisor::directory() const
{
    return root_.filePath(QStringLiteral("sv"));
}

QList<qint64> RunitSupervisor::stop()
{
    if (runsvdir_.state() == QProcess::NotRunning)
        return {};
    qunsetenv("SVDIR");
    ::kill(pid_t(runsvdir_.processId()), SIGKILL);
    runsvdir_.waitForFinished();
    // Whatever ran below runsvdir becomes a child of this process, its subreaper, as soon as its
    // parent is gone: killing children until none is left ends the whole tree.
    QDeadlineTimer const deadline(5000);
    QList<qint64> children;
    do {
        while (::waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        children = runningChildren();
        for (qint64 const pid : children)
            ::kill(pid_t(pid), SIGKILL);
        if (!children.isEmpty())
            QThread::msleep(20);
    } while (!children.isEmpty() && !deadline.hasExpired());
    return children;
}
