#pragma once

#include <draizu/draizu_export.h>

#include <QList>
#include <QString>

/// Runs child programs to their end, synchronously: the one way the library runs programs.
///
/// A run blocks its caller until the child ends, for at most the given time plus
/// LN_Waits::ChildTerminate for a child that overruns and is asked to stop. It needs no event
/// loop and starts no thread; each run has its own QProcess, so runs on different threads do not
/// meet. Nothing is thrown for a failing child: the result tells what became of it, and
/// errorString makes a sentence of that for the user.
class DRAIZU_EXPORT LN_Subprocess
{
public:
    /// What became of one run: a plain record, copied at will.
    struct DRAIZU_EXPORT ProcessResult
    {
        /// How the run ended.
        enum Status : qint32 {
            Finished = 0,      ///< ran and exited normally, whatever the exit code
            TimedOut = 1,      ///< took longer than the limit
            FailedToStart = 2, ///< could not be started
            Crashed = 3,       ///< ended abnormally
        };

        QList<QString> command; ///< the program followed by its arguments
        qint32 exitCode = 0;    ///< the child's exit code, or the signal's number after a crash
        QString output;         ///< standard output and error together, or the system's text
        Status status = Finished; ///< how it ended

        /// True exactly when the run Finished with exit code 0.
        bool isSuccess() const;
        /// A sentence for the user naming the command line, with the output ("COMMAND returned
        /// 3." and the output on the next lines, "Could not run COMMAND: OUTPUT"); "No error"
        /// for a success.
        QString errorString() const;
    };

    /// Runs the program in `workingDirectory` (the current one when empty), with its input at
    /// end of file and its error stream merged into its output, waiting up to `timeoutMs`. A
    /// program that overruns is terminated, given LN_Waits::ChildTerminate to end, and keeps the
    /// output it wrote. Never throws for a failing child: failures are in the result.
    /// `nativeArguments` has no meaning on this platform, whose processes take an argument list.
    static ProcessResult run(QString const & program, QList<QString> const & arguments,
                             QString const & workingDirectory, int timeoutMs,
                             QString const & nativeArguments = QString());
};
