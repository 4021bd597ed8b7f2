#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_NetworkFile.h>

#include <support/TestHttpServer.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

using Response = TestHttpServer::Response;
using Framing = TestHttpServer::Framing;
// Path and answer of each route the server plays; the first path is the one asked for.
using Routes = QList<QPair<QString, Response>>;
Q_DECLARE_METATYPE(Response)
Q_DECLARE_METATYPE(Routes)
Q_DECLARE_METATYPE(std::error_code)

namespace {

// Long enough that a healthy transfer on a loaded machine never comes near it, short enough
// that a read that hangs fails the test quickly.
constexpr int generousStallMs = 3000;
constexpr int shortStallMs = 300;

// Every page carries a header whose value is not ASCII.
Response page(QByteArray body)
{
    return Response::ok(std::move(body)).addHeader("X-Checksum", "caf\xc3\xa9");
}

} // namespace

class TestNetworkFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void readsBody_data();
    void readsBody();
    void failedReads_data();
    void failedReads();
    void stall_data();
    void stall();
    void destroyWhileTransferring();

private:
    std::unique_ptr<TestHttpServer> server_;
    std::unique_ptr<QNetworkAccessManager> manager_;
};

void TestNetworkFile::init()
{
    LN_Waits::setForTesting(LN_Waits::NetworkStall, generousStallMs);
    server_ = std::make_unique<TestHttpServer>();
    QVERIFY(server_->listen());
    manager_ = std::make_unique<QNetworkAccessManager>();
}

void TestNetworkFile::cleanup()
{
    manager_.reset();
    server_.reset();
    LN_Waits::resetForTesting();
}

void TestNetworkFile::readsBody_data()
{
    QTest::addColumn<Routes>("routes");
    QTest::addColumn<QByteArray>("body");

    QString const f = u"/f"_s;
    QByteArray const text = "{\"format version\": 1}";
    QByteArray big;
    for (int i = 0; big.size() < 5 * 1024 * 1024; ++i)
        big += QByteArray::number(i) + ',';
    auto const redirectTo = [&](QString const & to) {
        return Routes{{f, Response::redirect(to.toUtf8())}, {to, page(text)}};
    };
    QTest::newRow("with length") << Routes{{f, page(text)}} << text;
    QTest::newRow("empty") << Routes{{f, page({})}} << QByteArray();
    QTest::newRow("chunked with pauses")
        << Routes{{f, page("one,").addChunk(40, "two,").addChunk(40, "three").withFraming(Framing::Chunked)}}
        << QByteArray("one,two,three");
    QTest::newRow("no length, closed at end")
        << Routes{{f, page("abc").addChunk(30, "def").withFraming(Framing::CloseDelimited)}} << QByteArray("abcdef");
    // Several times the reply's buffer: the reader must drain it for the transfer to go on.
    QTest::newRow("larger than the reply's buffer") << Routes{{f, page(big)}} << big;
    QTest::newRow("redirect to a path with login further in") << redirectTo(u"/files/login/f"_s) << text;
    QTest::newRow("redirect to Login in capitals") << redirectTo(u"/Login/f"_s) << text;
    QTest::newRow("login page asked for directly") << Routes{{u"/login/f"_s, page(text)}} << text;
}

void TestNetworkFile::readsBody()
{
    QFETCH(Routes, routes);
    QFETCH(QByteArray, body);
    for (auto const & [route, response] : routes)
        server_->on(route, response);
    QString const path = routes.constFirst().first;
    bool const redirected = routes.size() > 1;

    LN_NetworkFile file(manager_.get(), LN_Util::createHttpRequest(server_->url(path)));
    std::error_code ec;
    QString message;
    QVERIFY(file.open(ec, message));
    QCOMPARE(file.size(), qint64(-1));

    char first[4];
    qint64 const firstCount = file.read(first, sizeof first, ec, message);
    QCOMPARE(message, QString());
    QVERIFY(firstCount > 0 || body.isEmpty());
    // An announced length may or may not have been reported yet; an unknown one is not known
    // before the end.
    if (routes.constLast().second.framing != Framing::ContentLength)
        QCOMPARE(file.size(), qint64(-1));

    QByteArray rest;
    qint64 const result = file.readAll(rest, ec, message);
    QCOMPARE(message, QString());
    QCOMPARE(result, rest.size());
    QCOMPARE(QByteArray(first, firstCount) + rest, body);
    char byte = 0;
    QCOMPARE(file.read(&byte, 1), qint64(0));
    QCOMPARE(file.filename(), server_->url(routes.constLast().first).toString());
    QCOMPARE(file.getHeader(u"x-checksum"_s), u"café"_s);
    QVERIFY(file.hasHeader(u"x-checksum"_s) && !file.hasHeader(u"X-Missing"_s));
    // At the end Qt reports what arrived as the total, whether announced or not. After a
    // redirect it now and then reports nothing, and with HTTP/2 allowed Qt 6.4 now and then
    // sends the redirected GET twice.
    if (!redirected) {
        QCOMPARE(file.size(), body.isEmpty() ? qint64(-1) : qint64(body.size()));
        QCOMPARE(server_->requestCount(path), 1);
    }
}

