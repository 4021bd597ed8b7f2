// The request object, the engine and typed functions, on an in-memory stream.

#include <draizu/api/LN_ApiHandler.h>
#include <draizu/api/LN_ApiRequest.h>
#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/api/LN_AutoApiRequest.h>
#include <draizu/api/LN_Message.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Waits.h>

#include "WireText.h"

#include <QBuffer>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace {

using Param = LN_IApiHandler::Param;

QString apiBody(QJsonArray const & request)
{
    return u"json="_s + QString::fromLatin1(QJsonDocument(request).toJson(QJsonDocument::Compact).toPercentEncoding());
}

// A stream over memory, and what has been written to it since the last look.
struct Wire
{
    Wire()
    {
        buffer.open(QIODevice::WriteOnly);
        stream.setDevice(&buffer);
    }

    QByteArray take()
    {
        stream.flush();
        QByteArray const written = std::exchange(buffer.buffer(), QByteArray());
        buffer.seek(0);
        return written;
    }

    QBuffer buffer;
    QTextStream stream;
};

// Keeps the requests it is given, unanswered, for the test to answer.
class HoldFunction final : public LN_IApiHandler
{
public:
    HoldFunction()
        : LN_IApiHandler(u"hold"_s, {})
    {
    }

    void exec(LN_ApiRequest * request, QJsonArray const &, QJsonObject const &) override { held.append(request); }
    bool isValid() const override { return true; }

    QList<QPointer<LN_ApiRequest>> held;
};

} // namespace

class TestRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void answers_data();
    void answers();
    void answersOnlyOnce();
    void reportsByMessageType_data();
    void reportsByMessageType();
    void progressGate();
    void idleTimerStartsAtFirstReport();
    void staticWriters();

    void badMessageWithRunningTagReleasesQueue();
    void shutdown();
    void deletedWaitingRequestIsSkipped();

    void binding_data();
    void binding();
    void invalidHandlers();
    void guard();
};

void TestRequests::cleanup()
{
    LN_Waits::resetForTesting();
}

void TestRequests::answers_data()
{
    QTest::addColumn<std::function<void(LN_ApiRequest &)>>("answer");
    QTest::addColumn<QByteArray>("expected");

    using Answer = std::function<void(LN_ApiRequest &)>;
    QTest::newRow("text") << Answer([](LN_ApiRequest & r) { r.complete(u"ok"_s); }) << reply("COMPLETE", 200, "t", "ok");
    QTest::newRow("empty text has no length")
        << Answer([](LN_ApiRequest & r) { r.complete(QString()); }) << QByteArray("1 cmd=COMPLETE status=200 tag=t\r\n\n");
    QTest::newRow("body without type") << Answer([](LN_ApiRequest & r) { r.complete(LN_ApiRequest::Body{{}, u"x"_s}); })
                                       << QByteArray("1 cmd=COMPLETE status=200 tag=t content-length=1\r\nx\n");
    QTest::newRow("json") << Answer([](LN_ApiRequest & r) { r.complete(QJsonObject{{u"a"_s, 1}}); })
                          << reply("COMPLETE", 200, "t", "{\n    \"a\": 1\n}\n", "application/json");
    QTest::newRow("failure") << Answer([](LN_ApiRequest & r) { r.fail(LN_ApiRequest::Result_NotFound, u"no"_s); })
                             << reply("COMPLETE", 404, "t", "no");
    QTest::newRow("json failure")
        << Answer([](LN_ApiRequest & r) { r.fail(LN_ApiRequest::Result_ServerError, QJsonObject{}); })
        << reply("COMPLETE", 500, "t", "{\n}\n", "application/json");
    QTest::newRow("cancel and complete") << Answer([](LN_ApiRequest & r) { r.cancelAndComplete(u"stopped"_s); })
                                         << reply("CANCEL_RESP", 200, "t", "ACCEPTED") + reply("COMPLETE", 200, "t", "stopped");
    QTest::newRow("accepted cancel leaves the request open")
        << Answer([](LN_ApiRequest & r) {
               r.cancel(LN_ApiRequest::Cancel_Accepted, u"soon"_s);
               r.message(u"still here"_s);
           })
        << reply("CANCEL_RESP", 200, "t", "ACCEPTED soon") + reply("MESSAGE", 200, "t", "still here");
    QTest::newRow("any cancel result but accepted is a rejection")
        << Answer([](LN_ApiRequest & r) { r.cancel(static_cast<LN_ApiRequest::CancelResult>(7), QString()); })
        << reply("CANCEL_RESP", 200, "t", "REJECTED");
}

