// Changes of a recorded installation (features, version, place, repair) from the command line,
// and the same work over the request protocol: the example client, and a cancel.

#include "support/InstallerSandbox.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestInstallerChanges : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(work_.isValid());
        QVERIFY(InstallerSandbox::makeSample(QStringLiteral(DRAIZU_SAMPLE_GENERATOR), work_.path(),
                                             {u"--files"_s, u"40"_s, u"--size"_s, u"20000000"_s}));
        QString const install = u"install Orvanis 21.0.512 --platform linux_x86_64_gcc12 --installdir %T"_s;
        QCOMPARE(run_(install + u" --offline-installer %S"_s).code, 0);
        QFile notes(target_() + u"/bin/notes.txt"_s);
        QVERIFY(notes.open(QIODevice::WriteOnly) && notes.write("the user's") > 0);
        notes.close();
        QVERIFY(sandbox_.keep(work_.filePath(u"installed"_s)));
    }
    void init() { QVERIFY(sandbox_.restore(work_.filePath(u"installed"_s))); }

    void change_data()
    {
        QTest::addColumn<QString>("command");  // %T the installation, %M another directory
        QTest::addColumn<QStringList>("damaged");  // "-" removed, "~" cut short, "+" a file of the user's
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        auto const row = [](char const * name, QString const & command, QStringList const & damaged, int code,
                            QString const & message) { QTest::newRow(name) << command << damaged << code << message; };
        row("add a feature", u"modify %T --pdb-files yes"_s, {}, 0, u"3 files written, 0 removed, 40 unchanged"_s);
        row("the same options", u"modify %T"_s, {}, 0, u"0 files written, 0 removed, 40 unchanged"_s);
        row("only if newer, nothing newer", u"modify %T --only-if-newer"_s, {}, 0,
            u"is installed in %T already; nothing to do"_s);
        row("another version", u"modify %T --version 21.0.600"_s, {}, 0, u"38 files written, 0 removed, 2 unchanged"_s);
        row("move", u"modify %T --installdir %M"_s, {}, 0, u"40 files written, 40 removed, 0 unchanged"_s);
        row("repair", u"repair %T --accept-EULA sample"_s, {u"-lib/file00001.txt"_s, u"~bin/file00010.py"_s,
            u"-lib/file00011.so"_s}, 0, u"3 files repaired, 0 removed, 37 intact"_s);
        row("a user's file where a feature goes", u"modify %T --pdb-files yes"_s, {u"+debug/orvanis1.pdb"_s}, 1,
            u"%T/debug/orvanis1.pdb already exists and is not part of this installation"_s);
    }
    void change()
    {
        QFETCH(QString, command);
        QFETCH(QStringList, damaged);
        QFETCH(int, code);
        QFETCH(QString, message);
        for (QString const & entry : std::as_const(damaged)) {
            QFile file(target_() + u'/' + entry.mid(1));
            QVERIFY(entry.front() == u'-'   ? file.remove()
                    : entry.front() == u'~' ? file.resize(1)
                                            : QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly));
        }
        InstallerSandbox::Run const result = run_(command + u" --offline-installer %S"_s);
        QCOMPARE(result.code, code);
        QVERIFY2(QString(result.out + result.err).contains(place_(message)), qPrintable(result.out + result.err));
        // Changed or refused, the installation is whole, wherever it now lies.
        QCOMPARE(run_(command.contains(u"%M"_s) ? u"verify %M"_s : u"verify %T"_s).code, 0);
        QVERIFY(QFile::exists(target_() + u"/bin/notes.txt"_s));
    }

    void exampleClientInstalls()
    {
        QVERIFY(QDir(target_()).removeRecursively());
        QProcess client;
        client.setProcessEnvironment(sandbox_.environment());
        client.start(u"python3"_s, {QStringLiteral(DRAIZU_EXAMPLE_CLIENT), QStringLiteral(DRAIZU_INSTALLER),
                                    source_(), sandbox_.root() + u"/elsewhere"_s});
        QVERIFY(client.waitForFinished(60000));
        QString const output = QString::fromUtf8(client.readAll());
        QVERIFY2(client.exitCode() == 0, qPrintable(output + QString::fromUtf8(client.readAllStandardError())));
        QVERIFY(output.contains(u"message: Installing Orvanis 21.0.512 into"_s) && output.contains(u"progress "_s));
        QCOMPARE(sandbox_.run({u"verify"_s, sandbox_.root() + u"/elsewhere"_s}).code, 0);
    }

    // A cancel between two files undoes the change: the installation and its record stay.
    void cancelLeavesTheInstallation()
    {
        QLocalServer server;
        QVERIFY(server.listen(work_.filePath(u"client.socket"_s)));
        QProcess host;
        host.setProcessEnvironment(sandbox_.environment());
        host.start(QStringLiteral(DRAIZU_INSTALLER), {u"--server"_s, server.fullServerName()});
        QVERIFY(server.waitForNewConnection(30000));
        QLocalSocket * const client = server.nextPendingConnection();
        QJsonObject const request{{u"verb"_s, u"modify"_s},          {u"existing-install-dir"_s, target_()},
                                  {u"install-dir"_s, QString()},      {u"offline-installer"_s, source_()},
                                  {u"version"_s, u"21.0.600"_s},      {u"platform"_s, QString()},
                                  {u"product"_s, u"Orvanis"_s},       {u"features"_s, QJsonObject()},
                                  {u"other-options"_s, QJsonObject()}, {u"licenses"_s, QJsonArray()},
                                  {u"build-type"_s, QJsonValue::Null}};
        QJsonDocument const call(QJsonArray{u"modify"_s, QJsonArray{request}});
        send_(*client, "API_FUNCTION", "json=" + call.toJson(QJsonDocument::Compact).toPercentEncoding());
        // The first report comes from inside the operation, before its first file; the 20 MB to
        // write take far longer than the cancel's way back.
        QVERIFY(receive_(*client, "cmd=MESSAGE"));
        send_(*client, "CANCEL", "op");
        QVERIFY(receive_(*client, "cmd=COMPLETE status=500 tag=op"));
        QVERIFY(replies_.contains("ACCEPTED") && replies_.contains("\"cancelled\": true"));
        send_(*client, "SHUTDOWN", "x");
        QVERIFY(host.waitForFinished(30000) && host.exitCode() == 0);

        QCOMPARE(run_(u"verify %T"_s).code, 0);
        QVERIFY(sandbox_.run({u"list"_s}).out.contains(u"Orvanis 21.0.512"_s));
        QVERIFY(InstallerSandbox::filesBelow(target_()).filter(u".draizu-part"_s).isEmpty());
    }

private:
    QString target_() const { return sandbox_.root() + u"/target"_s; }
    QString source_() const { return work_.filePath(u"sample/data"_s); }
    QString place_(QString text) const
    {
        return text.replace(u"%T"_s, target_()).replace(u"%M"_s, sandbox_.root() + u"/moved"_s).replace(u"%S"_s, source_());
    }
    InstallerSandbox::Run run_(QString const & words) const { return sandbox_.run(place_(words).split(u' ')); }

    static void send_(QLocalSocket & socket, QByteArray const & cmd, QByteArray const & body)
    {
        socket.write("1 cmd=" + cmd + " tag=op content-length=" + QByteArray::number(body.size()) + "\r\n" + body);
        socket.flush();
    }
    bool receive_(QLocalSocket & socket, QByteArray const & text)
    {
        while (!replies_.contains(text) && socket.waitForReadyRead(30000))
            replies_ += socket.readAll();
        return replies_.contains(text);
    }

    QTemporaryDir work_;
    InstallerSandbox const sandbox_{QStringLiteral(DRAIZU_INSTALLER), work_.filePath(u"run"_s)};
    QByteArray replies_;
};

QTEST_GUILESS_MAIN(TestInstallerChanges)
#include "tst_installer_changes.moc"
