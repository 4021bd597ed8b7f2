#include <draizu/host/LN_Subprocess.h>

#include <draizu/core/LN_Waits.h>

#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

using ProcessResult = LN_Subprocess::ProcessResult;

void prepare(QProcess & process, QString const & workingDirectory)
{
    process.setProcessChannelMode(QProcess::MergedChannels);
    // A child that reads its input must see the end at once rather than wait for us.
    process.setStandardInputFile(QProcess::nullDevice());
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
}

// The error step is cut first, so that the timeout it reports itself does not come back here.
void stopOverrun(ProcessResult & result, QProcess & process, QMetaObject::Connection const & errorStep)
{
    result.status = ProcessResult::TimedOut;
    QObject::disconnect(errorStep);
    process.terminate();
}

void recordError(ProcessResult & result, QProcess & process, QProcess::ProcessError error,
                 QMetaObject::Connection const & errorStep)
{
    switch (error) {
    case QProcess::FailedToStart:
        result.status = ProcessResult::FailedToStart;
        result.output = process.errorString();
        break;
    case QProcess::Crashed:
        result.status = ProcessResult::Crashed;
        result.exitCode = process.exitCode();
        result.output = process.errorString();
        break;
    case QProcess::Timedout:
        stopOverrun(result, process, errorStep);
        break;
    default:
        break;
    }
}

} // namespace

bool LN_Subprocess::ProcessResult::isSuccess() const
{
    return status == Finished && exitCode == 0;
}

QString LN_Subprocess::ProcessResult::errorString() const
{
    QString const commandLine = command.join(u' ');
    switch (status) {
    case TimedOut:
        return u"%1 took too long to execute: %2"_s.arg(commandLine, output);
    case FailedToStart:
        return u"Could not run %1: %2"_s.arg(commandLine, output);
    case Crashed:
        return u"%1 crashed.\n%2"_s.arg(commandLine, output);
    case Finished:
        break;
    }
    if (exitCode == 0)
        return u"No error"_s;
    return u"%1 returned %2.\n%3"_s.arg(commandLine, QString::number(exitCode), output);
}

LN_Subprocess::ProcessResult LN_Subprocess::run(QString const & program, QList<QString> const & arguments,
                                                QString const & workingDirectory, int timeoutMs,
                                                QString const & nativeArguments)
{
    ProcessResult result;
    result.command = QList<QString>{program} + arguments;
    // Only meaningful where processes take a raw command line; kept for the same call on
    // every platform.
    Q_UNUSED(nativeArguments);

    QProcess process;
    prepare(process, workingDirectory);
    QMetaObject::Connection errorStep;
    errorStep = QObject::connect(
        &process, &QProcess::errorOccurred, &process,
        [&result, &process, &errorStep](QProcess::ProcessError error) { recordError(result, process, error, errorStep); },
        Qt::DirectConnection);

    process.start(program, arguments, QIODevice::ReadWrite);
    if (process.waitForFinished(timeoutMs) && process.exitStatus() == QProcess::NormalExit) {
        result.status = ProcessResult::Finished;
        result.exitCode = process.exitCode();
    }
    if (process.error() == QProcess::Timedout) {
        stopOverrun(result, process, errorStep);
        process.waitForFinished(LN_Waits::ms(LN_Waits::ChildTerminate));
    }
    if (result.status != ProcessResult::FailedToStart)
        result.output = QString::fromLocal8Bit(process.readAll());
    QObject::disconnect(errorStep);
    return result;
}
