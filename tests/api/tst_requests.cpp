// The reader, the request object, the engine and typed functions on an in-memory stream, and the
// text form of messages and their output for a person, a machine and a log file.

#include <draizu/api/LN_ApiHandler.h>
#include <draizu/api/LN_ApiMessageReader.h>
#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/api/LN_AutoApiRequest.h>
#include <draizu/api/LN_Message.h>
#include <draizu/api/LN_ProgressWriter.h>
#include <draizu/core/LN_Waits.h>

#include "WireText.h"

#include <QBuffer>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace {

using M = LN_Message;
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
    Wire() { buffer.open(QIODevice::WriteOnly); engine.registerFunction(hold); }

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

    void headerInPieces()
    {
        // Two messages cut into three pieces at every pair of places, a CR apart from its LF included.
        QByteArray const wire = message("API_FUNCTION", "t", "body") + message("CANCEL", "u", "x");
        namespace Reader = LN_ApiMessageReader;
        for (qsizetype i = 1; i < wire.size(); ++i) {
            for (qsizetype j = i; j < wire.size(); ++j) {
                Reader::Buffer buffer;
                Reader::Message m;
                QStringList taken;
                for (QByteArray const & piece : {wire.left(i), wire.mid(i, j - i), wire.mid(j)}) {
                    buffer.bytes += piece;
                    while (Reader::takeMessage(buffer, m, false) == Reader::Outcome::Taken)
                        taken.append(m.cmd + u' ' + m.tag + u' ' + m.body.content);
                }
                QCOMPARE(taken, QStringList({u"API_FUNCTION t body"_s, u"CANCEL u x"_s}));
            }
        }
    }

    void answers()
    {
        LN_Waits::setForTesting(LN_Waits::ProgressInterval, 3600000);
        Wire wire;
        // Reports go out by their type, the first progress at once; a negative or empty one does not.
        for (M const & m : {M::progress(-1, 4, {}), M::progress(0x100000002, 0x100000003, {}), M::info(u"i"_s),
                            M::warn(u"w"_s), M::error(u"e"_s), M::internal(u"d"_s), M::info({}),
                            M(0, 0, u"x"_s, M::Invalid)})
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
        QCOMPARE(wire.take(), reply("PROGRESS", 200, "t", "2 3") + reply("MESSAGE", 200, "t", "i")
                                  + reply("WARNING", 200, "t", "w") + reply("ERROR", 200, "t", "e")
                                  + reply("DEBUG", 200, "t", "d") + reply("PROGRESS", 200, "t", "6 10")
                                  + reply("COMPLETE", 500, "t", "{\n}\n", "application/json"));
    }

    void idleTimerStartsAtFirstReport()
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
        // The request ends itself once control is back in the event loop.
        QTRY_VERIFY(request.isNull());
    }

    void engineQueue()
    {
        Wire wire;
        wire.feed(call("a", "hold") + call("b", "hold") + call("c", "hold"));
        // A waiting request that is deleted is skipped when its turn comes.
        delete wire.engine.findChildren<R *>().at(1);
        wire.hold->held.at(0)->complete(u"first"_s);
        QCOMPARE(wire.hold->held.size(), 2);
        QCOMPARE(wire.hold->held.at(1)->tag(), u"c"_s);
        wire.hold->held.at(1)->complete(u"second"_s);
        QCOMPARE(wire.take(), complete("a", "first") + complete("c", "second"));
    }

    void handlersAndGuards()
    {
        // Of two parameters of one name the first gives the default; names are case-sensitive.
        LN_ApiHandler const repeated(u"r"_s, {{u"a"_s, 1}, {u"a"_s, 2}}, [](R *, int, int) {});
        QCOMPARE(repeated.paramDefault(u"a"_s).toInt(), 1);
        QVERIFY(!repeated.paramDefault(u"A"_s).isValid());

        Wire wire;
        {
            LN_AutoApiRequest const released(&wire.request);
            wire.request.releaseResponseChecks();
        }
        // A released guard gone before the request must not be reached by a later release.
        wire.request.releaseResponseChecks();
        {
            auto * deleted = new R(u"t"_s, R::Protocol_V1, wire.stream);
            LN_AutoApiRequest const orphan(deleted);
            delete deleted;
        }
        QCOMPARE(wire.take(), QByteArray());
        LN_ApiHandler().exec(&wire.request, {}, {});
        QCOMPARE(wire.take(), complete("t", "Bad API function", 500));
    }

    void textForm_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("fields"); // type current/total text, as read back
        QTest::addColumn<bool>("canonical"); // written back the same

        QTest::newRow("progress") << u"Progress 40/100 \"Copying files\""_s << u"0 40/100 Copying files"_s << true;
        QTest::newRow("inner quote") << u"Warning 0/0 \"a\"b\""_s << u"2 0/0 a\"b"_s << true;
        QTest::newRow("escapes") << u"Error 0/0 \"a\\\\b\\nc\""_s << u"3 0/0 a\\b\nc"_s << true;
        QTest::newRow("blanks, negatives, unknown word") << u"  Note   -1/-1 \"x\"  "_s << u"5 -1/-1 x"_s << false;
        QTest::newRow("no quoted part") << u"Progress 1/2"_s << u"5 0/0 "_s << false;
        QTest::newRow("backslash before n is lost") << u"Info 0/0 \"a\\\\nb\""_s << u"1 0/0 a\\\nb"_s << false;
        QTest::newRow("text trimmed, line end inside") << u"Internal 0/0 \" a\nb \""_s << u"4 0/0 a\nb"_s << false;
    }

    void textForm()
    {
        QFETCH(QString, text);
        QFETCH(QString, fields);
        QFETCH(bool, canonical);
        M const m = M::deserialize(text);
        QCOMPARE(u"%1 %2/%3 %4"_s.arg(int(m.type)).arg(m.current).arg(m.total).arg(m.message), fields);
        if (canonical)
            QCOMPARE(m.serialize(), text);
    }

    void consoleOutput_data()
    {
        QTest::addColumn<int>("verbosity"); // -1: machine-readable
        QTest::addColumn<QList<M>>("messages");
        QTest::addColumn<QString>("output"); // out|err

        QList<M> const mixed = {M::info(u"i"_s), M::warn(u"w"_s), M::error(u"e"_s), M::internal(u"d"_s),
                                M::progress(1, 4, u"p"_s)};
        QList<M> thousand;
        for (int i = 1; i <= 1000; ++i)
            thousand.append(M::progress(i, 1000, u"step"_s));
        QString perPercent;
        for (int percent = 0; percent <= 100; ++percent)
            perPercent += u"[%1/100] step\n"_s.arg(percent);

        QTest::newRow("quiet shows warnings and errors") << 0 << mixed << u"Warning: w\n|Error: e\n"_s;
        QTest::newRow("normal") << 1 << mixed << u"i\nWarning: w\n[25/100] p\n|Error: e\n"_s;
        QTest::newRow("very verbose shows no percent") << 3 << mixed << u"i\nWarning: w\n[0/100] p\n|Error: e\n"_s;
        QTest::newRow("machine readable errors go out; unknown type")
            << -1 << mixed + QList<M>{M(1, 2, u"x"_s, M::Type(42))}
            << u"Info 0/0 \"i\"\nWarning 0/0 \"w\"\nError 0/0 \"e\"\nInternal 0/0 \"d\"\nProgress 1/4 \"p\"\n"
               u"Invalid 1/2 \"x\"\n|"_s;
        QTest::newRow("one line per percent") << 1 << thousand << perPercent + u'|';
        QTest::newRow("verbose shows everything")
            << 2 << thousand.first(3) << u"[0/100] step\n[0/100] step\n[0/100] step\n|"_s;
        QTest::newRow("lower current dropped; a new total starts a new series")
            << -1 << QList<M>{M::progress(50, 100, u"a"_s), M::progress(40, 100, u"b"_s), M::progress(1, 10, u"c"_s),
                              M::progress(0, 10, u"d"_s)}
            << u"Progress 50/100 \"a\"\nProgress 1/10 \"c\"\n|"_s;
    }

    void consoleOutput()
    {
        QFETCH(int, verbosity);
        QFETCH(QList<M>, messages);
        QFETCH(QString, output);

        QString out, err;
        QTextStream outStream(&out), errStream(&err);
        LN_ProgressWriter writer(outStream, errStream, verbosity < 0, std::max(verbosity, 0));
        for (M const & message : messages)
            writer.write(message);
        QCOMPARE(out + u'|' + err, output);
    }

    void logFile()
    {
        QString out, err;
        QTextStream outStream(&out), errStream(&err);
        LN_ProgressWriter writer(outStream, errStream, false, 0);
        QTemporaryFile log;
        QVERIFY(log.open());
        writer.setLogFile(&log);
        for (M const & message :
             {M::progress(1, 2, u"copy"_s), M::warn(u"two\nlines"_s), M::info({}), M::internal(u"note"_s)})
            writer.write(message);
        writer.writeFinishMessage(true, false);
        writer.writeFinishMessage(false, true);
        writer.outputRaw(u"raw"_s, LN_ProgressWriter::Err);
        errStream.flush();
        QCOMPARE(out + u'|' + err, u"Warning: two\nlines\nOperation failed\n|raw"_s);

        QVERIFY(log.seek(0));
        QString written = QString::fromUtf8(log.readAll());
        written.replace(QRegularExpression(uR"(\[\d\d:\d\d:\d\d )"_s), u"[T "_s);
        QCOMPARE(written, u"[T Info] copy\n[T Warning] two\n                   lines\n[T Internal] note\n"
                          u"Operation finished successfully\nOperation failed\n"_s);
    }
};

QTEST_GUILESS_MAIN(TestRequests)
#include "tst_requests.moc"
