// The reader, the request object, the engine and typed functions, on an in-memory stream.

#include <draizu/api/LN_ApiHandler.h>
#include <draizu/api/LN_ApiMessageReader.h>
#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/api/LN_AutoApiRequest.h>
#include <draizu/api/LN_Message.h>
#include <draizu/core/LN_Waits.h>

#include "WireText.h"

#include <QBuffer>
#include <QSignalSpy>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace {

using R = LN_ApiRequest;

// Keeps the requests it is given unanswered, for the test to answer.
struct HoldFunction final : LN_IApiHandler
{
    HoldFunction() : LN_IApiHandler(u"hold"_s, {}) {}
    void exec(R * request, QJsonArray const &, QJsonObject const &) override { held.append(request); }
    bool isValid() const override { return true; }
    QList<QPointer<R>> held;
};

// A stream over memory, an engine on it that offers "hold", a reader that feeds the engine, and
// one open request with the tag "t".
struct Wire
{
    Wire()
    {
        buffer.open(QIODevice::WriteOnly);
        engine.registerFunction(hold);
    }

    // What has been written since the last look.
    QByteArray take()
    {
        stream.flush();
        buffer.seek(0);
        return std::exchange(buffer.buffer(), {});
    }

    void feed(QByteArray bytes)
    {
        LN_ApiMessageReader::serve(
            input, engine, stream, [] { return true; }, [&bytes] { return std::exchange(bytes, {}); },
            [](int) { return false; });
    }

    QBuffer buffer;
    QTextStream stream{&buffer};
    LN_ApiRequestEngine engine{stream};
    QSharedPointer<HoldFunction> hold = QSharedPointer<HoldFunction>::create();
    LN_ApiMessageReader::Buffer input;
    R request{u"t"_s, R::Protocol_V1, stream};
};

} // namespace

class TestRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { LN_Waits::resetForTesting(); }
    void headerInPieces();
    void answers();
    void idleTimerStartsAtFirstReport();
    void engineQueue();
    void handlersAndGuards();
};

void TestRequests::headerInPieces()
{
    // Two messages cut into three pieces at every pair of places, a CR apart from its LF included.
    QByteArray const wire = message("API_FUNCTION", "t", "body") + message("CANCEL", "u", "x");
    for (qsizetype i = 1; i < wire.size(); ++i) {
        for (qsizetype j = i; j < wire.size(); ++j) {
            LN_ApiMessageReader::Buffer buffer;
            LN_ApiMessageReader::Message m;
            QStringList taken;
            for (QByteArray const & piece : {wire.left(i), wire.mid(i, j - i), wire.mid(j)}) {
                buffer.bytes += piece;
                while (LN_ApiMessageReader::takeMessage(buffer, m, false) == LN_ApiMessageReader::Outcome::Taken)
                    taken.append(m.cmd + u' ' + m.tag + u' ' + m.body.content);
            }
            QCOMPARE(taken, QStringList({u"API_FUNCTION t body"_s, u"CANCEL u x"_s}));
        }
    }
}

void TestRequests::answers()
{
    LN_Waits::setForTesting(LN_Waits::ProgressInterval, 3600000);
    Wire wire;
    QSignalSpy completed(&wire.request, &R::completed);
    // An accepted cancel leaves the request open; reports go out by their type, the first
    // progress at once.
    wire.request.cancel(R::Cancel_Accepted, u"soon"_s);
    for (LN_Message const & m :
         {LN_Message::progress(-1, 4, {}), LN_Message::progress(0x100000002, 0x100000003, {}), LN_Message::info(u"i"_s),
          LN_Message::warn(u"w"_s), LN_Message::error(u"e"_s), LN_Message::internal(u"d"_s), LN_Message::info({}),
          LN_Message(0, 0, u"x"_s, LN_Message::Invalid)})
        wire.request.message(m);
    // One progress per interval, read at each call.
    wire.request.progress(5, 10);
    LN_Waits::setForTesting(LN_Waits::ProgressInterval, 0);
    wire.request.progress(6, 10);
    // After the one answer, nothing.
    wire.request.fail(R::Result_ServerError, QJsonObject{});
    wire.request.complete(u"again"_s);
    wire.request.cancelAndComplete(u"late"_s);
    wire.request.message(u"late"_s);
    wire.request.progress(1, 1);
    QCOMPARE(wire.take(), reply("CANCEL_RESP", 200, "t", "ACCEPTED soon") + reply("PROGRESS", 200, "t", "2 3")
                              + reply("MESSAGE", 200, "t", "i") + reply("WARNING", 200, "t", "w")
                              + reply("ERROR", 200, "t", "e") + reply("DEBUG", 200, "t", "d")
                              + reply("PROGRESS", 200, "t", "6 10")
                              + reply("COMPLETE", 500, "t", "{\n}\n", "application/json"));
    QCOMPARE(completed.size(), 1);
}

