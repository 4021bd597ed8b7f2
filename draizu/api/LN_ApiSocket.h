#pragma once

#include <draizu/api/LN_ApiMessageReader.h>
#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/draizu_export.h>

#include <QLocalSocket>
#include <QObject>
#include <QTextStream>

/// Serves the request protocol to a client process: connects out to the client's local server
/// and serves requests over that connection. Owns socket, stream, engine and read buffer, and
/// keeps reading while a function works inside exec and turns the event loop, so that a CANCEL
/// reaches it. The only failure reported to the host is a failed connection, by `start`; faults
/// of messages go to the client. A client that goes away is not acted on: the running request
/// goes on and writes to a closed device, and a host that cares watches `connection()`.
/// Use on one thread, the one that owns the object.
class DRAIZU_EXPORT LN_ApiSocket : public QObject
{
    Q_OBJECT

public:
    /// Makes no connection.
    LN_ApiSocket();
    /// Delivers what has been written, waiting up to the socket connect wait; never fails.
    ~LN_ApiSocket() override;

    /// Connects to the local server (a name or a full socket path), blocking for up to the
    /// socket connect wait. Returns 0 on success; 1 with the socket's error text otherwise.
    int start(QString const & serverName, QString & errorMessage);

    /// The engine that serves the connection; register functions on it before start.
    LN_ApiRequestEngine & engine() { return engine_; }
    /// The connection to the client, to be watched (its `disconnected`, for one), not used.
    QLocalSocket const & connection() const { return socket_; }

Q_SIGNALS:
    /// The engine finished a shutdown that had to wait for the running request.
    void shutdown();

private:
    void readMessages_();
    void readWhileServing_();

    QLocalSocket socket_;
    QTextStream textStream_;
    LN_ApiRequestEngine engine_;
    LN_ApiMessageReader::Buffer buffer_;
    int readDepth_ = 0;
};
