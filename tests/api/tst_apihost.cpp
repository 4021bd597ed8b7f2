// End-to-end tests of the API host: the test listens on a local server, starts draizu-apihost
// against it, and checks the exact bytes of the replies.

#include "WireText.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QTest>
#include <QUuid>

#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray message(QByteArray const & cmd, QByteArray const & tag, QByteArray const & body)
{
    return "1 cmd=" + cmd + " tag=" + tag + " content-length=" + QByteArray::number(body.size()) + "\r\n" + body;
}

QByteArray call(QByteArray const & tag, QJsonArray const & request)
{
    QByteArray const json = QJsonDocument(request).toJson(QJsonDocument::Compact);
    return message("API_FUNCTION", tag, "json=" + json.toPercentEncoding());
}

QByteArray call(QByteArray const & tag, QString const & function, QJsonArray const & args = {})
{
    return call(tag, QJsonArray{function, args});
}

QByteArray complete(QByteArray const & tag, QString const & content, int status = 200)
{
    return reply("COMPLETE", status, tag, content);
}

QByteArray cancelReply(QByteArray const & tag, QString const & content)
{
    return reply("CANCEL_RESP", 200, tag, content);
}

QString const closingRejection = u"REJECTED Unable to find request to cancel"_s;

struct Reply
{
    QByteArray cmd;
    QByteArray tag;
    QString content;
};

// Cuts whole server messages from the front of `bytes`, framing bodies by their length in
// UTF-16 code units and skipping the closing line feed.
QList<Reply> takeReplies(QByteArray & bytes)
{
    QList<Reply> replies;
    qsizetype pos = 0;
    for (;;) {
        qsizetype const lineEnd = bytes.indexOf("\r\n", pos);
        if (lineEnd < 0)
            break;
        Reply reply;
        qsizetype units = 0;
        for (QByteArray const & word : bytes.mid(pos, lineEnd - pos).split(' ')) {
            if (word.startsWith("cmd="))
                reply.cmd = word.mid(4);
            else if (word.startsWith("tag="))
                reply.tag = word.mid(4);
            else if (word.startsWith("content-length="))
                units = word.mid(15).toLongLong();
        }
        qsizetype end = lineEnd + 2;
        while (units > 0 && end < bytes.size()) {
            auto const lead = static_cast<unsigned char>(bytes.at(end));
            end += lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
            units -= lead >= 0xF0 ? 2 : 1;
        }
        if (units > 0 || end >= bytes.size())
            break;
        reply.content = QString::fromUtf8(bytes.mid(lineEnd + 2, end - lineEnd - 2));
        replies.append(reply);
        pos = end + 1;
    }
    bytes.remove(0, pos);
    return replies;
}

// One host connected to a local server of the test.
class Host
{
public:
    explicit Host(qint64 stackLimit = 0)
    {
        server.listen(u"draizu-test-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces));
        if (stackLimit > 0) {
            process.setChildProcessModifier([stackLimit] {
                rlimit const limit{static_cast<rlim_t>(stackLimit), static_cast<rlim_t>(stackLimit)};
                setrlimit(RLIMIT_STACK, &limit);
            });
        }
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QString::fromUtf8(APIHOST_PATH), {u"--server"_s, server.fullServerName()});
        if (server.waitForNewConnection(10000))
            socket = server.nextPendingConnection();
    }

    ~Host()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }

    bool connected() const { return socket != nullptr; }

    void send(QByteArray const & data)
    {
        socket->write(data);
        socket->flush();
    }

    QByteArray const & received()
    {
        socket->waitForReadyRead(20);
        bytes += socket->readAll();
        return bytes;
    }

    QList<Reply> waitForReplies(qsizetype count, int timeoutMs = 20000)
    {
        QDeadlineTimer const deadline(timeoutMs);
        while (replies.size() < count && !deadline.hasExpired()) {
            socket->waitForReadyRead(50);
            bytes += socket->readAll();
            replies += takeReplies(bytes);
        }
        return replies;
    }

    bool exitedCleanly(int timeoutMs = 10000)
    {
        return process.waitForFinished(timeoutMs) && process.exitStatus() == QProcess::NormalExit
               && process.exitCode() == 0;
    }

    QLocalServer server;
    QProcess process;
    QLocalSocket * socket = nullptr;
    QByteArray bytes;
    QList<Reply> replies;
};

} // namespace

class TestApiHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replies_data();
    void replies();
    void blankLineStaysInTheBuffer();
    void lateBodyIsLostAndReadAsHeader();
    void cancelReachesWorkInsideExec();
    void shutdownWithEmptyQueue();
    void shutdownWaitsForRunningRequest();
    void manyRequestsInOneWrite();
    void manyRequestsQueuedBehindWaitingOne();
    void connectFailure();
    void servesStandardStreams();
};

