#include <draizu/host/LN_Service.h>

#include <draizu/api/LN_Message.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_ErrorCode.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_SCHandleWrapper.h>
#include <draizu/host/LN_Subprocess.h>
#include <draizu/platform/LN_ServiceManager_p.h>

#include <QThread>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

using Manager = LN_ServiceManager;
using Access = Manager::Access;
using Outcome = Manager::Outcome;
using State = Manager::State;

QString const unsupportedText = u"unsupported init system"_s;
QString const managerSentence = u"An error occurred when attempting to open the service manager."_s;

Manager::CommandResult runCommand(QString const & program, QStringList const & arguments)
{
    // A program of the manager is a child like any other, with the library's limit for one.
    LN_Subprocess::ProcessResult const run =
        LN_Subprocess::run(program, arguments, QString(), LN_Waits::ms(LN_Waits::ChildTerminate));
    if (run.status == LN_Subprocess::ProcessResult::Finished)
        return {true, run.exitCode, run.output};
    return {false, 0, run.errorString()};
}

std::unique_ptr<Manager> findManager()
{
    return Manager::forThisSystem(runCommand);
}

std::unique_ptr<Manager> requireManager()
{
    std::unique_ptr<Manager> manager = findManager();
    if (!manager)
        throw LN_Exception(unsupportedText);
    return manager;
}

void report(LN_Service::Messages const & messages, QString const & text)
{
    if (messages)
        messages(LN_Message::info(text));
}

QString systemText(Outcome const & outcome)
{
    return outcome.text.isEmpty() ? LN_ErrorCode::errcodeToString(static_cast<unsigned long>(outcome.error))
                                  : outcome.text;
}

[[noreturn]] void fail(QString const & sentence, Outcome const & outcome)
{
    throw LN_Exception(sentence + u' ' + systemText(outcome));
}

void pauseOneStep()
{
    QThread::msleep(static_cast<unsigned long>(LN_Waits::ms(LN_Waits::ServicePollStep)));
}

int pollStep()
{
    return LN_Waits::ms(LN_Waits::ServicePollStep);
}

LN_SCHandleWrapper connect(Manager & manager, Access access, Outcome * outcome)
{
    Manager::Handle handle;
    *outcome = manager.connect(access, &handle);
    return LN_SCHandleWrapper(std::move(handle));
}

LN_SCHandleWrapper open(Manager & manager, LN_SCHandleWrapper const & connection, QString const & name,
                        Access access, Outcome * outcome)
{
    Manager::Handle handle;
    *outcome = manager.open(*connection.handle(), name, access, &handle);
    return LN_SCHandleWrapper(std::move(handle));
}

LN_SCHandleWrapper connectOrThrow(Manager & manager)
{
    Outcome outcome;
    LN_SCHandleWrapper connection = connect(manager, Access::Change, &outcome);
    if (!outcome.isDone())
        fail(managerSentence, outcome);
    return connection;
}

// Waits as long as the process, or a process of its group, runs; true when none runs by the
// end of the time.
bool waitForProcess(std::int64_t pid, int timeoutMs)
{
    for (int waited = 0; waited < timeoutMs; waited += pollStep()) {
        if (!Manager::processRunning(pid))
            return true;
        pauseOneStep();
    }
    return !Manager::processRunning(pid);
}

// A service counts as stopped only once its process has gone too, so that its files are free.
bool waitForState(Manager & manager, LN_SCHandleWrapper const & service, State wanted,
                  LN_Service::Messages const & messages)
{
    int const timeoutMs = LN_Waits::ms(LN_Waits::ServiceStopPoll);
    bool reached = false;
    std::int64_t pid = 0;
    for (int waited = 0;;) {
        Manager::Status status;
        if (!manager.status(*service.handle(), &status).isDone())
            break;
        if (status.pid != 0)
            pid = status.pid;
        if (status.state == wanted) {
            reached = true;
            break;
        }
        pauseOneStep();
        waited += pollStep();
        if (waited >= timeoutMs)
            break;
    }
    if (pid == 0 || !Manager::processRunning(pid))
        return reached;
    int const processTimeoutMs = LN_Waits::ms(LN_Waits::ServiceProcessExit);
    report(messages, u"Waiting %1ms for service app to stop running."_s.arg(processTimeoutMs));
    return waitForProcess(pid, processTimeoutMs);
}

// Paths are already in this system's form, so only the quoting of a path with blanks is left.
QString commandLine(QString const & path)
{
    bool const blank = path.contains(u' ');
    if (blank && path.contains(u'"'))
        throw LN_Exception(u"Invalid service executable path \"%1\""_s.arg(path));
    return blank ? u'"' + path + u'"' : path;
}

