#pragma once

#include <draizu/draizu_export.h>

/// The library's long waits, in milliseconds. Each has a fixed default; a test may shorten
/// one through setForTesting, and every reader of a wait asks here at the moment it waits.
/// Safe from any thread.
class DRAIZU_EXPORT LN_Waits
{
public:
    /// The waits, each with its default in milliseconds.
    enum Wait {
        RequestIdle,          ///< 300000: an unanswered request that has reported, then gone silent
        ProgressInterval,     ///< 100: at most one PROGRESS per request this often
        SocketConnect,        ///< 30000: connecting to the client's local server
        NetworkStall,         ///< 30000: a download that receives nothing
        LoginAbort,           ///< 30000: a login request
        OserverStart,         ///< 1000: waiting for the local oserver to start
        OserverStop,          ///< 10000: synchronous stop of the local oserver
        ServiceStartPoll,     ///< 5000: polling a service that starts
        ServiceStopPoll,      ///< 10000: polling a service that stops
        ServiceProcessExit,   ///< 10000: waiting for a stopped service's process
        ServiceDeletePoll,    ///< 30000: polling a service that is being deleted
        ServicePollStep,      ///< 500: one step of every service poll
        CopyRetry,            ///< 200: pause before a copy is retried
        ChildTerminate,       ///< 30000: a child process after terminate()
        RequestBody,          ///< 500: the rest of a request body that the transport split off
        WaitCount             ///< the number of waits, not a wait
    };

    /// The wait now in force: a test's setting, else the default. Never fails.
    static int ms(Wait wait);
    /// The fixed default of the wait, whatever a test has set. Never fails.
    static int defaultMs(Wait wait);

    /// Replaces one wait for the rest of the process, or until resetForTesting.
    static void setForTesting(Wait wait, int ms);
    /// Puts every wait back to its default.
    static void resetForTesting();
};
