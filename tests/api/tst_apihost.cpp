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

    explicit Host(Mode mode = Socket)
    {
        // A small stack: if each request ran inside the completion of the one before, the ten
        // thousand of a deep queue would overflow it.
        process.setChildProcessModifier([] {
            rlimit const limit{2 << 20, 2 << 20};
            setrlimit(RLIMIT_STACK, &limit);
        });
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
    // The host of the rows of `replies`, made anew after a row that failed.
    void cleanup()
    {
        if (QTest::currentTestFailed())
            shared_.reset();
    }

    void replies_data()
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
        QJsonObject const named{{u"text"_s, u"n"_s}};

        row("by name, position wins",
            call("n", {u"echo"_s, QJsonArray{}, named}) + call("p", {u"echo"_s, QJsonArray{u"p"_s}, named}),
            complete("n", "n") + complete("p", "p"));
        row("default; third element not an object", call("t", "add", {2}) + call("u", {u"add"_s, QJsonArray{1, 2}, 5}),
            reply("COMPLETE", 200, "t", "{\n    \"sum\": 2\n}\n", "application/json")
                + reply("COMPLETE", 200, "u", "{\n    \"sum\": 3\n}\n", "application/json"));
        row("failure status", call("t", "fail", {404, u"nope"_s}), complete("t", "nope", 404));
        row("length in code units", call("t", "unicode"), complete("t", "h\xc3\xa9llo \xe2\x86\x92 w\xc3\xb6rld"));
        row("exception, forgotten answer", call("t", "raise", {u"boom"_s}) + call("u", "forget"),
            complete("t", "Request never sent a result for request.", 500) + reply("EXCEPTION", 200, {}, "boom")
                + complete("u", "Request never sent a result for request.", 500));
        row("empty text has no length", call("t", "echo", {u""_s}), "1 cmd=COMPLETE status=200 tag=t\r\n\n");
        row("arguments that do not bind",
            call("t", "echo") + call("u", "echo", {5}) + call("v", "wait", {1.5}) + call("w", "wait", {u"2"_s})
                + call("x", "wait", {4294967296.0}) + call("y", "fail", {964, u"x"_s}),
            unbound("t") + unbound("u") + unbound("v") + unbound("w") + unbound("x") + unbound("y"));
        row("empty tag", message("API_FUNCTION", "", "json=x"), fatal);
        // The intended body stays, to be read as the first word of the next header.
        row("length not a number", "1 cmd=API_FUNCTION tag=t content-length=abc\r\njson=x", fatal);
        row("shutdown without body", message("SHUTDOWN", "t", ""), fatal);
        row("wrong command answers once", message("FOO", "t", "json=%5B%22echo%22%2C%5B%22x%22%5D%5D"),
            complete("t", "Expected a JSON request.", 400));
        refused(message("API_FUNCTION", "t", "xson=[]"), "Expected a JSON request.");
        refused(message("API_FUNCTION", "t", "json=%5B"), "Invalid JSON provided for request.");
        refused(message("API_FUNCTION", "t", "json=%7B%7D"), "JSON request expected array.");
        refused(call("t", QJsonArray{u"x"_s}), "JSON missing functions arguments.");
        refused(call("t", QJsonArray{1, QJsonArray{}}), "Function name is empty.");
        refused(call("t", ""), "Unable to find function.", 404);
        refused(call("t", "broken", {1, 2}), "Function found is invalid.", 500);
        refused(call("t", QJsonArray{u"echo"_s, QJsonObject{}}), "Function arguments are of the wrong type.");
        // A failed message's answer takes the first entry of its tag off the queue: the running one.
        row("failed message ends the running entry of its tag",
            call("w", "wait", {300}) + call("a", "wait", {100}) + call("b", "wait", {400}) + message("FOO", "w", "x"),
            complete("w", "Expected a JSON request.", 400) + complete("a", "waited") + complete("w", "waited")
                + complete("b", "waited"));
        row("cancel of unknown tag", message("CANCEL", "z", "x"), reply("CANCEL_RESP", 200, "z", closingRejection));
        row("accepted while waiting",
            call("w", "wait", {20000}) + call("a", "echo", {u"1"_s}) + message("CANCEL", "w", "x"),
            reply("CANCEL_RESP", 200, "w", "ACCEPTED") + complete("w", "cancelled") + complete("a", "1")
                + reply("CANCEL_RESP", 200, "w", closingRejection));
        row("waiting entry without cancel support",
            call("w", "wait", {150}) + call("a", "echo", {u"1"_s}) + message("CANCEL", "a", "x"),
            reply("CANCEL_RESP", 200, "a", "REJECTED Cancel not supported for api function.")
                + reply("CANCEL_RESP", 200, "a", closingRejection) + complete("w", "waited") + complete("a", "1"));
        row("waiting entry that can stop",
            call("w", "wait", {150}) + call("v", "wait", {20000}) + message("CANCEL", "v", "x"),
            reply("CANCEL_RESP", 200, "v", "ACCEPTED") + complete("v", "cancelled")
                + reply("CANCEL_RESP", 200, "v", closingRejection) + complete("w", "waited"));

        QByteArray echoes, echoed;
        for (int i = 0; i < 10000; ++i) {
            QByteArray const tag = QByteArray::number(i);
            echoes += call(tag, "echo", {QString::fromLatin1(tag)});
            echoed += complete(tag, tag);
        }
        row("ten thousand in one write, and behind a running one", echoes + call("w", "wait", {300}) + echoes,
            echoed + complete("w", "waited") + echoed);
    }

    void replies()
    {
        QFETCH(QByteArray, sent);
        QFETCH(QByteArray, expected);

        if (!shared_)
            shared_ = std::make_unique<Host>();
        QVERIFY(shared_->ready);
        // Whatever a row writes comes before the answer to a request that runs after all of it.
        qsizetype const start = shared_->received().size();
        shared_->send(sent + call("end", "echo", {u"end"_s}));
        // Five seconds, and more for a long exchange, which under the sanitizers takes seconds.
        QTRY_COMPARE_WITH_TIMEOUT(shared_->received().mid(start), expected + complete("end", "end"),
                                  5000 + int(expected.size() / 100));
    }

    void exits_data()
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
        auto const row = [](char const * name, Ending const & ending) { QTest::newRow(name) << ending; };

        row("shutdown, idle; later data unread", {H::Socket, {shutdown + waiting}, false, {}, {}, 0});
        row("shutdown waits for the running request", {H::Socket, {waiting + shutdown}, false, waited, {}, 300});
        row("input ends after shutdown", {H::Stdio, {waiting + shutdown}, true, waited, {}, 300});
        row("input ends while a request works, shutdown behind it",
            {H::Stdio, {call("k", "work", {1}) + call("a", "echo", {u"1"_s}) + shutdown}, true,
             reply("PROGRESS", 200, "k", "1 1") + complete("k", "worked") + complete("a", "1"), {}, 0});
        row("client gone while a request waits", {H::Socket, {waiting}, true, {}, gone, 300});
        row("client gone while a request works", {H::Socket, {call("k", "work", {20, 15}) + waiting}, true, {}, gone, 0});
        row("input ended while a request waits", {H::Stdio, {waiting}, true, waited, ended, 300});
        row("blank line stays in the buffer", {H::Socket, {"   \r\n", late}, true, fatal + fatal, gone, 0});
        // The rest of a body sent after the host has stopped waiting for it has no line end: it
        // becomes the first word of the next header.
        row("late body is lost and read as a header",
            {H::Socket, {late.left(split), late.mid(split) + " " + call("u", "echo", {u"n"_s}).mid(2)}, true,
             complete("t", "Invalid JSON provided for request.", 400) + complete("u", "n"), gone, 0});
        // One step a second: the cancel, sent at the first progress, arrives before the second.
        QByteArray const work = call("k", {u"work"_s, QJsonArray{1000}, QJsonObject{{u"ms"_s, 1000}}});
        row("cancel reaches work inside exec; the next request starts at the answer",
            {H::Socket, {work + call("a", "echo", {u"1"_s}), message("CANCEL", "k", "x") + shutdown}, false,
             reply("PROGRESS", 200, "k", "1 1000") + reply("CANCEL_RESP", 200, "k", "ACCEPTED") + complete("k", "cancelled")
                 + complete("a", "1") + reply("CANCEL_RESP", 200, "k", closingRejection),
             {}, 1000});
        row("nobody listens",
            {H::NoServer, {}, false, {}, "draizu-apihost: cannot connect to draizu-test-nobody-listens: ", 0});
    }

    void exits()
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

private:
    std::unique_ptr<Host> shared_;
};

QTEST_GUILESS_MAIN(TestApiHost)
#include "tst_apihost.moc"
