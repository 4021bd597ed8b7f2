#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Subprocess.h>

#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

using Status = LN_Subprocess::ProcessResult::Status;

namespace {

QString const child = QStringLiteral(DRAIZU_TEST_CHILD);

} // namespace

class TestSubprocess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void run_data();
    void run();
    void workingDirectory();
};

void TestSubprocess::cleanup()
{
    LN_Waits::resetForTesting();
}

void TestSubprocess::run_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("output");   // null: the system's own text, whatever it says
    QTest::addColumn<QString>("sentence"); // %1 is the command line, %2 the output

    QTest::newRow("missing program") << QStringList{u"/nonexistent/draizu-no-such-program"_s, u"-x"_s} << 10000
                                     << int(Status::FailedToStart) << 0 << QString() << u"Could not run %1: %2"_s;
    QTest::newRow("exit 3 is finished but no success") << QStringList{child, u"3"_s, u"three"_s} << 10000
                                                       << int(Status::Finished) << 3 << u"three"_s
                                                       << u"%1 returned 3.\n%2"_s;
    QTest::newRow("error stream joins the output") << QStringList{child, u"stderr"_s, u"on stderr"_s} << 10000
                                                   << int(Status::Finished) << 0 << u"on stderr"_s << u"No error"_s;
    QTest::newRow("input is at its end at once") << QStringList{child, u"stdin"_s} << 10000 << int(Status::Finished)
                                                 << 0 << u"read 0 bytes"_s << u"No error"_s;
    QTest::newRow("crash keeps what the child wrote") << QStringList{child, u"crash"_s, u"dying words"_s} << 10000
                                                      << int(Status::Crashed) << int(SIGABRT) << u"dying words"_s
                                                      << u"%1 crashed.\n%2"_s;
    QTest::newRow("timeout keeps partial output") << QStringList{child, u"hang"_s, u"half done"_s} << 300
                                                  << int(Status::TimedOut) << 0 << u"half done"_s
                                                  << u"%1 took too long to execute: %2"_s;
    QTest::newRow("timeout of a child that ignores terminate")
        << QStringList{child, u"stubborn"_s, u"not listening"_s} << 300 << int(Status::TimedOut) << 0
        << u"not listening"_s << u"%1 took too long to execute: %2"_s;
}

void TestSubprocess::run()
{
    QFETCH(QStringList, command);
    QFETCH(int, timeoutMs);
    QFETCH(int, status);
    QFETCH(int, exitCode);
    QFETCH(QString, output);
    QFETCH(QString, sentence);

    // A stubborn child would otherwise hold the run for the full grace period.
    LN_Waits::setForTesting(LN_Waits::ChildTerminate, 300);
    if (command.contains(u"stubborn"_s))
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Destroyed while process .* is still running"_s));
    QElapsedTimer timer;
    timer.start();
    LN_Subprocess::ProcessResult const result =
        LN_Subprocess::run(command.first(), command.mid(1), QString(), timeoutMs);

    QCOMPARE(int(result.status), status);
    QCOMPARE(result.exitCode, exitCode);
    if (output.isNull())
        QVERIFY2(!result.output.isEmpty(), "the system's text is kept");
    else
        QCOMPARE(result.output, output);
    QCOMPARE(result.command, command);
    QCOMPARE(result.isSuccess(), status == Status::Finished && exitCode == 0);
    QCOMPARE(result.errorString(),
             QString(sentence).replace(u"%1"_s, command.join(u' ')).replace(u"%2"_s, result.output));
    QVERIFY2(timer.elapsed() < 5000, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
}

void TestSubprocess::workingDirectory()
{
    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    LN_Subprocess::ProcessResult const inside = LN_Subprocess::run(child, {u"pwd"_s}, directory.path(), 10000);
    QVERIFY(inside.isSuccess());
    QCOMPARE(QDir(inside.output).canonicalPath(), QDir(directory.path()).canonicalPath());

    LN_Subprocess::ProcessResult const here = LN_Subprocess::run(child, {u"pwd"_s}, QString(), 10000);
    QCOMPARE(QDir(here.output).canonicalPath(), QDir::current().canonicalPath());
}

QTEST_GUILESS_MAIN(TestSubprocess)
#include "tst_subprocess.moc"
