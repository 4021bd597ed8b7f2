#pragma once

#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>
#include <draizu/platform/LN_ServiceConfig.h>

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

struct LN_Message;

/// Installs, starts, stops, queries and removes the system services of the products: the local
/// oserver, the licence server, the job-queue services. The manager underneath is chosen afresh
/// at every call: systemd when it runs, else runit when $SVDIR is a directory that runsvdir
/// supervises; without either, every function answers "unsupported init system".
///
/// Every call blocks its thread, polling in steps of LN_Waits::ServicePollStep: up to
/// ServiceStartPoll for a start, ServiceStopPoll and then ServiceProcessExit for a stop, and
/// ServiceDeletePoll for a deletion. Failures throw an LN_Exception with a finished sentence,
/// most of them a fixed sentence, a blank and the system's text; queryService, getServiceState
/// and the false of waitForServiceDeletion are the exceptions. Each call opens what it needs and
/// closes it on every path. There is no locking: one caller at a time works on a service.
namespace LN_Service {

/// What registerService installs: a plain record.
struct ServiceArgs
{
    QString name;     ///< the service's name, also its display name
    QString path;     ///< the program, with any arguments the caller quotes itself
    QString account;  ///< the account to run under; empty means none is passed
    QString password; ///< that account's password; the managers of this system take none
};

/// The state of a service, derived from the manager's.
enum ServiceState : int {
    StartPending = 0,
    Running = 1,
    StopPending = 2,
    Stopped = 3,
    Paused = 4,
    Unknown = 5,
};

/// What queryService read: a plain record.
struct ServiceConfigResult
{
    std::uint32_t errorCode = 0;            ///< the system's error number; 0 for success
    QString errorMessage;                   ///< the failure's sentence; empty for success
    std::optional<LN_ServiceConfig> config; ///< the configuration; empty on failure
};

/// Where progress goes.
using Messages = std::function<void(LN_Message const &)>;

/// True for a name that is not empty, shorter than 256 characters and free of "/" and "\\".
DRAIZU_EXPORT bool isValidServiceName(QString const & name);

/// Installs the service, replacing (never updating) one of the same name, and starts it. A path
/// holding both a blank and a double quote is refused; one holding a blank alone is quoted.
/// Throws on any failure, the start's included; not running yet when the start poll ends is
/// no failure.
DRAIZU_EXPORT void registerService(ServiceArgs const & args, Messages const & messages);
/// Starts the service and polls until it runs, for at most LN_Waits::ServiceStartPoll; not
/// running by then is no failure. Throws when the manager refuses the start.
DRAIZU_EXPORT void startService(QString const & name, Messages const & messages);
/// Stops the service and waits for it, and then for its process, to end. An absent or stopped
/// service is no failure; one still running, or whose process is, after the waits throws.
DRAIZU_EXPORT void stopService(QString const & name, Messages const & messages);
/// Disables, stops and deletes the service, then waits for the manager to let go of it. An
/// absent service is no failure, so repeating this is safe; a deletion that cannot be seen
/// through is reported, not thrown.
DRAIZU_EXPORT void uninstallService(QString const & name, Messages const & messages);
/// The service's configuration, or the error number and sentence of the failure. Never throws.
DRAIZU_EXPORT ServiceConfigResult queryService(QString const & name);
/// The service's state, or an error of LN_ServiceErrorCategory with the system's text: 1 for
/// insufficient rights, 3 for an absent service, 4 without a known manager, 5 otherwise.
/// Never throws.
DRAIZU_EXPORT LN_Result<ServiceState> getServiceState(QString const & name);
/// Whether the manager knows the service. Throws when it cannot tell.
DRAIZU_EXPORT bool isServiceInstalled(QString const & name, Messages const & messages);
/// True once the manager no longer knows the service, polling for at most `timeoutMs`; false
/// when the manager cannot be reached. Throws when the time is up, at once for a time of 0 or
/// less.
DRAIZU_EXPORT bool waitForServiceDeletion(QString const & name, int timeoutMs);

/// Points the systemd backend at other directories: `runtimeDir`, whose presence means that
/// systemd runs (by default "/run/systemd/system"), and `unitDir` for unit files (by default
/// "/etc/systemd/system"). For tests; empty strings restore the defaults. Not to be called
/// while another thread uses this namespace.
DRAIZU_EXPORT void setSystemdDirsForTesting(QString const & runtimeDir, QString const & unitDir);

} // namespace LN_Service
