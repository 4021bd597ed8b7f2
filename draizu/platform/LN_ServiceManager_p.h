#pragma once

#include <draizu/platform/LN_ServiceConfig.h>

#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>

/// An open connection to a service manager, or one open service: whatever a backend keeps
/// between two requests. Closing is destruction.
class LN_ServiceHandle
{
public:
    virtual ~LN_ServiceHandle() = default;
};

/// The system's service manager, reduced to the requests that LN_Service makes of it. Every
/// request answers with an Outcome and throws nothing; a backend sleeps nowhere, since every
/// wait belongs to the caller. Handles given to a backend are the ones it made.
class LN_ServiceManager
{
public:
    /// What a request came to.
    struct Outcome
    {
        enum Kind {
            Done,          ///< the request succeeded
            AccessDenied,  ///< the caller lacks the rights
            NoSuchService, ///< the manager knows no service of that name
            Failed,        ///< anything else
        };
        Kind kind = Done;
        /// The system's error number; 0 when done.
        int error = 0;
        /// The manager's own words for the failure; empty when the number's text says it.
        QString text;

        bool isDone() const { return kind == Done; }
        /// The failure of a system error number, its kind read from the number.
        static Outcome fromErrno(int error, QString const & text = QString());
    };

    /// The state of a service, in the order of LN_Service::ServiceState.
    enum class State { StartPending, Running, StopPending, Stopped, Paused, Unknown };

    struct Status
    {
        State state = State::Unknown;
        std::int64_t pid = 0; ///< 0 while no process runs
    };

    /// What a request needs to be allowed: looking only, or changing.
    enum class Access { Query, Change };

    /// The end of one run of a manager's program: whether it ran to an exit, its exit code and
    /// its output, or the reason it did not run in `output`.
    struct CommandResult
    {
        bool exited = false;
        int exitCode = 0;
        QString output;
    };
    /// Runs a program with arguments to its end.
    using CommandRunner = std::function<CommandResult(QString const & program, QStringList const & arguments)>;

    using Handle = std::unique_ptr<LN_ServiceHandle>;

    virtual ~LN_ServiceManager() = default;

    /// Reaches the manager with the access asked for.
    virtual Outcome connect(Access access, Handle * manager) = 0;
    /// Opens the service of that name; NoSuchService when there is none.
    virtual Outcome open(LN_ServiceHandle & manager, QString const & name, Access access, Handle * service) = 0;
    /// Creates a service, which starts automatically whenever the manager does, without
    /// starting it now.
    virtual Outcome create(LN_ServiceHandle & manager, QString const & name, LN_ServiceConfig const & config) = 0;
    /// Marks the service for deletion: it is gone once the manager has let go of it.
    virtual Outcome remove(LN_ServiceHandle & service) = 0;
    /// Asks for the service to run; true to the request, not to its outcome.
    virtual Outcome start(LN_ServiceHandle & service) = 0;
    /// Asks for the service to stop; done at once for one that does not run.
    virtual Outcome stop(LN_ServiceHandle & service) = 0;
    /// Reads the state and the process of the service.
    virtual Outcome status(LN_ServiceHandle & service, Status * status) = 0;
    /// Reads the configuration of the service.
    virtual Outcome config(LN_ServiceHandle & service, LN_ServiceConfig * config) = 0;
    /// Stops the service from starting by itself, on boot and after a failure.
    virtual Outcome disable(LN_ServiceHandle & service) = 0;

    /// The manager of the running system, chosen afresh at every call; null when it has none
    /// that the library knows. Programs of the manager run through `runner`.
    static std::unique_ptr<LN_ServiceManager> forThisSystem(CommandRunner runner);

    /// Whether the process, or any process left in the group it leads, still runs.
    static bool processRunning(std::int64_t pid);

    /// Redirects the directories that stand for systemd: the one whose presence means that it
    /// runs, and the one of the unit files. Empty strings restore the defaults.
    static void setSystemdDirs(QString const & runtimeDir, QString const & unitDir);

    /// The words of a command line: separated by blanks, a double-quoted run keeps its blanks.
    static QStringList splitCommandLine(QString const & commandLine);
    /// The command line of the words, a word that holds a blank in double quotes.
    static QString joinCommandLine(QStringList const & words);
    /// Whether a name can name a service on this system: one file name, not hidden.
    static bool isUsableName(QString const & name);
    /// Whether a text holds no control character, so that it fits on one line of a file.
    static bool isOneLine(QString const & text);

    /// Writes a file that must not exist yet, with exactly that mode. 0 or the system's error.
    static int writeNewFile(QString const & path, QByteArray const & contents, unsigned mode);

    /// The runit backend over the service directory `svdir`.
    static std::unique_ptr<LN_ServiceManager> runit(QString const & svdir, CommandRunner runner);
    /// The systemd backend over unit files in `unitDir`, as long as `runtimeDir` exists.
    static std::unique_ptr<LN_ServiceManager> systemd(QString const & runtimeDir, QString const & unitDir,
                                                      CommandRunner runner);
};