void start(Manager & manager, QString const & name, LN_Service::Messages const & messages)
{
    report(messages, u"Starting %1 service"_s.arg(name));
    LN_SCHandleWrapper const connection = connectOrThrow(manager);
    Outcome outcome;
    LN_SCHandleWrapper const service = open(manager, connection, name, Access::Change, &outcome);
    if (!outcome.isDone())
        fail(u"An error occurred when attempting to open the service."_s, outcome);
    outcome = manager.start(*service.handle());
    if (!outcome.isDone())
        fail(u"Could not start the service."_s, outcome);
    int const timeoutMs = LN_Waits::ms(LN_Waits::ServiceStartPoll);
    for (int waited = 0; waited < timeoutMs; waited += pollStep()) {
        Manager::Status status;
        if (!manager.status(*service.handle(), &status).isDone() || status.state == State::Running)
            break;
        pauseOneStep();
    }
}

void stop(Manager & manager, QString const & name, LN_Service::Messages const & messages)
{
    report(messages, u"Stopping %1 service"_s.arg(name));
    LN_SCHandleWrapper const connection = connectOrThrow(manager);
    Outcome outcome;
    LN_SCHandleWrapper const service = open(manager, connection, name, Access::Change, &outcome);
    if (outcome.kind == Outcome::NoSuchService)
        return;
    if (!outcome.isDone())
        fail(u"Error attempting to open the service"_s, outcome);
    Manager::Status status;
    outcome = manager.status(*service.handle(), &status);
    if (!outcome.isDone())
        fail(u"Failed to query service status"_s, outcome);
    if (status.state == State::Stopped)
        return;
    // Neither manager here refuses to stop a service that does not run, so there is no "not
    // active" answer to let pass.
    outcome = manager.stop(*service.handle());
    if (!outcome.isDone())
        fail(u"Failed to send stop request to service."_s, outcome);
    if (!waitForState(manager, service, State::Stopped, messages))
        fail(u"Timeout reached while waiting for service to stop."_s, Outcome::fromErrno(ETIMEDOUT));
}

bool waitForDeletion(Manager & manager, QString const & name, int timeoutMs)
{
    Outcome outcome;
    LN_SCHandleWrapper const connection = connect(manager, Access::Query, &outcome);
    if (!outcome.isDone())
        return false;
    for (int waited = 0; waited < timeoutMs; waited += pollStep()) {
        LN_SCHandleWrapper const service = open(manager, connection, name, Access::Query, &outcome);
        if (outcome.kind == Outcome::NoSuchService)
            return true;
        pauseOneStep();
    }
    throw LN_Exception(u"Timeout occurred while waiting for service to be marked as deleted."_s);
}

void uninstall(Manager & manager, QString const & name, LN_Service::Messages const & messages)
{
    QString const unableToOpen = u"Unable to open service \"%1\":"_s.arg(name);
    {
        Outcome outcome;
        LN_SCHandleWrapper const connection = connect(manager, Access::Change, &outcome);
        LN_SCHandleWrapper service;
        if (connection)
            service = open(manager, connection, name, Access::Change, &outcome);
        // A service that fails to stop below must not come back by itself meanwhile.
        if (service)
            manager.disable(*service.handle());
        else if (outcome.kind != Outcome::NoSuchService)
            fail(unableToOpen, outcome);
    }
    stop(manager, name, messages);
    report(messages, u"Uninstalling %1 service"_s.arg(name));
    {
        LN_SCHandleWrapper const connection = connectOrThrow(manager);
        Outcome outcome;
        LN_SCHandleWrapper const service = open(manager, connection, name, Access::Change, &outcome);
        if (outcome.kind == Outcome::NoSuchService)
            return;
        if (!outcome.isDone())
            fail(unableToOpen, outcome);
        outcome = manager.remove(*service.handle());
        if (!outcome.isDone())
            fail(u"Request to delete service failed."_s, outcome);
    }
    if (!waitForDeletion(manager, name, LN_Waits::ms(LN_Waits::ServiceDeletePoll)) && messages)
        messages(LN_Message::warn(u"Service failed to delete: "_s + name));
}

LN_ErrorStruct serviceError(LN_ServiceError code, Outcome const & outcome)
{
    return LN_ErrorStruct{make_error_code(code), systemText(outcome)};
}

LN_ServiceError accessOr(Outcome const & outcome, LN_ServiceError otherwise)
{
    return outcome.kind == Outcome::AccessDenied ? LN_ServiceError::InsufficientPermissions : otherwise;
}

LN_Service::ServiceState serviceState(State state)
{
    switch (state) {
    case State::StartPending:
        return LN_Service::StartPending;
    case State::Running:
        return LN_Service::Running;
    case State::StopPending:
        return LN_Service::StopPending;
    case State::Stopped:
        return LN_Service::Stopped;
    case State::Paused:
        return LN_Service::Paused;
    case State::Unknown:
        break;
    }
    return LN_Service::Unknown;
}

} // namespace

bool LN_Service::isValidServiceName(QString const & name)
{
    return !name.isEmpty() && name.size() < 256 && !name.contains(u'/') && !name.contains(u'\\');
}

