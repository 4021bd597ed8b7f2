#include <draizu/account/LN_AccountSettings.h>
#include <draizu/account/LN_CookieUtil.h>
#include <draizu/account/LN_LoginStatus.h>
#include <draizu/account/LN_SettingsFile.h>
#include <draizu/core/LN_Waits.h>

#include <support/TestLoginSite.h>

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <functional>

using namespace Qt::StringLiterals;

using Answer = TestLoginSite::Answer;
using Routes = QList<QPair<QString, Answer>>;
Q_DECLARE_METATYPE(Routes)

namespace {

QString const loginPage = u"/login/launcher/"_s;
QString const validatePage = u"/validate/"_s;
QString const applicationPage = u"/oauth2/application_token"_s;
QByteArray const user = R"({"username": "ann"})";

// Trusts the login site's CA alone and keeps every reply in view.
class Manager : public QNetworkAccessManager
{
public:
    QSslConfiguration tls;
    QList<QPointer<QNetworkReply>> replies;

    // The library deletes every reply it has read, so when none is left nothing more comes.
    bool settled() const
    {
        return std::all_of(replies.begin(), replies.end(), [](auto const & reply) { return reply.isNull(); });
    }

protected:
    QNetworkReply * createRequest(Operation op, QNetworkRequest const & original, QIODevice * data) override
    {
        QNetworkRequest request(original);
        request.setSslConfiguration(tls);
        replies.append(QNetworkAccessManager::createRequest(op, request, data));
        return replies.last();
    }
};

QString stateName(LN_LoginState state)
{
    static char const * const names[] = {"LoggedOut", "LoggingIn", "Reconnecting", "LoggedIn", "LoggingOut"};
    return QString::fromLatin1(names[static_cast<int>(state)]);
}

void writeFile(QString const & path, QByteArray const & content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

} // namespace

class TestAccount : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(site_.start());
        manager_.tls = site_.clientConfiguration();
        // Read once, at the library's first use of the site's address.
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
        qputenv("ORVANIS_LAUNCHER_COOKIE_DOMAIN", "127.0.0.1");
        LN_AccountSettings::setApplicationLoginUrlForTesting(QUrl(site_.origin() + applicationPage));
        // Short, yet long enough for a TLS exchange on a loaded machine under the sanitizers.
        LN_Waits::setForTesting(LN_Waits::LoginAbort, 1000);
    }

    void init() { site_.clear(); }

    // The manager's thread drops its TLS connections while the event loop still runs, so that
    // none is left half torn down for the leak check at exit.
    void cleanupTestCase()
    {
        manager_.clearConnectionCache();
        QTest::qWait(100);
    }

    // Each row: what the site answers, the calls made one after another (each one's replies
    // read before the next, unless a wait follows), and what is signalled in order (a state
    // by its new name), then {session|token|user}.
    void scenarios_data()
    {
        QTest::addColumn<Routes>("routes");
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expected");

        auto const page = [](QString const & path, QByteArray body, QList<QByteArray> cookies = {}) {
            return Routes{{path, Answer{200, std::move(body), std::move(cookies)}}};
        };
        auto const application = [](QByteArray first, QByteArray second = user) {
            return Routes{{applicationPage, {200, std::move(first), {}}}, {validatePage, {200, std::move(second), {}}}};
        };
        auto const row = [](char const * name, Routes const & routes, QString const & steps, QString const & expected) {
            QTest::newRow(name) << routes << steps << expected;
        };
        QByteArray const session = "sessionid=s1; Path=/";
        QString const noSession = u"LoggingIn / error: Error while logging in: Response did not include sessionid / "_s;
        QString const badJson = u"JSON Parse error at line 1, column 2: illegal value"_s;
        QString const notObject = u"Incorrect JSON response. Expected object. / LoggedOut / {||}"_s;
        QString const noUser = u"Access token invalid. No username found"_s;

        row("password login", page(loginPage, user, {session}), u"login"_s, u"LoggingIn / LoggedIn / {s1||ann}"_s);
        row("first fitting cookie, for a subdomain",
            page(loginPage, user, {"sessionid=s0; Path=/account", "sessionid=s2; Domain=www.127.0.0.1; Path=/", session}),
            u"login"_s, u"LoggingIn / LoggedIn / {s2||ann}"_s);
        row("cookie for another domain, a page", page(loginPage, "<html>", {"sessionid=s1; Domain=x127.0.0.1; Path=/"}),
            u"login"_s, noSession + u"LoggedOut / {||}"_s);
        row("login refused in words", page(loginPage, R"({"error": "Wrong password"})"), u"login"_s,
            u"LoggingIn / error: Error while logging in: Wrong password / LoggedOut / {||}"_s);
        row("cookie with a refusal", page(loginPage, R"({"error": "Locked"})", {session}), u"login"_s,
            u"LoggingIn / LoggedOut / {||}"_s);
        row("cookie with a page", page(loginPage, "<html>", {session}), u"login"_s,
            u"LoggingIn / error: Failed parse json: "_s + badJson + u" / LoggedOut / {||}"_s);
        row("cookie with an array", page(loginPage, "[]", {session}), u"login"_s, u"LoggingIn / error: "_s + notObject);
        row("cookie with no body", page(loginPage, {}, {session}), u"login"_s,
            u"LoggingIn / error: Read error: Unknown error / LoggedOut / {||}"_s);
        row("login answered 400", Routes{{loginPage, Answer{400, R"({"error": "x"})", {}, false}}}, u"login"_s,
            u"LoggingIn / error: Failed to log in: Error transferring {origin}/login/launcher/ - server replied: Status"
            u" / LoggedOut / {||}"_s);
        row("login never answered", Routes{{loginPage, Answer{200, {}, {}, true}}}, u"login"_s,
            u"LoggingIn / error: Failed to log in: request timed out. / LoggedOut / {||}"_s);

        row("session validated", page(validatePage, user), u"reconnect s1"_s, u"Reconnecting / LoggedIn / {s1||ann}"_s);
        row("session expired", page(validatePage, R"({"error": "Invalid sessionid"})"), u"reconnect s1"_s,
            u"Reconnecting / LoggedOut / {||}"_s);
        row("session refused in words", page(validatePage, R"({"error": "Revoked"})"), u"reconnect s1"_s,
            u"Reconnecting / error: Revoked / LoggedOut / {||}"_s);
        row("refresh with no session", page(validatePage, user), u"refresh"_s,
            u"Reconnecting / error: No sessionid found / LoggedOut / {||}"_s);
        row("session handed over", page(validatePage, user), u"session s1"_s, u"LoggedIn / {s1||ann}"_s);

        row("application login", application(R"({"access_token": "t1"})"), u"oauth"_s, u"LoggingIn / LoggedIn / {|t1|ann}"_s);
        row("application login refused, waited for", application(R"({"error": "invalid_client"})"), u"oauth; wait"_s,
            u"LoggingIn / LoggedOut / wait: true - / {||}"_s);
        row("no access token, waited for", application(R"({"token_type": "bearer"})"), u"oauth; wait"_s,
            u"LoggingIn / error: No access token found / LoggedOut / wait: false No access token found / {||}"_s);
        row("application login answered with a page", application("<html>"), u"oauth"_s,
            u"LoggingIn / error: "_s + badJson + u" / LoggedOut / {||}"_s);
        row("application login answered with an array", application("[1]"), u"oauth"_s, u"LoggingIn / error: "_s + notObject);
        row("application login with no body", application({}), u"oauth"_s,
            u"LoggingIn / error: Unknown error / LoggedOut / {||}"_s);
        row("token without a user", application(R"({"access_token": "t1"})", "{}"), u"oauth"_s,
            u"LoggingIn / error: "_s + noUser + u" / LoggedOut / {||}"_s);
        // No change of state follows that failure, so only the run's own change ends the wait.
        row("token failure while logged out, waited for", page(validatePage, "{}"), u"token t1; wait"_s,
            u"error: "_s + noUser + u" / LoggingOut / wait: false "_s + noUser + u" / {||}"_s);

        row("file with both pairs", application(R"({"access_token": "t1"})"),
            u"file client_id=c1 client_secret=s1 username=ann password=pw"_s, u"LoggingIn / file: true / LoggedIn / {|t1|ann}"_s);
        row("file with a client id alone", page(loginPage, user, {session}), u"file client_id=c1 username=ann password=pw"_s,
            u"LoggingIn / file: true / LoggedIn / {s1||ann}"_s);
        row("file with no whole pair", {}, u"file client_id=c1 username=ann"_s, u"file: false / {||}"_s);

        row("logout", page(u"/logout/"_s, "{}"), u"user ann; logout"_s, u"LoggedIn / LoggingOut / LoggedOut / {||}"_s);
        row("logout never answered", page(validatePage, user) + Routes{{u"/logout/"_s, Answer{200, {}, {}, true}}},
            u"reconnect s1; token t1; logout"_s,
            u"Reconnecting / LoggedIn / LoggingOut / error: Failed to log out: request timed out. / LoggedIn / {s1||ann}"_s);
    }

    void scenarios()
    {
        QFETCH(Routes, routes);
        QFETCH(QString, steps);
        for (auto const & route : routes)
            site_.on(route.first, route.second);
        QTEST(run_(steps.split(u"; "_s)), "expected");
    }

    // What each call sends, all by POST as a form: path, authorization and the exact body.
    void exchanges_data()
    {
        QTest::addColumn<QString>("step");
        QTest::addColumn<QString>("expected");

        QTest::newRow("password login")
            << u"login"_s << u"/login/launcher/ |  | format=json&username=ann%20lee%2B%C3%A9&password=p%26ss%3Dw%25rd%2F%3F%23"_s;
        QTest::newRow("session validation") << u"reconnect s/1+="_s << u"/validate/ |  | sessionid=s%2F1%2B%3D&format=json"_s;
        QTest::newRow("token validation") << u"token t1"_s << u"/validate/ | Bearer t1 | "_s;
        QTest::newRow("application login") << u"oauth"_s << u"/oauth2/application_token | Basic Y2xpZW50OnMzY3JldA== | "_s;
        QTest::newRow("logout") << u"logout"_s << u"/logout/ |  | format=json"_s;
    }

    void exchanges()
    {
        QFETCH(QString, step);
        run_({step});
        QCOMPARE(site_.requests().size(), 1);
        TestLoginSite::Request const request = site_.requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.header("content-type"), "application/x-www-form-urlencoded");
        QTEST(u"%1 | %2 | %3"_s.arg(request.path, QString::fromUtf8(request.header("authorization")),
                                    QString::fromUtf8(request.body)),
              "expected");
    }

    // Every row first loads a complete file, so a value the row's file lacks must come back
    // empty, and a failed load must keep the first file's values.
    void settingsFile_data()
    {
        QTest::addColumn<QByteArray>("content");  // null: no file; "/": the path is a directory
        QTest::addColumn<QString>("expected");    // user|password|id|secret|licences, or the failure

        QTest::newRow("every key") << "username=ann\npassword=p=w d\nclient_id=c1\nclient_secret=s1\n"
                                      "accept_eula=Orvanis EULA, Labs EULA\n"_ba
                                   << u"ann|p=w d|c1|s1|Orvanis EULA,Labs EULA"_s;
        QTest::newRow("client pair only") << "client_id=c1\nclient_secret=s1\n"_ba << u"||c1|s1|"_s;
        QTest::newRow("one licence, quoted commas") << "accept_eula=Orvanis EULA\nusername=\"a, b\"\n"_ba
                                                    << u"a, b||||Orvanis EULA"_s;
        QTest::newRow("no file") << QByteArray() << u"||||"_s;
        QTest::newRow("unterminated section") << "username=ann\n[login\n"_ba << u"QSettings 2: format error"_s;
        QTest::newRow("a directory") << "/"_ba << u"QSettings 1: access error"_s;
    }

    void settingsFile()
    {
        QFETCH(QByteArray, content);
        QTemporaryDir dir;
        QString const path = dir.filePath(u"credentials.ini"_s);
        writeFile(path, "username=u0\npassword=p0\nclient_id=c0\nclient_secret=s0\naccept_eula=L0\n");
        LN_SettingsFile file(path);
        QVERIFY(!file.load().isError());
        QFile::remove(path);
        if (content == "/")
            QVERIFY(QDir().mkdir(path));
        else if (!content.isNull())
            writeFile(path, content);

        LN_ErrorStruct const error = file.load();
        QString const values = QStringList{file.username(), file.password(), file.clientId(), file.clientSecret(),
                                           file.acceptedLicenses().join(u',')}
                                   .join(u'|');
        if (error.isError()) {
            QCOMPARE(values, u"u0|p0|c0|s0|L0"_s);
            QTEST(u"%1 %2: %3"_s.arg(QString::fromUtf8(error.code.category().name())).arg(error.code.value()).arg(error.message),
                  "expected");
        } else {
            QTEST(values, "expected");
        }
    }

    void sessionCookie_data()
    {
        QTest::addColumn<QString>("cookie");  // name, domain and path; "-" for none
        QTest::addColumn<bool>("accepted");

        QTest::newRow("the cookie domain") << u"sessionid 127.0.0.1 /"_s << true;
        QTest::newRow("a subdomain") << u"sessionid www.127.0.0.1 /"_s << true;
        QTest::newRow("leading dot") << u"sessionid .127.0.0.1 /"_s << true;
        QTest::newRow("same letters, no dot") << u"sessionid x127.0.0.1 /"_s << false;
        QTest::newRow("domain as a prefix") << u"sessionid 127.0.0.1.evil /"_s << false;
        QTest::newRow("shorter domain") << u"sessionid 0.0.1 /"_s << false;
        QTest::newRow("no domain") << u"sessionid - /"_s << false;
        QTest::newRow("name in capitals") << u"SESSIONID 127.0.0.1 /"_s << false;
        QTest::newRow("deeper path") << u"sessionid 127.0.0.1 /account"_s << false;
    }

    void sessionCookie()
    {
        QFETCH(QString, cookie);
        QStringList const parts = cookie.split(u' ').replaceInStrings(u"-"_s, QString());
        QNetworkCookie tested(parts[0].toUtf8(), "v");
        tested.setDomain(parts[1]);
        tested.setPath(parts[2]);
        QTEST(LN_CookieUtil::isSessionidCookie(tested), "accepted");
    }

    void createdCookieIsTheSessionCookie()
    {
        QNetworkCookie const cookie = LN_CookieUtil::createSessionCookie(u"caf\u00e9"_s);
        QVERIFY(LN_CookieUtil::isSessionidCookie(cookie));
        QCOMPARE(cookie.value(), "caf\xc3\xa9"_ba);
        QVERIFY(cookie.isSecure() && cookie.isHttpOnly());
    }

