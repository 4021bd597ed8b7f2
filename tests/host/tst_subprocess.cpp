#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Subprocess.h>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;
using Result = LN_Subprocess::ProcessResult;

class TestSubprocess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void run_data()
    {
        QTest::addColumn<QString>("script"); // for the shell; null runs a program that does not exist
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");   // null: the system's own text, whatever it says
        QTest::addColumn<QString>("sentence"); // %1 is the command line, %2 the output

        QTest::newRow("missing program") << QString() << int(Result::FailedToStart) << 0 << QString()
                                         << u"Could not run %1: %2"_s;
        QTest::newRow("exit 3 is finished but no success")
            << u"printf 3; exit 3"_s << int(Result::Finished) << 3 << u"3"_s << u"%1 returned 3.\n%2"_s;
        QTest::newRow("input at its end, error stream merged, working directory")
            << u"wc -c; pwd >&2"_s << int(Result::Finished) << 0 << u"0\n/\n"_s << u"No error"_s;
        QTest::newRow("crash keeps what the child wrote") << u"printf bye; kill -ABRT $$"_s << int(Result::Crashed)
                                                          << int(SIGABRT) << u"bye"_s << u"%1 crashed.\n%2"_s;
        QTest::newRow("timeout of a child that ignores terminate keeps its output")
            << u"trap '' TERM; printf half; exec sleep 60"_s << int(Result::TimedOut) << 0 << u"half"_s
            << u"%1 took too long to execute: %2"_s;
    }

    void run()
    {
        QFETCH(QString, script);
        QFETCH(int, status);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, sentence);

        QStringList const command = script.isNull() ? QStringList{u"/nonexistent/draizu-no-such-program"_s, u"-x"_s}
                                                    : QStringList{u"/bin/sh"_s, u"-c"_s, script};
        // The child would otherwise hold the run for the full grace period after terminate().
        LN_Waits::setForTesting(LN_Waits::ChildTerminate, 300);
        if (status == Result::TimedOut)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Destroyed while process .* is still running"_s));
        QElapsedTimer timer;
        timer.start();
        Result const result =
            LN_Subprocess::run(command.first(), command.mid(1), u"/"_s, status == Result::TimedOut ? 300 : 10000);

        QVERIFY2(timer.elapsed() < 5000, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
        QCOMPARE(std::pair(int(result.status), result.exitCode), std::pair(status, exitCode));
        QCOMPARE(result.output, output.isNull() && !result.output.isEmpty() ? result.output : output);
        QCOMPARE(result.errorString(), sentence.replace(u"%1"_s, command.join(u' ')).replace(u"%2"_s, result.output));
    }
};

QTEST_GUILESS_MAIN(TestSubprocess)
#include "tst_subprocess.moc"
