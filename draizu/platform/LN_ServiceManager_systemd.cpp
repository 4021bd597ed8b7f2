#include <draizu/platform/LN_ServiceManager_p.h>

#include <draizu/platform/LN_Accounts_p.h>

#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <cerrno>

#include <unistd.h>

// A systemd service is a unit file of ours in the unit directory, driven with systemctl. The
// library only asks: it never waits on a job (--no-block), since the waits are the caller's.

namespace {

using Outcome = LN_ServiceManager::Outcome;
using State = LN_ServiceManager::State;

class SystemdHandle final : public LN_ServiceHandle
{
public:
    QString unit; ///< empty for the connection to the manager
};

// systemctl's exit statuses follow the LSB's: 4 is insufficient rights, 5 a unit that is not
// loaded. Its own words for the failure are the system text.
Outcome fromSystemctl(LN_ServiceManager::CommandResult const & result)
{
    QString const text = result.output.trimmed();
    if (!result.exited)
        return Outcome::fromErrno(EIO, text);
    switch (result.exitCode) {
    case 0:
        return Outcome::fromErrno(0);
    case 4:
        return Outcome::fromErrno(EACCES, text);
    case 5:
        return Outcome::fromErrno(ENOENT, text);
    default:
        return Outcome::fromErrno(EIO, text);
    }
}

// A word of ExecStart=: systemd expands % and $ and honours double quotes and backslashes.
QString execWord(QString const & word)
{
    QString escaped = word;
    escaped.replace(u'\\', QStringLiteral("\\\\"))
        .replace(u'"', QStringLiteral("\\\""))
        .replace(u'%', QStringLiteral("%%"))
        .replace(u'$', QStringLiteral("$$"));
    bool const quote = escaped != word || word.contains(u' ') || word.contains(u'\'') || word.isEmpty();
    return quote ? u'"' + escaped + u'"' : escaped;
}

QByteArray unitFile(QString const & name, LN_ServiceConfig const & config)
{
    QStringList words;
    for (QString const & word : LN_ServiceManager::splitCommandLine(config.binaryPath))
        words.append(execWord(word));
    QString text = QStringLiteral("[Unit]\nDescription=") + name + QStringLiteral("\n\n[Service]\nExecStart=")
                 + words.join(u' ') + u'\n';
    if (!config.account.isEmpty())
        text += QStringLiteral("User=") + config.account + u'\n';
    text += QStringLiteral("\n[Install]\nWantedBy=multi-user.target\n");
    return text.toUtf8();
}

State stateOf(QString const & activeState)
{
    static QHash<QString, State> const states{
        {QStringLiteral("activating"), State::StartPending}, {QStringLiteral("active"), State::Running},
        {QStringLiteral("deactivating"), State::StopPending}, {QStringLiteral("inactive"), State::Stopped},
        {QStringLiteral("failed"), State::Stopped},
    };
    return states.value(activeState, State::Unknown);
}

LN_ServiceConfig::StartType startTypeOf(QString const & unitFileState)
{
    if (unitFileState == QStringLiteral("enabled"))
        return LN_ServiceConfig::Start_Auto;
    if (unitFileState.startsWith(QStringLiteral("masked")))
        return LN_ServiceConfig::Start_Disabled;
    return LN_ServiceConfig::Start_Demand;
}

// ExecStart reads "{ path=... ; argv[]=... ; ignore_errors=no ; ... }", the arguments joined
// by blanks without their quotes.
QString argumentsOf(QString const & execStart)
{
    QString const start = QStringLiteral("argv[]=");
    qsizetype const from = execStart.indexOf(start);
    if (from < 0)
        return QString();
    qsizetype const to = execStart.indexOf(QStringLiteral(" ; "), from);
    return execStart.mid(from + start.size(), to < 0 ? -1 : to - from - start.size());
}

class SystemdManager final : public LN_ServiceManager
{
public:
    SystemdManager(QString runtimeDir, QString unitDir, CommandRunner runner)
        : runtimeDir_(std::move(runtimeDir))
        , unitDir_(std::move(unitDir))
        , runner_(std::move(runner))
    {
    }

    Outcome connect(Access access, Handle * manager) override
    {
        if (!QFileInfo(runtimeDir_).isDir())
            return Outcome::fromErrno(ECONNREFUSED);
        if (access == Access::Change && ::access(QFile::encodeName(unitDir_).constData(), W_OK | X_OK) != 0)
            return Outcome::fromErrno(errno);
        *manager = std::make_unique<SystemdHandle>();
        return Outcome::fromErrno(0);
    }