void TestApiHost::replies_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QByteArray>("expected");

    auto const fatal = [](QString const & text) { return reply("FATAL", 400, {}, text); };
    QByteArray const valid = "json=" + QByteArray("[\"echo\",[\"x\"]]").toPercentEncoding();

    QTest::newRow("echo") << call("t", u"echo"_s, {u"hi"_s}) << complete("t", u"hi"_s);
    QTest::newRow("echo by name") << call("t", QJsonArray{u"echo"_s, QJsonArray{}, QJsonObject{{u"text"_s, u"n"_s}}})
                                  << complete("t", u"n"_s);
    QTest::newRow("add with default") << call("t", u"add"_s, {2})
                                      << reply("COMPLETE", 200, "t", u"{\n    \"sum\": 2\n}\n"_s, "application/json");
    QTest::newRow("third element not an object")
        << call("t", QJsonArray{u"add"_s, QJsonArray{1, 2}, 5})
        << reply("COMPLETE", 200, "t", u"{\n    \"sum\": 3\n}\n"_s, "application/json");
    QTest::newRow("notify") << call("t", u"notify"_s, {u"n"_s})
                            << reply("DEBUG", 200, "t", u"n"_s) + reply("MESSAGE", 200, "t", u"n"_s)
                                   + reply("WARNING", 200, "t", u"n"_s) + reply("ERROR", 200, "t", u"n"_s)
                                   + reply("PROGRESS", 200, "t", u"1 2"_s) + complete("t", u"done"_s);
    QTest::newRow("failure status") << call("t", u"fail"_s, {404, u"nope"_s}) << complete("t", u"nope"_s, 404);
    QTest::newRow("non-ascii length in code units")
        << call("t", u"unicode"_s) << QByteArray("1 cmd=COMPLETE status=200 tag=t content-type=text/plain "
                                                 "content-length=13\r\nh\xc3\xa9llo \xe2\x86\x92 w\xc3\xb6rld\n");
    QTest::newRow("two messages in one write") << call("a", u"echo"_s, {u"1"_s}) + call("b", u"echo"_s, {u"2"_s})
                                               << complete("a", u"1"_s) + complete("b", u"2"_s);
    QTest::newRow("forgotten answer") << call("t", u"forget"_s)
                                      << complete("t", u"Request never sent a result for request."_s, 500);
    QTest::newRow("exception, then the next message")
        << call("t", u"raise"_s, {u"boom"_s}) + call("u", u"echo"_s, {u"after"_s})
        << complete("t", u"Request never sent a result for request."_s, 500)
               + reply("EXCEPTION", 200, {}, u"boom"_s) + complete("u", u"after"_s);
    QTest::newRow("argument of the wrong type")
        << call("t", u"echo"_s, {5})
        << complete("t", u"Request never sent a result for request."_s, 500)
               + reply("EXCEPTION", 200, {}, u"No acceptable value found for function argument."_s);
    QTest::newRow("version word is not checked") << "9" + call("t", u"echo"_s, {u"v"_s}).mid(1)
                                                 << complete("t", u"v"_s);

    QTest::newRow("empty tag") << message("API_FUNCTION", "", valid)
                               << fatal(u"Message does not match valid syntax."_s);
    QTest::newRow("length not a number") << QByteArray("1 cmd=API_FUNCTION tag=t content-length=abc\r\n") + valid
                                         << fatal(u"Message does not match valid syntax."_s);
    QTest::newRow("shutdown without body") << message("SHUTDOWN", "t", "") + call("u", u"echo"_s, {u"still"_s})
                                           << fatal(u"Message does not match valid syntax."_s) + complete("u", u"still"_s);
    QTest::newRow("wrong command answers once") << message("FOO", "t", valid)
                                                << complete("t", u"Expected a JSON request."_s, 400);
    QTest::newRow("no json prefix") << message("API_FUNCTION", "t", "xson=[]")
                                    << complete("t", u"Expected a JSON request."_s, 400);
    QTest::newRow("invalid json") << message("API_FUNCTION", "t", "json=%5B")
                                  << complete("t", u"Invalid JSON provided for request."_s, 400);
    QTest::newRow("json not an array") << message("API_FUNCTION", "t", "json=%7B%7D")
                                       << complete("t", u"JSON request expected array."_s, 400);
    QTest::newRow("one element") << call("t", QJsonArray{u"x"_s})
                                 << complete("t", u"JSON missing functions arguments."_s, 400);
    QTest::newRow("name not a string") << call("t", QJsonArray{1, QJsonArray{}})
                                       << complete("t", u"Function name is empty."_s, 400);
    QTest::newRow("empty name") << call("t", QJsonArray{u""_s, QJsonArray{}})
                                << complete("t", u"Unable to find function."_s, 404);
    QTest::newRow("unknown function") << call("t", u"nothing"_s) << complete("t", u"Unable to find function."_s, 404);
    QTest::newRow("invalid function") << call("t", u"broken"_s, {u"a"_s, u"b"_s})
                                      << complete("t", u"Function found is invalid."_s, 500);
    QTest::newRow("arguments not an array") << call("t", QJsonArray{u"echo"_s, QJsonObject{}})
                                            << complete("t", u"Function arguments are of the wrong type."_s, 400);
    QTest::newRow("cancel of unknown tag") << message("CANCEL", "zz", "x") << cancelReply("zz", closingRejection);

    QTest::newRow("queued in arrival order")
        << call("w", u"wait"_s, {150}) + call("a", u"echo"_s, {u"1"_s}) + call("b", u"notify"_s, {u"2"_s})
        << complete("w", u"waited"_s) + complete("a", u"1"_s) + reply("DEBUG", 200, "b", u"2"_s)
               + reply("MESSAGE", 200, "b", u"2"_s) + reply("WARNING", 200, "b", u"2"_s)
               + reply("ERROR", 200, "b", u"2"_s) + reply("PROGRESS", 200, "b", u"1 2"_s) + complete("b", u"done"_s);
    QTest::newRow("failed message overtakes the running request")
        << call("w", u"wait"_s, {150}) + call("a", u"echo"_s, {u"1"_s}) + call("x", u"nothing"_s)
        << complete("x", u"Unable to find function."_s, 404) + complete("w", u"waited"_s) + complete("a", u"1"_s);
    QTest::newRow("accepted while waiting")
        << call("w", u"wait"_s, {20000}) + call("a", u"echo"_s, {u"1"_s}) + message("CANCEL", "w", "x")
        << cancelReply("w", u"ACCEPTED"_s) + complete("w", u"cancelled"_s) + complete("a", u"1"_s)
               + cancelReply("w", closingRejection);
    QTest::newRow("waiting entry without cancel support")
        << call("w", u"wait"_s, {150}) + call("a", u"echo"_s, {u"1"_s}) + message("CANCEL", "a", "x")
        << cancelReply("a", u"REJECTED Cancel not supported for api function."_s) + cancelReply("a", closingRejection)
               + complete("w", u"waited"_s) + complete("a", u"1"_s);
    QTest::newRow("waiting entry that can stop")
        << call("w", u"wait"_s, {150}) + call("v", u"wait"_s, {20000}) + message("CANCEL", "v", "x")
        << cancelReply("v", u"ACCEPTED"_s) + complete("v", u"cancelled"_s) + cancelReply("v", closingRejection)
               + complete("w", u"waited"_s);
}

