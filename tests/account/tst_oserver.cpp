#include <draizu/account/LN_AccountSettings.h>
#include <draizu/account/LN_LoginStatus.h>
#include <draizu/account/LN_OserverConnection.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Service.h>

#include <support/RunitSupervisor.h>
#include <support/TestHttpServer.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString const service = u"OrvanisServer"_s;

bool oserverAnswers(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    return socket.waitForConnected(200);
}

} // namespace

// The oserver is the test program of tests/support, registered as the service under a runsvdir
// of the test's own, so that starts and stops go through a real supervisor.
class TestOserver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(dir_.isValid());
        QVERIFY2(supervisor_.start(), "runsvdir of the runit package is needed");
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

        QString const script = dir_.filePath(u"oserver"_s);
        QFile file(script);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\nexec " TEST_OSERVER " " + QByteArray::number(port_) + ' ' + QFile::encodeName(state_()) + '\n');
        file.close();
        QVERIFY(file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther));
        QVERIFY(QDir().mkpath(state_()));
        LN_Service::registerService({service, script, {}, {}}, {});
    }

    void cleanupTestCase()
    {
        LN_Service::uninstallService(service, {});
        QCOMPARE(supervisor_.stop(), QList<qint64>());
    }

    // Every row starts with the oserver up and no file in its directory.
    void init()
    {
        QVERIFY(QDir(state_()).removeRecursively() && QDir().mkpath(state_()));
        LN_Service::startService(service, {});
        QTRY_VERIFY_WITH_TIMEOUT(oserverAnswers(port_), 8000);
        pid_ = oserverPid_();
    }

    // Each row: the oserver's files ("name=content"), the calls, then the signals in order
    // (a session handed to the login status as "validating"), then what the oserver was sent.
    void calls_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expected");

        QString const pull = u"POST [\"pull_cookies\",[]]"_s;
        QString const ping = u"POST [\"cmd_ping\",[]]"_s;
        QString const shutdown = u"[\"cmd_shutdown\", []]"_s;
        QString const session = u"200 {\"cookies\": [\"sessionid=%1; Domain=127.0.0.1; Path=/\"]}"_s;
        QString const refused = u"Error transferring http://127.0.0.1:{port}/api - server replied: Status"_s;

        QTest::newRow("ping") << QStringList() << u"ping"_s << u"pinged true | "_s + ping;
        QTest::newRow("logout") << QStringList() << u"logout"_s
                                << u"loggedOut true | POST [\"cmd_del_session\",[\"www.orvanis.com\"]]"_s;
        QTest::newRow("stop refused by PUT") << QStringList{u"PUT="_s} << u"stop"_s
                                             << u"stopped true | PUT "_s + shutdown + u" / POST "_s + shutdown;
        QTest::newRow("stop refused") << QStringList{u"PUT="_s, u"cmd_shutdown=500 "_s} << u"stop"_s
                                      << u"stopped false Failed to shutdown server: "_s + refused + u" | PUT "_s + shutdown
                                             + u" / POST "_s + shutdown;
        QTest::newRow("same session twice") << QStringList{u"pull_cookies="_s + session.arg(u"s1"_s)} << u"sync; sync"_s
                                            << u"synced true / validating s1 / synced true | "_s + pull + u" / "_s + pull;
        // Qt reports a status of 400 and above as a failure, so only another success falls back.
        QTest::newRow("pull answered 202")
            << QStringList{u"pull_cookies=202 "_s, u"cmd_sync_cookies="_s + session.arg(u"s2"_s)} << u"sync"_s
            << u"synced true / validating s2 | "_s + pull + u" / POST [\"cmd_sync_cookies\",[\"18.6.205\", [], \"\", \"\"]]"_s;
        QTest::newRow("no cookies") << QStringList() << u"sync"_s << u"synced true | "_s + pull;
        QTest::newRow("not JSON") << QStringList{u"pull_cookies=200 <html>"_s} << u"sync"_s
                                  << u"synced false JSON Parse error at line 1, column 2: illegal value | "_s + pull;
        QTest::newRow("an array") << QStringList{u"pull_cookies=200 []"_s} << u"sync"_s
                                  << u"synced false Oserver response is not a json object | "_s + pull;
        QTest::newRow("pull fails, oserver up") << QStringList{u"pull_cookies=500 "_s} << u"sync"_s
            << u"pinged true / started true / synced false Failed to receive reply from oserver: "_s + refused + u" | "_s
                   + pull + u" / "_s + ping + u" / "_s + pull;

        QTest::newRow("synchronous stop") << QStringList() << u"stopsync"_s
                                          << u"stopped true / stopsync true | PUT "_s + shutdown;
        QTest::newRow("synchronous stop refused") << QStringList{u"PUT="_s, u"cmd_shutdown=500 "_s} << u"stopsync"_s
            << u"stopped false Failed to shutdown server: %1 / stopsync false Failed to shutdown server: %1 | PUT "_s.arg(refused)
                   + shutdown + u" / POST "_s + shutdown;
        QTest::newRow("synchronous stop never answered") << QStringList() << u"silent; stopsync"_s
                                                         << u"stopsync false untouched | "_s;
        QTest::newRow("down: ping") << QStringList() << u"down; ping"_s << u"pinged false | "_s;
        QTest::newRow("down: stop") << QStringList() << u"down; stop"_s
                                    << u"stopped false Failed to shutdown server: Connection refused | "_s;
        QTest::newRow("down: sync starts it") << QStringList{u"pull_cookies="_s + session.arg(u"s3"_s)} << u"down; sync"_s
            << u"pinged false / pinged true / started true / synced true / validating s3 | "_s + ping + u" / "_s + pull;
        QTest::newRow("down: too slow to start") << QStringList{u"delay=3000"_s} << u"down; sync"_s
                                                 << u"pinged false / pinged false / started false | "_s;
    }

    void calls()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, steps);
        writeFiles_(files);
        // "silent" in a row: the oserver is one that takes every request and never answers.
        TestHttpServer silent;
        QVERIFY(silent.listen());
        silent.on(u"/api"_s, TestHttpServer::Response::stall());
        LN_AccountSettings::setOserverPortForTesting(steps.startsWith(u"silent") ? silent.port() : port_);
        QNetworkAccessManager manager;
        LN_LoginStatus status(&manager);
        LN_OserverConnection connection(status, &manager);
        LN_AccountSettings::setOserverPortForTesting(port_);
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
        connect(&connection, &LN_OserverConnection::stoppedOserver, this,
                [&](bool ok, QString const & text) { record(u"stopped"_s, ok, text); });
        connect(&connection, &LN_OserverConnection::syncCookiesFinished, this,
                [&](bool ok, QString const & text) { record(u"synced"_s, ok, text); });

        for (QString const & step : steps.split(u"; "_s)) {
            qsizetype const before = log.size();
            QString end;
            if (step == u"down" || step == u"silent") {
                if (step == u"down")
                    LN_Service::stopService(service, {});
                continue;
            } else if (step == u"stopsync") {
                QString error = u"untouched"_s;
                bool const stopped = connection.stopOserverSync(error);
                record(u"stopsync"_s, stopped, error);
                end = u"stopsync"_s;
            } else if (step == u"ping") {
                connection.pingOserver();
                end = u"pinged"_s;
            } else if (step == u"logout") {
                connection.logoutOserver();
                end = u"loggedOut"_s;
            } else if (step == u"stop") {
                connection.stopOserver();
                end = u"stopped"_s;
            } else if (step == u"sync") {
                connection.syncCookiesFromOserver();
                end = u"synced|started false"_s;
            }
            QRegularExpression const finished(u"("_s + end + u").*"_s);
            QVERIFY(QTest::qWaitFor([&] { return log.size() > before && log.mid(before).indexOf(finished) >= 0; }, 8000));
        }
        QFile sent(QDir(state_()).filePath(u"log"_s));
        QString const received = sent.open(QIODevice::ReadOnly) ? QString::fromUtf8(sent.readAll()).trimmed() : QString();
        if (log.contains(u"stopped true"_s))
            awaitRestart_();
        QTEST(QString(log.join(u" / "_s) + u" | "_s + received).replace(u'\n', u" / "_s).replace(QString::number(port_), u"{port}"_s),
              "expected");
    }

private:
    QByteArray oserverPid_() const
    {
        QFile file(supervisor_.directory() + u'/' + service + u"/supervise/pid"_s);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // The supervisor brings a shut-down oserver back; the next row must not meet the old one on
    // its way out.
    void awaitRestart_()
    {
        QTRY_VERIFY_WITH_TIMEOUT(oserverPid_() != pid_ && oserverAnswers(port_), 8000);
    }

    void writeFiles_(QStringList const & files)
    {
        for (QString const & entry : files) {
            QFile file(QDir(state_()).filePath(entry.section(u'=', 0, 0)));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(entry.section(u'=', 1).toUtf8());
        }
    }

    QString state_() const { return dir_.filePath(u"state"_s); }

    QTemporaryDir dir_;
    RunitSupervisor supervisor_;
    quint16 port_ = 0;
    QByteArray pid_;
};

QTEST_GUILESS_MAIN(TestOserver)
#include "tst_oserver.moc"
