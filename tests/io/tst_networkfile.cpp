#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/io/LN_NetworkFile.h>
#include <draizu/io/LN_Urls.h>

#include <support/TestHttpServer.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

using Response = TestHttpServer::Response;
using Framing = TestHttpServer::Framing;
// Path and answer of each route the server plays; the first path is the one asked for.
using Routes = QList<QPair<QString, Response>>;
Q_DECLARE_METATYPE(Response)
Q_DECLARE_METATYPE(Routes)

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

QString described(LN_ErrorStruct const & error)
{
    return QString::fromUtf8(error.code.category().name())
           + u" %1: %2"_s.arg(QString::number(error.code.value()), error.message);
}

// How Qt itself ends a plain GET of the URL, waited to its end.
LN_ErrorStruct qtEnd(QNetworkAccessManager & manager, QString const & url)
{
    std::unique_ptr<QNetworkReply> reply(manager.get(QNetworkRequest(QUrl(url))));
    QSignalSpy(reply.get(), &QNetworkReply::finished).wait(generousStallMs);
    return {std::error_code(reply->error(), QNetworkFileErrorCategory()), reply->errorString()};
}

// How a transfer is asked for and read, beyond what the server answers.
struct Reading
{
    int stallMs = generousStallMs;
    bool http2 = true;  // allowed, as for every request to the site: a stall then gets one retry
    int transferTimeoutMs = 0;
    int pauseMs = 0;  // after reading `body`, before the read that meets the end
    QByteArray secondAnswer = {};  // the body of the answer to a second request of the path, if any
    QByteArray body = {};  // what is read before the end or the failure
    int requests = 0;  // of the path, when counted
};

} // namespace

Q_DECLARE_METATYPE(Reading)

class TestNetworkFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void readsBody_data();
    void readsBody();
    void httpStatus_data();
    void httpStatus();
    void endings_data();
    void endings();

private:
    TestHttpServer server_;
    QNetworkAccessManager manager_;
};

void TestNetworkFile::initTestCase()
{
    QVERIFY(server_.listen());
    // Read once, at the library's first use of the site's address.
    qputenv("ORVANIS_LAUNCHER_SERVER_URL", server_.origin().toUtf8());
}

void TestNetworkFile::init()
{
    LN_Waits::setForTesting(LN_Waits::NetworkStall, generousStallMs);
    server_.clearRequests();
}

void TestNetworkFile::readsBody_data()
{
    QTest::addColumn<Routes>("routes");
    QTest::addColumn<QByteArray>("body");

    QString const f = u"/f"_s;
    QByteArray const text = "{\"format version\": 1}";
    QByteArray const big = QByteArray("0123456789abcdefghijklmnopqrstuvw").repeated(160000);
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
        server_.on(route, response);
    QString const path = routes.constFirst().first;

    LN_NetworkFile file(&manager_, LN_Util::createHttpRequest(server_.url(path)));
    QCOMPARE(file.size(), qint64(-1));
    char first[4];
    qint64 const firstCount = file.read(first, sizeof first);
    QVERIFY(firstCount > 0 || body.isEmpty());
    // An announced length may or may not have been reported yet; an unknown one is not known
    // before the end.
    if (routes.constLast().second.framing != Framing::ContentLength)
        QCOMPARE(file.size(), qint64(-1));

    QByteArray rest;
    qint64 const result = file.readAll(rest);
    QCOMPARE(result, rest.size());
    QCOMPARE(QByteArray(first, firstCount) + rest, body);
    QCOMPARE(file.read(first, 1), qint64(0));
    QCOMPARE(file.filename(), server_.url(routes.constLast().first).toString());
    QCOMPARE(file.getHeader(u"x-checksum"_s), u"café"_s);
    QVERIFY(file.hasHeader(u"x-checksum"_s) && !file.hasHeader(u"X-Missing"_s));
    // At the end Qt reports what arrived as the total, whether announced or not. After a
    // redirect it now and then reports nothing, and with HTTP/2 allowed Qt 6.4 now and then
    // sends the redirected GET twice.
    if (routes.size() == 1) {
        QCOMPARE(file.size(), body.isEmpty() ? qint64(-1) : qint64(body.size()));
        QCOMPARE(server_.requestCount(path), 1);
    }
}

