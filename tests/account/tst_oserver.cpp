#include <draizu/account/LN_AccountSettings.h>
#include <draizu/account/LN_LoginStatus.h>
#include <draizu/account/LN_OserverConnection.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Service.h>

#include <support/RunitSupervisor.h>

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

QString const service = u"OrvanisServer"_s;

// The oserver is the test program of tests/support, registered as the service under a runsvdir
// of the test's own, so that starts and stops go through a real supervisor.
class TestOserver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(dir_.isValid() && supervisor_.start(), "runsvdir of the runit package is needed");
        LN_Service::setSystemdDirsForTesting(dir_.filePath(u"no-systemd"_s), dir_.filePath(u"no-systemd"_s));
        // Sessions handed over are validated nowhere; only the hand-over is watched.
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", "http://127.0.0.1:1");
        qputenv("ORVANIS_LAUNCHER_COOKIE_DOMAIN", "127.0.0.1");
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        port_ = probe.serverPort();
        probe.close();
        LN_AccountSettings::setOserverPortForTesting(port_);
        LN_Waits::setForTesting(LN_Waits::OserverStop, 500);

        QFile script(dir_.filePath(u"oserver"_s));
        QByteArray const command = TEST_OSERVER " " + QByteArray::number(port_) + ' ' + QFile::encodeName(state_());
        QVERIFY(script.open(QIODevice::WriteOnly) && script.write("#!/bin/sh\nexec " + command + '\n') > 0);
        script.close();
        QVERIFY(script.setPermissions(script.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther));
        LN_Service::registerService({service, script.fileName(), {}, {}}, {});
    }

    void cleanupTestCase()
    {
        LN_Service::uninstallService(service, {});
        QCOMPARE(supervisor_.stop(), QList<qint64>());
    }

    // Every row meets a freshly started oserver with no file in its directory, never one on
    // its way out after the last row's shutdown.
    void init()
    {
        LN_Service::stopService(service, {});
        QVERIFY(QDir(state_()).removeRecursively() && QDir().mkpath(state_()));
        LN_Service::startService(service, {});
        QTcpSocket socket;
        QTRY_VERIFY_WITH_TIMEOUT((socket.connectToHost(QHostAddress::LocalHost, port_), socket.waitForConnected(200)), 8000);
    }

    // Each row: the oserver's files ("name=content"), the calls, then the signals in order
    // (a session handed to the login status as "validating"), then what the oserver was sent.
    void calls_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expected");
        auto const row = [](char const * name, QStringList const & files, QString const & steps, QString const & expected) {
            QTest::newRow(name) << files << steps << expected;
        };
        QString const pull = u"POST [\"pull_cookies\",[]]"_s, ping = u"POST [\"cmd_ping\",[]]"_s, shutdown = u" [\"cmd_shutdown\", []]"_s;
        QString const session = u"200 {\"cookies\": [\"sessionid=%1; Domain=127.0.0.1; Path=/\"]}"_s;
        QString const status = u"Error transferring http://127.0.0.1:{port}/api - server replied: Status"_s;

        row("logout", {}, u"logout"_s, u"loggedOut true | POST [\"cmd_del_session\",[\"www.orvanis.com\"]]"_s);
        row("same session twice", {u"pull_cookies="_s + session.arg(u"s1"_s)}, u"sync; sync"_s,
            u"synced true / validating s1 / synced true | "_s + pull + u" / "_s + pull);
        // Qt reports a status of 400 and above as a failure, so only another success falls back.
        row("pull answered 202", {u"pull_cookies=202 "_s, u"cmd_sync_cookies="_s + session.arg(u"s2"_s)}, u"sync"_s,
            u"synced true / validating s2 | "_s + pull + u" / POST [\"cmd_sync_cookies\",[\"18.6.205\", [], \"\", \"\"]]"_s);
        row("not JSON", {u"pull_cookies=200 <html>"_s}, u"sync"_s,
            u"synced false JSON Parse error at line 1, column 2: illegal value | "_s + pull);
        row("an array", {u"pull_cookies=200 []"_s}, u"sync"_s, u"synced false Oserver response is not a json object | "_s + pull);
        row("pull fails, oserver up", {u"pull_cookies=500 "_s}, u"sync"_s,
            u"pinged true / started true / synced false Failed to receive reply from oserver: %1 | %2 / %3 / %2"_s.arg(status, pull, ping));
        row("synchronous stop", {}, u"stopsync"_s, u"stopped true / stopsync true | PUT"_s + shutdown);
        row("synchronous stop refused", {u"PUT="_s, u"cmd_shutdown=500 "_s}, u"stopsync"_s,
            u"stopped false %1 / stopsync false %1 | PUT%2 / POST%2"_s.arg(u"Failed to shutdown server: "_s + status, shutdown));
        row("synchronous stop never answered", {u"cmd_shutdown=silent"_s}, u"stopsync"_s, u"stopsync false untouched | PUT"_s + shutdown);
        row("down: sync starts it", {u"pull_cookies="_s + session.arg(u"s3"_s)}, u"down; sync"_s,
            u"pinged false / pinged true / started true / synced true / validating s3 | "_s + ping + u" / "_s + pull);
        row("down: too slow to start", {u"delay=3000"_s}, u"down; sync"_s, u"pinged false / pinged false / started false | "_s);
    }

    void calls()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, steps);
        for (QString const & entry : files) {
            QFile file(QDir(state_()).filePath(entry.section(u'=', 0, 0)));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(entry.section(u'=', 1).toUtf8()) >= 0);
        }
        QNetworkAccessManager manager;
        LN_LoginStatus status(&manager);
        LN_OserverConnection connection(status, &manager);
        QStringList log;
        auto const record = [&](QString const & name, bool success, QString const & text = {}) {
            log << u"%1 %2 %3"_s.arg(name, success ? u"true"_s : u"false"_s, text).trimmed();
            // A session handed over is validated at once; the validation's answer comes later.
            if (name == u"synced" && status.loginState() == LN_LoginState::Reconnecting)
                log << u"validating "_s + status.sessionID();
        };
        connect(&connection, &LN_OserverConnection::pingedOserver, this, [&](bool ok) { record(u"pinged"_s, ok); });
        connect(&connection, &LN_OserverConnection::startedOserver, this, [&](bool ok) { record(u"started"_s, ok); });
        connect(&connection, &LN_OserverConnection::loggedOserverOut, this, [&](bool ok) { record(u"loggedOut"_s, ok); });
        connect(&connection, &LN_OserverConnection::stoppedOserver, this, [&](bool ok, QString t) { record(u"stopped"_s, ok, t); });
        connect(&connection, &LN_OserverConnection::syncCookiesFinished, this, [&](bool ok, QString t) { record(u"synced"_s, ok, t); });
        // Each call, and the pattern of the entry of the log that ends it.
        QHash<QString, std::pair<std::function<void()>, QString>> const calls{
            {u"down"_s, {[] { LN_Service::stopService(service, {}); }, {}}},
            {u"logout"_s, {[&] { connection.logoutOserver(); }, u"loggedOut.*"_s}},
            {u"sync"_s, {[&] { connection.syncCookiesFromOserver(); }, u"(synced|started false).*"_s}},
            {u"stopsync"_s, {[&] {
                 QString error = u"untouched"_s;
                 record(u"stopsync"_s, connection.stopOserverSync(error), error);
             }, u"stopsync.*"_s}},
        };
        for (QString const & step : steps.split(u"; "_s)) {
            qsizetype const before = log.size();
            calls[step].first();
            QVERIFY(calls[step].second.isEmpty()
                    || QTest::qWaitFor([&] { return log.mid(before).indexOf(QRegularExpression(calls[step].second)) >= 0; }, 8000));
        }
        QFile sent(QDir(state_()).filePath(u"log"_s));
        QString const received = sent.open(QIODevice::ReadOnly) ? QString::fromUtf8(sent.readAll()).trimmed() : QString();
        QTEST(QString(log.join(u" / "_s) + u" | "_s + received).replace(u'\n', u" / "_s).replace(QString::number(port_), u"{port}"_s),
              "expected");
    }

private:
    QString state_() const { return dir_.filePath(u"state"_s); }

    QTemporaryDir dir_;
    RunitSupervisor supervisor_;
    quint16 port_ = 0;
};

QTEST_GUILESS_MAIN(TestOserver)
#include "tst_oserver.moc"
