#include <draizu/platform/LN_ServiceManager_p.h>

#include <draizu/platform/LN_Accounts_p.h>

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// A runit service is a directory of $SVDIR holding a `run` script; the runsv that runsvdir
// starts for it keeps its state in `supervise/`. runsvdir ignores names that begin with a dot,
// which is how a service is staged before it appears and how it is marked for deletion.

namespace {

using Outcome = LN_ServiceManager::Outcome;
using State = LN_ServiceManager::State;

class RunitHandle final : public LN_ServiceHandle
{
public:
    QString name;      ///< empty for the connection to the manager
    QString directory; ///< under the service's name, or the name it was marked with
    bool marked = false;
};

QByteArray encoded(QString const & path)
{
    return QFile::encodeName(path);
}

int accessError(QString const & path, int mode)
{
    return ::access(encoded(path).constData(), mode) == 0 ? 0 : errno;
}

// A runsv holds supervise/ok open for reading while it runs: opening it for writing without
// blocking fails with ENXIO when none does, and with ENOENT when none ever did.
int supervisorError(QString const & directory)
{
    int const fd = ::open(encoded(directory + QStringLiteral("/supervise/ok")).constData(),
                          O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return errno;
    ::close(fd);
    return 0;
}

bool isSupervised(int supervisor)
{
    return supervisor == 0;
}

int readFile(QString const & path, QByteArray * contents)
{
    int const fd = ::open(encoded(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    char buffer[4096];
    for (;;) {
        ssize_t const count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            int const error = count < 0 ? errno : 0;
            ::close(fd);
            return error;
        }
        contents->append(buffer, count);
    }
}

QString shellWord(QString const & word)
{
    QString quoted = word;
    return u'\'' + quoted.replace(QStringLiteral("'"), QStringLiteral("'\\''")) + u'\'';
}

// The words of a line of the run scripts written here: single quotes, backslashes outside
// them, blanks between words.
QStringList shellWords(QString const & line)
{
    QStringList words;
    QString word;
    bool inWord = false;
    bool quoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        QChar const c = line[i];
        if (quoted) {
            if (c == u'\'')
                quoted = false;
            else
                word.append(c);
        } else if (c == u'\'') {
            quoted = inWord = true;
        } else if (c == u'\\' && i + 1 < line.size()) {
            word.append(line[++i]);
            inWord = true;
        } else if (c == u' ' || c == u'\t') {
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

QByteArray runScript(LN_ServiceConfig const & config)
{
    // chpst -P gives the service a process group of its own, so that a child it leaves
    // behind when it stops can still be waited for.
    QStringList words{QStringLiteral("exec"), QStringLiteral("chpst"), QStringLiteral("-P")};
    if (!config.account.isEmpty())
        words << QStringLiteral("-u") << shellWord(config.account);
    for (QString const & word : LN_ServiceManager::splitCommandLine(config.binaryPath))
        words << shellWord(word);
    return "#!/bin/sh\n" + words.join(u' ').toUtf8() + '\n';
}

void readRunScript(QByteArray const & script, LN_ServiceConfig * config)
{
    for (QByteArray const & line : script.split('\n')) {
        QStringList words = shellWords(QString::fromUtf8(line));
        if (words.value(0) != QStringLiteral("exec"))
            continue;
        words.removeFirst();
        if (words.value(0) == QStringLiteral("chpst") && words.value(1) == QStringLiteral("-P"))
            words.remove(0, 2);
        if (words.value(0) == QStringLiteral("-u") && words.size() > 1) {
            config->account = words[1];
            words.remove(0, 2);
        }
        config->binaryPath = LN_ServiceManager::joinCommandLine(words);
        return;
    }
}

// supervise/stat names the state and its flags in words; that a service which is down wants
// to be up is only in byte 17 of the binary supervise/status, as 'u'.
State stateOf(QByteArray const & stat, QByteArray const & status)
{
    QList<QByteArray> const words = stat.trimmed().split(',');
    QList<QByteArray> flags;
    for (qsizetype i = 1; i < words.size(); ++i)
        flags.append(words[i].trimmed());
    if (words[0] == "run") {
        if (flags.contains("want down") || flags.contains("want exit"))
            return State::StopPending;
        return flags.contains("paused") ? State::Paused : State::Running;
    }
    if (words[0] == "down")
        return status.size() > 17 && status[17] == 'u' ? State::StartPending : State::Stopped;
    return State::Unknown;
}

class RunitManager final : public LN_ServiceManager
{
public:
    RunitManager(QString svdir, CommandRunner runner)
        : svdir_(std::move(svdir))
        , runner_(std::move(runner))
    {
    }

    Outcome connect(Access access, Handle * manager) override
    {
        int const error = accessError(svdir_, access == Access::Change ? W_OK | X_OK : X_OK);
        if (error == 0)
            *manager = std::make_unique<RunitHandle>();
        return Outcome::fromErrno(error);
    }

    Outcome open(LN_ServiceHandle &, QString const & name, Access access, Handle * service) override
    {
        if (!isUsableName(name))
            return Outcome::fromErrno(EINVAL);
        auto handle = std::make_unique<RunitHandle>();
        handle->name = name;
        handle->directory = directoryOf_(name);
        struct stat status {};
        if (::stat(encoded(handle->directory).constData(), &status) != 0) {
            if (errno != ENOENT)
                return Outcome::fromErrno(errno);
            handle->directory = markedDirectory_(name);
            handle->marked = true;
            if (handle->directory.isEmpty())
                return Outcome::fromErrno(ENOENT);
        } else if (!S_ISDIR(status.st_mode)) {
            return Outcome::fromErrno(ENOTDIR);
        }
        int error = accessError(handle->directory, access == Access::Change ? W_OK | X_OK : X_OK);
        if (error == 0 && access == Access::Change) {
            error = accessError(handle->directory + QStringLiteral("/supervise/control"), W_OK);
            if (error == ENOENT)
                error = 0;
        }
        if (error == 0)
            *service = std::move(handle);
        return Outcome::fromErrno(error);
    }

    Outcome create(LN_ServiceHandle &, QString const & name, LN_ServiceConfig const & config) override
    {
        LN_Sid account;
        if (!isUsableName(name) || !isOneLine(config.binaryPath)
            || (!config.account.isEmpty() && LN_Accounts::lookupUser(config.account, &account) != 0))
            return Outcome::fromErrno(EINVAL);
        QByteArray staging = encoded(svdir_ + QStringLiteral("/.") + name + QStringLiteral(".new-XXXXXX"));
        if (!::mkdtemp(staging.data()))
            return Outcome::fromErrno(errno);
        QString const stagingDir = QFile::decodeName(staging);
        int error = ::chmod(staging.constData(), 0755) == 0 ? 0 : errno;
        if (error == 0)
            error = writeNewFile(stagingDir + QStringLiteral("/run"), runScript(config), 0755);
        if (error == 0 && ::rename(staging.constData(), encoded(directoryOf_(name)).constData()) != 0)
            error = errno == ENOTEMPTY ? EEXIST : errno;
        if (error != 0)
            QDir(stagingDir).removeRecursively();
        return Outcome::fromErrno(error);
    }

    Outcome remove(LN_ServiceHandle & service) override
    {
        auto & handle = static_cast<RunitHandle &>(service);
        if (handle.marked)
            return Outcome::fromErrno(EALREADY);
        // Renaming onto an empty directory replaces it, so mkdtemp reserves a name no other
        // deletion of the same service uses.
        QByteArray mark = encoded(svdir_ + QStringLiteral("/") + markPrefix_(handle.name) + QStringLiteral("XXXXXX"));
        if (!::mkdtemp(mark.data()))
            return Outcome::fromErrno(errno);
        if (::rename(encoded(handle.directory).constData(), mark.constData()) != 0) {
            int const error = errno;
            ::rmdir(mark.constData());
            return Outcome::fromErrno(error);
        }
        handle.directory = QFile::decodeName(mark);
        handle.marked = true;
        return Outcome::fromErrno(0);
    }

    // runsvdir looks for new services only every few seconds. Until its runsv runs, the `down`
    // file alone decides whether the service comes up when it does.
    Outcome start(LN_ServiceHandle & service) override
    {
        auto const & handle = static_cast<RunitHandle const &>(service);
        if (isSupervised(supervisorError(handle.directory)))
            return sv_(QStringLiteral("up"), handle.directory);
        bool const removed = ::unlink(encoded(downFile_(handle)).constData()) == 0 || errno == ENOENT;
        return Outcome::fromErrno(removed ? 0 : errno);
    }

    Outcome stop(LN_ServiceHandle & service) override
    {
        auto const & handle = static_cast<RunitHandle const &>(service);
        if (isSupervised(supervisorError(handle.directory)))
            return sv_(QStringLiteral("down"), handle.directory);
        return makeDownFile_(handle);
    }

    Outcome status(LN_ServiceHandle & service, Status * status) override
    {
        auto const & handle = static_cast<RunitHandle const &>(service);
        int const supervisor = supervisorError(handle.directory);
        if (supervisor == EACCES || supervisor == EPERM)
            return Outcome::fromErrno(supervisor);
        if (!isSupervised(supervisor)) {
            bool const held = handle.marked || ::access(encoded(downFile_(handle)).constData(), F_OK) == 0;
            *status = Status{held ? State::Stopped : State::StartPending, 0};
            return Outcome::fromErrno(0);
        }
        QByteArray stat;
        QByteArray binary;
        QByteArray pid;
        int error = readFile(handle.directory + QStringLiteral("/supervise/stat"), &stat);
        if (error == 0)
            error = readFile(handle.directory + QStringLiteral("/supervise/status"), &binary);
        if (error == 0)
            error = readFile(handle.directory + QStringLiteral("/supervise/pid"), &pid);
        if (error == 0)
            *status = Status{stateOf(stat, binary), pid.trimmed().toLongLong()};
        return Outcome::fromErrno(error);
    }

    Outcome config(LN_ServiceHandle & service, LN_ServiceConfig * config) override
    {
        auto const & handle = static_cast<RunitHandle const &>(service);
        QByteArray script;
        int const error = readFile(handle.directory + QStringLiteral("/run"), &script);
        if (error != 0)
            return Outcome::fromErrno(error);
        *config = LN_ServiceConfig{};
        readRunScript(script, config);
        bool const down = ::access(encoded(downFile_(handle)).constData(), F_OK) == 0;
        config->startType = down ? LN_ServiceConfig::Start_Demand : LN_ServiceConfig::Start_Auto;
        config->displayName = handle.name;
        return Outcome::fromErrno(0);
    }

    Outcome disable(LN_ServiceHandle & service) override
    {
        // runsv reads `down` when it starts: the service no longer comes up by itself. A
        // stopped service is never restarted, so there are no failure actions to clear.
        return makeDownFile_(static_cast<RunitHandle const &>(service));
    }

private:
    QString directoryOf_(QString const & name) const { return svdir_ + u'/' + name; }

    static QString downFile_(RunitHandle const & handle) { return handle.directory + QStringLiteral("/down"); }

    static Outcome makeDownFile_(RunitHandle const & handle)
    {
        int const fd = ::open(encoded(downFile_(handle)).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0)
            return Outcome::fromErrno(errno);
        ::close(fd);
        return Outcome::fromErrno(0);
    }

    static QString markPrefix_(QString const & name) { return u'.' + name + QStringLiteral(".deleted-"); }

    // A service marked for deletion lasts while its supervisor still runs; the first look
    // after the supervisor has gone removes its directory.
    QString markedDirectory_(QString const & name) const
    {
        QString found;
        QDir const dir(svdir_);
        QStringList const marks = dir.entryList({markPrefix_(name) + u'*'}, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot);
        for (QString const & mark : marks) {
            QString const path = dir.filePath(mark);
            if (isSupervised(supervisorError(path)))
                found = path;
            else
                QDir(path).removeRecursively();
        }
        return found;
    }

    Outcome sv_(QString const & command, QString const & directory) const
    {
        // `up` and `down` only send the request: the waits are the caller's.
        CommandResult const result = runner_(QStringLiteral("sv"), {command, directory});
        if (result.exited && result.exitCode == 0)
            return Outcome::fromErrno(0);
        return Outcome::fromErrno(EIO, result.output.trimmed());
    }

    QString svdir_;
    CommandRunner runner_;
};

} // namespace

std::unique_ptr<LN_ServiceManager> LN_ServiceManager::runit(QString const & svdir, CommandRunner runner)
{
    return std::make_unique<RunitManager>(QDir::cleanPath(svdir), std::move(runner));
}
