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
    void runChild_data();
    void runChild();
    void missingProgram();
    void workingDirectory();
    void freshResultIsNoError();
};

void TestSubprocess::cleanup()
{
    LN_Waits::resetForTesting();
}

void TestSubprocess::runChild_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("sentence"); // %1 is the command line

    QTest::newRow("exit 0 is a success")
        << QStringList{u"exit"_s, u"0"_s, u"fine"_s} << 10000 << int(Status::Finished) << 0 << u"fine"_s
        << u"No error"_s;
    QTest::newRow("exit 3 is finished but no success")
        << QStringList{u"exit"_s, u"3"_s, u"three"_s} << 10000 << int(Status::Finished) << 3 << u"three"_s
        << u"%1 returned 3.\nthree"_s;
    QTest::newRow("error stream joins the output")
        << QStringList{u"stderr"_s, u"on stderr"_s} << 10000 << int(Status::Finished) << 0 << u"on stderr"_s
        << u"No error"_s;
    QTest::newRow("input is at its end at once")
        << QStringList{u"stdin"_s} << 10000 << int(Status::Finished) << 0 << u"read 0 bytes"_s << u"No error"_s;
    QTest::newRow("crash keeps what the child wrote")
        << QStringList{u"crash"_s, u"dying words"_s} << 10000 << int(Status::Crashed) << int(SIGABRT)
        << u"dying words"_s << u"%1 crashed.\ndying words"_s;
    QTest::newRow("timeout keeps partial output")
        << QStringList{u"hang"_s, u"half done"_s} << 300 << int(Status::TimedOut) << 0 << u"half done"_s
        << u"%1 took too long to execute: half done"_s;
    QTest::newRow("timeout of a child that ignores terminate")
        << QStringList{u"stubborn"_s, u"not listening"_s} << 300 << int(Status::TimedOut) << 0
        << u"not listening"_s << u"%1 took too long to execute: not listening"_s;
}

void TestSubprocess::runChild()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, timeoutMs);
    QFETCH(int, status);
    QFETCH(int, exitCode);
    QFETCH(QString, output);
    QFETCH(QString, sentence);

    // A stubborn child would otherwise hold the run for the full grace period.
    LN_Waits::setForTesting(LN_Waits::ChildTerminate, 300);
    if (arguments.first() == u"stubborn"_s)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Destroyed while process .* is still running"_s));
    QElapsedTimer timer;
    timer.start();
    LN_Subprocess::ProcessResult const result = LN_Subprocess::run(child, arguments, QString(), timeoutMs);

    QCOMPARE(int(result.status), status);
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(result.output, output);
    QCOMPARE(result.command, QStringList{child} + arguments);
    QCOMPARE(result.isSuccess(), status == Status::Finished && exitCode == 0);
    QString const commandLine = result.command.join(u' ');
    QCOMPARE(result.errorString(), sentence.contains(u"%1"_s) ? sentence.arg(commandLine) : sentence);
    QVERIFY2(timer.elapsed() < 5000, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
}

void TestSubprocess::missingProgram()
{
    QString const program = u"/nonexistent/draizu-no-such-program"_s;
    LN_Subprocess::ProcessResult const result = LN_Subprocess::run(program, {u"-x"_s}, QString(), 10000);
    QCOMPARE(result.status, Status::FailedToStart);
    QVERIFY(!result.isSuccess());
    QVERIFY2(!result.output.isEmpty(), "the system's text is kept");
    QCOMPARE(result.errorString(), u"Could not run %1 -x: %2"_s.arg(program, result.output));
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

void TestSubprocess::freshResultIsNoError()
{
    LN_Subprocess::ProcessResult const fresh;
    QCOMPARE(fresh.errorString(), u"No error"_s);
    QVERIFY(fresh.isSuccess());
}

QTEST_GUILESS_MAIN(TestSubprocess)
#include "tst_subprocess.moc"
