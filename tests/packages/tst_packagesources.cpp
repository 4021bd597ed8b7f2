#include <draizu/core/LN_Waits.h>
#include <draizu/packages/LN_AvailablePackageLoader.h>
#include <draizu/packages/LN_AvailablePackageResult.h>

#include <support/OfflineInstaller.h>
#include <support/TestHttpServer.h>
#include <support/ThrownBy.h>

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Response = TestHttpServer::Response;

namespace {

// One line per package with every field, "!" before each error and "+" before each further server.
QStringList described(LN_AvailablePackageResult const & result, QString const & origin = {})
{
    QStringList lines;
    for (LN_AvailablePackage const & p : result.packages)
        lines.append(u"%1|%2|%3|%4|%5|%6:%7|%8|%9|"_s.arg(p.name, p.displayName, p.version.toString(), p.url.toString(),
            QString::number(p.fileSize), QString::number(p.checksum.algorithm),
            QString::fromLatin1(p.checksum.value.toBase64()), p.description, p.iconUrl.toString())
            + p.requiredPackages.join(u',') + u'|' + p.infoUrl.toString()
            + (p.offlineInstallerPath.isEmpty() ? QString() : u"|@"_s + QFileInfo(p.offlineInstallerPath).fileName()));
    for (QString const & error : result.errors)
        lines.append(u'!' + error);
    for (QUrl const & url : result.additionalServerUrls)
        lines.append(u'+' + url.toString());
    return origin.isEmpty() ? lines : lines.replaceInStrings(origin, u"S"_s);
}

QString const sha = u"SHA-256=ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0="_s;  // of "abc"
QString const md5 = u"MD5=kAFQmDzST7DWlj99KOF/cg=="_s;
// Documents are written with single quotes, which document() turns into JSON's.
// A server package with every key, for the document rows to spoil one key at a time.
QString package(QString const & name, QString const & extra = {})
{
    return u"{'name': '%1', 'url': 'https://s/%1.zip', 'file_size': 12.9, 'checksum': '%2'%3}"_s.arg(name, sha, extra);
}

QString document(QStringList const & packages, QString const & servers = {})
{
    return QString(u"{'packages': ["_s + packages.join(u',') + u']' + (servers.isEmpty() ? QString() : u", "_s + servers)
            + u'}').replace(u'\'', u'"');
}

} // namespace