void TestNetworkFile::failedReads_data()
{
    QTest::addColumn<Routes>("routes");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("transferTimeoutMs");
    QTest::addColumn<int>("pauseMs");  // after reading what comes before the failure
    QTest::addColumn<QByteArray>("bodyBeforeFailure");
    QTest::addColumn<std::error_code>("error");
    QTest::addColumn<QString>("message");  // {url} is the URL of the request

    auto const network = [](QNetworkReply::NetworkError e) { return std::error_code(e, QNetworkFileErrorCategory()); };
    std::error_code const unknown = make_error_code(LN_FileError::Unknown);
    std::error_code const notLoggedIn = make_error_code(LN_FileError::NotLoggedIn);
    QString const f = u"/f"_s;
    QString const loggedOut = u"You need to be logged in to view {url}"_s;
    QString const noStatus = u"Request {url} did not return a valid response code"_s;
    auto const toLogin = [](QByteArray const & location, QString const & login, Response const & answer) {
        return Routes{{u"/download"_s, Response::redirect(location)}, {login, answer}};
    };
    Response const form = Response::ok("<form/>", "text/html");
    // Qt itself now and then takes a connection dropped in the body for the end of the reply,
    // so a body is cut off here by the request's own transfer timeout.
    QByteArray const head = "0123456789";
    Response const cutOff = Response::stall(100).addChunk(0, head);
    quint16 const closedPort = [] {
        TestHttpServer probe;
        return probe.listen() ? probe.port() : quint16(1);
    }();

    auto const row = [](char const * name, Routes const & routes, QString const & path, std::error_code error,
                        QString const & message, int timeoutMs = 0, int pauseMs = 0, QByteArray const & before = {}) {
        QTest::newRow(name) << routes << path << timeoutMs << pauseMs << before << error << message;
    };
    row("404 without body", {{f, Response::withStatus(404)}}, f, network(QNetworkReply::ContentNotFoundError),
        u"Error transferring {url} - server replied: Not Found"_s);
    // A page that arrives before the reply ends is seen before Qt has judged the status.
    row("404 with a page", {{f, Response::withStatus(404, "<html>no such").addChunk(100, "</html>")}}, f, unknown,
        u"Request {url} returned response code 404"_s);
    row("redirect to login", toLogin("/login/?next=%2Fdownload", u"/login/"_s, form), u"/download?file=overview.json"_s,
        notLoggedIn, loggedOut);
    row("redirect to login page that answers 404",
        toLogin("/login/", u"/login/"_s, Response::withStatus(404, "<html>").addChunk(100, "</html>")), u"/download"_s,
        notLoggedIn, loggedOut);
    row("redirect to encoded login path", toLogin("/%6Cogin/x", u"/login/x"_s, form), u"/download"_s, notLoggedIn,
        loggedOut);
    row("connection dropped without answer", {{f, Response::drop()}}, f, network(QNetworkReply::RemoteHostClosedError),
        u"Connection closed"_s);
    row("transfer cut off in the body", {{f, cutOff}}, f, network(QNetworkReply::OperationCanceledError),
        u"Operation canceled"_s, 200, 0, head);
    // All that arrived was read; the next read must report the failure, not the end of the body.
    row("cut off while nobody waits", {{f, cutOff}}, f, network(QNetworkReply::OperationCanceledError),
        u"Operation canceled"_s, 100, 300, head);
    // A reply that has failed before anyone waited on it is judged by its status alone.
    row("refused before the first read", {}, u"http://127.0.0.1:%1/f"_s.arg(closedPort),
        network(QNetworkReply::ConnectionRefusedError), noStatus, 0, 200);
    row("not http", {}, u"data:text/plain,hello"_s, unknown, noStatus);
}

