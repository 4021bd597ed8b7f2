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
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <functional>

using namespace Qt::StringLiterals;

using Answer = TestLoginSite::Answer;
using Routes = QHash<QString, Answer>;
Q_DECLARE_METATYPE(Routes)

QString const loginPage = u"/login/launcher/"_s;
QString const validatePage = u"/validate/"_s;
QString const applicationPage = u"/oauth2/application_token"_s;
QByteArray const user = R"({"username": "ann"})";

static bool writeFile(QString const & path, QByteArray const & content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

class TestAccount : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Every exchange goes over TLS, and the client trusts the site's test CA only.
        QVERIFY(site_.listenTls());
        QSslConfiguration::setDefaultConfiguration(site_.clientConfiguration());
        // Read once, at the library's first use of the site's address.
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
        qputenv("ORVANIS_LAUNCHER_COOKIE_DOMAIN", "127.0.0.1");
        LN_AccountSettings::setApplicationLoginUrlForTesting(QUrl(site_.origin() + applicationPage));
        LN_Waits::setForTesting(LN_Waits::LoginAbort, 500);
    }

    // Each row: what the site answers, the calls made one after another (each one's replies
    // read before the next, unless a wait follows), and what is signalled in order (a state
    // by its new name), then {session|token|user}. "sent" lists path, authorization and form
    // of the row's requests; every one goes by POST as a form. "file" reloads a credentials
    // file loaded whole before, so a value the new one lacks must come back empty, and a load
    // that fails must keep the values; it logs user|password|id|secret|licences or the failure.
    void scenarios_data()
    {
        QTest::addColumn<Routes>("routes");
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expected");
        auto const page = [](QString const & path, QByteArray body, QList<QByteArray> cookies = {}, bool silent = false) {
            return Routes{{path, Answer{200, std::move(body), std::move(cookies), silent}}};
        };
        auto const application = [](QByteArray first, QByteArray second = user) {
            return Routes{{applicationPage, {200, std::move(first), {}}}, {validatePage, {200, std::move(second), {}}}};
        };
        auto const row = [](char const * name, Routes const & routes, QString const & steps, QString const & expected) {
            QTest::newRow(name) << routes << steps << expected;
        };
        QByteArray const session = "sessionid=s1; Path=/";
        QString const in = u"LoggingIn / error: "_s, out = u" / LoggedOut / {||}"_s;
        QString const badJson = u"JSON Parse error at line 1, column 2: illegal value"_s;
        QString const notObject = u"Incorrect JSON response. Expected object."_s;
        QString const noUser = u"Access token invalid. No username found"_s;
        QString const kept = u"u0|p0|c0|s0|L0 / {||}"_s;

        row("password login", page(loginPage, user, {session}), u"login; sent"_s,
            u"LoggingIn / LoggedIn / sent: /login/launcher/  format=json&username=ann%20lee%2B%C3%A9&password=p%26ss%3Dw%25rd%2F%3F%23"
            u" / {s1||ann}"_s);
        // The session cookie is the first for the cookie domain or a subdomain of it, at the root.
        row("first fitting cookie", page(loginPage, user, {"sessionid=a; Domain=x127.0.0.1; Path=/", "SESSIONID=b; Path=/",
                                                           "sessionid=c; Domain=127.0.0.1.evil; Path=/", "sessionid=d; Path=/a",
                                                           "sessionid=s2; Domain=www.127.0.0.1; Path=/", session}),
            u"login"_s, u"LoggingIn / LoggedIn / {s2||ann}"_s);
        QString const refused = in + u"Error while logging in: "_s;
        row("no cookie, a page", page(loginPage, "<html>"), u"login"_s, refused + u"Response did not include sessionid"_s + out);
        row("login refused", page(loginPage, R"({"error": "Wrong password"})"), u"login"_s, refused + u"Wrong password"_s + out);
        row("cookie with a refusal", page(loginPage, R"({"error": "Locked"})", {session}), u"login"_s, u"LoggingIn"_s + out);
        row("cookie with a page", page(loginPage, "<html>", {session}), u"login"_s, in + u"Failed parse json: "_s + badJson + out);
        row("cookie with an array", page(loginPage, "[]", {session}), u"login"_s, in + notObject + out);
        row("cookie with no body", page(loginPage, {}, {session}), u"login"_s, in + u"Read error: Unknown error"_s + out);
        row("login answered 400", Routes{{loginPage, Answer{400, R"({"error": "x"})", {}, false}}}, u"login"_s,
            in + u"Failed to log in: Error transferring {origin}/login/launcher/ - server replied: Status"_s + out);
        row("login never answered", page(loginPage, {}, {}, true), u"login"_s, in + u"Failed to log in: request timed out."_s + out);

        row("session validated", page(validatePage, user), u"reconnect s/1+=; sent"_s,
            u"Reconnecting / LoggedIn / sent: /validate/  sessionid=s%2F1%2B%3D&format=json / {s/1+=||ann}"_s);
        row("session expired", page(validatePage, R"({"error": "Invalid sessionid"})"), u"reconnect s1"_s, u"Reconnecting"_s + out);
        row("session refused", page(validatePage, R"({"error": "Revoked"})"), u"reconnect s1"_s, u"Reconnecting / error: Revoked"_s + out);
        row("refresh with no session", page(validatePage, user), u"refresh"_s, u"Reconnecting / error: No sessionid found"_s + out);
        row("session handed over", page(validatePage, user), u"session s1"_s, u"LoggedIn / {s1||ann}"_s);

        row("application login", application(R"({"access_token": "t1"})"), u"oauth; sent"_s,
            u"LoggingIn / LoggedIn / sent: /oauth2/application_token Basic Y2xpZW50OnMzY3JldA== ; /validate/ Bearer t1  / {|t1|ann}"_s);
        row("application refused, waited for", application(R"({"error": "x"})"), u"oauth; wait"_s,
            u"LoggingIn / LoggedOut / wait: true - / {||}"_s);
        row("no access token, waited for", application(R"({"token_type": "bearer"})"), u"oauth; wait"_s,
            in + u"No access token found / LoggedOut / wait: false No access token found / {||}"_s);
        row("application login answered with a page", application("<html>"), u"oauth"_s, in + badJson + out);
        row("application login answered with an array", application("[1]"), u"oauth"_s, in + notObject + out);
        row("application login with no body", application({}), u"oauth"_s, in + u"Unknown error"_s + out);
        row("token without a user", application(R"({"access_token": "t1"})", "{}"), u"oauth"_s, in + noUser + out);
        // Already logged out, the failure changes no state.
        row("token failure while logged out", page(validatePage, "{}"), u"token t1"_s, u"error: "_s + noUser + u" / {||}"_s);

        row("file with every key", application(R"({"access_token": "t1"})"),
            u"file username=\"a, b\"|password=p=w d|client_id=c1|client_secret=s1|accept_eula=O EULA, L EULA"_s,
            u"LoggingIn / file: a, b|p=w d|c1|s1|O EULA,L EULA login / LoggedIn / {|t1|ann}"_s);
        row("file with a client id alone", page(loginPage, user, {session}), u"file client_id=c1|username=ann|password=pw"_s,
            u"LoggingIn / file: ann|pw|c1|| login / LoggedIn / {s1||ann}"_s);
        row("file with no whole pair", {}, u"file client_id=c1|username=ann|accept_eula=O EULA"_s, u"file: ann||c1||O EULA / {||}"_s);
        row("no file", {}, u"file"_s, u"file: |||| / {||}"_s);
        row("file with an unterminated section", {}, u"file username=ann|[login"_s, u"file: QSettings 2: format error "_s + kept);
        row("file that is a directory", {}, u"file /"_s, u"file: QSettings 1: access error "_s + kept);

        row("logout", page(u"/logout/"_s, "{}"), u"user ann; logout; sent"_s,
            u"LoggedIn / LoggingOut / LoggedOut / sent: /logout/  format=json / {||}"_s);
        row("logout never answered", Routes{{validatePage, {200, user, {}}}, {u"/logout/"_s, {200, {}, {}, true}}},
            u"reconnect s1; token t1; logout"_s,
            u"Reconnecting / LoggedIn / LoggingOut / error: Failed to log out: request timed out. / LoggedIn / {s1||ann}"_s);
    }

    void scenarios()
    {
        QFETCH(Routes, routes);
        QFETCH(QString, steps);
        site_.answer = [routes](TestLoginSite::Request const & request) { return routes.value(request.path, {404, "{}", {}, false}); };
        QTEST(run_(steps.split(u"; "_s)), "expected");
    }

    void sessionCookie()
    {
        QNetworkCookie cookie = LN_CookieUtil::createSessionCookie(u"caf\u00e9"_s);
        QVERIFY(LN_CookieUtil::isSessionidCookie(cookie) && cookie.isSecure() && cookie.isHttpOnly());
        QCOMPARE(cookie.value(), "caf\xc3\xa9"_ba);
        // One that names no domain would go to any site.
        cookie.setDomain(QString());
        QVERIFY(!LN_CookieUtil::isSessionidCookie(cookie));
    }

