#include "TestLoginSite.h"

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>

using namespace Qt::StringLiterals;

namespace {

bool runOpenssl(QStringList const & arguments)
{
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::ForwardedOutputChannel);  // its progress marks stay out
    openssl.start(u"openssl"_s, arguments + QStringList{u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                                                        u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-days"_s, u"2"_s});
    if (openssl.waitForFinished() && openssl.exitStatus() == QProcess::NormalExit && openssl.exitCode() == 0)
        return true;
    qWarning("openssl %s failed: %s", qPrintable(arguments.join(u' ')), openssl.readAllStandardError().constData());
    return false;
}

QByteArray readFile(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

QByteArray TestLoginSite::Request::header(QByteArray const & name) const
{
    for (auto const & h : headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return {};
}

TestLoginSite::TestLoginSite(QObject * parent)
    : QObject(parent)
{
    connect(&server_, &QTcpServer::pendingConnectionAvailable, this, [this] {
        while (QTcpSocket * socket = server_.nextPendingConnection())
            serve_(socket);
    });
}

bool TestLoginSite::start()
{
    QString const ca = dir_.filePath(u"ca.pem"_s);
    QString const caKey = dir_.filePath(u"ca.key"_s);
    QString const cert = dir_.filePath(u"site.pem"_s);
    QString const key = dir_.filePath(u"site.key"_s);
    if (!dir_.isValid()
        || !runOpenssl({u"req"_s, u"-x509"_s, u"-subj"_s, u"/CN=draizu test CA"_s, u"-keyout"_s, caKey, u"-out"_s, ca})
        || !runOpenssl({u"req"_s, u"-x509"_s, u"-subj"_s, u"/CN=127.0.0.1"_s, u"-CA"_s, ca, u"-CAkey"_s, caKey,
                        u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s, u"-addext"_s,
                        u"basicConstraints=critical,CA:FALSE"_s, u"-keyout"_s, key, u"-out"_s, cert}))
        return false;

    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(readFile(cert)));
    configuration.setPrivateKey(QSslKey(readFile(key), QSsl::Ec));
    server_.setSslConfiguration(configuration);
    clientConfiguration_ = QSslConfiguration::defaultConfiguration();
    clientConfiguration_.setCaCertificates(QSslCertificate::fromData(readFile(ca)));
    return server_.listen(QHostAddress::LocalHost, 0);
}

QString TestLoginSite::origin() const
{
    return u"https://127.0.0.1:%1"_s.arg(server_.serverPort());
}

void TestLoginSite::clear()
{
    routes_.clear();
    requests_.clear();
}

// Reads one request, head and body, answers it and closes.
void TestLoginSite::serve_(QTcpSocket * socket)
{
    socket->setParent(this);
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    auto const read = [this, socket] {
        QByteArray const buffer = socket->peek(socket->bytesAvailable());
        qsizetype const end = buffer.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        QList<QByteArray> const lines = buffer.left(end).split('\n');
        Request request;
        request.method = lines.first().split(' ').value(0);
        request.path = QString::fromUtf8(lines.first().split(' ').value(1));
        for (QByteArray const & line : lines.mid(1)) {
            qsizetype const colon = line.indexOf(':');
            if (colon > 0)
                request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
        }
        qint64 const length = request.header("content-length").toLongLong();
        if (buffer.size() < end + 4 + length)
            return;
        request.body = buffer.mid(end + 4, length);
        socket->readAll();
        disconnect(socket, &QTcpSocket::readyRead, socket, nullptr);
        requests_.append(request);

        Answer const answer = routes_.value(request.path.section(u'?', 0, 0), {404, "{}", {}, false});
        if (answer.silent)
            return;
        QByteArray reply = "HTTP/1.1 " + QByteArray::number(answer.status) + " Status\r\n";
        for (QByteArray const & cookie : answer.cookies)
            reply += "Set-Cookie: " + cookie + "\r\n";
        socket->write(reply + "Content-Type: application/json\r\nConnection: close\r\nContent-Length: "
                      + QByteArray::number(answer.body.size()) + "\r\n\r\n" + answer.body);
        socket->disconnectFromHost();
    };
    connect(socket, &QTcpSocket::readyRead, socket, read);
    // The request may have come in with the handshake, before anyone listened for it.
    read();
}
