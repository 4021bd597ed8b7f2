#pragma once

#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QLocalSocket>
#include <QObject>
#include <QTextStream>

/// Serves the request protocol to a client process: connects out to the client's local server
/// and serves requests over that connection. Owns socket, stream, engine and read buffer.
class DRAIZU_EXPORT LN_ApiSocket : public QObject
{
    Q_OBJECT

public:
    LN_ApiSocket();
    /// Delivers what has been written before the connection goes.
    ~LN_ApiSocket() override;

    /// Connects to the local server (a name or a full socket path), blocking for up to the
    /// socket connect wait. Returns 0 on success; 1 with the socket's error text otherwise.
    int start(QString const & serverName, QString & errorMessage);

    /// Register functions here before start.
    LN_ApiRequestEngine & engine() { return engine_; }

Q_SIGNALS:
    /// The engine finished a shutdown that had to wait for the running request.
    void shutdown();

private:
    void readMessages_();
    void readWhileServing_();

    QLocalSocket socket_;
    QTextStream textStream_;
    LN_ApiRequestEngine engine_;
    QByteArray buffer_;
    int readDepth_ = 0;
};
