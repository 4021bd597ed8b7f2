// The text form of messages and their output for a person, a machine and a log file.

#include <draizu/api/LN_Message.h>
#include <draizu/api/LN_ProgressWriter.h>
#include <draizu/api/LN_Signaller.h>

#include <QBuffer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryFile>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace {

struct Console
{
    Console()
        : out(&outText)
        , err(&errText)
    {
    }

    QString outText;
    QString errText;
    QTextStream out;
    QTextStream err;
};

QList<LN_Message> progressSeries(int count, int total)
{
    QList<LN_Message> series;
    for (int i = 1; i <= count; ++i)
        series.append(LN_Message::progress(i, total, u"step"_s));
    return series;
}

} // namespace

class TestMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void serialize_data();
    void serialize();
    void deserialize_data();
    void deserialize();

    void consoleOutput_data();
    void consoleOutput();
    void logFile();
    void finishMessage();
    void signaller();
};

void TestMessages::serialize_data()
{
    QTest::addColumn<LN_Message>("message");
    QTest::addColumn<QString>("text");

    QTest::newRow("progress") << LN_Message::progress(40, 100, u"Copying files"_s)
                              << u"Progress 40/100 \"Copying files\""_s;
    QTest::newRow("quote kept") << LN_Message::warn(u"a\"b"_s) << u"Warning 0/0 \"a\"b\""_s;
    QTest::newRow("escapes") << LN_Message::error(u"a\\b\nc"_s) << u"Error 0/0 \"a\\\\b\\nc\""_s;
    QTest::newRow("unknown type") << LN_Message(1, 2, u"x"_s, static_cast<LN_Message::Type>(42))
                                  << u"Invalid 1/2 \"x\""_s;
}

void TestMessages::serialize()
{
    QFETCH(LN_Message, message);
    QFETCH(QString, text);
    QCOMPARE(message.serialize(), text);
}

void TestMessages::deserialize_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("type");
    QTest::addColumn<qint64>("current");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<QString>("message");

    QTest::newRow("round trip") << LN_Message::error(u"a\\b\nc"_s).serialize() << 3 << 0LL << 0LL << u"a\\b\nc"_s;
    QTest::newRow("inner quote") << u"Warning 0/0 \"a\"b\""_s << 2 << 0LL << 0LL << u"a\"b"_s;
    QTest::newRow("blanks and negatives") << u"  Info   -1/-1 \"x\"  "_s << 1 << -1LL << -1LL << u"x"_s;
    QTest::newRow("unknown word") << u"Note 3/4 \"n\""_s << 5 << 3LL << 4LL << u"n"_s;
    QTest::newRow("no quoted part") << u"Progress 1/2"_s << 5 << 0LL << 0LL << QString();
    QTest::newRow("backslash before n is lost") << u"Info 0/0 \"a\\\\nb\""_s << 1 << 0LL << 0LL << u"a\\\nb"_s;
    QTest::newRow("text trimmed") << u"Internal 0/0 \" t \""_s << 4 << 0LL << 0LL << u"t"_s;
    QTest::newRow("line end inside") << u"Info 0/0 \"a\nb\""_s << 1 << 0LL << 0LL << u"a\nb"_s;
}

void TestMessages::deserialize()
{
    QFETCH(QString, text);
    QFETCH(int, type);
    QFETCH(qint64, current);
    QFETCH(qint64, total);
    QFETCH(QString, message);

    LN_Message const m = LN_Message::deserialize(text);
    QCOMPARE(int(m.type), type);
    QCOMPARE(m.current, current);
    QCOMPARE(m.total, total);
    QCOMPARE(m.message, message);
}

