#include "support/RunitSupervisor.h"
#include "support/ThrownBy.h"

#include <draizu/api/LN_Message.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Service.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using State = LN_Service::ServiceState;

namespace {

// The services of the tables, registered together at the start: runsvdir takes new services up
// only every five seconds. The daemon's manner is the name it runs under.
char const * const prepared[][2] = {
    {"held", "run"},          {"stop-ignore", "ignore-60000"},    {"stop-late", "ignore-1200"},
    {"stop-linger", "linger-60000"}, {"state-run", "run"},    {"state-paused", "run"},
    {"state-stopping", "ignore-60000"}, {"state-down", "run"}, {"state-want-up", "exit"}, {"state-finish", "exit"},
};

// What one call came to, as one line: the text it threw, or its result. The test compares these
// lines whether it called itself or had a helper call as another user. A register's argument is
// the path, then "|" and the account.
QString describe(QString const & function, QString const & name, QString const & argument)
{
    QString result = u"done"_s;
    QString const thrown = thrownBy([&] {
        if (function == u"register"_s)
            LN_Service::registerService({name, argument.section(u'|', 0, 0), argument.section(u'|', 1), {}}, {});
        else if (function == u"start"_s)
            LN_Service::startService(name, {});
        else if (function == u"stop"_s)
            LN_Service::stopService(name, {});
        else if (function == u"uninstall"_s)
            LN_Service::uninstallService(name, {});
        else if (function == u"installed"_s)
            result = LN_Service::isServiceInstalled(name, {}) ? u"true"_s : u"false"_s;
        else if (function == u"valid"_s)
            result = LN_Service::isValidServiceName(name) ? u"true"_s : u"false"_s;
        else if (function == u"deleted"_s)
            result = LN_Service::waitForServiceDeletion(name, argument.toInt()) ? u"true"_s : u"false"_s;
        else if (auto const r = function == u"query"_s ? LN_Service::queryService(name) : LN_Service::ServiceConfigResult(); r.config)
            result = u"0 "_s + QStringList{r.config->binaryPath, r.config->account, QString::number(r.config->startType),
                                           r.config->displayName}.join(u'|');
        else if (function == u"query"_s)
            result = QString::number(r.errorCode) + u' ' + r.errorMessage;
        else if (auto const s = LN_Service::getServiceState(name); s.isError())
            result = u"%1:%2 %3"_s.arg(QString::fromUtf8(s.error.code.category().name())).arg(s.error.code.value()).arg(s.error.message);
        else
            result = u"state %1"_s.arg(int(s.value));
    });
    return thrown.isNull() ? result : thrown;
}

State stateOf(QString const & name)
{
    LN_Result<State> const r = LN_Service::getServiceState(name);
    return r.isError() ? State(-1) : r.value;
}

QByteArray readFile(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Whether the process runs, a zombie counting as gone.
bool running(qint64 pid)
{
    QByteArray const line = readFile(u"/proc/%1/stat"_s.arg(pid));
    return pid > 0 && !line.isEmpty() && line.mid(line.lastIndexOf(')') + 2, 1) != "Z";
}

bool setMode(QString const & path, mode_t mode)
{
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

bool writeFile(QString const & path, QByteArray const & contents, mode_t mode = 0755)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size() && setMode(path, mode);
}

} // namespace

class TestService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(temp_.isValid() && setMode(temp_.path(), 0755));
        QVERIFY2(supervisor_.start(), "runsvdir of the runit package is needed");
        svdir_ = supervisor_.directory();
        // systemd's world, played by the stand-in: open to every user, so that refusals come
        // from the stand-in's answers.
        for (QString const & dir : {u"systemd/units"_s, u"systemd/state"_s, u"systemd/run"_s, u"bin"_s})
            QVERIFY(QDir(temp_.path()).mkpath(dir) && setMode(temp_.filePath(dir), 0777));
        QVERIFY(writeFile(systemd_(u"calls"_s), {}, 0666));
        QVERIFY(QFile::link(QStringLiteral(SYSTEMCTL_STANDIN), temp_.filePath(u"bin/systemctl"_s)));
        qputenv("SYSTEMCTL_STANDIN", QFile::encodeName(systemd_({})));
        qputenv("PATH", QFile::encodeName(temp_.filePath(u"bin"_s)) + ':' + qgetenv("PATH"));
        QVERIFY(writeFile(systemd_(u"units/held.service"_s), "ExecStart=/usr/sbin/held\n"));
        QVERIFY(writeFile(systemd_(u"units/doomed.service"_s), "ExecStart=/usr/sbin/doomed\n"));
        QVERIFY(writeFile(systemd_(u"state/held.service.active"_s), "active"));

