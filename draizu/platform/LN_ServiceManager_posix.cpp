#include <draizu/platform/LN_ServiceManager_p.h>

#include <draizu/platform/LN_HostFileSystem_p.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString const procRoot = QStringLiteral("/proc");

struct SystemdDirs
{
    QString runtime;
    QString unit;
};

SystemdDirs & systemdDirs()
{
    static SystemdDirs dirs;
    return dirs;
}

QString orDefault(QString const & dir, QString const & fallback)
{
    return dir.isEmpty() ? fallback : dir;
}

// The fields of /proc/<pid>/stat that follow the command name, which may itself hold blanks
// and parentheses: state, parent, process group.
struct ProcessStat
{
    char state = 0;
    std::int64_t group = 0;
};

bool readStat(QString const & pid, ProcessStat * stat)
{
    QFile file(procRoot + u'/' + pid + QStringLiteral("/stat"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QByteArray const line = file.readAll();
    QList<QByteArray> const fields = line.mid(line.lastIndexOf(')') + 1).simplified().split(' ');
    if (fields.size() < 3 || fields[0].isEmpty())
        return false;
    stat->state = fields[0][0];
    stat->group = fields[2].toLongLong();
    return true;
}

QStringList processIds()
{
    QStringList ids;
    for (QString const & name : LN_HostFileSystem::listDirectory(procRoot).names) {
        bool number = false;
        name.toLongLong(&number);
        if (number)
            ids.append(name);
    }
    return ids;
}

// runsvdir is named by its program and its first argument that is not an option; a relative
// directory is taken from the process's working directory, which only its owner may read.
bool supervisesDirectory(QString const & pid, QString const & canonicalDir)
{
    QFile file(procRoot + u'/' + pid + QStringLiteral("/cmdline"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QList<QByteArray> const args = file.readAll().split('\0');
    if (args.isEmpty() || QFileInfo(QFile::decodeName(args[0])).fileName() != QStringLiteral("runsvdir"))
        return false;
    for (qsizetype i = 1; i < args.size(); ++i) {
        if (args[i].startsWith('-'))
            continue;
        QString const dir = QFile::decodeName(args[i]);
        QString const base = QDir::isAbsolutePath(dir) ? QString() : QFile::symLinkTarget(procRoot + u'/' + pid + QStringLiteral("/cwd"));
        return QFileInfo(base.isEmpty() ? dir : base + u'/' + dir).canonicalFilePath() == canonicalDir;
    }
    return false;
}

bool supervisedByRunsvdir(QString const & svdir)
{
    QString const canonical = QFileInfo(svdir).canonicalFilePath();
    if (canonical.isEmpty() || !QFileInfo(canonical).isDir())
        return false;
    for (QString const & pid : processIds()) {
        if (supervisesDirectory(pid, canonical))
            return true;
    }
    return false;
}

bool runs(ProcessStat const & stat)
{
    // A zombie has ended; only its parent has not yet read its status.
    return stat.state != 'Z' && stat.state != 'X';
}

} // namespace

LN_ServiceManager::Outcome LN_ServiceManager::Outcome::fromErrno(int error, QString const & text)
{
    Outcome outcome;
    outcome.error = error;
    outcome.text = text;
    switch (error) {
    case 0:
        outcome.kind = Done;
        break;
    case EACCES:
    case EPERM:
    case EROFS:
        outcome.kind = AccessDenied;
        break;
    case ENOENT:
        outcome.kind = NoSuchService;
        break;
    default:
        outcome.kind = Failed;
        break;
    }
    return outcome;
}

std::unique_ptr<LN_ServiceManager> LN_ServiceManager::forThisSystem(CommandRunner runner)
{
    SystemdDirs const & dirs = systemdDirs();
    QString const runtime = orDefault(dirs.runtime, QStringLiteral("/run/systemd/system"));
    if (QFileInfo(runtime).isDir())
        return systemd(runtime, orDefault(dirs.unit, QStringLiteral("/etc/systemd/system")), std::move(runner));
    QString const svdir = qEnvironmentVariable("SVDIR");
    if (!svdir.isEmpty() && supervisedByRunsvdir(svdir))
        return runit(svdir, std::move(runner));
    return nullptr;
}

bool LN_ServiceManager::processRunning(std::int64_t pid)
{
    if (pid <= 0)
        return false;
    QString const leader = QString::number(pid);
    ProcessStat stat;
    if (readStat(leader, &stat) && runs(stat))
        return true;
    // The leader may have gone while a child it left behind, in its group, still runs.
    for (QString const & id : processIds()) {
        if (readStat(id, &stat) && stat.group == pid && runs(stat))
            return true;
    }
    return false;
}

void LN_ServiceManager::setSystemdDirs(QString const & runtimeDir, QString const & unitDir)
{
    systemdDirs() = SystemdDirs{runtimeDir, unitDir};
}

QStringList LN_ServiceManager::splitCommandLine(QString const & commandLine)
{
    QStringList words;
    QString word;
    bool quoted = false;
    bool inWord = false;
    for (QChar const c : commandLine) {
        if (c == u'"') {
            quoted = !quoted;
            inWord = true;
        } else if (c == u' ' && !quoted) {
            if (inWord)
                words.append(word);
            word.clear();
            inWord = false;
        } else {
            word.append(c);
            inWord = true;
        }
    }
    if (inWord)
        words.append(word);
    return words;
}

QString LN_ServiceManager::joinCommandLine(QStringList const & words)
{
    QStringList quoted;
    for (QString const & word : words)
        quoted.append(word.contains(u' ') ? u'"' + word + u'"' : word);
    return quoted.join(u' ');
}

bool LN_ServiceManager::isUsableName(QString const & name)
{
    return !name.isEmpty() && !name.startsWith(u'.') && !name.contains(u'/') && isOneLine(name);
}

bool LN_ServiceManager::isOneLine(QString const & text)
{
    return std::none_of(text.cbegin(), text.cend(), [](QChar c) { return c < u' '; });
}

int LN_ServiceManager::writeNewFile(QString const & path, QByteArray const & contents, unsigned mode)
{
    int const fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0)
        return errno;
    qsizetype written = 0;
    int error = 0;
    while (written < contents.size() && error == 0) {
        ssize_t const count = ::write(fd, contents.constData() + written, std::size_t(contents.size() - written));
        if (count >= 0)
            written += count;
        else if (errno != EINTR)
            error = errno;
    }
    // The mode asked for must not be trimmed by the umask: the script has to be executable.
    if (error == 0 && ::fchmod(fd, mode) != 0)
        error = errno;
    ::close(fd);
    return error;
}
