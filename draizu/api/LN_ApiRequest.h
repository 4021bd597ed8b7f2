#pragma once

#include <draizu/draizu_export.h>

#include <QObject>
#include <QString>

#include <cstdint>

struct LN_Message;
class QJsonObject;
class QTextStream;
class QTimer;

/// One request in flight: the only way an API function reports and answers. It writes every
/// notification and the one final COMPLETE to the stream, ignores everything once completed,
/// throttles progress, and deletes itself after answering.
class DRAIZU_EXPORT LN_ApiRequest : public QObject
{
    Q_OBJECT

public:
    enum ProtocolVersion {
        Protocol_V1 = 1,
    };

    /// Status of a message; the values are the status numbers on the wire.
    enum Result {
        Result_Ok = 200,
        Result_BadRequest = 400,
        Result_NotFound = 404,
        Result_ServerError = 500,
    };

    enum CancelResult {
        Cancel_Rejected = 0,
        Cancel_Accepted = 1,
    };

    struct Body
    {
        QString contentType;
        QString content;
    };

    LN_ApiRequest(QString const & tag, ProtocolVersion protocol, QTextStream & stream);

    void complete(QString const & text);
    void complete(QJsonObject const & object);
    void complete(Body const & body);
    void fail(Result result, QString const & text);
    void fail(Result result, QJsonObject const & object);

    /// Answers a cancel without completing: a function that accepts still has to answer.
    void cancel(CancelResult result, QString const & reason);
    /// Accepts a cancel, then completes with the text as status 200.
    void cancelAndComplete(QString const & text);

    void debug(QString const & text);
    void message(QString const & text);
    void warn(QString const & text);
    void error(QString const & text);
    void progress(int done, int total);
    /// Forwards a report of a long operation by its type.
    void message(LN_Message const & message);

    /// Keeps a request alive through a long silent step.
    void restartIdleTimer();
    /// Disarms LN_AutoApiRequest: the function answers later, after exec has returned.
    void releaseResponseChecks();

    bool hasCompleted() const { return completed_; }
    QString tag() const { return tag_; }
    ProtocolVersion protocol() const { return protocol_; }
    QString protocolAsString() const;

    static ProtocolVersion protocolFromString(QString const & word);
    static QString protocolAsString(ProtocolVersion protocol);

    static void sendComplete(QTextStream & stream, QString const & tag, Result result, Body const & body,
                             ProtocolVersion protocol);
    static void sendFatal(QTextStream & stream, Result result, QString const & message, ProtocolVersion protocol);
    /// Writes nothing when the text is empty.
    static void sendException(QTextStream & stream, QString const & message, ProtocolVersion protocol);
    /// Always writes version 1, whatever version it is given.
    static void sendCancelled(QTextStream & stream, ProtocolVersion protocol, QString const & tag,
                              CancelResult result, QString const & message);

Q_SIGNALS:
    void completed(QString const & tag);
    void signalReleasedResponseChecks();

public Q_SLOTS:
    void idleTimeout();

private:
    bool canSendProgress_() const;
    void finish_(Result result, Body const & body);
    void notify_(QString const & cmd, QString const & text);

    static void sendMessage_(QTextStream & stream, QString const & cmd, Result result, QString const & tag,
                             Body const & body, ProtocolVersion protocol);

    bool completed_ = false;
    QString tag_;
    ProtocolVersion protocol_;
    QTextStream * stream_;
    QTimer * idleTimer_;
    std::int64_t lastProgressMs_ = 0;
};
