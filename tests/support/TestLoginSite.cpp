#include "TestLoginSite.h"

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>

namespace {

bool runOpenssl(QStringList const & arguments)
{
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  arguments + QStringList{QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                                          QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
                                          QStringLiteral("-days"), QStringLiteral("2")});
    return openssl.waitForFinished() && openssl.exitStatus() == QProcess::NormalExit && openssl.exitCode() == 0;
}

QByteArray readFile(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TestLoginSite::TestLoginSite() = default;

bool TestLoginSite::listen(quint16 port)
{
    if (!server_)
        server_ = std::make_unique<QTcpServer>();
    QObject::connect(server_.get(), &QTcpServer::pendingConnectionAvailable, server_.get(), [this] {
        while (QTcpSocket * socket = server_->nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { serve_(socket); });
            serve_(socket); // TLS may have delivered the request with the handshake
        }
    });
    return server_->listen(QHostAddress::LocalHost, port);
}

bool TestLoginSite::listenTls()
{
    QString const ca = certificates_.filePath(QStringLiteral("ca.pem"));
    QString const caKey = certificates_.filePath(QStringLiteral("ca.key"));
    QString const certificate = certificates_.filePath(QStringLiteral("site.pem"));
    QString const key = certificates_.filePath(QStringLiteral("site.key"));
    if (!certificates_.isValid()
        || !runOpenssl({QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-subj"),
                        QStringLiteral("/CN=draizu test CA"), QStringLiteral("-keyout"), caKey, QStringLiteral("-out"), ca})
        || !runOpenssl({QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"),
                        QStringLiteral("-CA"), ca, QStringLiteral("-CAkey"), caKey, QStringLiteral("-addext"),
                        QStringLiteral("subjectAltName=IP:127.0.0.1"), QStringLiteral("-addext"),
                        QStringLiteral("basicConstraints=critical,CA:FALSE"), QStringLiteral("-keyout"), key,
                        QStringLiteral("-out"), certificate}))
        return false;
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(readFile(certificate)));
    configuration.setPrivateKey(QSslKey(readFile(key), QSsl::Ec));
    auto server = std::make_unique<QSslServer>();
    server->setSslConfiguration(configuration);
    server_ = std::move(server);
    clientConfiguration_ = QSslConfiguration::defaultConfiguration();
    clientConfiguration_.setCaCertificates(QSslCertificate::fromData(readFile(ca)));
    return listen();
}

QString TestLoginSite::origin() const
{
    bool const tls = qobject_cast<QSslServer *>(server_.get());
    return QStringLiteral("%1://127.0.0.1:%2").arg(tls ? QStringLiteral("https") : QStringLiteral("http")).arg(server_->serverPort());
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