void TestNetworkFile::httpStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<Response>("response");

    for (int status : {400, 401, 403, 404, 405, 407, 409, 410, 418, 422, 500, 501, 503, 504, 599}) {
        QTest::addRow("%d, page with the status", status) << status << Response::withStatus(status, "<html>");
        // The page reaches the reader before Qt ends the reply and sets its error.
        QTest::addRow("%d, page trickling in", status)
            << status << Response::withStatus(status, "<html>").addChunk(30, "gone").addChunk(30, "</html>");
        QTest::addRow("%d, no page", status) << status << Response::withStatus(status);
    }
}

// Whichever comes first, the page or the end of the reply, a read fails with the code Qt gives
// the status, through every reader of the site; the text is Qt's when Qt's error ended the
// wait, the status check's otherwise.
void TestNetworkFile::httpStatus()
{
    QFETCH(int, status);
    QFETCH(Response, response);
    QString const versionsUrl = LN_Urls::instance().getUrl(LN_Urls::Url_Versions);
    for (QString const & path : {u"/f"_s, u"/download/download-installer/"_s, QUrl(versionsUrl).path()})
        server_.on(path, response);
    auto const unlikeQt = [&](LN_ErrorStruct const & error, QString const & url) {
        LN_ErrorStruct const qt = qtEnd(manager_, url);
        QString const statusText = u"Request %1 returned response code %2"_s.arg(url).arg(status);
        bool const same = error.code == qt.code && (error.message == qt.message || error.message == statusText);
        return same ? QString() : described(error) + u" | Qt: "_s + described(qt);
    };

    LN_NetworkFile file(&manager_, LN_Util::createHttpRequest(server_.url(u"/f"_s)));
    LN_ErrorStruct error;
    QByteArray body;
    QCOMPARE(file.readAll(body, error.code, error.message), qint64(-1));
    QCOMPARE(unlikeQt(error, file.filename()), QString());

    LN_FileOpener opener(&manager_, LN_InstallerOptions());
    LN_FileOpener::TypedResult<LN_IODevice> const opened = opener.openFile(u"overview.json"_s);
    QCOMPARE(opened.device->readAll(body, error.code, error.message), qint64(-1));
    QString const siteUrl = opened.device->filename();
    QCOMPARE(unlikeQt(error, siteUrl), QString());

    QCOMPARE(unlikeQt(LN_AvailableInfo::availableOrvanisVersions(opener, QString()).error, versionsUrl), QString());
    LN_ErrorStruct const product = LN_AvailableInfo::getProductInfo(opener).error;
    if (qtEnd(manager_, siteUrl).code.value() == QNetworkReply::ContentNotFoundError)
        QCOMPARE(described(product), u"LN_AvailableInfoError 3: The selected version is not available"_s);
    else
        QCOMPARE(unlikeQt(product, siteUrl), QString());
}

