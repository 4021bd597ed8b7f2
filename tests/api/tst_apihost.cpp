// End-to-end tests of the API host: the test is its client, on a local server of its own or on
// the host's standard streams, and checks the exact bytes of the replies and how the host ends.

#include "WireText.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QTest>
#include <QUuid>

#include <memory>

#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray const closingRejection = "REJECTED Unable to find request to cancel";

// One draizu-apihost with the test as its client.
struct Host
{
    enum Mode { Socket, Stdio, NoServer };

    explicit Host(Mode mode = Socket, rlim_t stackLimit = 0)
    {
        if (stackLimit > 0) {
            process.setChildProcessModifier([stackLimit] {
                rlimit const limit{stackLimit, stackLimit};
                setrlimit(RLIMIT_STACK, &limit);
            });
        }
        server.listen(u"draizu-test-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces));
        QString const name = mode == Socket ? server.fullServerName() : u"draizu-test-nobody-listens"_s;
        process.start(QString::fromUtf8(APIHOST_PATH),
                      mode == Stdio ? QStringList{u"--stdio"_s} : QStringList{u"--server"_s, name});
        if (mode == Socket && server.waitForNewConnection(10000))
            socket = server.nextPendingConnection();
        ready = mode != Socket || socket;
    }

    ~Host()
    {
        process.kill();
        process.waitForFinished();
        if (QByteArray const errors = process.readAllStandardError(); !errors.isEmpty())
            qWarning("draizu-apihost wrote:\n%s", errors.constData());
    }

    void send(QByteArray const & data) { socket ? socket->write(data) : process.write(data); }

    // The client goes: the connection closes, or standard input ends.
    void drop() { socket ? socket->disconnectFromServer() : process.closeWriteChannel(); }

    QByteArray const & received() { return bytes += socket ? socket->readAll() : process.readAllStandardOutput(); }

    QLocalServer server;
    QProcess process;
    QLocalSocket * socket = nullptr;
    bool ready = false;
    QByteArray bytes;
};

// How a host ends: what the client sends, in chunks each answered before the next, whether it
// then goes, what it has received by the end, and the host's failure text (none: exit status 0).
struct Ending
{
    Host::Mode mode;
    QByteArrayList chunks;
    bool drop;
    QByteArray replies;
    QByteArray failure;
    int atLeastMs;
};

} // namespace

class TestApiHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void replies_data();
    void replies();
    void exits_data();
    void exits();
    void cancelReachesWorkInsideExec();
    void deepQueues();

private:
    // The host of the rows of `replies`, made anew after a row that failed.
    std::unique_ptr<Host> shared_;
};

void TestApiHost::cleanup()
{
    if (QTest::currentTestFailed())
        shared_.reset();
}

