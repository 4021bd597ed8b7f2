#include <draizu/account/LN_CookieUtil.h>
#include <draizu/account/LN_SettingsFile.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Every value of a credentials file in one line: "username|password|id|secret|licence,licence".
QString described(LN_SettingsFile const & file)
{
    return QStringList{file.username(), file.password(), file.clientId(), file.clientSecret(),
                       file.acceptedLicenses().join(u',')}
        .join(u'|');
}

} // namespace

class TestAccount : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Read once, at the library's first use of the site's address.
        qputenv("ORVANIS_LAUNCHER_COOKIE_DOMAIN", "127.0.0.1");
    }

    // Every row first loads a complete file, so a value the row's file lacks must come back
    // empty, and a failed load must keep the first file's values.
    void settingsFile_data()
    {
        QTest::addColumn<QByteArray>("content");  // null: no file; "/": the path is a directory
        QTest::addColumn<QString>("expected");    // described(), or the failure's code and text

        QTest::newRow("every key") << "username=ann\npassword=p=w d\nclient_id=c1\nclient_secret=s1\n"
                                      "accept_eula=Orvanis EULA, Labs EULA\n"_ba
                                   << u"ann|p=w d|c1|s1|Orvanis EULA,Labs EULA"_s;
        QTest::newRow("client pair only") << "client_id=c1\nclient_secret=s1\n"_ba << u"||c1|s1|"_s;
        QTest::newRow("one licence, quoted commas") << "accept_eula=Orvanis EULA\nusername=\"a, b\"\n"_ba
                                                    << u"a, b||||Orvanis EULA"_s;
        QTest::newRow("keys inside a section") << "[login]\nusername=ann\n"_ba << u"||||"_s;
        QTest::newRow("no file") << QByteArray() << u"||||"_s;
        QTest::newRow("unterminated section") << "username=ann\n[login\n"_ba << u"QSettings 2: format error"_s;
        QTest::newRow("a directory") << "/"_ba << u"QSettings 1: access error"_s;
    }

    void settingsFile()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        QString const path = dir.filePath(u"credentials.ini"_s);
        writeFile_(path, "username=u0\npassword=p0\nclient_id=c0\nclient_secret=s0\naccept_eula=L0\n");
        LN_SettingsFile file(path);
        QVERIFY(!file.load().isError());
        QFile::remove(path);
        if (content == "/")
            QVERIFY(QDir().mkdir(path));
        else if (!content.isNull())
            writeFile_(path, content);

        LN_ErrorStruct const error = file.load();
        if (error.isError()) {
            QCOMPARE(u"%1 %2: %3"_s.arg(QString::fromUtf8(error.code.category().name()))
                         .arg(error.code.value())
                         .arg(error.message),
                     expected);
            QCOMPARE(described(file), u"u0|p0|c0|s0|L0"_s);
        } else {
            QCOMPARE(described(file), expected);
        }
    }

    void sessionCookie_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("domain");
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("accepted");

        QTest::newRow("the cookie domain") << "sessionid"_ba << u"127.0.0.1"_s << u"/"_s << true;
        QTest::newRow("a subdomain") << "sessionid"_ba << u"www.127.0.0.1"_s << u"/"_s << true;
        QTest::newRow("leading dot") << "sessionid"_ba << u".127.0.0.1"_s << u"/"_s << true;
        QTest::newRow("same letters, no dot") << "sessionid"_ba << u"x127.0.0.1"_s << u"/"_s << false;
        QTest::newRow("domain as a prefix") << "sessionid"_ba << u"127.0.0.1.evil"_s << u"/"_s << false;
        QTest::newRow("shorter domain") << "sessionid"_ba << u"0.0.1"_s << u"/"_s << false;
        QTest::newRow("no domain") << "sessionid"_ba << QString() << u"/"_s << false;
        QTest::newRow("name in capitals") << "SESSIONID"_ba << u"127.0.0.1"_s << u"/"_s << false;
        QTest::newRow("other name") << "csrftoken"_ba << u"127.0.0.1"_s << u"/"_s << false;
        QTest::newRow("deeper path") << "sessionid"_ba << u"127.0.0.1"_s << u"/account"_s << false;
        QTest::newRow("no path") << "sessionid"_ba << u"127.0.0.1"_s << QString() << false;
    }

    void sessionCookie()
    {
        QFETCH(QByteArray, name);
        QFETCH(QString, domain);
        QFETCH(QString, path);
        QNetworkCookie cookie(name, "v");
        cookie.setDomain(domain);
        cookie.setPath(path);
        QTEST(LN_CookieUtil::isSessionidCookie(cookie), "accepted");
    }

    void createdCookieIsTheSessionCookie()
    {
        QNetworkCookie const cookie = LN_CookieUtil::createSessionCookie(u"caf\u00e9"_s);
        QVERIFY(LN_CookieUtil::isSessionidCookie(cookie));
        QCOMPARE(cookie.value(), "caf\xc3\xa9"_ba);
        QVERIFY(cookie.isSecure() && cookie.isHttpOnly());
    }

private:
    static void writeFile_(QString const & path, QByteArray const & content)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), content.size());
    }
};

QTEST_GUILESS_MAIN(TestAccount)
#include "tst_account.moc"