void TestNetworkFile::failedReads()
{
    QFETCH(Routes, routes);
    QFETCH(QString, path);
    QFETCH(int, transferTimeoutMs);
    QFETCH(int, pauseMs);
    QFETCH(QByteArray, bodyBeforeFailure);
    QFETCH(std::error_code, error);
    QFETCH(QString, message);
    for (auto const & [route, response] : routes)
        server_->on(route, response);

    QUrl const url = path.startsWith(u'/') ? server_->url(path) : QUrl(path);
    QNetworkRequest request = LN_Util::createHttpRequest(url);
    request.setTransferTimeout(transferTimeoutMs);
    LN_NetworkFile file(manager_.get(), request);
    std::error_code ec;
    QString text;
    QVERIFY(file.open(ec, text));

    // The reply fails while the reader is busy elsewhere.
    QByteArray data;
    char buffer[64];
    if (pauseMs > 0) {
        while (data.size() < bodyBeforeFailure.size()) {
            qint64 const count = file.read(buffer, sizeof buffer);
            QVERIFY(count > 0);
            data.append(buffer, count);
        }
        QTest::qWait(pauseMs);
    }
    // Given up for good after the first failure: a further read neither hands out what the
    // reply buffered nor asks again.
    QByteArray rest;
    QCOMPARE(file.readAll(rest, ec, text), qint64(-1));
    qsizetype const requests = server_->requests().size();
    std::error_code againCode;
    QString again;
    QCOMPARE(file.read(buffer, sizeof buffer, againCode, again), qint64(-1));
    QCOMPARE(data + rest, bodyBeforeFailure);
    QCOMPARE(text, QString(message).replace(u"{url}"_s, url.toString()));
    QCOMPARE(ec, error);
    QCOMPARE(again, text);
    QCOMPARE(againCode, error);
    QCOMPARE(server_->requests().size(), requests);
}

void TestNetworkFile::stall_data()
{
    QTest::addColumn<Response>("first");  // the answer to every request but a second one
    QTest::addColumn<bool>("siteRequest");
    QTest::addColumn<bool>("secondAnswers");
    QTest::addColumn<int>("requests");
    QTest::addColumn<bool>("timesOut");
    QTest::addColumn<QByteArray>("afterFirstRead");

    Response const stalls = Response::stall().addChunk(0, "partial");
    // Slow in all, but never silent for as long as the stall time.
    Response steady = Response::ok("partial");
    for (char const * piece : {";1", ";2", ";3", ";4", ";5"})
        steady.addChunk(shortStallMs / 2, piece);
    // After a retry the body starts again from the beginning.
    QTest::newRow("site request, both stall") << stalls << true << false << 2 << true << QByteArray("partial");
    QTest::newRow("site request, retry answers") << stalls << true << true << 2 << false << QByteArray("complete body");
    QTest::newRow("plain request, no retry") << stalls << false << true << 1 << true << QByteArray();
    QTest::newRow("slow transfer never stalls") << steady << true << false << 1 << false << QByteArray(";1;2;3;4;5");
}

void TestNetworkFile::stall()
{
    QFETCH(Response, first);
    QFETCH(bool, siteRequest);
    QFETCH(bool, secondAnswers);
    QFETCH(int, requests);
    QFETCH(bool, timesOut);
    QFETCH(QByteArray, afterFirstRead);

    LN_Waits::setForTesting(LN_Waits::NetworkStall, shortStallMs);
    server_->on(u"/f"_s, [&](TestHttpServer::Request const &) {
        return secondAnswers && server_->requestCount(u"/f"_s) == 2 ? Response::ok("complete body") : first;
    });

    QUrl const url = server_->url(u"/f"_s);
    LN_NetworkFile file(manager_.get(), siteRequest ? LN_Util::createHttpRequest(url) : QNetworkRequest(url));
    std::error_code ec;
    QString message;
    QVERIFY(file.open(ec, message));
    char buffer[64];
    QCOMPARE(file.read(buffer, sizeof buffer, ec, message), qint64(7));
    QCOMPARE(QByteArray(buffer, 7), QByteArray("partial"));

    QByteArray rest;
    qint64 const result = file.readAll(rest, ec, message);
    QCOMPARE(result, timesOut ? qint64(-1) : rest.size());
    QCOMPARE(server_->requestCount(u"/f"_s), requests);
    QCOMPARE(rest, afterFirstRead);
    if (!timesOut)
        return;
    QCOMPARE(ec, std::error_code(QNetworkReply::TimeoutError, QNetworkFileErrorCategory()));
    QCOMPARE(message, u"Network connection timed out"_s);
    // Given up for good: no third request.
    message.clear();
    QCOMPARE(file.read(buffer, sizeof buffer, ec, message), qint64(-1));
    QCOMPARE(message, u"Network connection timed out"_s);
    QCOMPARE(server_->requestCount(u"/f"_s), requests);
}

void TestNetworkFile::destroyWhileTransferring()
{
    server_->on(u"/f"_s, Response::ok("first").addChunk(5000, "never read"));
    {
        LN_NetworkFile file(manager_.get(), LN_Util::createHttpRequest(server_->url(u"/f"_s)));
        char buffer[16];
        QCOMPARE(file.read(buffer, sizeof buffer), qint64(5));
    }
    // The aborted reply leaves the manager usable.
    server_->on(u"/g"_s, Response::ok("again"));
    LN_NetworkFile again(manager_.get(), LN_Util::createHttpRequest(server_->url(u"/g"_s)));
    QByteArray data;
    QCOMPARE(again.readAll(data), qint64(5));
}

QTEST_GUILESS_MAIN(TestNetworkFile)
#include "tst_networkfile.moc"