void TestNetworkFile::endings_data()
{
    QTest::addColumn<Routes>("routes");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("outcome");  // empty for success; {url} is the URL of the request
    QTest::addColumn<Reading>("reading");

    QString const f = u"/f"_s;
    QString const loggedOut = u"LN_FileError 1: You need to be logged in to view {url}"_s;
    QString const canceled = u"QNetwork 5: Operation canceled"_s;
    QString const timedOut = u"QNetwork 4: Network connection timed out"_s;
    auto const toLogin = [](QByteArray const & location, QString const & login, Response const & answer) {
        return Routes{{u"/download"_s, Response::redirect(location)}, {login, answer}};
    };
    // Qt itself now and then takes a connection dropped in the body for the end of the reply,
    // so a body is cut off here by the request's own transfer timeout.
    QByteArray const head = "0123456789";
    Response const cutOff = Response::stall(100).addChunk(0, head);
    Response const stalls = Response::stall().addChunk(0, "partial");
    // Slow in all, but never silent for as long as the stall time.
    int const half = shortStallMs / 2;
    Response const steady = Response::ok("partial").addChunk(half, ";1").addChunk(half, ";2").addChunk(half, ";3");
    TestHttpServer closed;  // gone when the rows run
    QVERIFY(closed.listen());

    auto const row = [](char const * name, Routes const & routes, QString const & path, QString const & outcome,
                        Reading const & reading = {}) {
        QTest::newRow(name) << routes << path << outcome << reading;
    };
    // What the login page answers says nothing about the download, whichever way it comes.
    row("redirect to login page that answers 404",
        toLogin("/login/", u"/login/"_s, Response::withStatus(404, "<html>").addChunk(100, "</html>")), u"/download"_s,
        loggedOut);
    row("redirect to login page that answers 404 without a page",
        toLogin("/login/", u"/login/"_s, Response::withStatus(404)), u"/download"_s, loggedOut);
    row("redirect to encoded login path", toLogin("/%6Cogin/?next=%2Fdownload", u"/login/"_s, Response::ok("<form/>")),
        u"/download?file=overview.json"_s, loggedOut);
    row("connection dropped without answer", {{f, Response::drop()}}, f, u"QNetwork 2: Connection closed"_s);
    row("transfer cut off in the body", {{f, cutOff}}, f, canceled, {.transferTimeoutMs = 200, .body = head});
    // All that arrived was read; the next read must report the failure, not the end of the body.
    row("cut off while nobody waits", {{f, cutOff}}, f, canceled,
        {.transferTimeoutMs = 100, .pauseMs = 300, .body = head});
    // A reply that has failed before anyone waited on it is judged by its status alone.
    row("refused before the first read", {}, u"http://127.0.0.1:%1/f"_s.arg(closed.port()),
        u"QNetwork 1: Request {url} did not return a valid response code"_s, {.pauseMs = 200});
    row("not http", {}, u"data:text/plain,hello"_s,
        u"LN_FileError 4: Request {url} did not return a valid response code"_s);
    // A retry starts the body again from the beginning.
    row("stall, retry stalls too", {{f, stalls}}, f, timedOut,
        {.stallMs = shortStallMs, .body = "partialpartial", .requests = 2});
    row("stall, retry answers", {{f, stalls}}, f, QString(),
        {.stallMs = shortStallMs, .secondAnswer = "complete body", .body = "partialcomplete body", .requests = 2});
    row("stall of a request without HTTP/2, no retry", {{f, stalls}}, f, timedOut,
        {.stallMs = shortStallMs, .http2 = false, .secondAnswer = "complete body", .body = "partial", .requests = 1});
    row("slow transfer never stalls", {{f, steady}}, f, QString(),
        {.stallMs = shortStallMs, .body = "partial;1;2;3", .requests = 1});
}

void TestNetworkFile::endings()
{
    QFETCH(Routes, routes);
    QFETCH(QString, path);
    QFETCH(QString, outcome);
    QFETCH(Reading, reading);
    LN_Waits::setForTesting(LN_Waits::NetworkStall, reading.stallMs);
    for (auto const & [route, response] : routes)
        server_.on(route, [this, route, response, second = reading.secondAnswer](TestHttpServer::Request const &) {
            return !second.isEmpty() && server_.requestCount(route) == 2 ? Response::ok(second) : response;
        });

    QUrl const url = path.startsWith(u'/') ? server_.url(path) : QUrl(path);
    QNetworkRequest request = LN_Util::createHttpRequest(url);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, reading.http2);
    request.setTransferTimeout(reading.transferTimeoutMs);
    LN_NetworkFile file(&manager_, request);
    LN_ErrorStruct error;
    QVERIFY(file.open(error.code, error.message));

    // The reply ends while the reader is busy elsewhere.
    QByteArray data;
    char buffer[64];
    if (reading.pauseMs > 0) {
        while (data.size() < reading.body.size()) {
            qint64 const count = file.read(buffer, sizeof buffer);
            QVERIFY(count > 0);
            data.append(buffer, count);
        }
        QTest::qWait(reading.pauseMs);
    }
    QByteArray rest;
    qint64 const result = file.readAll(rest, error.code, error.message);
    QCOMPARE(result, outcome.isEmpty() ? rest.size() : qint64(-1));
    QCOMPARE(data + rest, reading.body);
    outcome.replace(u"{url}"_s, url.toString());
    QCOMPARE(error.message.isEmpty() ? QString() : described(error), outcome);
    // Given up for good, or at the end: a further read neither hands out what the reply
    // buffered nor asks again.
    qsizetype const requests = server_.requests().size();
    QCOMPARE(file.read(buffer, sizeof buffer, error.code, error.message), qint64(outcome.isEmpty() ? 0 : -1));
    QCOMPARE(error.message.isEmpty() ? QString() : described(error), outcome);
    QCOMPARE(server_.requests().size(), requests);
    if (reading.requests > 0)
        QCOMPARE(server_.requestCount(url.path()), reading.requests);
}

QTEST_GUILESS_MAIN(TestNetworkFile)
#include "tst_networkfile.moc"