class TestPackageSources : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(server_.listen()); }
    void init()
    {
        server_.clearRequests();
        LN_Waits::resetForTesting();
    }

    // What one document yields, online unless the row says offline.
    void documents_data()
    {
        QTest::addColumn<QString>("json");
        QTest::addColumn<bool>("offline");
        QTest::addColumn<QStringList>("expected");
        QString const full = u", 'display_name': 'Full', 'version': '1.2.3', 'description': 'd', 'info_url': "
            u"'http://i/f', 'icon_url': 'https://i/f.png', 'requires': ['a', 'b']"_s;
        QTest::newRow("every key") << document({package(u"full"_s, full)}) << false << QStringList{
            u"full|Full|1.2.3|https://s/full.zip|12|4:ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=|d|https://i/f.png|a,b|http://i/f"_s};
        QTest::newRow("offline reads no server keys") << document({u"{'name': 'o', 'url': 5, 'version': '2'}"_s})
            << true << QStringList{u"o|o|2||-1|4:||||"_s};
        QTest::newRow("first listed known digest wins") << document({u"{'name': 'm', 'url': 'http://s/m', "
            u"'file_size': -1e300, 'checksum': 'CRC=x,%1,%2'}"_s.arg(md5, sha)}) << false
            << QStringList{u"m|m||http://s/m|-9223372036854775808|1:kAFQmDzST7DWlj99KOF/cg==||||"_s};
        QTest::newRow("no document") << u"{}"_s << false
            << QStringList{u"!Required key, \"packages\", was missing"_s};
        QTest::newRow("servers despite packages not a list")
            << document({}, u"'additional_server_urls': ['https://a/b', 7, 'http://[', 'ftp://f', 'https://a/b']"_s)
                   .replace(u"[]"_s, u"5"_s) << false
            << QStringList{u"!Incorrect type for key packages. Expected array, got number."_s,
                           u"!Error processing additional_server_urls. Expected string, received number"_s,
                           u"!Error processing additional_server_urls. \"http://[\" is not a valid URL."_s,
                           u"+https://a/b"_s, u"+ftp://f"_s};
        // Each package spoils one key; the first bad key in reading order decides the text.
        QTest::newRow("each key's failure") << document({u"[]"_s, u"{}"_s, u"{'name': 1}"_s,
            u"{'name': 'v', 'version': ''}"_s, u"{'name': 'v', 'version': '1.2.3beta', 'url': 'ftp://x'}"_s,
            u"{'name': 'i', 'info_url': '/relative'}"_s, u"{'name': 'u', 'url': 'ftp://s/u'}"_s,
            u"{'name': 'u', 'url': 'http://['}"_s, u"{'name': 's', 'url': 'http://s/s'}"_s,
            package(u"c"_s).replace(sha, u"CRC=AAAA"_s), package(u"c"_s).replace(sha, QString()),
            package(u"c"_s).replace(sha, sha + u','), package(u"c"_s).replace(sha, u"sha-256=AAAA"_s),
            package(u"c"_s).replace(sha, u"md5=%%%"_s), package(u"n"_s, u", 'icon_url': 'file:///x'"_s),
            package(u"r"_s, u", 'requires': ['a', 1]"_s), package(u"r"_s, u", 'requires': ['']"_s),
            package(u"ok"_s, u", 'checksum': 'sha-256=%1'"_s.arg(sha.mid(8)))}) << false << QStringList{
            u"ok|ok||https://s/ok.zip|12|4:ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=||||"_s,
            u"!expected pacakge overview to be object, received array"_s,
            u"!Required key, \"name\", was missing"_s, u"!Incorrect type for key name. Expected string, got number."_s,
            u"!Invalid version number: "_s, u"!Invalid version number: 1.2.3beta"_s,
            u"!Invalid URL for key \"info_url\": relative URL is not permitted"_s,
            u"!Invalid URL for key \"url\": Scheme not supported. Supported schemes are http or https"_s,
            u"!Invalid URL for key \"url\": URL is not valid"_s, u"!Required key, \"file_size\", was missing"_s,
            u"!no valid checksum found"_s, u"!Improperly-formatted checksum"_s, u"!Improperly-formatted checksum"_s,
            u"!Checksum is not the correct length for a sha-256 hash."_s,
            u"!Checksum was not a valid base64-encoded value"_s,
            u"!Invalid URL for key \"icon_url\": Scheme not supported. Supported schemes are http or https"_s,
            u"!\"requires\" must be an array of strings."_s, u"!required package must have a non-empty name"_s};
    }

    void documents()
    {
        QFETCH(QString, json);
        QFETCH(bool, offline);
        QFETCH(QStringList, expected);
        QCOMPARE(described(LN_AvailablePackage::fromJson(QJsonDocument::fromJson(json.toUtf8()), offline)), expected);
    }

    void serversNotAListThrows()
    {
        QJsonDocument const json = QJsonDocument::fromJson(document({}, u"'additional_server_urls': 'https://a'"_s).toUtf8());
        QCOMPARE(thrownBy([&] { (void)LN_AvailablePackage::fromJson(json, false); }),
                 u"Incorrect type for key additional_server_urls. Expected array, got string."_s);
    }

    // Sources on the test server ("S"), each "path=body", where a body "404" or "stall" says so and "big"
    // is a valid document above 16 MiB; documents name further sources by "S/path".
    void runs_data()
    {
        QTest::addColumn<QStringList>("sources");
        QTest::addColumn<QStringList>("urls");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QStringList>("progress");
        QString const servers = u"\"additional_server_urls\": [\"S/%1\", \"S/%2\"]"_s;
        QTest::newRow("cycle and repeat, depth first") << QStringList{
            u"/a="_s + document({package(u"a1"_s)}, servers.arg(u"b"_s, u"c"_s)),
            u"/b="_s + document({package(u"b1"_s)}, servers.arg(u"a"_s, u"d"_s)),
            u"/c="_s + document({}, servers.arg(u"a"_s, u"a"_s)), u"/d="_s + document({package(u"d1"_s)}),
            u"/e="_s + document({package(u"e1"_s)})} << QStringList{u"/a"_s, u"/a"_s, u"/e"_s}
            << QStringList{u"a1"_s, u"b1"_s, u"d1"_s, u"e1"_s, u"finished 1"_s}
            << QStringList{u"0/2 S/a"_s, u"1/4 S/b"_s, u"2/5 S/d"_s, u"3/5 S/c"_s, u"4/5 S/e"_s};
        QTest::newRow("failures keep the others' packages") << QStringList{
            u"/missing=404"_s, u"/bad={x"_s, u"/entries="_s + document({u"{}"_s, package(u"good"_s)}),
            u"/servers={\"packages\": [], \"additional_server_urls\": 1}"_s, u"/ok="_s + document({package(u"ok"_s)})}
            << QStringList{u"/missing"_s, u"/bad"_s, u"/entries"_s, u"/servers"_s, u"/ok"_s}
            << QStringList{u"good"_s, u"ok"_s, u"finished 0"_s,
                           u"!Error downloading file: Error transferring S/missing - server replied: Not Found"_s,
                           u"!S/bad is not a valid JSON file: unterminated object"_s,
                           u"!Error while processing S/entries: Required key, \"name\", was missing"_s,
                           u"!Error while processing S/servers: Incorrect type for key additional_server_urls. "
                           "Expected array, got number."_s} << QStringList();
        QTest::newRow("oversized and stalled") << QStringList{u"/big=big"_s, u"/hang=stall"_s,
            u"/ok="_s + document({package(u"ok"_s)})} << QStringList{u"/big"_s, u"/hang"_s, u"/ok"_s}
            << QStringList{u"ok"_s, u"finished 0"_s, u"!Error downloading file: S/big is larger than 16 MiB"_s,
                           u"!Error downloading file: S/hang sent nothing for 300 ms"_s} << QStringList();
    }

    void runs()
    {
        QFETCH(QStringList, sources);
        QFETCH(QStringList, urls);
        QFETCH(QStringList, expected);
        QFETCH(QStringList, progress);
        LN_Waits::setForTesting(LN_Waits::NetworkStall, 300);
        for (QString const & source : sources) {
            QString const path = source.section(u'=', 0, 0);
            QString const body = source.section(u'=', 1).replace(u"\"S/"_s, u"\""_s + server_.origin() + u'/');
            server_.on(path, body == u"404"_s ? Response::withStatus(404)
                             : body == u"stall"_s ? Response::stall()
                             : body == u"big"_s ? Response::ok(QByteArray("{\"packages\": []").append(QByteArray(16 << 20, ' ')).append('}'))
                                                : Response::ok(body.toUtf8()));
        }
        LN_AvailablePackageLoader loader;
        QSignalSpy finished(&loader, &LN_AvailablePackageLoader::finished);
        QStringList shown;
        connect(&loader, &LN_AvailablePackageLoader::progress, this, [&](int current, int total, QString const & url) {
            shown.append(u"%1/%2 %3"_s.arg(current).arg(total).arg(url).replace(server_.origin(), u"S"_s));
        });
        QList<QUrl> requested;
        for (QString const & url : urls)
            requested.append(server_.url(url));
        loader.getAvailablePackages(requested, &manager_);
        QVERIFY(finished.wait(10000));
        QStringList lines;
        for (LN_AvailablePackage const & p : loader.getPackages())
            lines.append(p.name);
        lines.append(u"finished "_s + QString::number(finished.first().first().toBool()));
        for (QString const & error : loader.getErrors())
            lines.append(u'!' + QString(error).replace(server_.origin(), u"S"_s));
        QCOMPARE(lines, expected);
        if (!progress.isEmpty())
            QCOMPARE(shown, progress);
        for (QString const & source : sources)
            QCOMPARE(server_.requestCount(source.section(u'=', 0, 0)), 1);
    }

    void urlLimit()
    {
        server_.on(u"/many"_s, [this](TestHttpServer::Request const & request) {
            QStringList more;
            for (int i = 1; request.query.isEmpty() && i <= 1005; ++i)
                more.append(u"\"%1\""_s.arg(server_.url(u"/many?n=%1"_s.arg(i)).toString()));
            return Response::ok(document({}, u"\"additional_server_urls\": ["_s + more.join(u',') + u']').toUtf8());
        });
        LN_AvailablePackageLoader loader;
        QList<LN_AvailablePackage> packages;
        loader.getAvailablePackages({server_.url(u"/many"_s)}, &manager_, packages);
        QCOMPARE(server_.requestCount(u"/many"_s), 1000);
        QCOMPARE(loader.getErrors(), QStringList{u"More than 1000 package sources in one run: %1 and the sources after "
                                                 "it were not fetched"_s.arg(server_.url(u"/many?n=1000"_s).toString())});
    }

    // The last download aborted ends the run without a word for it; the object never fetches a URL twice.
    void abortAndSecondRun()
    {
        server_.on(u"/one"_s, Response::ok(document({package(u"one"_s)}).toUtf8()));
        server_.on(u"/hang"_s, Response::stall());
        LN_AvailablePackageLoader loader;
        QSignalSpy finished(&loader, &LN_AvailablePackageLoader::finished);
        loader.getAvailablePackages({server_.url(u"/one"_s), server_.url(u"/hang"_s)}, &manager_);
        QTRY_COMPARE(server_.requestCount(u"/hang"_s), 1);
        loader.abort();
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(finished.first().first().toBool(), true);
        QCOMPARE(loader.getPackages().size(), 1);

        QList<LN_AvailablePackage> packages = loader.getPackages();
        loader.getAvailablePackages({server_.url(u"/one"_s)}, &manager_, packages);
        QCOMPARE(std::pair(packages.size(), finished.size()), std::pair(qsizetype(0), qsizetype(2)));
        QCOMPARE(server_.requestCount(u"/one"_s), 1);
    }

    // The document inside an offline installer, read directly, through the installer's path and
    // through a directory that holds it beside a file that is no installer.
    void offlineInstallers_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("offline keys only") << document({u"{'name': 'p', 'version': '3', 'checksum': 1}"_s, u"{}"_s}).toUtf8()
            << QStringList{u"p|p|3||-1|4:|||||@in.iso"_s, u"!Required key, \"name\", was missing"_s};
        QTest::newRow("no document") << QByteArray() << QStringList();
        QTest::newRow("not JSON") << QByteArray("{\n x}") << QStringList{u"!Required key, \"packages\", was missing"_s,
            u"!JSON Parse error at line 2, column 3: unterminated object"_s};
    }

    void offlineInstallers()
    {
        QFETCH(QByteArray, json);
        QFETCH(QStringList, expected);
        if (QString const missing = OfflineInstaller::missingTools({u"iso"_s}); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QTemporaryDir dir;
        OfflineInstaller::Files files = {{u"data/overview.json"_s, "{'format version': 1, 'products': [{'name':"
            "'Orvanis', 'version': '21.0.1', 'minimum launcher version': '21.0.1', 'os name': 'linux_x86_64',"
            "'compiler': 'gcc12', 'files': 'orvanis.files'}]}"}, {u"data/orvanis.files"_s, "bin/orvanis"}};
        files.first().second.replace('\'', '"');
        if (!json.isNull())
            files.append({u"packages/packages.json"_s, json});
        QString const iso = dir.filePath(u"in/in.iso"_s);
        QVERIFY(OfflineInstaller::make(iso, files) && OfflineInstaller::writeTree(dir.filePath(u"in"_s), {{u"x"_s, "x"}}));
        LN_AvailablePackageResult const result = LN_AvailablePackage::fromOfflineInstaller(QDir(iso));
        QCOMPARE(described(result), expected);
        LN_AvailablePackageLoader loader;
        for (QString const & path : {iso, dir.filePath(u"in"_s), dir.filePath(u"in/x"_s)}) {
            QList<LN_AvailablePackage> packages;
            loader.getAvailablePackages(path, &manager_, packages);
            QCOMPARE(packages.size(), path.endsWith(u'x') ? 0 : result.packages.size());
        }
    }

private:
    TestHttpServer server_;
    QNetworkAccessManager manager_;
};

QTEST_GUILESS_MAIN(TestPackageSources)
#include "tst_packagesources.moc"