void TestRequests::answers()
{
    QFETCH(std::function<void(LN_ApiRequest &)>, answer);
    QFETCH(QByteArray, expected);

    Wire wire;
    LN_ApiRequest request(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
    answer(request);
    QCOMPARE(wire.take(), expected);
}

void TestRequests::answersOnlyOnce()
{
    Wire wire;
    QPointer<LN_ApiRequest> request = new LN_ApiRequest(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
    QSignalSpy completed(request.data(), &LN_ApiRequest::completed);
    request->complete(u"first"_s);
    wire.take();

    request->complete(u"again"_s);
    request->fail(LN_ApiRequest::Result_BadRequest, QJsonObject{});
    request->cancel(LN_ApiRequest::Cancel_Accepted, u"late"_s);
    request->cancelAndComplete(u"late"_s);
    request->message(u"late"_s);
    request->progress(1, 1);
    QCOMPARE(wire.take(), QByteArray());
    QCOMPARE(completed.size(), 1);
    QCOMPARE(completed.first().first().toString(), u"t"_s);

    // The request ends itself once control is back in the event loop.
    QTRY_VERIFY(request.isNull());
}

void TestRequests::reportsByMessageType_data()
{
    QTest::addColumn<LN_Message>("message");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("progress") << LN_Message::progress(3, 4, u"x"_s) << reply("PROGRESS", 200, "t", "3 4");
    QTest::newRow("progress cut to 32 bits") << LN_Message::progress(0x100000002LL, 0x100000003LL, {})
                                             << reply("PROGRESS", 200, "t", "2 3");
    QTest::newRow("negative progress") << LN_Message::progress(-1, 4, u"x"_s) << QByteArray();
    QTest::newRow("info") << LN_Message::info(u"i"_s) << reply("MESSAGE", 200, "t", "i");
    QTest::newRow("warning") << LN_Message::warn(u"w"_s) << reply("WARNING", 200, "t", "w");
    QTest::newRow("error") << LN_Message::error(u"e"_s) << reply("ERROR", 200, "t", "e");
    QTest::newRow("internal") << LN_Message::internal(u"d"_s) << reply("DEBUG", 200, "t", "d");
    QTest::newRow("empty info") << LN_Message::info({}) << QByteArray();
    QTest::newRow("invalid") << LN_Message(0, 0, u"x"_s, LN_Message::Invalid) << QByteArray();
}

void TestRequests::reportsByMessageType()
{
    QFETCH(LN_Message, message);
    QFETCH(QByteArray, expected);

    Wire wire;
    LN_ApiRequest request(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
    request.message(message);
    QCOMPARE(wire.take(), expected);
}

void TestRequests::progressGate()
{
    Wire wire;
    LN_ApiRequest request(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
    request.progress(-1, 10);
    request.progress(5, 10);
    request.progress(6, 10);
    QCOMPARE(wire.take(), reply("PROGRESS", 200, "t", "5 10"));

    LN_Waits::setForTesting(LN_Waits::ProgressInterval, 0);
    request.progress(7, 10);
    request.progress(8, 10);
    QCOMPARE(wire.take(), reply("PROGRESS", 200, "t", "7 10") + reply("PROGRESS", 200, "t", "8 10"));
}

void TestRequests::idleTimerStartsAtFirstReport()
{
    LN_Waits::setForTesting(LN_Waits::RequestIdle, 30);
    Wire wire;
    QPointer<LN_ApiRequest> const request = new LN_ApiRequest(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
    request->debug(QString());
    QTest::qWait(80);
    QCOMPARE(wire.take(), QByteArray());

    request->debug(u"d"_s);
    QByteArray written;
    QTRY_VERIFY((written += wire.take()).contains("cmd=COMPLETE"));
    QCOMPARE(written, reply("DEBUG", 200, "t", "d") + reply("COMPLETE", 500, "t", "The request sat idle for too long."));
    if (request)
        request->complete(u"too late"_s);
    QCOMPARE(wire.take(), QByteArray());
    QTRY_VERIFY(request.isNull());
}

void TestRequests::staticWriters()
{
    Wire wire;
    LN_ApiRequestEngine engine(wire.stream);
    LN_ApiRequest::sendCancelled(wire.stream, static_cast<LN_ApiRequest::ProtocolVersion>(9), u"t"_s,
                                 LN_ApiRequest::Cancel_Rejected, u"why"_s);
    LN_ApiRequest::sendException(wire.stream, QString(), LN_ApiRequest::Protocol_V1);
    engine.exceptionCaught(QString());
    engine.exceptionCaught(u"bad"_s);
    QCOMPARE(wire.take(), reply("CANCEL_RESP", 200, "t", "REJECTED why") + reply("EXCEPTION", 200, {}, "bad"));
}

void TestRequests::badMessageWithRunningTagReleasesQueue()
{
    Wire wire;
    LN_ApiRequestEngine engine(wire.stream);
    auto const hold = QSharedPointer<HoldFunction>::create();
    engine.registerFunction(hold);
    QString const call = apiBody({u"hold"_s, QJsonArray{}});

    engine.queueRequest(LN_ApiRequest::Protocol_V1, u"a"_s, u"API_FUNCTION"_s, {{}, call});
    engine.queueRequest(LN_ApiRequest::Protocol_V1, u"b"_s, u"API_FUNCTION"_s, {{}, call});
    QCOMPARE(hold->held.size(), 1);

    // The failed message's completion removes the first entry of its tag: the running one.
    engine.queueRequest(LN_ApiRequest::Protocol_V1, u"a"_s, u"API_FUNCTION"_s, {{}, u"json=%5B"_s});
    QCOMPARE(wire.take(), reply("COMPLETE", 400, "a", "Invalid JSON provided for request."));
    QCOMPARE(hold->held.size(), 2);

    hold->held.at(0)->complete(u"first"_s);
    hold->held.at(1)->complete(u"second"_s);
    QCOMPARE(wire.take(), reply("COMPLETE", 200, "a", "first") + reply("COMPLETE", 200, "b", "second"));
}

void TestRequests::shutdown()
{
    {
        Wire wire;
        LN_ApiRequestEngine engine(wire.stream);
        QSignalSpy finished(&engine, &LN_ApiRequestEngine::hasShutdownEngine);
        engine.queueRequest(LN_ApiRequest::Protocol_V1, u"s"_s, u"SHUTDOWN"_s, {{}, u"x"_s});
        QVERIFY(engine.hasShutdown());
        QCOMPARE(finished.size(), 0);
        QCOMPARE(wire.take(), QByteArray());
    }

    Wire wire;
    LN_ApiRequestEngine engine(wire.stream);
    auto const hold = QSharedPointer<HoldFunction>::create();
    engine.registerFunction(hold);
    QSignalSpy finished(&engine, &LN_ApiRequestEngine::hasShutdownEngine);
    QString const call = apiBody({u"hold"_s, QJsonArray{}});
    engine.queueRequest(LN_ApiRequest::Protocol_V1, u"a"_s, u"API_FUNCTION"_s, {{}, call});
    engine.queueRequest(LN_ApiRequest::Protocol_V1, u"s"_s, u"SHUTDOWN"_s, {{}, u"x"_s});
    engine.queueRequest(LN_ApiRequest::Protocol_V1, u"b"_s, u"API_FUNCTION"_s, {{}, call});
    QVERIFY(!engine.hasShutdown());

    hold->held.at(0)->complete(u"done"_s);
    QVERIFY(engine.hasShutdown());
    QCOMPARE(finished.size(), 1);
    QCOMPARE(hold->held.size(), 1);
    QCOMPARE(wire.take(), reply("COMPLETE", 200, "a", "done"));
}

void TestRequests::deletedWaitingRequestIsSkipped()
{
    Wire wire;
    LN_ApiRequestEngine engine(wire.stream);
    auto const hold = QSharedPointer<HoldFunction>::create();
    engine.registerFunction(hold);
    QString const call = apiBody({u"hold"_s, QJsonArray{}});
    for (QString const & tag : {u"a"_s, u"b"_s, u"c"_s})
        engine.queueRequest(LN_ApiRequest::Protocol_V1, tag, u"API_FUNCTION"_s, {{}, call});

    QList<LN_ApiRequest *> const requests = engine.findChildren<LN_ApiRequest *>();
    QCOMPARE(requests.size(), 3);
    delete requests.at(1);

    hold->held.at(0)->complete(u"a"_s);
    QCOMPARE(hold->held.size(), 2);
    QCOMPARE(hold->held.at(1)->tag(), u"c"_s);
    QCOMPARE(wire.take(), reply("COMPLETE", 200, "a", "a"));
}

void TestRequests::binding_data()
{
    QTest::addColumn<QJsonArray>("args");
    QTest::addColumn<QJsonObject>("kwargs");
    QTest::addColumn<QString>("expected");

    QTest::newRow("positional") << QJsonArray{u"x"_s, 2} << QJsonObject{} << u"x 2"_s;
    QTest::newRow("named") << QJsonArray{} << QJsonObject{{u"count"_s, 3}, {u"text"_s, u"y"_s}} << u"y 3"_s;
    QTest::newRow("position wins over name") << QJsonArray{u"p"_s} << QJsonObject{{u"text"_s, u"n"_s}} << u"p 7"_s;
    QTest::newRow("default") << QJsonArray{u"d"_s} << QJsonObject{} << u"d 7"_s;
    QTest::newRow("missing without default") << QJsonArray{} << QJsonObject{} << QString();
    QTest::newRow("string for int") << QJsonArray{u"x"_s, u"2"_s} << QJsonObject{} << QString();
    QTest::newRow("fraction for int") << QJsonArray{u"x"_s, 1.5} << QJsonObject{} << QString();
    QTest::newRow("int out of range") << QJsonArray{u"x"_s, 4294967296.0} << QJsonObject{} << QString();
    QTest::newRow("number for string") << QJsonArray{1, 2} << QJsonObject{} << QString();
}

void TestRequests::binding()
{
    QFETCH(QJsonArray, args);
    QFETCH(QJsonObject, kwargs);
    QFETCH(QString, expected);

    Wire wire;
    LN_ApiRequest request(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
    LN_ApiHandler handler(u"f"_s, {Param{u"text"_s, {}}, Param{u"count"_s, 7}},
                          [](LN_ApiRequest * r, QString const & text, int count) {
                              r->complete(u"%1 %2"_s.arg(text).arg(count));
                          });
    QVERIFY(handler.isValid());
    if (expected.isEmpty()) {
        bool refused = false;
        try {
            handler.exec(&request, args, kwargs);
        } catch (LN_Exception const &) {
            QFAIL("a value exception is not an LN_Exception");
        } catch (LN_ApiHandlerValueException const & e) {
            refused = QByteArray(e.what()) == "No acceptable value found for function argument.";
        }
        QVERIFY(refused);
        QVERIFY(!request.hasCompleted());
        return;
    }
    handler.exec(&request, args, kwargs);
    QCOMPARE(wire.take(), reply("COMPLETE", 200, "t", expected));
}

void TestRequests::invalidHandlers()
{
    LN_ApiHandler const empty;
    QVERIFY(!empty.isValid());
    QVERIFY(!static_cast<bool>(empty));
    QVERIFY(!empty.paramDefault(u"x"_s).isValid());

    LN_ApiHandler const mismatched(u"m"_s, {Param{u"a"_s, {}}, Param{u"b"_s, {}}},
                                   [](LN_ApiRequest *, int, int, int) {});
    QVERIFY(!mismatched.isValid());

    LN_ApiHandler const repeated(u"r"_s, {Param{u"a"_s, 1}, Param{u"a"_s, 2}}, [](LN_ApiRequest *, int, int) {});
    QVERIFY(repeated.isValid());
    QCOMPARE(repeated.paramDefault(u"a"_s).toInt(), 1);
    QVERIFY(!repeated.paramDefault(u"A"_s).isValid());

    Wire wire;
    LN_ApiRequest request(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
    LN_ApiHandler unbound;
    unbound.exec(&request, {}, {});
    QCOMPARE(wire.take(), reply("COMPLETE", 500, "t", "Bad API function"));
}

void TestRequests::guard()
{
    QByteArray const never = reply("COMPLETE", 500, "t", "Request never sent a result for request.");
    Wire wire;
    {
        LN_ApiRequest request(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
        { LN_AutoApiRequest const open(&request); }
        QCOMPARE(wire.take(), never);
    }
    {
        LN_ApiRequest request(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
        {
            LN_AutoApiRequest const released(&request);
            request.releaseResponseChecks();
        }
        // A released guard gone before the request must not be reached by a later release.
        request.releaseResponseChecks();
        QCOMPARE(wire.take(), QByteArray());
    }
    {
        auto * request = new LN_ApiRequest(u"t"_s, LN_ApiRequest::Protocol_V1, wire.stream);
        LN_AutoApiRequest const orphan(request);
        delete request;
    }
    QCOMPARE(wire.take(), QByteArray());
}

QTEST_GUILESS_MAIN(TestRequests)
#include "tst_requests.moc"
