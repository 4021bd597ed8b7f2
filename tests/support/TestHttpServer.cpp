#include "TestHttpServer.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 302: return "Found";
    case 404: return "Not Found";
    case 500: return "Internal Server Error";
    default: return "Status";
    }
}

} // namespace

QByteArray TestHttpServer::Request::header(QByteArray const & name) const
{
    for (Header const & h : headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return {};
}

TestHttpServer::Response TestHttpServer::Response::ok(QByteArray body, QByteArray contentType)
{
    Response response;
    response.addHeader("Content-Type", std::move(contentType));
    if (!body.isEmpty())
        response.addChunk(0, std::move(body));
    return response;
}

TestHttpServer::Response TestHttpServer::Response::withStatus(int status, QByteArray body)
{
    Response response = ok(std::move(body), "text/plain");
    response.status = status;
    return response;
}

TestHttpServer::Response TestHttpServer::Response::redirect(QByteArray location, int status)
{
    Response response;
    response.status = status;
    response.addHeader("Location", std::move(location));
    return response;
}

TestHttpServer::Response TestHttpServer::Response::stall(qint64 announced)
{
    Response response = ok({});
    response.ending = Ending::Stall;
    response.declaredLength = announced;
    return response;
}

TestHttpServer::Response TestHttpServer::Response::drop()
{
    Response response;
    response.sendHeaders = false;
    response.ending = Ending::Drop;
    return response;
}

TestHttpServer::Response & TestHttpServer::Response::addHeader(QByteArray name, QByteArray value)
{
    headers.append({std::move(name), std::move(value)});
    return *this;
}

TestHttpServer::Response & TestHttpServer::Response::addChunk(int delayMs, QByteArray data)
{
    body.append({delayMs, std::move(data)});
    return *this;
}

TestHttpServer::Response & TestHttpServer::Response::withFraming(Framing value)
{
    framing = value;
    return *this;
}

// One accepted connection: reads requests one after another and plays each one's answer,
// step by step on timers, before it looks at the next.
class TestHttpServer::Connection : public QObject
{
public:
    Connection(TestHttpServer * server, QTcpSocket * socket)
        : QObject(server)
        , server_(server)
        , socket_(socket)
    {
        socket_->setParent(this);
        connect(socket_, &QTcpSocket::readyRead, this, [this] { readRequests_(); });
        connect(socket_, &QTcpSocket::disconnected, this, &QObject::deleteLater);
        readRequests_();
    }

private:
    void readRequests_()
    {
        buffer_ += socket_->readAll();
        Request request;
        while (!busy_ && !silent_ && takeRequest_(&request)) {
            busy_ = true;
            closeAfter_ = request.header("connection").compare("close", Qt::CaseInsensitive) == 0;
            current_ = server_->answer_(request);
            step_ = 0;
            QTimer::singleShot(0, this, [this] {
                if (current_.sendHeaders)
                    socket_->write(headerBlock_());
                sendNextChunk_();
            });
        }
    }

    // False until a whole request is there; a body sent with it is skipped.
    bool takeRequest_(Request * request)
    {
        qsizetype const end = buffer_.indexOf("\r\n\r\n");
        if (end < 0)
            return false;
        QList<QByteArray> const lines = buffer_.left(end).split('\n');
        *request = Request();
        for (qsizetype i = 1; i < lines.size(); ++i) {
            qsizetype const colon = lines[i].indexOf(':');
            if (colon > 0)
                request->headers.append({lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()});
        }
        qint64 const length = request->header("content-length").toLongLong();
        if (buffer_.size() < end + 4 + length)
            return false;
        buffer_.remove(0, end + 4 + length);

        QByteArray const target = lines.first().split(' ').value(1);
        qsizetype const question = target.indexOf('?');
        request->path = QUrl::fromPercentEncoding(target.left(question < 0 ? target.size() : question));
        if (question >= 0)
            request->query = QUrlQuery(QString::fromUtf8(target.mid(question + 1)));
        return true;
    }

    QByteArray headerBlock_() const
    {
        QByteArray block = "HTTP/1.1 " + QByteArray::number(current_.status) + ' ' + reasonPhrase(current_.status)
                           + "\r\n";
        for (Header const & header : current_.headers)
            block += header.first + ": " + header.second + "\r\n";
        switch (current_.framing) {
        case Framing::ContentLength: {
            qint64 length = current_.declaredLength;
            if (length < 0) {
                length = 0;
                for (Chunk const & chunk : current_.body)
                    length += chunk.data.size();
            }
            block += "Content-Length: " + QByteArray::number(length) + "\r\n";
            break;
        }
        case Framing::Chunked:
            block += "Transfer-Encoding: chunked\r\n";
            break;
        case Framing::CloseDelimited:
            break;
        }
        if (closesConnection_())
            block += "Connection: close\r\n";
        return block + "\r\n";
    }

    bool closesConnection_() const { return closeAfter_ || current_.framing == Framing::CloseDelimited; }

    // A chunk without a delay goes out in one write with what comes before it, the headers
    // included, so that the client can get status and body in one packet.
    void sendNextChunk_()
    {
        if (step_ >= current_.body.size()) {
            end_();
            return;
        }
        auto const send = [this] {
            QByteArray const & data = current_.body[step_].data;
            bool const chunked = current_.framing == Framing::Chunked && current_.sendHeaders;
            // An empty piece of chunked coding would end the body.
            if (!(chunked && data.isEmpty()))
                socket_->write(chunked ? QByteArray::number(data.size(), 16) + "\r\n" + data + "\r\n" : data);
            ++step_;
            sendNextChunk_();
        };
        if (current_.body[step_].delayMs == 0)
            send();
        else
            QTimer::singleShot(current_.body[step_].delayMs, this, send);
    }

    void end_()
    {
        switch (current_.ending) {
        case Ending::Stall:
            silent_ = true;
            return;
        case Ending::Drop:
            // Whatever was written still goes out; the peer then sees the connection end.
            socket_->disconnectFromHost();
            silent_ = true;
            return;
        case Ending::Complete:
            break;
        }
        if (current_.framing == Framing::Chunked && current_.sendHeaders)
            socket_->write("0\r\n\r\n");
        if (closesConnection_()) {
            socket_->disconnectFromHost();
            silent_ = true;
            return;
        }
        busy_ = false;
        readRequests_();
    }

    TestHttpServer * server_;
    QTcpSocket * socket_;
    QByteArray buffer_;
    Response current_;
    qsizetype step_ = 0;
    bool busy_ = false;
    bool silent_ = false;
    bool closeAfter_ = false;
};

TestHttpServer::TestHttpServer(QObject * parent)
    : QObject(parent)
{
    connect(&server_, &QTcpServer::newConnection, this, &TestHttpServer::acceptConnections_);
}

TestHttpServer::~TestHttpServer()
{
    server_.close();
}

bool TestHttpServer::listen(QHostAddress const & address)
{
    return server_.listen(address, 0);
}

quint16 TestHttpServer::port() const
{
    return server_.serverPort();
}

QString TestHttpServer::origin() const
{
    return u"http://127.0.0.1:%1"_s.arg(port());
}

QUrl TestHttpServer::url(QString const & pathAndQuery) const
{
    return QUrl(origin() + pathAndQuery);
}

void TestHttpServer::on(QString const & path, Response response)
{
    on(path, Handler([response](Request const &) { return response; }));
}

void TestHttpServer::on(QString const & path, Handler handler)
{
    for (auto & route : routes_) {
        if (route.first == path) {
            route.second = std::move(handler);
            return;
        }
    }
    routes_.append({path, std::move(handler)});
}

int TestHttpServer::requestCount(QString const & path) const
{
    int count = 0;
    for (Request const & request : requests_) {
        if (request.path == path)
            ++count;
    }
    return count;
}

void TestHttpServer::acceptConnections_()
{
    while (QTcpSocket * socket = server_.nextPendingConnection())
        new Connection(this, socket);
}

TestHttpServer::Response TestHttpServer::answer_(Request const & request)
{
    requests_.append(request);
    for (auto const & route : routes_) {
        if (route.first == request.path)
            return route.second(request);
    }
    return Response::withStatus(404, "Not Found");
}