void TestRequests::idleTimerStartsAtFirstReport()
{
    LN_Waits::setForTesting(LN_Waits::RequestIdle, 30);
    Wire wire;
    QPointer<R> const request = new R(u"t"_s, R::Protocol_V1, wire.stream);
    request->debug(QString());
    QTest::qWait(LN_Waits::ms(LN_Waits::RequestIdle) * 3);
    QCOMPARE(wire.take(), QByteArray());

    request->debug(u"d"_s);
    QByteArray written;
    QTRY_VERIFY((written += wire.take()).contains("cmd=COMPLETE"));
    QCOMPARE(written, reply("DEBUG", 200, "t", "d") + complete("t", "The request sat idle for too long.", 500));
    if (request)
        request->complete(u"too late"_s);
    QCOMPARE(wire.take(), QByteArray());
    // The request ends itself once control is back in the event loop.
    QTRY_VERIFY(request.isNull());
}

void TestRequests::engineQueue()
{
    Wire wire;
    QSignalSpy finished(&wire.engine, &LN_ApiRequestEngine::hasShutdownEngine);
    wire.feed(call("a", "hold") + call("b", "hold") + call("c", "hold") + call("d", "hold"));
    QCOMPARE(wire.hold->held.size(), 1);
    // A failed message's completion removes the first entry of its tag: the running one.
    wire.feed(message("API_FUNCTION", "a", "json=%5B"));
    QCOMPARE(wire.hold->held.size(), 2);
    wire.hold->held.at(0)->complete(u"first"_s);

    // A waiting request that is deleted is skipped when its turn comes.
    delete wire.engine.findChildren<R *>().at(2);
    wire.hold->held.at(1)->complete(u"second"_s);
    QCOMPARE(wire.hold->held.size(), 3);
    QCOMPARE(wire.hold->held.at(2)->tag(), u"d"_s);

    // A shutdown lets the running request finish, runs nothing after it, and is signalled.
    wire.feed(message("SHUTDOWN", "s", "x") + call("e", "hold"));
    QVERIFY(wire.engine.shutdownRequested() && !wire.engine.hasShutdown());
    wire.hold->held.at(2)->complete(u"third"_s);
    QVERIFY(wire.engine.hasShutdown());
    QCOMPARE(finished.size(), 1);
    QCOMPARE(wire.hold->held.size(), 3);
    QCOMPARE(wire.take(), complete("a", "Invalid JSON provided for request.", 400) + complete("a", "first")
                              + complete("b", "second") + complete("d", "third"));

    // With nothing running it shuts down at once, unsignalled, and reads no further.
    Wire idle;
    QSignalSpy idleFinished(&idle.engine, &LN_ApiRequestEngine::hasShutdownEngine);
    idle.feed(message("SHUTDOWN", "s", "x") + call("a", "hold"));
    QVERIFY(idle.engine.hasShutdown());
    QCOMPARE(idleFinished.size() + idle.hold->held.size(), 0);
}

void TestRequests::handlersAndGuards()
{
    LN_ApiHandler const repeated(u"r"_s, {{u"a"_s, 1}, {u"a"_s, 2}}, [](R *, int, int) {});
    QVERIFY(repeated.isValid());
    QCOMPARE(repeated.paramDefault(u"a"_s).toInt(), 1);
    QVERIFY(!repeated.paramDefault(u"A"_s).isValid());

    Wire wire;
    LN_ApiHandler unbound;
    QVERIFY(!unbound);
    unbound.exec(&wire.request, {}, {});
    QCOMPARE(wire.take(), complete("t", "Bad API function", 500));

    {
        R request(u"t"_s, R::Protocol_V1, wire.stream);
        {
            LN_AutoApiRequest const released(&request);
            request.releaseResponseChecks();
        }
        // A released guard gone before the request must not be reached by a later release.
        request.releaseResponseChecks();
    }
    {
        auto * deleted = new R(u"t"_s, R::Protocol_V1, wire.stream);
        LN_AutoApiRequest const orphan(deleted);
        delete deleted;
    }
    QCOMPARE(wire.take(), QByteArray());
}

QTEST_GUILESS_MAIN(TestRequests)
#include "tst_requests.moc"
