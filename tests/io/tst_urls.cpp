#include <draizu/io/LN_Urls.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

// LN_Urls reads the environment once per process. This process sets its own in main, before
// the first use; every other combination is read by a child run of this program with
// "--print-urls".

namespace {

char const printUrls[] = "--print-urls";
char const serverVariable[] = "ORVANIS_LAUNCHER_SERVER_URL";
char const cookieVariable[] = "ORVANIS_LAUNCHER_COOKIE_DOMAIN";
char const ownServer[] = "http://127.0.0.1:1";

} // namespace

class TestUrls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void environment_data();
    void environment();
    void paths_data();
    void paths();
    void computedOnce();
};

void TestUrls::environment_data()
{
    QTest::addColumn<QString>("server");
    QTest::addColumn<QString>("cookieDomain");
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("expectedCookieDomain");

    // A null text leaves the variable unset.
    QString const unset;
    QString const host = LN_Urls::defaultHost();
    QString const defaultLogin = u"https://"_s + host + u"/login/"_s;
    QTest::newRow("no variables") << unset << unset << defaultLogin << host;
    QTest::newRow("empty variables count as unset") << u""_s << u""_s << defaultLogin << host;
    QTest::newRow("http with port keeps the default cookie domain")
        << u"http://127.0.0.1:8080"_s << unset << u"http://127.0.0.1:8080/login/"_s << host;
    QTest::newRow("no scheme is https") << u"127.0.0.1:8080"_s << unset << u"https://127.0.0.1:8080/login/"_s << host;
    QTest::newRow("host with path") << u"https://127.0.0.1/stage"_s << unset << u"https://127.0.0.1/stage/login/"_s
                                    << host;
    QTest::newRow("trailing slash doubles") << u"http://127.0.0.1/"_s << unset << u"http://127.0.0.1//login/"_s << host;
    QTest::newRow("only http and https are schemes") << u"ftp://127.0.0.1"_s << unset
                                                     << u"https://ftp://127.0.0.1/login/"_s << host;
    QTest::newRow("cookie domain alone") << unset << u"cookies.test"_s << defaultLogin << u"cookies.test"_s;
    QTest::newRow("cookie domain keeps its scheme") << u"http://127.0.0.1"_s << u"https://cookies.test"_s
                                                    << u"http://127.0.0.1/login/"_s << u"https://cookies.test"_s;
    // The cookie domain is taken from the host when the host still holds a scheme after its
    // own has been taken off.
    QTest::newRow("host that still holds a scheme") << u"http://http://127.0.0.1"_s << u"cookies.test"_s
                                                    << u"http://http://127.0.0.1/login/"_s << u"127.0.0.1"_s;
}

void TestUrls::environment()
{
    QFETCH(QString, server);
    QFETCH(QString, cookieDomain);
    QFETCH(QString, login);
    QFETCH(QString, expectedCookieDomain);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QString::fromLatin1(serverVariable));
    environment.remove(QString::fromLatin1(cookieVariable));
    if (!server.isNull())
        environment.insert(QString::fromLatin1(serverVariable), server);
    if (!cookieDomain.isNull())
        environment.insert(QString::fromLatin1(cookieVariable), cookieDomain);

    QProcess child;
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(printUrls)});
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.exitCode(), 0);
    QStringList const lines = QString::fromUtf8(child.readAllStandardOutput()).split(u'\n');
    QCOMPARE(lines, (QStringList{login.chopped(7), login, expectedCookieDomain, QString()}));
}

void TestUrls::paths_data()
{
    QTest::addColumn<int>("url");
    QTest::addColumn<QString>("path");

    QTest::newRow("site is scheme and host") << int(LN_Urls::Url_Site) << QString();
    QTest::newRow("versions of this system") << int(LN_Urls::Url_Versions)
                                             << u"/download/download-installer/versions/linux/"_s;
    QTest::newRow("update versions of this system") << int(LN_Urls::Url_UpdateVersions)
                                                    << u"/download/download-installer/versions/linux/"_s;
    QTest::newRow("unknown value has no path") << 99 << QString();
}

void TestUrls::paths()
{
    QFETCH(int, url);
    QFETCH(QString, path);
    QCOMPARE(LN_Urls::instance().getUrl(LN_Urls::Url(url)), QString::fromLatin1(ownServer) + path);
}

void TestUrls::computedOnce()
{
    LN_Urls const & urls = LN_Urls::instance();
    qputenv(serverVariable, "http://127.0.0.2:2");
    qputenv(cookieVariable, "changed.test");
    QCOMPARE(LN_Urls::instance().getUrl(LN_Urls::Url_Site), QString::fromLatin1(ownServer));
    QCOMPARE(urls.sessionCookieDomain(), LN_Urls::defaultHost());
    QCOMPARE(urls.sessionCookieName(), u"sessionid"_s);
    QCOMPARE(urls.sessionCookiePath(), u"/"_s);
}

int main(int argc, char ** argv)
{
    if (argc == 2 && qstrcmp(argv[1], printUrls) == 0) {
        LN_Urls const & urls = LN_Urls::instance();
        QTextStream(stdout) << urls.getUrl(LN_Urls::Url_Site) << '\n'
                            << urls.getUrl(LN_Urls::Url_Login) << '\n'
                            << urls.sessionCookieDomain() << '\n';
        return 0;
    }

    qputenv(serverVariable, ownServer);
    qunsetenv(cookieVariable);
    QCoreApplication app(argc, argv);
    TestUrls test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_urls.moc"