void TestApiHost::replies_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QByteArray>("expected");

    auto const row = [](char const * name, QByteArray const & sent, QByteArray const & expected) {
        QTest::newRow(name) << sent << expected;
    };
    auto const refused = [&row](QByteArray const & sent, char const * text, int status = 400) {
        row(text, sent, complete("t", text, status));
    };
    auto const unbound = [](QByteArray const & tag) -> QByteArray {
        return complete(tag, "Request never sent a result for request.", 500)
               + reply("EXCEPTION", 200, {}, "No acceptable value found for function argument.");
    };
    QByteArray const fatal = reply("FATAL", 400, {}, "Message does not match valid syntax.");
    QByteArray const valid = "json=%5B%22echo%22%2C%5B%22x%22%5D%5D";
    QByteArray const wait = call("w", "wait", {150}) + call("a", "echo", {u"1"_s});
    QByteArray const waited = complete("w", "waited") + complete("a", "1");

    row("by position, by name",
        call("t", "echo", {u"hi"_s}) + call("n", {u"echo"_s, QJsonArray{}, QJsonObject{{u"text"_s, u"n"_s}}}),
        complete("t", "hi") + complete("n", "n"));
    row("default; third element not an object",
        call("t", "add", {2}) + call("u", QJsonArray{u"add"_s, QJsonArray{1, 2}, 5}),
        reply("COMPLETE", 200, "t", "{\n    \"sum\": 2\n}\n", "application/json")
            + reply("COMPLETE", 200, "u", "{\n    \"sum\": 3\n}\n", "application/json"));
    row("failure status", call("t", "fail", {404, u"nope"_s}), complete("t", "nope", 404));
    row("length in code units", call("t", "unicode"), complete("t", "h\xc3\xa9llo \xe2\x86\x92 w\xc3\xb6rld"));
    row("exception, forgotten answer", call("t", "raise", {u"boom"_s}) + call("u", "forget"),
        complete("t", "Request never sent a result for request.", 500) + reply("EXCEPTION", 200, {}, "boom")
            + complete("u", "Request never sent a result for request.", 500));
    row("position wins over name", call("t", {u"echo"_s, QJsonArray{u"p"_s}, QJsonObject{{u"text"_s, u"n"_s}}}),
        complete("t", "p"));
    row("empty text has no length", call("t", "echo", {u""_s}), "1 cmd=COMPLETE status=200 tag=t\r\n\n");
    row("arguments that do not bind",
        call("t", "echo") + call("u", "echo", {5}) + call("v", "wait", {1.5}) + call("w", "wait", {u"2"_s})
            + call("x", "wait", {4294967296.0}) + call("y", "fail", {964, u"x"_s}),
        unbound("t") + unbound("u") + unbound("v") + unbound("w") + unbound("x") + unbound("y"));
    row("version word is not checked", "9" + call("t", "echo", {u"v"_s}).mid(1), complete("t", "v"));
    row("empty tag", message("API_FUNCTION", "", "json=x"), fatal);
    // The intended body stays, to be read as the first word of the next header.
    row("length not a number", "1 cmd=API_FUNCTION tag=t content-length=abc\r\njson=x", fatal);
    row("shutdown without body", message("SHUTDOWN", "t", ""), fatal);
    row("wrong command answers once", message("FOO", "t", valid), complete("t", "Expected a JSON request.", 400));
    refused(message("API_FUNCTION", "t", "xson=[]"), "Expected a JSON request.");
    refused(message("API_FUNCTION", "t", "json=%5B"), "Invalid JSON provided for request.");
    refused(message("API_FUNCTION", "t", "json=%7B%7D"), "JSON request expected array.");
    refused(call("t", QJsonArray{u"x"_s}), "JSON missing functions arguments.");
    refused(call("t", QJsonArray{1, QJsonArray{}}), "Function name is empty.");
    refused(call("t", ""), "Unable to find function.", 404);
    refused(call("t", "broken", {1, 2}), "Function found is invalid.", 500);
    refused(call("t", QJsonArray{u"echo"_s, QJsonObject{}}), "Function arguments are of the wrong type.");
    row("cancel of unknown tag", message("CANCEL", "z", "x"), reply("CANCEL_RESP", 200, "z", closingRejection));
    row("queued in arrival order", wait + call("b", "notify", {u"2"_s}),
        waited + reply("DEBUG", 200, "b", "2") + reply("MESSAGE", 200, "b", "2") + reply("WARNING", 200, "b", "2")
            + reply("ERROR", 200, "b", "2") + reply("PROGRESS", 200, "b", "1 2") + complete("b", "done"));
    row("failed message overtakes the running request", wait + call("x", "nothing"),
        complete("x", "Unable to find function.", 404) + waited);
    row("accepted while waiting",
        call("w", "wait", {20000}) + call("a", "echo", {u"1"_s}) + message("CANCEL", "w", "x"),
        reply("CANCEL_RESP", 200, "w", "ACCEPTED") + complete("w", "cancelled") + complete("a", "1")
            + reply("CANCEL_RESP", 200, "w", closingRejection));
    row("waiting entry without cancel support", wait + message("CANCEL", "a", "x"),
        reply("CANCEL_RESP", 200, "a", "REJECTED Cancel not supported for api function.")
            + reply("CANCEL_RESP", 200, "a", closingRejection) + waited);
    row("waiting entry that can stop",
        call("w", "wait", {150}) + call("v", "wait", {20000}) + message("CANCEL", "v", "x"),
        reply("CANCEL_RESP", 200, "v", "ACCEPTED") + complete("v", "cancelled")
            + reply("CANCEL_RESP", 200, "v", closingRejection) + complete("w", "waited"));
}

void TestApiHost::replies()
{
    QFETCH(QByteArray, sent);
    QFETCH(QByteArray, expected);

    if (!shared_)
        shared_ = std::make_unique<Host>();
    QVERIFY(shared_->ready);
    // Whatever a row writes comes before the answer to a request that runs after all of it.
    qsizetype const start = shared_->received().size();
    shared_->send(sent + call("end", "echo", {u"end"_s}));
    QTRY_COMPARE(shared_->received().mid(start), expected + complete("end", "end"));
}

