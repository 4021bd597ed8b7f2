#include <draizu/api/LN_ApiSocket.h>

#include <draizu/api/LN_ApiMessageReader.h>
#include <draizu/core/LN_Waits.h>

LN_ApiSocket::LN_ApiSocket()
    : engine_(textStream_)
{
}

int LN_ApiSocket::start(QString const & serverName, QString & errorMessage)
{
    connect(&socket_, &QLocalSocket::readyRead, this, &LN_ApiSocket::readMessages_, Qt::DirectConnection);
    connect(&engine_, &LN_ApiRequestEngine::hasShutdownEngine, this, &LN_ApiSocket::shutdown, Qt::DirectConnection);

    socket_.connectToServer(serverName, QIODevice::ReadWrite);
    if (!socket_.waitForConnected(LN_Waits::ms(LN_Waits::SocketConnect))) {
        errorMessage = socket_.errorString();
        return 1;
    }
    textStream_.setDevice(&socket_);
    return 0;
}

void LN_ApiSocket::readMessages_()
{
    LN_ApiMessageReader::serve(
        buffer_, engine_, textStream_, [this] { return socket_.state() == QLocalSocket::ConnectedState; },
        [this] { return socket_.readAll(); });
}
