#pragma once

// A scriptable HTTP/1.1 server for tests, on 127.0.0.1 at a free port. It runs on the thread
// that created it, so it answers whenever that thread's event loop runs (QSignalSpy::wait,
// QTRY_*, or the library's own nested loops).
//
// Script it per path (the query is not part of the path):
//
//     TestHttpServer server;
//     QVERIFY(server.listen());
//     server.on(u"/data/overview.json"_s, TestHttpServer::Response::ok(json, "application/json"));
//     server.on(u"/missing"_s, TestHttpServer::Response::withStatus(404, "gone"));
//     server.on(u"/slow"_s, TestHttpServer::Response::ok({}).addChunk(50, "abc").addChunk(50, "def"));
//     server.on(u"/unsized"_s,
//               TestHttpServer::Response::ok("body").withFraming(TestHttpServer::Framing::CloseDelimited));
//     server.on(u"/old"_s, TestHttpServer::Response::redirect("/login/?next=%2Fold"));
//     server.on(u"/hang"_s, TestHttpServer::Response::stall());   // headers, then silence
//     server.on(u"/cut"_s, TestHttpServer::Response::drop());     // closes without an answer
//     server.on(u"/api"_s, [](TestHttpServer::Request const & request) {
//         return TestHttpServer::Response::ok(request.query.queryItemValue(u"file"_s).toUtf8());
//     });
//     QNetworkRequest request(server.url(u"/slow?x=1"_s));
//     ... server.requestCount(u"/hang"_s), server.requests().last().header("authorization") ...
//
// A body is a list of chunks, each sent after its own delay; a chunk without one goes out in
// the same write as what precedes it, headers included. By default the answer carries a
// Content-Length of the whole body; Chunked uses chunked transfer coding, CloseDelimited sends
// no length and closes the connection after the body. A Stall ending leaves the connection
// open and silent after the chunks; a Drop ending closes it (before the headers when
// `sendHeaders` is false). Connections are kept alive between answers of known length.
// Unscripted paths answer 404.
//
// Two habits of Qt 6.4's client to keep in mind when counting requests or scripting failures:
// with HTTP/2 allowed it now and then sends a redirected GET twice, on two connections; and it
// now and then takes a connection dropped in the middle of a body for a complete reply.

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTcpServer>
#include <QUrl>
#include <QUrlQuery>

#include <functional>

class TestHttpServer : public QObject
{
    Q_OBJECT

public:
    using Header = QPair<QByteArray, QByteArray>;

    struct Request
    {
        QString path;  ///< decoded
        QUrlQuery query;
        QList<Header> headers;

        /// The value of the first header of that name, compared without regard to case.
        QByteArray header(QByteArray const & name) const;
    };

    enum class Framing { ContentLength, Chunked, CloseDelimited };
    enum class Ending { Complete, Stall, Drop };

    struct Chunk
    {
        int delayMs = 0;
        QByteArray data;
    };

    struct Response
    {
        int status = 200;
        QList<Header> headers;
        QList<Chunk> body;
        Framing framing = Framing::ContentLength;
        Ending ending = Ending::Complete;
        bool sendHeaders = true;
        qint64 declaredLength = -1;  ///< Content-Length to announce; -1 is the body's size

        static Response ok(QByteArray body, QByteArray contentType = "application/octet-stream");
        static Response withStatus(int status, QByteArray body = {});
        static Response redirect(QByteArray location, int status = 302);
        /// Headers that announce a body of `announced` bytes, then nothing more.
        static Response stall(qint64 announced = 1000);
        static Response drop();

        Response & addHeader(QByteArray name, QByteArray value);
        Response & addChunk(int delayMs, QByteArray data);
        Response & withFraming(Framing value);
    };

    using Handler = std::function<Response(Request const &)>;

    explicit TestHttpServer(QObject * parent = nullptr);
    ~TestHttpServer() override;

    bool listen(QHostAddress const & address = QHostAddress::LocalHost);
    quint16 port() const;
    /// "http://127.0.0.1:<port>", for settings that take a server's scheme and host.
    QString origin() const;
    /// The server's URL for a path with an optional query, e.g. "/a/b?x=1".
    QUrl url(QString const & pathAndQuery) const;

    void on(QString const & path, Response response);
    void on(QString const & path, Handler handler);

    QList<Request> requests() const { return requests_; }
    int requestCount(QString const & path) const;
    void clearRequests() { requests_.clear(); }

private:
    class Connection;
    friend class Connection;

    void acceptConnections_();
    Response answer_(Request const & request);

    QTcpServer server_;
    QList<QPair<QString, Handler>> routes_;
    QList<Request> requests_;
};