void TestApiHost::replies()
{
    QFETCH(QByteArray, sent);
    QFETCH(QByteArray, expected);

    Host host;
    QVERIFY(host.connected());
    host.send(sent);
    QTRY_COMPARE(host.received(), expected);
    QTest::qWait(50);
    QCOMPARE(host.received(), expected);
}

void TestApiHost::blankLineStaysInTheBuffer()
{
    Host host;
    QVERIFY(host.connected());
    QByteArray const fatal = reply("FATAL", 400, {}, u"Badly formatted request."_s);
    host.send("   \r\n");
    QTRY_COMPARE(host.received(), fatal);
    host.send(call("t", u"echo"_s, {u"never"_s}));
    QTRY_COMPARE(host.received(), fatal + fatal);
}

void TestApiHost::lateBodyIsLostAndReadAsHeader()
{
    Host host;
    QVERIFY(host.connected());
    QByteArray const whole = call("t", u"echo"_s, {u"late"_s});
    qsizetype const split = whole.indexOf("\r\n") + 2 + 8;
    host.send(whole.left(split));
    QTRY_COMPARE(host.received(), complete("t", u"Invalid JSON provided for request."_s, 400));

    // Sent after the host has stopped waiting for it, the rest of the body has no line end: it
    // becomes the first word of the next header.
    host.send(whole.mid(split));
    QTest::qWait(50);
    host.send(" " + call("u", u"echo"_s, {u"next"_s}).mid(2));
    QTRY_COMPARE(host.received(),
                 complete("t", u"Invalid JSON provided for request."_s, 400) + complete("u", u"next"_s));
}

