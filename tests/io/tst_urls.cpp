#include <draizu/io/LN_Urls.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

// LN_Urls reads the environment once per process. This process sets its own in main and changes
// it after the first use, which must not be seen; every other combination is read by a child run
// of this program with "--print-urls".

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
    void ownEnvironmentReadOnce();
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
    QTest::newRow("trailing slash doubles") << u"http://127.0.0.1/"_s << unset << u"http://127.0.0.1//login/"_s << host;
    QTest::newRow("only http and https are schemes") << u"ftp://127.0.0.1"_s << unset
                                                     << u"https://ftp://127.0.0.1/login/"_s << host;
    QTest::newRow("cookie domain keeps its scheme") << unset << u"https://cookies.test"_s << defaultLogin
                                                    << u"https://cookies.test"_s;
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

void TestUrls::ownEnvironmentReadOnce()
{
    LN_Urls const & urls = LN_Urls::instance();
    QString const server = QString::fromLatin1(ownServer);
    QCOMPARE(urls.getUrl(LN_Urls::Url_Versions), server + u"/download/download-installer/versions/linux/"_s);
    QCOMPARE(urls.getUrl(LN_Urls::Url(99)), server);
    QCOMPARE(urls.sessionCookieDomain(), LN_Urls::defaultHost());
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
    LN_Urls::instance();
    qputenv(serverVariable, "http://127.0.0.2:2");
    qputenv(cookieVariable, "changed.test");
    QCoreApplication app(argc, argv);
    TestUrls test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_urls.moc"
