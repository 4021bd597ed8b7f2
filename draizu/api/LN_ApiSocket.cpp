#include <draizu/api/LN_ApiSocket.h>

#include <draizu/api/LN_ApiMessageReader.h>
#include <draizu/core/LN_Waits.h>

#include <QAbstractEventDispatcher>

LN_ApiSocket::LN_ApiSocket()
    : engine_(textStream_)
{
}

LN_ApiSocket::~LN_ApiSocket()
{
    textStream_.flush();
    if (socket_.state() != QLocalSocket::ConnectedState)
        return;
    while (socket_.bytesToWrite() > 0 && socket_.waitForBytesWritten(LN_Waits::ms(LN_Waits::SocketConnect))) {
    }
}

int LN_ApiSocket::start(QString const & serverName, QString & errorMessage)
{
    connect(&socket_, &QLocalSocket::readyRead, this, &LN_ApiSocket::readMessages_, Qt::DirectConnection);
    // A socket does not emit readyRead again while a slot of its readyRead runs. A function that
    // works inside exec and turns the event loop must still see a CANCEL, so while a read is in
    // progress the reader also looks each time the event loop turns.
    QAbstractEventDispatcher const * dispatcher = QAbstractEventDispatcher::instance(thread());
    connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &LN_ApiSocket::readWhileServing_,
            Qt::DirectConnection);
    connect(dispatcher, &QAbstractEventDispatcher::awake, this, &LN_ApiSocket::readWhileServing_,
            Qt::DirectConnection);
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
    ++readDepth_;
    LN_ApiMessageReader::serve(
        buffer_, engine_, textStream_, [this] { return socket_.state() == QLocalSocket::ConnectedState; },
        [this] { return socket_.readAll(); }, [this](int ms) { return socket_.waitForReadyRead(ms); });
    --readDepth_;
}

void LN_ApiSocket::readWhileServing_()
{
    if (readDepth_ > 0 && socket_.bytesAvailable() > 0)
        readMessages_();
}