        init();
        for (auto const & [name, manner] : prepared)
            LN_Service::registerService({QString::fromLatin1(name), daemon_(QString::fromLatin1(manner)), {}, {}}, {});
        // By hand, held down: one that other users cannot enter, one whose script they cannot read.
        for (QString const & name : {u"closed"_s, u"private"_s}) {
            QString const dir = svdir_ + u'/' + name;
            QVERIFY(QDir(svdir_).mkdir(name) && writeFile(dir + u"/down"_s, {}));
            QVERIFY(writeFile(dir + u"/run"_s, "#!/bin/sh\nexec sleep 60\n", name == u"private"_s ? 0700 : 0755));
            QVERIFY(setMode(dir, name == u"closed"_s ? 0700 : 0755));
        }
    }

    void init()
    {
        for (auto const & [wait, ms] : {std::pair(LN_Waits::ServicePollStep, 100), {LN_Waits::ServiceStartPoll, 300},
                 {LN_Waits::ServiceStopPoll, 3000}, {LN_Waits::ServiceProcessExit, 3000}, {LN_Waits::ServiceDeletePoll, 10000}})
            LN_Waits::setForTesting(wait, ms);
        useBackend_(u"runit"_s);
    }

    void cleanupTestCase()
    {
        LN_Service::setSystemdDirsForTesting({}, {});
        LN_Waits::resetForTesting();
        QList<qint64> daemons;
        for (QString const & name : QDir(svdir_).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            daemons.append(readPid_(svdir_ + u'/' + name + u"/supervise/pid"_s));
        QVERIFY(std::count_if(daemons.cbegin(), daemons.cend(), running) > 0);
        QCOMPARE(supervisor_.stop(), QList<qint64>());
        QCOMPARE(std::count_if(daemons.cbegin(), daemons.cend(), running), 0);
    }

    // One service through its life under runsvdir, its program in a directory with a blank.
    void lifecycle()
    {
        QString const path = daemon_(u"run"_s, u"with blank"_s);
        QString const pidFile = svdir_ + u"/life/supervise/pid"_s;
        QStringList const installed{u"Creating service"_s, u"Starting life service"_s, u"Service installed successfully"_s};

        LN_Service::registerService({u"life"_s, path, {}, {}}, collect_);
        QCOMPARE(takeReports_(), QStringList{u"Installing life service"_s} + installed);
        QTRY_COMPARE_WITH_TIMEOUT(stateOf(u"life"_s), LN_Service::Running, 8000);
        QCOMPARE(describe(u"query"_s, u"life"_s, {}), u"0 \"%1\"||2|life"_s.arg(path));
        qint64 const first = readPid_(pidFile);
        QVERIFY(running(first));

        // Registered again, it is replaced: the old process goes, a new one runs as the account.
        LN_Service::registerService({u"life"_s, path, u"nobody"_s, {}}, collect_);
        QCOMPARE(takeReports_(), QStringList({u"Installing life service"_s, u"Service exists. Deleting service"_s,
                                              u"Stopping life service"_s, u"Uninstalling life service"_s}) + installed);
        QTRY_COMPARE_WITH_TIMEOUT(stateOf(u"life"_s), LN_Service::Running, 8000);
        qint64 const second = readPid_(pidFile);
        QVERIFY(!running(first) && running(second));
        QCOMPARE(QFileInfo(u"/proc/%1"_s.arg(second)).ownerId(), 65534u);
        QCOMPARE(describe(u"query"_s, u"life"_s, {}), u"0 \"%1\"|nobody|2|life"_s.arg(path));

        LN_Service::stopService(u"life"_s, collect_);
        QCOMPARE(takeReports_(), QStringList{u"Stopping life service"_s});
        QVERIFY(stateOf(u"life"_s) == LN_Service::Stopped && !running(second));
        LN_Service::stopService(u"life"_s, {});
        LN_Service::startService(u"life"_s, {});
        QTRY_COMPARE_WITH_TIMEOUT(stateOf(u"life"_s), LN_Service::Running, 3000);

        LN_Service::uninstallService(u"life"_s, collect_);
        QCOMPARE(takeReports_(), QStringList({u"Stopping life service"_s, u"Uninstalling life service"_s}));
        QCOMPARE(QDir(svdir_).entryList({u"*life*"_s}, QDir::AllEntries | QDir::Hidden), QStringList());
        QVERIFY(!LN_Service::isServiceInstalled(u"life"_s, collect_));
        QCOMPARE(takeReports_(), QStringList{u"Checking if life service is installed"_s});
        QCOMPARE(describe(u"uninstall"_s, u"life"_s, {}) + describe(u"stop"_s, u"life"_s, {}), u"donedone"_s);
    }

    // The waits of a stop: for the supervisor, then for the process, each row with its times.
    void stopWaits_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("stopPollMs");
        QTest::addColumn<int>("processExitMs");
        QTest::addColumn<bool>("timesOut");
        QTest::addColumn<int>("atLeastMs");
        QTest::newRow("ignores the stop past both waits") << u"stop-ignore"_s << 600 << 400 << true << 1000;
        QTest::newRow("ends while its process is waited for") << u"stop-late"_s << 400 << 3000 << false << 1200;
        QTest::newRow("a child lingers after the supervisor reports it down") << u"stop-linger"_s << 3000 << 400 << true << 400;
    }

    void stopWaits()
    {
        QFETCH(QString, name);
        QFETCH(int, stopPollMs);
        QFETCH(int, processExitMs);
        QFETCH(bool, timesOut);
        QFETCH(int, atLeastMs);
        QTRY_COMPARE_WITH_TIMEOUT(stateOf(name), LN_Service::Running, 8000);
        LN_Waits::setForTesting(LN_Waits::ServiceStopPoll, stopPollMs);
        LN_Waits::setForTesting(LN_Waits::ServiceProcessExit, processExitMs);
        QElapsedTimer timer;
        timer.start();
        QString const thrown = thrownBy([&] { LN_Service::stopService(name, collect_); });

        QVERIFY2(timer.elapsed() >= atLeastMs && timer.elapsed() < atLeastMs + 2500, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(thrown, timesOut ? u"Timeout reached while waiting for service to stop. Connection timed out (Error 110)"_s : QString());
        QCOMPARE(takeReports_(),
                 QStringList({u"Stopping %1 service"_s.arg(name), u"Waiting %1ms for service app to stop running."_s.arg(processExitMs)}));
    }

    // Each state of a real runsv, reached by the daemon's manner and an sv command of the test's
    // (or a finish script), and each ActiveState of systemd as the stand-in reports it.
    void states_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("command");
        QTest::addColumn<State>("state");
        QTest::newRow("run") << u"state-run"_s << QString() << LN_Service::Running;
        QTest::newRow("run, paused") << u"state-paused"_s << u"pause"_s << LN_Service::Paused;
        QTest::newRow("run, got TERM, want down") << u"state-stopping"_s << u"down"_s << LN_Service::StopPending;
        QTest::newRow("down") << u"state-down"_s << u"down"_s << LN_Service::Stopped;
        QTest::newRow("down, want up") << u"state-want-up"_s << QString() << LN_Service::StartPending;
        QTest::newRow("finish") << u"state-finish"_s << u"finish"_s << LN_Service::Unknown;
        for (auto const & [word, state] : std::initializer_list<std::pair<char const *, State>>{
                 {"activating", LN_Service::StartPending}, {"active", LN_Service::Running}, {"deactivating", LN_Service::StopPending},
                 {"inactive", LN_Service::Stopped}, {"failed", LN_Service::Stopped}, {"reloading", LN_Service::Unknown}})
            QTest::newRow(word) << u"doomed"_s << QString::fromLatin1(word) << state;
    }

    void states()
    {
        QFETCH(QString, name);
        QFETCH(QString, command);
        QFETCH(State, state);
        QString const dir = svdir_ + u'/' + name;
        if (name == u"doomed"_s) {
            useBackend_(u"systemd"_s);
            QVERIFY(writeFile(systemd_(u"state/doomed.service.active"_s), command.toLatin1(), 0666));
        } else if (command == u"finish"_s) {
            QVERIFY(writeFile(dir + u"/finish"_s, "#!/bin/sh\nexec sleep 60\n"));
        } else if (!command.isEmpty()) {
            QTRY_COMPARE_WITH_TIMEOUT(stateOf(name), LN_Service::Running, 8000);
            QCOMPARE(QProcess::execute(u"sv"_s, {command, dir}), 0);
        }
        QTRY_COMPARE_WITH_TIMEOUT(stateOf(name), state, 8000);
        QFile::remove(systemd_(u"state/doomed.service.active"_s));
    }

    // The unit file's bytes and the changes asked of systemctl, installing and removing.
    void systemdUnit()
    {
        useBackend_(u"systemd"_s);
        takeCalls_();

        LN_Service::registerService({u"oserver"_s, u"/opt/orvanis server/bin/oserver%1$"_s, u"nobody"_s, u"secret"_s}, {});
        QCOMPARE(readFile(systemd_(u"units/oserver.service"_s)),
                 QByteArray("[Unit]\nDescription=oserver\n\n[Service]\nExecStart=\"/opt/orvanis server/bin/oserver%%1$$\"\n"
                            "User=nobody\n\n[Install]\nWantedBy=multi-user.target\n"));
        QCOMPARE(takeCalls_(), QStringList({u"daemon-reload"_s, u"enable oserver.service"_s, u"--no-block start oserver.service"_s}));
        QCOMPARE(describe(u"query"_s, u"oserver"_s, {}), u"0 /opt/orvanis server/bin/oserver%1$|nobody|2|oserver"_s);
        takeCalls_();

        // systemd goes away with the reload that follows the deletion.
        QVERIFY(writeFile(systemd_(u"vanish"_s), {}));
        LN_Service::uninstallService(u"oserver"_s, collect_);
        QVERIFY(QFile::remove(systemd_(u"vanish"_s)) && QDir(temp_.path()).mkpath(u"systemd/run"_s));
        QCOMPARE(takeReports_(),
                 QStringList({u"Stopping oserver service"_s, u"Uninstalling oserver service"_s, u"Service failed to delete: oserver"_s}));
        QCOMPARE(takeCalls_(), QStringList({u"disable oserver.service"_s, u"--no-block stop oserver.service"_s, u"daemon-reload"_s}));
        QVERIFY(!QFile::exists(systemd_(u"units/oserver.service"_s)));
    }

    // Texts of failures and refusals through a real manager or the stand-in. A call is its
    // function, the service's name and what remains as the argument; one made as nobody is made
    // by this program run again under setpriv, with $SVDIR's mode 0755, or 0777 when "open".
    void calls_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("expected");
        auto row = [](char const * tag, char const * where, QString const & call, QString const & expected) {
            QTest::newRow(tag) << QString::fromLatin1(where) << call << expected;
        };
        QString const denied = u"Permission denied (Error 13)"_s;
        QString const absent = u"No such file or directory (Error 2)"_s;
        QString const openManager = u"An error occurred when attempting to open the service manager. "_s;
        QString const openService = u"An error occurred when attempting to open the service. "_s;
        QString const refused = u"Failed to reload daemon: Access denied"_s;

        row("255 characters", "none", u"valid "_s + QString(255, u'a'), u"true"_s);
        row("256 characters", "none", u"valid "_s + QString(256, u'a'), u"false"_s);
        row("empty name", "none", u"valid "_s, u"false"_s);
        row("backslash", "none", u"valid a\\b"_s, u"false"_s);
        row("quote and blank", "runit", u"register bad /opt/a b/\"c\""_s, u"Invalid service executable path \"/opt/a b/\"c\"\""_s);
        row("unknown account", "runit", u"register bad /bin/true|no-such-account"_s,
            u"Failed to create the service. Invalid argument (Error 22)"_s);
        row("start absent", "runit", u"start absent"_s, openService + absent);
        row("query absent", "runit", u"query absent"_s, u"2 Failed to open absent service: "_s + absent);
        row("state absent", "runit", u"state absent"_s, u"LN_ServiceError:3 "_s + absent);
        row("state outside", "runit", u"state ../held"_s, u"LN_ServiceError:5 Invalid argument (Error 22)"_s);
        row("held is not deleted", "runit", u"deleted held 300"_s, u"Timeout occurred while waiting for service to be marked as deleted."_s);
        row("no time to wait", "runit", u"deleted absent 0"_s, u"Timeout occurred while waiting for service to be marked as deleted."_s);
        row("nobody registers", "runit/nobody", u"register other /bin/true"_s, openManager + denied);
        row("nobody starts", "runit/nobody", u"start held"_s, openManager + denied);
        row("nobody uninstalls", "runit/nobody", u"uninstall held"_s, u"Unable to open service \"held\": "_s + denied);
        row("nobody reads the state", "runit/nobody", u"state held"_s, u"LN_ServiceError:1 "_s + denied);
        row("nobody sees it", "runit/nobody", u"installed held"_s, u"true"_s);
        row("nobody cannot enter", "runit/nobody", u"installed closed"_s, u"Failed to query service status "_s + denied);
        row("nobody cannot open", "runit/nobody", u"query closed"_s, u"13 Failed to open closed service: "_s + denied);
        row("nobody cannot read", "runit/nobody", u"query private"_s, u"13 Failed to query service config: "_s + denied);
        row("nobody starts, open", "runit/nobody/open", u"start held"_s, openService + denied);
        row("nobody stops, open", "runit/nobody/open", u"stop held"_s, u"Error attempting to open the service "_s + denied);
        row("systemd: nobody starts", "systemd/nobody", u"start held"_s,
            u"Could not start the service. Failed to start held.service: Access denied"_s);
        row("systemd: nobody stops", "systemd/nobody", u"stop held"_s,
            u"Failed to send stop request to service. Failed to stop held.service: Access denied"_s);
        row("systemd: nobody registers", "systemd/nobody", u"register fresh /usr/sbin/fresh"_s,
            u"Failed to create the service. "_s + refused);
        row("systemd: nobody uninstalls", "systemd/nobody", u"uninstall doomed"_s, u"Request to delete service failed. "_s + refused);
        row("systemd: query absent", "systemd", u"query absent"_s, u"2 Failed to open absent service: "_s + absent);
        for (char const * function : {"register", "start", "stop", "uninstall", "installed", "deleted"})
            row(function, "none", QString::fromLatin1(function) + u" held /bin/true"_s, u"unsupported init system"_s);
        row("query", "none", u"query held"_s, u"38 Failed to open service manager : unsupported init system"_s);
        row("state", "none", u"state held"_s, u"LN_ServiceError:4 unsupported init system"_s);
    }

    void calls()
    {
        QFETCH(QString, where);
        QFETCH(QString, call);
        QFETCH(QString, expected);

        useBackend_(where.section(u'/', 0, 0));
        QStringList const parts{call.section(u' ', 0, 0), call.section(u' ', 1, 1), call.section(u' ', 2)};
        if (!where.contains(u"nobody"_s)) {
            QCOMPARE(describe(parts[0], parts[1], parts[2]), expected);
            return;
        }
        if (::geteuid() != 0)
            QSKIP("A call as nobody needs root to drop to it");
        QVERIFY(setMode(svdir_, where.endsWith(u"open"_s) ? 0777 : 0755));
        QProcess helper;
        helper.start(u"setpriv"_s, QStringList{u"--reuid=nobody"_s, u"--regid=nogroup"_s, u"--clear-groups"_s,
                                               QCoreApplication::applicationFilePath(), u"--call"_s, systemdRuntime_} + parts);
        QVERIFY(helper.waitForFinished(30000) && setMode(svdir_, 0755));
        QCOMPARE(QString::fromUtf8(helper.readAllStandardOutput()).trimmed(), expected);
    }

