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
#include <QUrl>

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
        QCOMPARE(sandbox_.run({u"install"_s, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                               u"--installdir"_s, target_(), u"--offline-installer"_s, source_()})
                     .code,
                 0);
        QFile notes(target_() + u"/bin/notes.txt"_s);
        QVERIFY(notes.open(QIODevice::WriteOnly) && notes.write("the user's") > 0);
        notes.close();
        QVERIFY(sandbox_.keep(work_.filePath(u"installed"_s)));
    }
    void init() { QVERIFY(sandbox_.restore(work_.filePath(u"installed"_s))); }

    void change_data()
    {
        QTest::addColumn<QStringList>("arguments"); // %T the installation, %M another directory
        QTest::addColumn<QStringList>("damaged");   // files removed (odd rows) or cut short (even)
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("installed"); // where the installation then lies
        QStringList const none;
        QTest::newRow("add a feature") << QStringList{u"modify"_s, u"%T"_s, u"--pdb-files"_s, u"yes"_s} << none << 0
                                       << u"3 files written, 0 removed, 40 unchanged"_s << u"%T"_s;
        QTest::newRow("the same options") << QStringList{u"modify"_s, u"%T"_s} << none << 0
                                          << u"0 files written, 0 removed, 40 unchanged"_s << u"%T"_s;
        QTest::newRow("only if newer, nothing newer")
            << QStringList{u"modify"_s, u"%T"_s, u"--only-if-newer"_s} << none << 0
            << u"is installed in %T already; nothing to do"_s << u"%T"_s;
        QTest::newRow("another version") << QStringList{u"modify"_s, u"%T"_s, u"--version"_s, u"21.0.600"_s} << none
                                         << 0 << u"38 files written, 0 removed, 2 unchanged"_s << u"%T"_s;
        QTest::newRow("move") << QStringList{u"modify"_s, u"%T"_s, u"--installdir"_s, u"%M"_s} << none << 0
                              << u"40 files written, 40 removed, 0 unchanged"_s << u"%M"_s;
        QTest::newRow("repair") << QStringList{u"repair"_s, u"%T"_s, u"--accept-EULA"_s, u"sample"_s}
                                << QStringList{u"lib/file00001.txt"_s, u"bin/file00010.py"_s, u"lib/file00011.so"_s}
                                << 0 << u"3 files repaired, 0 removed, 37 intact"_s << u"%T"_s;
        QTest::newRow("a user's file where a feature goes")
            << QStringList{u"modify"_s, u"%T"_s, u"--pdb-files"_s, u"yes"_s} << QStringList{u"+debug/orvanis1.pdb"_s}
            << 1 << u"%T/debug/orvanis1.pdb already exists and is not part of this installation"_s << u"%T"_s;
    }
    void change()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QStringList, damaged);
        QFETCH(int, code);
        QFETCH(QString, message);
        QFETCH(QString, installed);
        auto const place = [this](QString text) {
            return text.replace(u"%T"_s, target_()).replace(u"%M"_s, sandbox_.root() + u"/moved"_s);
        };
        for (qsizetype i = 0; i < damaged.size(); ++i) {
            QString const path = target_() + u'/' + QString(damaged.at(i)).remove(u'+');
            QFile file(path);
            // "+" puts a file of the user's there; otherwise every other file goes, the rest is cut.
            bool const done = damaged.at(i).startsWith(u'+') ? QDir().mkpath(QFileInfo(path).path())
                                                                   && file.open(QIODevice::WriteOnly)
                                                             : i % 2 == 0 ? file.remove()
                                                                          : file.resize(1);
            QVERIFY(done);
        }
        QStringList command;
        for (QString const & argument : std::as_const(arguments))
            command << place(argument);
        InstallerSandbox::Run const result = sandbox_.run(command + QStringList{u"--offline-installer"_s, source_()});
        QCOMPARE(result.code, code);
        QVERIFY2(QString(result.out + result.err).contains(place(message)), qPrintable(result.out + result.err));
        // Changed or refused, the installation is whole.
        QCOMPARE(sandbox_.run({u"verify"_s, place(installed)}).code, 0);
        QVERIFY(QFile::exists(target_() + u"/bin/notes.txt"_s));
    }

    void exampleClientInstalls()
    {
        QVERIFY(QDir(sandbox_.root() + u"/target"_s).removeRecursively());
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
        send_(*client, u"API_FUNCTION"_s, u"json="_s + QString::fromUtf8(QUrl::toPercentEncoding(QString::fromUtf8(
                                                         QJsonDocument(QJsonArray{u"modify"_s, QJsonArray{request}})
                                                             .toJson(QJsonDocument::Compact)))));
        // The first report comes from inside the operation, before its first file; the 20 MB to
        // write take far longer than the cancel's way back.
        QVERIFY(receive_(*client, "cmd=MESSAGE"));
        send_(*client, u"CANCEL"_s, u"op"_s);
        QVERIFY(receive_(*client, "cmd=COMPLETE status=500 tag=op"));
        QVERIFY(replies_.contains("ACCEPTED") && replies_.contains("\"cancelled\": true"));
        send_(*client, u"SHUTDOWN"_s, u"x"_s);
        QVERIFY(host.waitForFinished(30000) && host.exitCode() == 0);

        QCOMPARE(sandbox_.run({u"verify"_s, target_()}).code, 0);
        QVERIFY(sandbox_.run({u"list"_s}).out.contains(u"Orvanis 21.0.512"_s));
        QVERIFY(InstallerSandbox::filesBelow(target_()).filter(u".draizu-part"_s).isEmpty());
    }

private:
    QString target_() const { return sandbox_.root() + u"/target"_s; }
    QString source_() const { return work_.filePath(u"sample/data"_s); }

    static void send_(QLocalSocket & socket, QString const & cmd, QString const & body)
    {
        QByteArray const data = body.toUtf8();
        socket.write("1 cmd=" + cmd.toUtf8() + " tag=op content-length=" + QByteArray::number(data.size()) + "\r\n"
                     + data);
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
