#include "TestLoginSite.h"

#include <QTcpSocket>

TestLoginSite::TestLoginSite()
{
    QObject::connect(&server_, &QTcpServer::newConnection, &server_, [this] {
        while (QTcpSocket * socket = server_.nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { serve_(socket); });
        }
    });
}

QString TestLoginSite::origin() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(server_.serverPort());
}

// Waits for the whole request, head and body, then answers it and closes.
void TestLoginSite::serve_(QTcpSocket * socket)
{
    QByteArray const buffer = socket->peek(socket->bytesAvailable());
    qsizetype const end = buffer.indexOf("\r\n\r\n");
    if (end < 0)
        return;
    QList<QByteArray> const lines = buffer.left(end).split('\n');
    QList<QByteArray> const requestLine = lines.first().split(' ');
    Request request{requestLine.value(0), QString::fromUtf8(requestLine.value(1)), {}, {}};
    for (QByteArray const & line : lines.mid(1)) {
        qsizetype const colon = line.indexOf(':');
        request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }
    qint64 const length = request.headers.value("content-length").toLongLong();
    if (buffer.size() < end + 4 + length)
        return;
    request.body = buffer.mid(end + 4, length);
    socket->readAll();
    requests_.append(request);

    Answer const reply = answer ? answer(request) : Answer{0, {}, {}, true};
    if (reply.silent)
        return;
    QByteArray head = "HTTP/1.1 " + QByteArray::number(reply.status) + " Status\r\n";
    for (QByteArray const & cookie : reply.cookies)
        head += "Set-Cookie: " + cookie + "\r\n";
    socket->write(head + "Content-Type: application/json\r\nConnection: close\r\nContent-Length: "
                  + QByteArray::number(reply.body.size()) + "\r\n\r\n" + reply.body);
    socket->disconnectFromHost();
}
