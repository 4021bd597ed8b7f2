// The local oserver for the account's tests, run as the service "OrvanisServer":
//     testoserver <port> <directory>
// It answers POST and PUT "/api" on 127.0.0.1 at the port after the pause in <directory>/delay
// (milliseconds, if that file exists), reading the command from the form field "json", and
// follows the files of the directory as they are at each request:
//     <command>  the answer to that command, e.g. "pull_cookies": a status, a blank, the body;
//                "200 {}" when there is no such file
//     PUT        present: a PUT gets 405
//     log        one line per request is added: the method, a blank, the command
// An answered "cmd_shutdown" ends the program.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    quint16 const port = QCoreApplication::arguments().value(1).toUShort();
    QDir const dir(QCoreApplication::arguments().value(2));
    auto const read = [&dir](QString const & name) {
        QFile file(dir.filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    QThread::msleep(read(u"delay"_s).trimmed().toULong());

    QTcpServer server;
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        QTcpSocket * socket = server.nextPendingConnection();
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [&, socket] {
            QByteArray const buffer = socket->peek(socket->bytesAvailable());
            qsizetype const end = buffer.indexOf("\r\n\r\n");
            qsizetype const field = buffer.toLower().indexOf("content-length:");
            qsizetype const length = field < 0 ? 0 : buffer.mid(field + 15, buffer.indexOf('\r', field) - field - 15).trimmed().toLongLong();
            if (end < 0 || buffer.size() < end + 4 + length)
                return;
            socket->readAll();
            QByteArray const method = buffer.left(buffer.indexOf(' '));
            QString const json = QUrlQuery(QString::fromUtf8(buffer.mid(end + 4, length))).queryItemValue(u"json"_s, QUrl::FullyDecoded);
            QString const command = QJsonDocument::fromJson(json.toUtf8()).array().first().toString();
            QFile log(dir.filePath(u"log"_s));
            if (log.open(QIODevice::Append))
                log.write(method + ' ' + json.toUtf8() + '\n');

            QByteArray answer = read(command);
            if (answer.isEmpty())
                answer = "200 {}";
            if (method == "PUT" && dir.exists(u"PUT"_s))
                answer = "405 ";
            QByteArray const body = answer.mid(answer.indexOf(' ') + 1);
            socket->write("HTTP/1.1 " + answer.left(answer.indexOf(' ')) + " Status\r\nContent-Type: application/json\r\n"
                          "Connection: close\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body);
            socket->disconnectFromHost();
            if (command == u"cmd_shutdown" && answer.startsWith("200"))
                QObject::connect(socket, &QObject::destroyed, &app, &QCoreApplication::quit);
        });
    });
    if (!server.listen(QHostAddress::LocalHost, port))
        return 1;
    return app.exec();
}
