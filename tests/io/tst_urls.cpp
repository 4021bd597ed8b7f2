#include <draizu/io/LN_Urls.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTest>
#include <QTextStream>

using namespace Qt::StringLiterals;

// LN_Urls reads the environment once per process, so each case is read by a child run of this
// program with "--print-urls", which changes the variables after the first use to show that
// they are not read again.

class TestUrls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void environment_data();
    void environment();
};

void TestUrls::environment_data()
{
    QTest::addColumn<QString>("server");  // a null text leaves the variable unset
    QTest::addColumn<QString>("cookieDomain");
    QTest::addColumn<QString>("site");
    QTest::addColumn<QString>("expectedCookieDomain");

    QString const unset;
    QString const host = LN_Urls::defaultHost();
    auto const row = [](char const * name, QString const & server, QString const & cookieDomain, QString const & site,
                        QString const & expectedCookieDomain) {
        QTest::newRow(name) << server << cookieDomain << site << expectedCookieDomain;
    };
    row("no variables", unset, unset, u"https://"_s + host, host);
    row("empty variables count as unset", u""_s, u""_s, u"https://"_s + host, host);
    row("http with port keeps the default cookie domain", u"http://127.0.0.1:8080"_s, unset, u"http://127.0.0.1:8080"_s,
        host);
    row("no scheme is https", u"127.0.0.1:8080"_s, unset, u"https://127.0.0.1:8080"_s, host);
    row("cookie domain keeps its scheme", unset, u"https://cookies.test"_s, u"https://"_s + host,
        u"https://cookies.test"_s);
    // The cookie domain is taken from the host when the host still holds a scheme after its own
    // has been taken off.
    row("host that still holds a scheme", u"http://http://127.0.0.1"_s, u"cookies.test"_s, u"http://http://127.0.0.1"_s,
        u"127.0.0.1"_s);
}

void TestUrls::environment()
{
    QFETCH(QString, server);
    QFETCH(QString, cookieDomain);
    QFETCH(QString, site);
    QFETCH(QString, expectedCookieDomain);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto const & [name, value] : {std::pair(u"ORVANIS_LAUNCHER_SERVER_URL"_s, server),
                                       std::pair(u"ORVANIS_LAUNCHER_COOKIE_DOMAIN"_s, cookieDomain)}) {
        environment.remove(name);
        if (!value.isNull())
            environment.insert(name, value);
    }
    QProcess child;
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {u"--print-urls"_s});
    QVERIFY(child.waitForFinished(30000) && child.exitCode() == 0);
    // A value missing from the table of paths adds none.
    QCOMPARE(QString::fromUtf8(child.readAllStandardOutput()).split(u'\n'),
             (QStringList{site, site + u"/login/"_s, site + u"/download/download-installer/versions/linux/"_s, site,
                          expectedCookieDomain, QString()}));
}

int main(int argc, char ** argv)
{
    if (argc == 2 && qstrcmp(argv[1], "--print-urls") == 0) {
        LN_Urls const & urls = LN_Urls::instance();
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", "http://127.0.0.2:2");
        qputenv("ORVANIS_LAUNCHER_COOKIE_DOMAIN", "changed.test");
        QTextStream(stdout) << urls.getUrl(LN_Urls::Url_Site) << '\n' << urls.getUrl(LN_Urls::Url_Login) << '\n'
                            << LN_Urls::instance().getUrl(LN_Urls::Url_Versions) << '\n'
                            << LN_Urls::instance().getUrl(LN_Urls::Url(99)) << '\n'
                            << LN_Urls::instance().sessionCookieDomain() << '\n';
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestUrls test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_urls.moc"