private:
    QString run_(QStringList const & steps)
    {
        QTemporaryDir dir;
        LN_LoginStatus status(&manager_);
        qsizetype const firstRequest = site_.requests().size();
        QStringList log;
        LN_LoginState last = status.loginState();
        connect(&status, &LN_LoginStatus::loginStateChanged, &status, [&](LN_LoginState from, LN_LoginState to) {
            static char const * const names[] = {"LoggedOut", "LoggingIn", "Reconnecting", "LoggedIn", "LoggingOut"};
            log << (from == last && to == status.loginState() ? QString::fromLatin1(names[int(to)]) : u"wrong change"_s);
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
            {u"file"_s, [&](QByteArray const & content) {
                 QString const ini = dir.filePath(u"credentials.ini"_s);
                 LN_SettingsFile settings(ini);
                 QVERIFY(writeFile(ini, "username=u0\npassword=p0\nclient_id=c0\nclient_secret=s0\naccept_eula=L0\n")
                         && !settings.load().isError() && QFile::remove(ini));
                 QVERIFY(content == "/" ? QDir().mkdir(ini) : content.isEmpty() || writeFile(ini, QByteArray(content).replace('|', '\n')));
                 LN_ErrorStruct const error = settings.load();
                 QString const values = QStringList{settings.username(), settings.password(), settings.clientId(),
                                                    settings.clientSecret(), settings.acceptedLicenses().join(u',')}.join(u'|');
                 if (error.isError())
                     log << u"file: %1 %2: %3 %4"_s.arg(QString::fromUtf8(error.code.category().name())).arg(error.code.value())
                                .arg(error.message, values);
                 else
                     log << u"file: "_s + values + (status.initiateLogin(settings) ? u" login"_s : QString());
             }},
            {u"sent"_s, [&](auto const &) {
                 QStringList sent;
                 for (TestLoginSite::Request const & request : site_.requests().mid(firstRequest)) {
                     QCOMPARE(request.method + ' ' + request.headers.value("content-type"),
                              "POST application/x-www-form-urlencoded");
                     sent << request.path + u' ' + QString::fromUtf8(request.headers.value("authorization") + ' ' + request.body);
                 }
                 log << u"sent: "_s + sent.join(u"; "_s);
             }},
            {u"wait"_s, [&](auto const &) {
                 // A change that ends a wait which nothing else would end.
                 QTimer::singleShot(2000, &status, [&status] { status.setLoginState(LN_LoginState::LoggingOut); });
                 QString text = u"-"_s;
                 bool const changed = status.waitForStateChanged(text);
                 log << u"wait: %1 %2"_s.arg(changed ? u"true"_s : u"false"_s, text);
             }},
        };
        for (qsizetype i = 0; i < steps.size(); ++i) {
            calls.value(steps[i].section(u' ', 0, 0))(steps[i].section(u' ', 1).toUtf8());
            // The library deletes every reply it has read, so when none is left nothing more comes.
            if (steps.value(i + 1) != u"wait"
                && !QTest::qWaitFor([this] { return manager_.findChildren<QNetworkReply *>().isEmpty(); }))
                log << u"unsettled"_s;
        }
        log << u"{%1|%2|%3}"_s.arg(status.sessionID(), QString::fromUtf8(status.accessToken()), status.userData().username);
        return log.join(u" / "_s).replace(site_.origin(), u"{origin}"_s);
    }

    TestLoginSite site_;
    QNetworkAccessManager manager_;
};

QTEST_GUILESS_MAIN(TestAccount)
#include "tst_account.moc"
