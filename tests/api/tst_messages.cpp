// The text form of messages and their output for a person, a machine and a log file.

#include <draizu/api/LN_Message.h>
#include <draizu/api/LN_ProgressWriter.h>

#include <QRegularExpression>
#include <QTemporaryFile>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace {

struct Console
{
    QString outText;
    QString errText;
    QTextStream out{&outText};
    QTextStream err{&errText};
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
    void textForm_data();
    void textForm();
    void consoleOutput_data();
    void consoleOutput();
    void logFile();
};

void TestMessages::textForm_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("fields"); // type current/total text, as read back
    QTest::addColumn<bool>("canonical"); // written back the same

    QTest::newRow("progress") << u"Progress 40/100 \"Copying files\""_s << u"0 40/100 Copying files"_s << true;
    QTest::newRow("inner quote") << u"Warning 0/0 \"a\"b\""_s << u"2 0/0 a\"b"_s << true;
    QTest::newRow("escapes") << u"Error 0/0 \"a\\\\b\\nc\""_s << u"3 0/0 a\\b\nc"_s << true;
    QTest::newRow("blanks and negatives") << u"  Info   -1/-1 \"x\"  "_s << u"1 -1/-1 x"_s << false;
    QTest::newRow("unknown word") << u"Note 3/4 \"n\""_s << u"5 3/4 n"_s << false;
    QTest::newRow("no quoted part") << u"Progress 1/2"_s << u"5 0/0 "_s << false;
    QTest::newRow("backslash before n is lost") << u"Info 0/0 \"a\\\\nb\""_s << u"1 0/0 a\\\nb"_s << false;
    QTest::newRow("text trimmed") << u"Internal 0/0 \" t \""_s << u"4 0/0 t"_s << false;
    QTest::newRow("line end inside") << u"Info 0/0 \"a\nb\""_s << u"1 0/0 a\nb"_s << false;
}

void TestMessages::textForm()
{
    QFETCH(QString, text);
    QFETCH(QString, fields);
    QFETCH(bool, canonical);
    LN_Message const m = LN_Message::deserialize(text);
    QCOMPARE(u"%1 %2/%3 %4"_s.arg(int(m.type)).arg(m.current).arg(m.total).arg(m.message), fields);
    if (canonical)
        QCOMPARE(m.serialize(), text);
}

void TestMessages::consoleOutput_data()
{
    QTest::addColumn<int>("verbosity"); // -1: machine-readable
    QTest::addColumn<QList<LN_Message>>("messages");
    QTest::addColumn<QString>("output"); // out|err

    QList<LN_Message> const mixed = {LN_Message::info(u"i"_s), LN_Message::warn(u"w"_s), LN_Message::error(u"e"_s),
                                     LN_Message::internal(u"d"_s), LN_Message::progress(1, 4, u"p"_s)};
    QString perPercent;
    for (int percent = 0; percent <= 100; ++percent)
        perPercent += u"[%1/100] step\n"_s.arg(percent);

    QTest::newRow("quiet shows warnings and errors") << 0 << mixed << u"Warning: w\n|Error: e\n"_s;
    QTest::newRow("normal") << 1 << mixed << u"i\nWarning: w\n[25/100] p\n|Error: e\n"_s;
    QTest::newRow("machine readable errors go out; unknown type")
        << -1 << mixed + QList<LN_Message>{LN_Message(1, 2, u"x"_s, LN_Message::Type(42))}
        << u"Info 0/0 \"i\"\nWarning 0/0 \"w\"\nError 0/0 \"e\"\nInternal 0/0 \"d\"\nProgress 1/4 \"p\"\n"
           u"Invalid 1/2 \"x\"\n|"_s;
    QTest::newRow("one line per percent") << 1 << progressSeries(1000, 1000) << perPercent + u'|';
    QTest::newRow("verbose shows everything") << 2 << progressSeries(3, 1000)
                                              << u"[0/100] step\n[0/100] step\n[0/100] step\n|"_s;
    QTest::newRow("very verbose shows no percent") << 3 << progressSeries(1, 4) << u"[0/100] step\n|"_s;
    QTest::newRow("lower current dropped")
        << 1 << QList<LN_Message>{LN_Message::progress(50, 100, u"a"_s), LN_Message::progress(40, 100, u"b"_s)}
        << u"[50/100] a\n|"_s;
    QTest::newRow("new total starts a new series")
        << -1 << QList<LN_Message>{LN_Message::progress(50, 100, u"a"_s), LN_Message::progress(1, 10, u"b"_s),
                                   LN_Message::progress(0, 10, u"c"_s)}
        << u"Progress 50/100 \"a\"\nProgress 1/10 \"b\"\n|"_s;
}

void TestMessages::consoleOutput()
{
    QFETCH(int, verbosity);
    QFETCH(QList<LN_Message>, messages);
    QFETCH(QString, output);

    Console console;
    LN_ProgressWriter writer(console.out, console.err, verbosity < 0, std::max(verbosity, 0));
    for (LN_Message const & message : messages)
        writer.write(message);
    QCOMPARE(console.outText + u'|' + console.errText, output);
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
    writer.writeFinishMessage(true, false);
    writer.writeFinishMessage(false, true);
    writer.outputRaw(u"raw"_s, LN_ProgressWriter::Err);
    console.err.flush();
    QCOMPARE(console.outText + u'|' + console.errText, u"Warning: two\nlines\nOperation failed\n|raw"_s);

    QVERIFY(log.seek(0));
    QString written = QString::fromUtf8(log.readAll());
    written.replace(QRegularExpression(uR"(\[\d\d:\d\d:\d\d )"_s), u"[T "_s);
    QCOMPARE(written, u"[T Info] copy\n[T Warning] two\n                   lines\n[T Internal] note\n"
                      u"Operation finished successfully\nOperation failed\n"_s);
}

QTEST_GUILESS_MAIN(TestMessages)
#include "tst_messages.moc"