void LN_Service::registerService(ServiceArgs const & args, Messages const & messages)
{
    std::unique_ptr<Manager> const manager = requireManager();
    report(messages, u"Installing %1 service"_s.arg(args.name));
    LN_SCHandleWrapper connection = connectOrThrow(*manager);
    {
        Outcome outcome;
        if (open(*manager, connection, args.name, Access::Change, &outcome)) {
            report(messages, u"Service exists. Deleting service"_s);
            uninstall(*manager, args.name, messages);
        }
    }
    LN_ServiceConfig config;
    config.binaryPath = commandLine(args.path);
    config.account = args.account;
    config.startType = LN_ServiceConfig::Start_Auto;
    config.displayName = args.name;
    report(messages, u"Creating service"_s);
    Outcome const created = manager->create(*connection.handle(), args.name, config);
    if (!created.isDone())
        fail(u"Failed to create the service."_s, created);
    connection.close();
    start(*manager, args.name, messages);
    report(messages, u"Service installed successfully"_s);
}

void LN_Service::startService(QString const & name, Messages const & messages)
{
    start(*requireManager(), name, messages);
}

void LN_Service::stopService(QString const & name, Messages const & messages)
{
    stop(*requireManager(), name, messages);
}

void LN_Service::uninstallService(QString const & name, Messages const & messages)
{
    uninstall(*requireManager(), name, messages);
}

LN_Service::ServiceConfigResult LN_Service::queryService(QString const & name)
{
    ServiceConfigResult result;
    auto failWith = [&result](Outcome const & outcome, QString const & message) {
        result.errorCode = static_cast<std::uint32_t>(outcome.error);
        result.errorMessage = message;
        return result;
    };
    std::unique_ptr<Manager> const manager = findManager();
    if (!manager)
        return failWith(Outcome::fromErrno(ENOSYS, unsupportedText), u"Failed to open service manager : "_s + unsupportedText);
    Outcome outcome;
    LN_SCHandleWrapper const connection = connect(*manager, Access::Query, &outcome);
    if (!outcome.isDone())
        return failWith(outcome, u"Failed to open service manager : "_s + systemText(outcome));
    LN_SCHandleWrapper const service = open(*manager, connection, name, Access::Query, &outcome);
    if (!outcome.isDone())
        return failWith(outcome, u"Failed to open %1 service: %2"_s.arg(name, systemText(outcome)));
    LN_ServiceConfig config;
    outcome = manager->config(*service.handle(), &config);
    if (!outcome.isDone())
        return failWith(outcome, u"Failed to query service config: "_s + systemText(outcome));
    result.config = config;
    return result;
}

LN_Result<LN_Service::ServiceState> LN_Service::getServiceState(QString const & name)
{
    std::unique_ptr<Manager> const manager = findManager();
    if (!manager)
        return serviceError(LN_ServiceError::UnsupportedInitSystem, Outcome::fromErrno(ENOSYS, unsupportedText));
    Outcome outcome;
    LN_SCHandleWrapper const connection = connect(*manager, Access::Query, &outcome);
    if (!outcome.isDone())
        return serviceError(accessOr(outcome, LN_ServiceError::Unspecified), outcome);
    LN_SCHandleWrapper const service = open(*manager, connection, name, Access::Query, &outcome);
    if (!outcome.isDone()) {
        bool const absent = outcome.kind == Outcome::NoSuchService;
        return serviceError(accessOr(outcome, absent ? LN_ServiceError::ServiceDoesNotExist : LN_ServiceError::Unspecified),
                            outcome);
    }
    Manager::Status status;
    outcome = manager->status(*service.handle(), &status);
    if (!outcome.isDone())
        return serviceError(LN_ServiceError::InsufficientPermissions, outcome);
    return serviceState(status.state);
}

bool LN_Service::isServiceInstalled(QString const & name, Messages const & messages)
{
    std::unique_ptr<Manager> const manager = requireManager();
    report(messages, u"Checking if %1 service is installed"_s.arg(name));
    Outcome outcome;
    LN_SCHandleWrapper const connection = connect(*manager, Access::Query, &outcome);
    if (!outcome.isDone())
        fail(managerSentence, outcome);
    LN_SCHandleWrapper const service = open(*manager, connection, name, Access::Query, &outcome);
    if (outcome.kind == Outcome::NoSuchService)
        return false;
    if (!outcome.isDone())
        fail(u"Failed to query service status"_s, outcome);
    return true;
}

bool LN_Service::waitForServiceDeletion(QString const & name, int timeoutMs)
{
    return waitForDeletion(*requireManager(), name, timeoutMs);
}

void LN_Service::setSystemdDirsForTesting(QString const & runtimeDir, QString const & unitDir)
{
    Manager::setSystemdDirs(runtimeDir, unitDir);
}
