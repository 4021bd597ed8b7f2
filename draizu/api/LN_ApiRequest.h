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
/// notification and the one final COMPLETE to the stream, ignores every call once completed,
/// lets at most one PROGRESS through per progress interval, and fails itself with status 500
/// when it has reported and then stays silent for the idle wait. The engine that creates it is
/// its QObject parent; after answering it deletes itself once control is back in the event
/// loop, so a function that keeps it beyond exec holds it by QPointer. Nothing here throws or
/// reports a failure: a failed write to the stream goes unnoticed. The static writers send
/// messages that belong to no live request. Use on the thread of the stream, which is not
/// owned and must outlive the request.
class DRAIZU_EXPORT LN_ApiRequest : public QObject
{
    Q_OBJECT

public:
    /// The protocol version carried as the first word of every server message; there is one.
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

    /// The answer to a cancel; any value but Cancel_Accepted is written as a rejection.
    enum CancelResult {
        Cancel_Rejected = 0,
        Cancel_Accepted = 1,
    };

    /// A message body: its MIME type and its text.
    struct Body
    {
        /// The MIME type, such as "text/plain"; empty when the message named none.
        QString contentType;
        /// The text of the body.
        QString content;
    };

    /// An open request that answers on `stream`; its idle timer is not started yet.
    LN_ApiRequest(QString const & tag, ProtocolVersion protocol, QTextStream & stream);

    /// Completes with status 200 and the text as "text/plain"; nothing once completed.
    void complete(QString const & text);
    /// Completes with status 200 and the indented object as "application/json"; nothing once
    /// completed.
    void complete(QJsonObject const & object);
    /// Completes with status 200 and the body as it is; nothing once completed.
    void complete(Body const & body);
    /// Completes with the status and the text as "text/plain"; nothing once completed.
    void fail(Result result, QString const & text);
    /// Completes with the status and the indented object as "application/json"; nothing once
    /// completed.
    void fail(Result result, QJsonObject const & object);

    /// Answers a cancel with CANCEL_RESP and the reason, without completing: a function that
    /// accepts still has to answer. Nothing once completed.
    void cancel(CancelResult result, QString const & reason);
    /// Accepts a cancel, then completes with the text as status 200. Nothing once completed.
    void cancelAndComplete(QString const & text);

    /// Sends DEBUG with the text and restarts the idle timer; nothing for an empty text or
    /// once completed.
    void debug(QString const & text);
    /// Sends MESSAGE with the text and restarts the idle timer; nothing for an empty text or
    /// once completed.
    void message(QString const & text);
    /// Sends WARNING with the text and restarts the idle timer; nothing for an empty text or
    /// once completed.
    void warn(QString const & text);
    /// Sends ERROR, a notification that does not end the request, and restarts the idle timer;
    /// nothing for an empty text or once completed.
    void error(QString const & text);
    /// Sends PROGRESS "done total" and restarts the idle timer; dropped silently within the
    /// progress interval of the last one, for a negative number, or once completed.
    void progress(int done, int total);
    /// Forwards a report of a long operation by its type: progress (numbers cut to 32 bits),
    /// info, warning, error, internal as DEBUG; an Invalid message is dropped.
    void message(LN_Message const & message);

    /// Keeps a request alive through a long silent step: the idle wait starts anew.
    void restartIdleTimer();
    /// Disarms LN_AutoApiRequest: the function answers later, after exec has returned.
    void releaseResponseChecks();

    /// True once the final COMPLETE has gone out; never cleared.
    bool hasCompleted() const { return completed_; }
    /// The tag the client gave the request.
    QString tag() const { return tag_; }
    /// The version the request's message carried.
    ProtocolVersion protocol() const { return protocol_; }
    /// The request's version in decimal.
    QString protocolAsString() const;

    /// The version named by a header's first word; every word gives version 1.
    static ProtocolVersion protocolFromString(QString const & word);
    /// A version in decimal.
    static QString protocolAsString(ProtocolVersion protocol);

    /// Writes a COMPLETE for a tag whose request may be gone; guards nothing.
    static void sendComplete(QTextStream & stream, QString const & tag, Result result, Body const & body,
                             ProtocolVersion protocol);
    /// Writes a FATAL, which carries no tag, with the message as "text/plain".
    static void sendFatal(QTextStream & stream, Result result, QString const & message, ProtocolVersion protocol);
    /// Writes an EXCEPTION, which carries no tag; nothing when the text is empty.
    static void sendException(QTextStream & stream, QString const & message, ProtocolVersion protocol);
    /// Writes a CANCEL_RESP, "ACCEPTED" or "REJECTED" with the message behind a blank if there
    /// is one. Always writes version 1, whatever version it is given.
    static void sendCancelled(QTextStream & stream, ProtocolVersion protocol, QString const & tag,
                              CancelResult result, QString const & message);

Q_SIGNALS:
    /// The final COMPLETE has gone out; emitted once, right after the write.
    void completed(QString const & tag);
    /// releaseResponseChecks was called.
    void signalReleasedResponseChecks();

public Q_SLOTS:
    /// Fails the request with status 500 "The request sat idle for too long."; nothing once
    /// completed.
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
