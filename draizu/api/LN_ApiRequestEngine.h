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

/// The queue and dispatcher between the protocol and the API functions. Runs requests one at
/// a time in arrival order, passes cancels on, and winds down on SHUTDOWN. Serves any stream.
class DRAIZU_EXPORT LN_ApiRequestEngine : public QObject
{
    Q_OBJECT

public:
    explicit LN_ApiRequestEngine(QTextStream & stream);

    /// Adds a function to the table under its name, replacing one of the same name, and calls
    /// its onRegister. Functions are to be registered before the first message.
    void registerFunction(QSharedPointer<LN_IApiHandler> const & function);

    /// Takes one message. Every outcome goes out on the stream.
    void queueRequest(LN_ApiRequest::ProtocolVersion protocol, QString const & tag, QString const & cmd,
                      LN_ApiRequest::Body const & body);

    /// Writes an EXCEPTION with the text; nothing for an empty text.
    void exceptionCaught(QString const & text);

    bool hasShutdown() const { return shutdownState_ == ShutDown; }

Q_SIGNALS:
    /// A shutdown that had to wait for the running request has finished.
    void hasShutdownEngine();

public Q_SLOTS:
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
