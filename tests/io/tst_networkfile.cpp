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
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QTextStream>

#include <memory>

using namespace Qt::StringLiterals;

using Response = TestHttpServer::Response;
using Routes = QList<QPair<QString, Response>>;
Q_DECLARE_METATYPE(Response)
Q_DECLARE_METATYPE(Routes)

namespace {

// Long enough that a healthy transfer on a loaded machine never comes near it, short enough
// that a read that hangs fails the test quickly.
constexpr int generousStallMs = 3000;
constexpr int shortStallMs = 300;

// Every page carries a header whose value is not ASCII.
Response page(QByteArray body) { return Response::ok(std::move(body)).addHeader("X-Checksum", "caf\xc3\xa9"); }

QString described(LN_ErrorStruct const & error)
{
    QString const code = QString::fromUtf8(error.code.category().name()) + u' ' + QString::number(error.code.value());
    return error.message.isEmpty() ? QString() : code + u": "_s + error.message;
}

struct Reading
{
    QByteArray body = {};  // what is read before the end or the failure
    QString outcome = {};  // empty for success; {url} is the URL of the request
    QString path = {};  // null: the first route's
    int stallMs = generousStallMs;
    int transferTimeoutMs = 0;
    int pauseMs = 0;  // after reading `body`, before the read that meets the end
    QByteArray secondAnswer = {};  // the body of the answer to a second request of the path, if any
    int requests = 1;  // of the path, when it is the only route
};

} // namespace

Q_DECLARE_METATYPE(Reading)

class TestNetworkFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(server_.listen());
        // Read once, at the library's first use of the site's address.
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", server_.origin().toUtf8());
    }

    void init() { server_.clearRequests(); }

    void reads_data()
    {
        QTest::addColumn<Routes>("routes");
        QTest::addColumn<Reading>("reading");

        QString const f = u"/f"_s;
        QByteArray const text = "{\"format version\": 1}";
        QString const loggedOut = u"LN_FileError 1: You need to be logged in to view {url}"_s;
        QString const canceled = u"QNetwork 5: Operation canceled"_s;
        QString const timedOut = u"QNetwork 4: Network connection timed out"_s;
        QString const noCode = u"Request {url} did not return a valid response code"_s;
        auto const redirect = [f](QByteArray const & to, Response const & answer) {
            return Routes{{f, Response::redirect(to)}, {QUrl::fromEncoded(to).path(), answer}};
        };
        // Qt itself now and then takes a connection dropped in the body for the end of the reply,
        // so a body is cut off here by the request's own transfer timeout.
        QByteArray const head = "0123456789";
        Response const cutOff = Response::stall(100).addChunk(0, head);
        Response const stalls = Response::stall().addChunk(0, "partial");
        // Slow in all, but never silent for as long as the stall time.
        int const half = shortStallMs / 2;
        Response const steady = page("partial").addChunk(half, ";1").addChunk(half, ";2").addChunk(half, ";3");
        TestHttpServer closed;  // gone when the rows run
        QVERIFY(closed.listen());

        auto const row = [](char const * name, Routes const & routes, Reading const & reading) {
            QTest::newRow(name) << routes << reading;
        };
        row("with length", {{f, page(text)}}, {.body = text});
        row("empty", {{f, page({})}}, {});
        row("chunked with pauses", {{f, page("one,").addChunk(40, "two,").addChunk(40, "three").withFraming(
                                            TestHttpServer::Framing::Chunked)}}, {.body = "one,two,three"});
        // Several times the reply's buffer: the reader must drain it for the transfer to go on.
        QByteArray const big = QByteArray("0123456789abcdefghijklmnopqrstuvw").repeated(160000);
        row("larger than the reply's buffer", {{f, page(big)}}, {.body = big});
        row("redirect to a path with login further in", redirect("/a/login/", page(text)), {.body = text});
        row("redirect to Login in capitals", redirect("/Login/", page(text)), {.body = text});
        row("login page asked for directly", {{u"/login/"_s, page(text)}}, {.body = text});
        // What the login page answers says nothing about the download, whichever way it comes.
        row("redirect to login page that answers 404",
            redirect("/login/", Response::withStatus(404, "<html>").addChunk(100, "</html>")), {.outcome = loggedOut});
        row("redirect to login page that answers 404 without a page", redirect("/login/", Response::withStatus(404)),
            {.outcome = loggedOut});
        row("redirect to encoded login path", redirect("/%6Cogin/?next=%2Ff", page("<form/>")), {.outcome = loggedOut});
        row("transfer cut off in the body", {{f, cutOff}},
            {.body = head, .outcome = canceled, .transferTimeoutMs = 200});
        // All that arrived was read; the next read must report the failure, not the end of the body.
        row("cut off while nobody waits", {{f, cutOff}},
            {.body = head, .outcome = canceled, .transferTimeoutMs = 100, .pauseMs = 300});
        // A reply that has failed before anyone waited on it is judged by its status alone.
        row("refused before the first read", {},
            {.outcome = u"QNetwork 1: "_s + noCode, .path = closed.url(u"/f"_s).toString(), .pauseMs = 200});
        row("not http", {}, {.outcome = u"LN_FileError 4: "_s + noCode, .path = u"data:,x"_s});
        // HTTP/2 allowed, as for every request to the site: a stall gets one retry, which starts the
        // body again from the beginning.
        row("stall, retry stalls too", {{f, stalls}},
            {.body = "partialpartial", .outcome = timedOut, .stallMs = shortStallMs, .requests = 2});
        row("stall, retry answers", {{f, stalls}},
            {.body = "partialcomplete body", .stallMs = shortStallMs, .secondAnswer = "complete body", .requests = 2});
        row("slow transfer never stalls", {{f, steady}}, {.body = "partial;1;2;3", .stallMs = shortStallMs});
    }

    void reads()
    {
        QFETCH(Routes, routes);
        QFETCH(Reading, reading);
        LN_Waits::setForTesting(LN_Waits::NetworkStall, reading.stallMs);
        for (auto const & [route, response] : routes)
            server_.on(route, [this, route, response, second = reading.secondAnswer](TestHttpServer::Request const &) {
                return !second.isEmpty() && server_.requestCount(route) == 2 ? page(second) : response;
            });
        QString const path = reading.path.isNull() ? routes.constFirst().first : reading.path;
        QUrl const url = path.startsWith(u'/') ? server_.url(path) : QUrl(path);
        QString const outcome = QString(reading.outcome).replace(u"{url}"_s, url.toString());
        QNetworkRequest request = LN_Util::createHttpRequest(url);
        request.setTransferTimeout(reading.transferTimeoutMs);
        LN_NetworkFile file(&manager_, request);
        LN_ErrorStruct error;
        QVERIFY(file.open(error.code, error.message));

        // A first short read; with a pause, all of the body, so that the reply ends while the
        // reader is busy elsewhere.
        QByteArray data;
        char buffer[4];
        while (data.size() < (reading.pauseMs > 0 ? reading.body.size() : qMin(1, reading.body.size()))) {
            qint64 const count = file.read(buffer, sizeof buffer);
            QVERIFY(count > 0);
            data.append(buffer, count);
        }
        QTest::qWait(reading.pauseMs);
        QByteArray rest;
        qint64 const result = file.readAll(rest, error.code, error.message);
        QCOMPARE(result, outcome.isEmpty() ? rest.size() : qint64(-1));
        QCOMPARE(data + rest, reading.body);
        QCOMPARE(described(error), outcome);
        // Given up for good, or at the end: a further read neither hands out what the reply
        // buffered nor asks again.
        QCOMPARE(file.read(buffer, sizeof buffer, error.code, error.message), qint64(outcome.isEmpty() ? 0 : -1));
        QCOMPARE(described(error), outcome);
        if (routes.size() == 1)
            QCOMPARE(server_.requestCount(url.path()), reading.requests);
        if (!outcome.isEmpty())
            return;
        QCOMPARE(file.filename(), server_.url(routes.constLast().first).toString());
        QCOMPARE(file.getHeader(u"x-checksum"_s), u"café"_s);
        QVERIFY(file.hasHeader(u"x-checksum"_s) && !file.hasHeader(u"X-Missing"_s));
        // At the end Qt reports what arrived as the total, announced or not; after a redirect now
        // and then nothing, and with HTTP/2 allowed Qt 6.4 now and then sends the redirected GET twice.
        QByteArray const last = reading.secondAnswer.isEmpty() ? reading.body : reading.secondAnswer;
        QVERIFY(routes.size() > 1 || file.size() == (last.isEmpty() ? -1 : last.size()));
    }

    void httpStatus_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<Response>("response");

        for (int status : {400, 401, 403, 404, 405, 407, 409, 410, 422, 500, 501, 503, 599}) {
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
    void httpStatus()
    {
        QFETCH(int, status);
        QFETCH(Response, response);
        LN_Waits::setForTesting(LN_Waits::NetworkStall, generousStallMs);
        QString const versionsUrl = LN_Urls::instance().getUrl(LN_Urls::Url_Versions);
        for (QString const & path : {u"/f"_s, u"/download/download-installer/"_s, QUrl(versionsUrl).path()})
            server_.on(path, response);
        // Against how Qt itself ends a plain GET of the URL.
        auto const unlikeQt = [&](LN_ErrorStruct const & error, QString const & url) {
            std::unique_ptr<QNetworkReply> const reply(manager_.get(QNetworkRequest(QUrl(url))));
            QSignalSpy(reply.get(), &QNetworkReply::finished).wait(generousStallMs);
            LN_ErrorStruct const qt{std::error_code(reply->error(), QNetworkFileErrorCategory()), reply->errorString()};
            QString const statusText = u"Request %1 returned response code %2"_s.arg(url).arg(status);
            bool const same = error.code == qt.code && (error.message == qt.message || error.message == statusText);
            return same ? QString() : described(error) + u" | Qt: "_s + described(qt);
        };

        LN_NetworkFile file(&manager_, LN_Util::createHttpRequest(server_.url(u"/f"_s)));
        LN_ErrorStruct error;
        QByteArray body;
        QCOMPARE(file.readAll(body, error.code, error.message), qint64(-1));
        QCOMPARE(unlikeQt(error, file.filename()), QString());

        // The product's overview comes through the opener's own read.
        LN_FileOpener opener(&manager_, LN_InstallerOptions());
        QCOMPARE(unlikeQt(LN_AvailableInfo::availableOrvanisVersions(opener, QString()).error, versionsUrl), QString());
        LN_ErrorStruct const product = LN_AvailableInfo::getProductInfo(opener).error;
        if (status == 404)
            QCOMPARE(described(product), u"LN_AvailableInfoError 3: The selected version is not available"_s);
        else
            QCOMPARE(unlikeQt(product, opener.openFile(u"overview.json"_s).device->filename()), QString());
    }

    // The site's address is read once per process, so each case is read by a child run of this program
    // with "--print-urls", which changes the variables after the first use to show that they are not read again.
    void urls_data()
    {
        // The server and the cookie domain as set; the login page, a page missing from the table of
        // paths, and the cookie domain as read.
        QTest::addColumn<QStringList>("texts");

        QString const host = LN_Urls::defaultHost();
        QString const local = u"127.0.0.1:8080"_s;
        QString const schemeInHost = u"http://http://"_s + local;
        QTest::newRow("empty variables") << QStringList{{}, {}, u"https://%1/login/ https://%1 %1"_s.arg(host)};
        QTest::newRow("no scheme is https, cookie domain keeps its scheme")
            << QStringList{local, u"https://c.test"_s, u"https://%1/login/ https://%1 https://c.test"_s.arg(local)};
        // The cookie domain is taken from the host when the host still holds a scheme after its own
        // has been taken off.
        QTest::newRow("host that still holds a scheme")
            << QStringList{schemeInHost, u"c.test"_s, u"%1/login/ %1 %2"_s.arg(schemeInHost, local)};
    }

    void urls()
    {
        QFETCH(QStringList, texts);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"ORVANIS_LAUNCHER_SERVER_URL"_s, texts.at(0));
        environment.insert(u"ORVANIS_LAUNCHER_COOKIE_DOMAIN"_s, texts.at(1));
        QProcess child;
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), {u"--print-urls"_s});
        QVERIFY(child.waitForFinished(30000) && child.exitCode() == 0);
        QCOMPARE(QString::fromUtf8(child.readAllStandardOutput()), texts.at(2));
    }

private:
    TestHttpServer server_;
    QNetworkAccessManager manager_;
};

int main(int argc, char ** argv)
{
    if (argc == 2 && qstrcmp(argv[1], "--print-urls") == 0) {
        LN_Urls const & urls = LN_Urls::instance();
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", "http://127.0.0.2:2");
        qputenv("ORVANIS_LAUNCHER_COOKIE_DOMAIN", "changed.test");
        QTextStream(stdout) << urls.getUrl(LN_Urls::Url_Login) << ' ' << urls.getUrl(LN_Urls::Url(99)) << ' '
                            << LN_Urls::instance().sessionCookieDomain();
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestNetworkFile test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_networkfile.moc"