void TestApiHost::cancelReachesWorkInsideExec()
{
    Host host;
    QVERIFY(host.connected());
    host.send(call("k", QJsonArray{u"work"_s, QJsonArray{1000}, QJsonObject{{u"ms"_s, 20}}})
              + call("a", u"echo"_s, {u"1"_s}));
    QTRY_VERIFY(host.received().contains("cmd=PROGRESS"));
    host.send(message("CANCEL", "k", "x"));

    // The next request starts at the answer, before the cancel's closing rejection goes out.
    QList<Reply> const replies = host.waitForReplies(1000);
    QCOMPARE_GE(replies.size(), 5);
    qsizetype const accepted = replies.size() - 4;
    auto const describe = [&](qsizetype i) -> QByteArray { return replies.at(i).cmd + ' ' + replies.at(i).tag + ' ' + replies.at(i).content.toUtf8(); };
    for (qsizetype i = 0; i < accepted; ++i)
        QCOMPARE(replies.at(i).cmd, QByteArray("PROGRESS"));
    QCOMPARE(describe(accepted), QByteArray("CANCEL_RESP k ACCEPTED"));
    QCOMPARE(describe(accepted + 1), QByteArray("COMPLETE k cancelled"));
    QCOMPARE(describe(accepted + 2), QByteArray("COMPLETE a 1"));
    QCOMPARE(describe(accepted + 3), "CANCEL_RESP k " + closingRejection.toUtf8());
}

void TestApiHost::shutdownWithEmptyQueue()
{
    Host host;
    QVERIFY(host.connected());
    host.send(message("SHUTDOWN", "s", "x") + call("t", u"echo"_s, {u"unread"_s}));
    QVERIFY(host.exitedCleanly());
    QCOMPARE(host.received(), QByteArray());
}

void TestApiHost::shutdownWaitsForRunningRequest()
{
    Host host;
    QVERIFY(host.connected());
    host.send(call("w", u"wait"_s, {150}) + call("a", u"echo"_s, {u"never"_s}) + message("SHUTDOWN", "s", "x"));
    QVERIFY(host.exitedCleanly());
    QCOMPARE(host.received(), complete("w", u"waited"_s));
}

void TestApiHost::manyRequestsInOneWrite()
{
    constexpr int count = 10000;
    Host host(2 * 1024 * 1024);
    QVERIFY(host.connected());
    QByteArray batch;
    for (int i = 0; i < count; ++i)
        batch += call(QByteArray::number(i), u"echo"_s, {QString::number(i)});
    host.send(batch);
    QList<Reply> const replies = host.waitForReplies(count);
    QCOMPARE(replies.size(), count);
    for (int i = 0; i < count; ++i)
        QCOMPARE(replies.at(i).tag, QByteArray::number(i));
}

void TestApiHost::manyRequestsQueuedBehindWaitingOne()
{
    // A small stack: if each queued request ran inside the completion of the one before, ten
    // thousand of them would overflow it.
    constexpr int count = 10000;
    Host host(2 * 1024 * 1024);
    QVERIFY(host.connected());
    QByteArray batch = call("w", u"wait"_s, {500});
    for (int i = 0; i < count; ++i)
        batch += call(QByteArray::number(i), u"add"_s, {i, 1});
    host.send(batch);
    QList<Reply> const replies = host.waitForReplies(count + 1);
    QCOMPARE(replies.size(), count + 1);
    QCOMPARE(replies.first().content, u"waited"_s);
    for (int i = 0; i < count; ++i) {
        QCOMPARE(replies.at(i + 1).tag, QByteArray::number(i));
        QCOMPARE(QJsonDocument::fromJson(replies.at(i + 1).content.toUtf8())[u"sum"_s].toInt(), i + 1);
    }
    host.send(message("SHUTDOWN", "s", "x"));
    QVERIFY(host.exitedCleanly());
}

void TestApiHost::connectFailure()
{
    QProcess process;
    process.start(QString::fromUtf8(APIHOST_PATH), {u"--server"_s, u"draizu-test-nobody-listens"_s});
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(process.readAllStandardError().startsWith("draizu-apihost: cannot connect to draizu-test-nobody-listens: "));
}

void TestApiHost::servesStandardStreams()
{
    QProcess process;
    process.start(QString::fromUtf8(APIHOST_PATH), {u"--stdio"_s});
    process.write(call("w", u"wait"_s, {50}) + call("t", u"echo"_s, {u"x"_s}) + message("SHUTDOWN", "s", "x"));
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardOutput(), complete("w", u"waited"_s));
}

QTEST_GUILESS_MAIN(TestApiHost)
#include "tst_apihost.moc"