private:
    QString run_(QStringList const & steps)
    {
        QTemporaryDir dir;
        LN_LoginStatus status(&manager_);
        QStringList log;
        LN_LoginState last = status.loginState();
        connect(&status, &LN_LoginStatus::loginStateChanged, &status, [&](LN_LoginState from, LN_LoginState to) {
            log << (from == last && to == status.loginState() ? stateName(to) : u"wrong change"_s);
            last = to;
        });
        connect(&status, &LN_LoginStatus::error, &status, [&log](QString const & text) { log << u"error: "_s + text; });
        QHash<QString, std::function<void(QByteArray const &)>> const calls = {
            {u"login"_s, [&](auto const &) { status.initiateLogin(u"ann lee+\u00e9"_s, u"p&ss=w%rd/?#"_s); }},
            {u"oauth"_s, [&](auto const &) { status.initiateOauthLogin(u"client"_s, u"s3cret"_s); }},
            {u"refresh"_s, [&](auto const &) { status.refresh(); }},
            {u"reconnect"_s, [&](QByteArray const & value) { status.initiateReconnectSession(value); }},
            {u"token"_s, [&](QByteArray const & value) { status.initiateReconnectAccessToken(value); }},
            {u"session"_s, [&](QByteArray const & value) { status.loggedInWithSessionID(value); }},
            {u"user"_s, [&](QByteArray const & value) { status.loggedInWithUserData("not kept", QString::fromUtf8(value)); }},
            {u"logout"_s, [&](auto const &) { status.initiateLogout(); }},
            {u"file"_s, [&](QByteArray const & lines) {
                 writeFile(dir.filePath(u"c.ini"_s), QByteArray(lines).replace(' ', '\n'));
                 LN_SettingsFile file(dir.filePath(u"c.ini"_s));
                 (void)file.load();
                 log << u"file: "_s + (status.initiateLogin(file) ? u"true"_s : u"false"_s);
             }},
            {u"wait"_s, [&](auto const &) {
                 // A change that ends a wait which nothing else would end.
                 QTimer::singleShot(2500, &status, [&status] { status.setLoginState(LN_LoginState::LoggingOut); });
                 QString text = u"-"_s;
                 bool const changed = status.waitForStateChanged(text);
                 log << u"wait: %1 %2"_s.arg(changed ? u"true"_s : u"false"_s, text);
             }},
        };
        for (qsizetype i = 0; i < steps.size(); ++i) {
            calls.value(steps[i].section(u' ', 0, 0))(steps[i].section(u' ', 1).toUtf8());
            if (steps.value(i + 1) != u"wait" && !QTest::qWaitFor([this] { return manager_.settled(); }))
                log << u"unsettled"_s;
        }
        log << u"{%1|%2|%3}"_s.arg(status.sessionID(), QString::fromUtf8(status.accessToken()), status.userData().username);
        return log.join(u" / "_s).replace(site_.origin(), u"{origin}"_s);
    }

    TestLoginSite site_;
    Manager manager_;
};

QTEST_GUILESS_MAIN(TestAccount)
#include "tst_account.moc"