private:
    // The test daemon under the name of its manner, in a directory of such names.
    QString daemon_(QString const & manner, QString const & directory = u"daemons"_s)
    {
        QString const path = temp_.filePath(directory + u'/' + manner);
        QDir(temp_.path()).mkpath(directory);
        QFile::link(QStringLiteral(SERVICE_DAEMON), path);
        return path;
    }

    QString systemd_(QString const & path) const { return temp_.filePath(u"systemd/"_s + path); }
    QStringList takeReports_() { return std::exchange(reports_, {}); }

    static qint64 readPid_(QString const & path) { return readFile(path).trimmed().toLongLong(); }

    // What the stand-in was told to change since the last time; how often the state is asked
    // between the changes is the library's own affair.
    QStringList takeCalls_()
    {
        QStringList const lines = QString::fromUtf8(readFile(systemd_(u"calls"_s))).split(u'\n', Qt::SkipEmptyParts);
        QFile::resize(systemd_(u"calls"_s), 0);
        return lines.filter(QRegularExpression(u"^(?!show )"_s));
    }

    // systemd is chosen whenever its runtime directory exists, runit when $SVDIR is supervised.
    void useBackend_(QString const & backend)
    {
        systemdRuntime_ = systemd_(backend == u"systemd"_s ? u"run"_s : u"absent"_s);
        LN_Service::setSystemdDirsForTesting(systemdRuntime_, systemd_(u"units"_s));
        if (backend == u"none"_s)
            qunsetenv("SVDIR");
        else
            qputenv("SVDIR", QFile::encodeName(svdir_));
    }

    QTemporaryDir temp_;
    RunitSupervisor supervisor_;
    QString svdir_;
    QString systemdRuntime_;
    QStringList reports_;
    LN_Service::Messages const collect_ = [this](LN_Message const & m) { reports_.append(m.message); };
};

// As a helper, the program makes one call and prints what it came to:
// tst_service --call <systemd runtime directory> <function> <name> <argument>.
int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    QStringList const args = app.arguments();
    if (args.size() == 6 && args[1] == u"--call"_s) {
        LN_Service::setSystemdDirsForTesting(args[2], QFileInfo(args[2]).dir().filePath(u"units"_s));
        std::puts(describe(args[3], args[4], args[5]).toUtf8().constData());
        return 0;
    }
    TestService test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_service.moc"
