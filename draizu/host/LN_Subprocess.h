#pragma once

#include <draizu/draizu_export.h>

#include <QList>
#include <QString>

/// Runs child programs to their end, synchronously. The one way the library runs programs.
class DRAIZU_EXPORT LN_Subprocess
{
public:
    /// What became of one run.
    struct DRAIZU_EXPORT ProcessResult
    {
        enum Status : qint32 {
            Finished = 0,      ///< ran and exited normally, whatever the exit code
            TimedOut = 1,      ///< took longer than the limit
            FailedToStart = 2, ///< could not be started
            Crashed = 3,       ///< ended abnormally
        };

        QList<QString> command; ///< the program followed by its arguments
        qint32 exitCode = 0;
        QString output;         ///< standard output and error together, or the system's text
        Status status = Finished;

        /// Finished with exit code 0.
        bool isSuccess() const;
        /// A sentence for the user about the run; "No error" for a success.
        QString errorString() const;
    };

    /// Runs the program with its input at end of file and its error stream merged into its
    /// output, waiting up to `timeoutMs`. A program that overruns is terminated and given
    /// LN_Waits::ChildTerminate to end. Never throws for a failing child. `nativeArguments`
    /// has no meaning on this platform, whose processes take an argument list.
    static ProcessResult run(QString const & program, QList<QString> const & arguments,
                             QString const & workingDirectory, int timeoutMs,
                             QString const & nativeArguments = QString());
};
