#pragma once

#include <draizu/api/LN_ApiRequest.h>
#include <draizu/draizu_export.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>

#include <map>

class LN_IApiHandler;
class QTextStream;

/// The queue and dispatcher between the protocol and the API functions: checks each message,
/// runs requests one at a time in arrival order, passes cancels to the function concerned, and
/// winds down on SHUTDOWN, letting the running request finish and running nothing after it.
/// It knows no transport: it is told messages and answers on a stream that it does not own and
/// that must outlive it. It is the QObject parent of its requests and shares its functions
/// with their owners. Faults of a client are answered on the stream and never thrown; an
/// exception of a function passes out of queueRequest to the caller. Use on one thread, the
/// one that owns the engine and its stream.
class DRAIZU_EXPORT LN_ApiRequestEngine : public QObject
{
    Q_OBJECT

public:
    /// An engine in the running state, with no functions, answering on `stream`.
    explicit LN_ApiRequestEngine(QTextStream & stream);

    /// Adds a function to the table under its name, replacing one of the same name, and calls
    /// its onRegister; never fails. Requests already queued keep the function they found.
    void registerFunction(QSharedPointer<LN_IApiHandler> const & function);

    /// Takes one message: queues and perhaps runs a request, acts on CANCEL and SHUTDOWN, or
    /// answers a bad message at once. Every outcome goes out on the stream; only an exception
    /// of a function that runs from here passes out.
    void queueRequest(LN_ApiRequest::ProtocolVersion protocol, QString const & tag, QString const & cmd,
                      LN_ApiRequest::Body const & body);

    /// Winds down as a SHUTDOWN does, for a host whose client has gone: the running request
    /// finishes, then hasShutdownEngine; with nothing running, shut down at once and no signal.
    /// Does nothing once a shutdown has begun.
    void requestShutdown();

    /// Writes an EXCEPTION with the text; nothing for an empty text.
    void exceptionCaught(QString const & text);

    /// True once shut down: no further message is read, nothing more runs.
    bool hasShutdown() const { return shutdownState_ == ShutDown; }
    /// True from the SHUTDOWN on, while the running request finishes and after.
    bool shutdownRequested() const { return shutdownState_ != Running; }

Q_SIGNALS:
    /// A shutdown that had to wait for the running request has finished.
    void hasShutdownEngine();

public Q_SLOTS:
    /// Answers a request deleted before it completed with COMPLETE 500; a request deleted the
    /// normal way is no longer one when this runs, and nothing is written for it.
    void requestDestroyed(QObject * object);

private:
    enum ShutdownState {
        Running = 0,
        ShuttingDown = 1,
        ShutDown = 2,
    };

    struct QueuedRequest
    {
        QPointer<LN_ApiRequest> request;
        QSharedPointer<LN_IApiHandler> function;
        QString name;
        QString tag;
        QJsonArray args;
        QJsonObject kwargs;
    };

    // One call of a function's exec on the stack. A completion of that very request made
    // while no further message is being handled does not start the next request from inside
    // exec; the frame starts it once exec returns, so a run of requests that answer at once
    // does not go deeper on the stack with each queued entry.
    struct DispatchFrame
    {
        LN_ApiRequest const * request;
        int queueDepth;
        bool nextPending;
        DispatchFrame * outer;
    };

    void cancelWithTag_(QString const & tag);
    void processNextRequest_();
    void requestFinished_(QString const & tag);

    bool checkRequest_(LN_ApiRequest * request, QString const & cmd, LN_ApiRequest::Body const & body,
                       QueuedRequest & entry) const;
    bool execHead_(QueuedRequest const & entry);
    void runPendingDispatch_();

    QTextStream & stream_;
    QList<QueuedRequest> queue_;
    int shutdownState_ = Running;
    std::map<QString, QSharedPointer<LN_IApiHandler>> functions_;

    DispatchFrame * frame_ = nullptr;
    int queueDepth_ = 0;
};