void TestMessages::consoleOutput_data()
{
    QTest::addColumn<bool>("machineReadable");
    QTest::addColumn<int>("verbosity");
    QTest::addColumn<QList<LN_Message>>("messages");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");

    QList<LN_Message> const mixed = {LN_Message::info(u"i"_s), LN_Message::warn(u"w"_s), LN_Message::error(u"e"_s),
                                     LN_Message::internal(u"d"_s), LN_Message::progress(1, 4, u"p"_s)};
    QTest::newRow("quiet shows warnings and errors") << false << 0 << mixed << u"Warning: w\n"_s << u"Error: e\n"_s;
    QTest::newRow("normal") << false << 1 << mixed << u"i\nWarning: w\n[25/100] p\n"_s << u"Error: e\n"_s;
    QTest::newRow("machine readable errors go out")
        << true << 0 << mixed
        << u"Info 0/0 \"i\"\nWarning 0/0 \"w\"\nError 0/0 \"e\"\nInternal 0/0 \"d\"\nProgress 1/4 \"p\"\n"_s
        << QString();

    QString perPercent;
    for (int percent = 0; percent < 100; ++percent)
        perPercent += u"[%1/100] step\n"_s.arg(percent);
    perPercent += u"[100/100] step\n"_s;
    QTest::newRow("one line per percent") << false << 1 << progressSeries(1000, 1000)
                                          << perPercent << QString();
    QTest::newRow("verbose shows everything") << false << 2 << progressSeries(3, 1000)
                                              << u"[0/100] step\n[0/100] step\n[0/100] step\n"_s << QString();
    QTest::newRow("lower current dropped")
        << false << 1 << QList<LN_Message>{LN_Message::progress(50, 100, u"a"_s), LN_Message::progress(40, 100, u"b"_s)}
        << u"[50/100] a\n"_s << QString();
    QTest::newRow("new total starts a new series")
        << true << 0
        << QList<LN_Message>{LN_Message::progress(50, 100, u"a"_s), LN_Message::progress(1, 10, u"b"_s),
                             LN_Message::progress(0, 10, u"c"_s)}
        << u"Progress 50/100 \"a\"\nProgress 1/10 \"b\"\n"_s << QString();
    QTest::newRow("very verbose shows no percent") << false << 3 << progressSeries(1, 4) << u"[0/100] step\n"_s
                                                   << QString();
}

void TestMessages::consoleOutput()
{
    QFETCH(bool, machineReadable);
    QFETCH(int, verbosity);
    QFETCH(QList<LN_Message>, messages);
    QFETCH(QString, out);
    QFETCH(QString, err);

    Console console;
    LN_ProgressWriter writer(console.out, console.err, machineReadable, verbosity);
    for (LN_Message const & message : messages)
        writer.write(message);
    QCOMPARE(console.outText, out);
    QCOMPARE(console.errText, err);
}

void TestMessages::logFile()
{
    Console console;
    LN_ProgressWriter writer(console.out, console.err, false, 0);
    QTemporaryFile log;
    QVERIFY(log.open());
    writer.setLogFile(&log);

    writer.write(LN_Message::progress(1, 2, u"copy"_s));
    writer.write(LN_Message::warn(u"two\nlines"_s));
    writer.write(LN_Message::info(QString()));
    writer.write(LN_Message::internal(u"note"_s));

    QCOMPARE(console.outText, u"Warning: two\nlines\n"_s);
    QFile reread(log.fileName());
    QVERIFY(reread.open(QIODevice::ReadOnly));
    QString const written = QString::fromUtf8(reread.readAll());
    static QRegularExpression const expected(uR"(^\[\d\d:\d\d:\d\d Info\] copy
\[\d\d:\d\d:\d\d Warning\] two
                   lines
\[\d\d:\d\d:\d\d Internal\] note
$)"_s);
    QVERIFY2(expected.match(written).hasMatch(), qPrintable(written));
}

void TestMessages::finishMessage()
{
    Console console;
    LN_ProgressWriter writer(console.out, console.err, false, 1);
    QBuffer log;
    log.open(QIODevice::WriteOnly);
    writer.writeFinishMessage(true, false);
    QCOMPARE(console.outText, QString());
    writer.writeFinishMessage(false, true);
    QCOMPARE(console.outText, u"Operation failed\n"_s);
    writer.outputRaw(u"raw"_s, LN_ProgressWriter::Err);
    console.err.flush();
    QCOMPARE(console.errText, u"raw"_s);
}

void TestMessages::signaller()
{
    int calls = 0;
    LN_Signaller signaller([&calls] { ++calls; });
    QSignalSpy finished(&signaller, &LN_Signaller::finished);
    signaller.run();
    QCOMPARE(calls, 1);
    QCOMPARE(finished.size(), 1);

    LN_Signaller empty({});
    QVERIFY_THROWS_EXCEPTION(std::bad_function_call, empty.run());
}

QTEST_GUILESS_MAIN(TestMessages)
#include "tst_messages.moc"