    Outcome open(LN_ServiceHandle &, QString const & name, Access, Handle * service) override
    {
        if (!isUsableName(name))
            return Outcome::fromErrno(EINVAL);
        auto handle = std::make_unique<SystemdHandle>();
        handle->unit = name + QStringLiteral(".service");
        QHash<QString, QString> properties;
        Outcome const shown = show_(handle->unit, &properties);
        if (!shown.isDone())
            return shown;
        if (properties.value(QStringLiteral("LoadState")) == QStringLiteral("not-found"))
            return Outcome::fromErrno(ENOENT);
        *service = std::move(handle);
        return shown;
    }

    Outcome create(LN_ServiceHandle &, QString const & name, LN_ServiceConfig const & config) override
    {
        LN_Sid account;
        if (!isUsableName(name) || !isOneLine(config.binaryPath)
            || (!config.account.isEmpty() && LN_Accounts::lookupUser(config.account, &account) != 0))
            return Outcome::fromErrno(EINVAL);
        QString const unit = name + QStringLiteral(".service");
        QString const path = unitPath_(unit);
        int const error = writeNewFile(path, unitFile(name, config), 0644);
        Outcome created = Outcome::fromErrno(error);
        if (created.isDone())
            created = systemctl_({QStringLiteral("daemon-reload")});
        if (created.isDone())
            created = systemctl_({QStringLiteral("enable"), unit});
        // A retry must not meet the file of a service that was never made.
        if (!created.isDone())
            ::unlink(QFile::encodeName(path).constData());
        return created;
    }

    Outcome remove(LN_ServiceHandle & service) override
    {
        auto const & handle = static_cast<SystemdHandle const &>(service);
        if (::unlink(QFile::encodeName(unitPath_(handle.unit)).constData()) != 0)
            return Outcome::fromErrno(errno);
        return systemctl_({QStringLiteral("daemon-reload")});
    }

    Outcome start(LN_ServiceHandle & service) override
    {
        return systemctl_({QStringLiteral("--no-block"), QStringLiteral("start"), unitOf_(service)});
    }

    Outcome stop(LN_ServiceHandle & service) override
    {
        return systemctl_({QStringLiteral("--no-block"), QStringLiteral("stop"), unitOf_(service)});
    }

    Outcome status(LN_ServiceHandle & service, Status * status) override
    {
        QHash<QString, QString> properties;
        Outcome const shown = show_(unitOf_(service), &properties);
        if (shown.isDone())
            *status = Status{stateOf(properties.value(QStringLiteral("ActiveState"))),
                             properties.value(QStringLiteral("MainPID")).toLongLong()};
        return shown;
    }

    Outcome config(LN_ServiceHandle & service, LN_ServiceConfig * config) override
    {
        QHash<QString, QString> properties;
        Outcome const shown = show_(unitOf_(service), &properties);
        if (shown.isDone())
            *config = LN_ServiceConfig{argumentsOf(properties.value(QStringLiteral("ExecStart"))),
                                       properties.value(QStringLiteral("User")),
                                       startTypeOf(properties.value(QStringLiteral("UnitFileState"))),
                                       properties.value(QStringLiteral("Description"))};
        return shown;
    }

    Outcome disable(LN_ServiceHandle & service) override
    {
        // Units written here restart on nothing, so disabling is all there is to clear.
        return systemctl_({QStringLiteral("disable"), unitOf_(service)});
    }

private:
    static QString unitOf_(LN_ServiceHandle const & service) { return static_cast<SystemdHandle const &>(service).unit; }

    QString unitPath_(QString const & unit) const { return unitDir_ + u'/' + unit; }

    Outcome systemctl_(QStringList const & arguments) const
    {
        return fromSystemctl(runner_(QStringLiteral("systemctl"), arguments));
    }

    Outcome show_(QString const & unit, QHash<QString, QString> * properties) const
    {
        CommandResult const result = runner_(
            QStringLiteral("systemctl"),
            {QStringLiteral("show"), QStringLiteral("-p"),
             QStringLiteral("LoadState,ActiveState,MainPID,ExecStart,User,UnitFileState,Description"), unit});
        Outcome const shown = fromSystemctl(result);
        if (shown.isDone()) {
            for (QString const & line : result.output.split(u'\n')) {
                qsizetype const equals = line.indexOf(u'=');
                if (equals > 0)
                    properties->insert(line.left(equals), line.mid(equals + 1));
            }
        }
        return shown;
    }

    QString runtimeDir_;
    QString unitDir_;
    CommandRunner runner_;
};

} // namespace

std::unique_ptr<LN_ServiceManager> LN_ServiceManager::systemd(QString const & runtimeDir, QString const & unitDir,
                                                              CommandRunner runner)
{
    return std::make_unique<SystemdManager>(runtimeDir, unitDir, std::move(runner));
}