void TestApiHost::exits_data()
{
    QTest::addColumn<Ending>("ending");

    QByteArray const gone = "draizu-apihost: the client closed the connection; exiting\n";
    QByteArray const ended = "draizu-apihost: standard input ended without SHUTDOWN; exiting\n";
    QByteArray const shutdown = message("SHUTDOWN", "s", "x");
    QByteArray const waiting = call("w", "wait", {300}) + call("a", "echo", {u"never"_s});
    QByteArray const waited = complete("w", "waited");
    QByteArray const fatal = reply("FATAL", 400, {}, "Badly formatted request.");
    QByteArray const late = call("t", "echo", {u"late"_s});
    qsizetype const split = late.indexOf("\r\n") + 10;
    using H = Host;

    QTest::newRow("shutdown, idle; later data unread") << Ending{H::Socket, {shutdown + waiting}, false, {}, {}, 0};
    QTest::newRow("shutdown waits for the running request")
        << Ending{H::Socket, {waiting + shutdown}, false, waited, {}, 300};
    QTest::newRow("input ends after shutdown") << Ending{H::Stdio, {waiting + shutdown}, true, waited, {}, 300};
    QTest::newRow("input ends while a request works, shutdown behind it")
        << Ending{H::Stdio, {call("k", "work", {1}) + call("a", "echo", {u"1"_s}) + shutdown}, true,
                  reply("PROGRESS", 200, "k", "1 1") + complete("k", "worked") + complete("a", "1"), {}, 0};
    QTest::newRow("client gone, idle") << Ending{H::Socket, {}, true, {}, gone, 0};
    QTest::newRow("client gone while a request waits") << Ending{H::Socket, {waiting}, true, {}, gone, 300};
    QTest::newRow("client gone while a request works")
        << Ending{H::Socket, {call("k", "work", {20, 15}) + waiting}, true, {}, gone, 0};
    QTest::newRow("input ended, idle") << Ending{H::Stdio, {}, true, {}, ended, 0};
    QTest::newRow("input ended while a request waits") << Ending{H::Stdio, {waiting}, true, waited, ended, 300};
    QTest::newRow("blank line stays in the buffer")
        << Ending{H::Socket, {"   \r\n", late}, true, fatal + fatal, gone, 0};
    // The rest of a body sent after the host has stopped waiting for it has no line end: it
    // becomes the first word of the next header.
    QTest::newRow("late body is lost and read as a header")
        << Ending{H::Socket, {late.left(split), late.mid(split) + " " + call("u", "echo", {u"n"_s}).mid(2)}, true,
                  complete("t", "Invalid JSON provided for request.", 400) + complete("u", "n"), gone, 0};
    QTest::newRow("nobody listens")
        << Ending{H::NoServer, {}, false, {}, "draizu-apihost: cannot connect to draizu-test-nobody-listens: ", 0};
}

void TestApiHost::exits()
{
    QFETCH(Ending, ending);

    QElapsedTimer clock;
    clock.start();
    Host host(ending.mode);
    QVERIFY(host.ready);
    for (QByteArray const & chunk : ending.chunks) {
        qsizetype const before = host.received().size();
        host.send(chunk);
        // Over a socket the test sees what comes before it goes; it waits for that.
        if (host.socket && !ending.replies.isEmpty())
            QTRY_VERIFY(host.received().size() > before);
    }
    if (ending.drop)
        host.drop();
    QTRY_COMPARE_WITH_TIMEOUT(host.process.state(), QProcess::NotRunning, 10000);
    QCOMPARE_GE(clock.elapsed(), ending.atLeastMs);
    QCOMPARE(host.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process.exitCode(), ending.failure.isEmpty() ? 0 : 1);
    QCOMPARE(host.received(), ending.replies);
    QByteArray const errors = host.process.readAllStandardError();
    QVERIFY2(ending.failure.isEmpty() ? !errors.contains("draizu-apihost") : errors.contains(ending.failure),
             errors.constData());
}

void TestApiHost::cancelReachesWorkInsideExec()
{
    Host host;
    QVERIFY(host.ready);
    host.send(call("k", QJsonArray{u"work"_s, QJsonArray{1000}, QJsonObject{{u"ms"_s, 20}}})
              + call("a", "echo", {u"1"_s}));
    QTRY_VERIFY(host.received().contains("cmd=PROGRESS"));
    host.send(message("CANCEL", "k", "x"));

    // The next request starts at the answer, before the cancel's closing rejection goes out.
    QByteArray const end = reply("CANCEL_RESP", 200, "k", "ACCEPTED") + complete("k", "cancelled") + complete("a", "1")
                           + reply("CANCEL_RESP", 200, "k", closingRejection);
    QTRY_VERIFY(host.received().endsWith(end));
    QByteArray const progress = host.received().chopped(end.size());
    QCOMPARE(progress.count("1 cmd=PROGRESS status=200 tag=k "), progress.count("\r\n"));
}

void TestApiHost::deepQueues()
{
    // A small stack: if each request ran inside the completion of the one before, ten thousand
    // of them would overflow it, whether they come in one write or wait behind another.
    Host host(Host::Socket, 2 * 1024 * 1024);
    QVERIFY(host.ready);
    QByteArray echoes, adds, echoed, added;
    for (int i = 0; i < 10000; ++i) {
        QByteArray const tag = QByteArray::number(i);
        echoes += call(tag, "echo", {QString::fromLatin1(tag)});
        echoed += complete(tag, tag);
        adds += call(tag, "add", {i, 1});
        QByteArray const sum = "{\n    \"sum\": " + QByteArray::number(i + 1) + "\n}\n";
        added += reply("COMPLETE", 200, tag, sum, "application/json");
    }
    host.send(echoes + call("w", "wait", {300}) + adds);
    QByteArray const expected = echoed + complete("w", "waited") + added;
    QTRY_VERIFY_WITH_TIMEOUT(host.received().size() >= expected.size(), 30000);
    QCOMPARE(host.received(), expected);
}

QTEST_GUILESS_MAIN(TestApiHost)
#include "tst_apihost.moc"
