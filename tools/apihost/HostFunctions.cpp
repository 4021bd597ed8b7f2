#include "HostFunctions.h"

#include <draizu/api/LN_ApiHandler.h>
#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/api/LN_AutoApiRequest.h>

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>

#include <stdexcept>

using namespace Qt::StringLiterals;

// A status is one of the enumeration's numbers; any other number does not bind.
template <>
struct LN_ApiArgument<LN_ApiRequest::Result>
{
    static LN_ApiRequest::Result from(QJsonValue const & value)
    {
        switch (int const status = LN_ApiArgument<int>::from(value)) {
        case LN_ApiRequest::Result_Ok:
        case LN_ApiRequest::Result_BadRequest:
        case LN_ApiRequest::Result_NotFound:
        case LN_ApiRequest::Result_ServerError:
            return static_cast<LN_ApiRequest::Result>(status);
        default:
            throw LN_ApiHandlerValueException();
        }
    }
};

namespace {

using Param = LN_IApiHandler::Param;

// Every function of the host is guarded from the start of exec, so that an argument that does
// not bind, an exception or a forgotten answer still answers the request and frees the queue.
class GuardedFunction : public LN_ApiHandler
{
public:
    using LN_ApiHandler::LN_ApiHandler;

    void exec(LN_ApiRequest * request, QJsonArray const & args, QJsonObject const & kwargs) override
    {
        LN_AutoApiRequest const guard(request);
        LN_ApiHandler::exec(request, args, kwargs);
    }
};

void echo(LN_ApiRequest * request, QString const & text)
{
    request->complete(text);
}

void add(LN_ApiRequest * request, double a, double b)
{
    request->complete(QJsonObject{{u"sum"_s, a + b}});
}

void notify(LN_ApiRequest * request, QString const & text)
{
    request->debug(text);
    request->message(text);
    request->warn(text);
    request->error(text);
    request->progress(1, 2);
    request->complete(u"done"_s);
}

void raise(LN_ApiRequest *, QString const & text)
{
    throw std::runtime_error(text.toStdString());
}

void forget(LN_ApiRequest *)
{
}

void fail(LN_ApiRequest * request, LN_ApiRequest::Result status, QString const & text)
{
    request->fail(status, text);
}

void unicode(LN_ApiRequest * request)
{
    request->complete(u"héllo → wörld"_s);
}

// Answers after `ms` from the event loop; a cancel ends it early.
class WaitFunction final : public GuardedFunction
{
public:
    WaitFunction()
        : GuardedFunction(u"wait"_s, {Param{u"ms"_s, {}}}, &WaitFunction::run_)
    {
    }

    void cancel(LN_ApiRequest * request) override { request->cancelAndComplete(u"cancelled"_s); }

private:
    static void run_(LN_ApiRequest * request, int ms)
    {
        request->releaseResponseChecks();
        QTimer::singleShot(ms, request, [request] { request->complete(u"waited"_s); });
    }
};

// Works inside exec, turning the event loop between steps as a synchronous operation that
// reports progress does, so that a cancel reaches it while it works.
class WorkFunction final : public GuardedFunction
{
public:
    WorkFunction()
        : GuardedFunction(u"work"_s, {Param{u"steps"_s, {}}, Param{u"ms"_s, 10}}, &WorkFunction::run_)
    {
    }

    void cancel(LN_ApiRequest * request) override { request->cancelAndComplete(u"cancelled"_s); }

private:
    static void run_(LN_ApiRequest * request, int steps, int ms)
    {
        QPointer<LN_ApiRequest> const alive(request);
        for (int step = 1; step <= steps; ++step) {
            turnEventsFor_(ms, alive);
            if (!alive || alive->hasCompleted())
                return;
            alive->progress(step, steps);
        }
        alive->complete(u"worked"_s);
    }

    static void turnEventsFor_(int ms, QPointer<LN_ApiRequest> const & alive)
    {
        QTimer wake;
        wake.setSingleShot(true);
        wake.start(ms);
        while (wake.isActive() && alive && !alive->hasCompleted())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
};

} // namespace

void HostFunctions::registerAll(LN_ApiRequestEngine & engine)
{
    auto const add_ = [&engine](LN_IApiHandler * function) {
        engine.registerFunction(QSharedPointer<LN_IApiHandler>(function));
    };
    add_(new GuardedFunction(u"echo"_s, {Param{u"text"_s, {}}}, &echo));
    add_(new GuardedFunction(u"add"_s, {Param{u"a"_s, {}}, Param{u"b"_s, 0}}, &add));
    add_(new GuardedFunction(u"notify"_s, {Param{u"text"_s, {}}}, &notify));
    add_(new WaitFunction);
    add_(new WorkFunction);
    add_(new GuardedFunction(u"raise"_s, {Param{u"text"_s, {}}}, &raise));
    add_(new GuardedFunction(u"forget"_s, {}, &forget));
    add_(new GuardedFunction(u"broken"_s, {Param{u"a"_s, {}}, Param{u"b"_s, {}}}, &echo));
    add_(new GuardedFunction(u"fail"_s, {Param{u"status"_s, {}}, Param{u"text"_s, {}}}, &fail));
    add_(new GuardedFunction(u"unicode"_s, {}, &unicode));
}
