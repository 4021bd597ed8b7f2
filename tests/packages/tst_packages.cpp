#include <draizu/core/LN_Waits.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/packages/LN_AvailablePackageLoader.h>
#include <draizu/packages/LN_AvailablePackageResult.h>
#include <draizu/packages/LN_OrvanisPackageUtil.h>
#include <draizu/packages/LN_Package.h>

#include <support/OfflineInstaller.h>
#include <support/TestHttpServer.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <archive.h>

#include <memory>

using namespace Qt::StringLiterals;
using Response = TestHttpServer::Response;

namespace {

// One line per package with every field, "!" before each error and "+" before each further server.
QStringList described(LN_AvailablePackageResult const & result)
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
    return lines;
}

QString const sha = u"SHA-256=ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0="_s;  // of "abc"
// Documents are written with single quotes, which document() turns into JSON's.
// A server package with every required key, for the rows to spoil one key at a time.
QString package(QString const & name, QString const & extra = {})
{
    return u"{'name': '%1', 'url': 'https://s/%1.zip', 'file_size': 12.9, 'checksum': '%2'%3}"_s.arg(name, sha, extra);
}

QString document(QStringList const & packages, QString const & servers = {})
{
    return QString(u"{'packages': ["_s + packages.join(u',') + u']' + (servers.isEmpty() ? QString() : u", "_s + servers)
                   + u'}').replace(u'\'', u'"');
}

// Package zip entries in order: "name" a file holding its name, "name/" a folder, "name>target"
// a symbolic link, "name!" a character device; "@" is the second argument, and a file named
// "...damaged" gets a bad CRC.
char const zipMaker[] = R"(
import stat, sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w') as z:
    for entry in sys.argv[3:]:
        name, _, link = entry.replace('@', sys.argv[2]).partition('>')
        mode = stat.S_IFLNK if link else stat.S_IFDIR if name[-1] == '/' else stat.S_IFCHR if name[-1] == '!' else stat.S_IFREG
        info = zipfile.ZipInfo(name.rstrip('!'))
        info.create_system, info.external_attr = 3, (mode | 0o755) << 16
        z.writestr(info, link or (name if mode == stat.S_IFREG else ''))
)";

QByteArray makeZip(QStringList const & entries, QString const & sentinel = {})
{
    QTemporaryDir dir;
    QProcess python;
    python.start(u"python3"_s, QStringList{u"-c"_s, QString::fromLatin1(zipMaker), dir.filePath(u"p.zip"_s), sentinel}
                                   + entries);
    QFile zip(dir.filePath(u"p.zip"_s));
    if (!python.waitForFinished(30000) || python.exitCode() != 0 || !zip.open(QIODevice::ReadOnly))
        return QByteArray();
    return zip.readAll().replace("damaged", "DAMAGED");
}

// Every path below `root`, folders with a "/", sorted; links are listed, not followed.
QStringList listing(QString const & root)
{
    QStringList paths;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QString const path = QDir(root).relativeFilePath(it.next());
        paths.append(path + (it.fileInfo().isDir() && !it.fileInfo().isSymLink() ? u"/"_s : QString()));
    }
    paths.sort();
    return paths;
}

QString outcome(LN_Package::InstallResult const & result, QString const & root)
{
    return QString::number(result.status) + u' ' + QString(result.message).replace(root, u"D"_s);
}

// An earlier version of P, which every failure must leave as it is.
QStringList const unchanged = {u"P.json"_s, u"P/"_s, u"P/old"_s};

using Install = std::function<LN_Package::InstallResult(QDir const & target, LN_Package::Progress const & progress)>;

// Installs into `root`/target over the earlier version of P: the outcome, the target's paths and
// each report as "<value> <text>", the target as "D"; a path written beside the target is listed
// as "outside: <path>".
QStringList installOver(QString const & root, Install const & install)
{
    QString const target = root + u"/target"_s;
    if (!QDir(root).removeRecursively()
        || !OfflineInstaller::writeTree(root, {{u"target/P.json"_s, "v1"}, {u"target/P/old"_s, "v1"}}))
        return {u"no earlier version"_s};
    QStringList reports;
    LN_Package::InstallResult const result = install(QDir(target), [&reports](int value, int, QString const & text) {
        reports.append(QString::number(value) + u' ' + text);
    });
    QStringList lines{outcome(result, target)};
    for (QString const & path : listing(root)) {
        if (path != u"target/"_s)
            lines.append(path.startsWith(u"target/"_s) ? path.mid(7) : u"outside: "_s + path);
    }
    return (lines + reports).replaceInStrings(target, u"D"_s);
}

} // namespace

class TestPackages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (QString const missing = OfflineInstaller::missingTools({u"iso"_s}); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QVERIFY(work_.isValid() && server_.listen());
    }
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
            u"'file_size': -1e300, 'checksum': 'CRC=x,%1,%2'}"_s.arg(u"MD5=kAFQmDzST7DWlj99KOF/cg=="_s, sha)}) << false
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

    // Each hostile zip through installPackages, the offline installer's stream and a download:
    // nothing is written outside the target, and what is refused leaves the earlier version of P
    // as it was. Read as a stream, a zip tells no file types, so its links and devices arrive as
    // plain files. Expected outcomes are prefixes, one for all three or one for each.
    void hostile_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QStringList>("expected");
        QStringList const p = {u"P.json"_s, u"P/"_s, u"P/new"_s};
        QString const path = u"2 illegal path"_s;
        QString const type = u"2 illegal file type"_s;
        QString const throughFile = u"3 Could not stat new/P/"_s;
        QTest::newRow("parent path") << p + QStringList{u"../x"_s} << QStringList{path};
        QTest::newRow("inner parent path") << p + QStringList{u"P/../../x"_s} << QStringList{path};
        QTest::newRow("exactly ..") << p + QStringList{u".."_s} << QStringList{path};
        QTest::newRow("absolute path") << p + QStringList{u"@/abs"_s} << QStringList{path};
        QTest::newRow("backslash path") << p + QStringList{u"P\\..\\..\\x"_s} << QStringList{path};
        QTest::newRow("link, then a file through it") << p + QStringList{u"P/link>@"_s, u"P/link/file"_s}
                                                      << QStringList{type, throughFile, type};
        QTest::newRow("chain of folder links") << p + QStringList{u"P/a>.."_s, u"P/a/b>.."_s, u"P/a/b/x"_s}
                                               << QStringList{type, throughFile, type};
        QTest::newRow("device") << p + QStringList{u"P/dev!"_s} << QStringList{type, u"0 "_s, type};
        QTest::newRow("damaged data") << p + QStringList{u"P/damaged"_s} << QStringList{u"3 ZIP bad CRC"_s};
    }

    void hostile()
    {
        QFETCH(QStringList, entries);
        QFETCH(QStringList, expected);
        QString const sentinel = work_.filePath(u"sentinel"_s);
        QString const installer = work_.filePath(u"installer"_s);
        QByteArray const zip = makeZip(entries, sentinel);
        QVERIFY(!zip.isEmpty());
        QVERIFY(OfflineInstaller::writeTree(installer, {{u"data/overview.json"_s, "{}"}, {u"packages/P.zip"_s, zip},
                                                        {u"p.zip"_s, zip}}));
        server_.on(u"/P.zip"_s, Response::ok(zip));
        for (int path = 0; path < 3; ++path) {
            QStringList const lines = installOver(sentinel, [&](QDir const & target, LN_Package::Progress const &) {
                LN_FileOpener opener(&manager_, QDir(installer));
                auto const ignore = [](int, int, QString const &) {};
                return path == 0 ? LN_Package::installPackages(installer + u"/p.zip"_s, {}, target, ignore)
                    : path == 1  ? LN_Package::installZipPackagesFromZipStream(opener, {u"P"_s}, target, ignore)
                                 : LN_Package::downloadAndInstallZipPackages(&manager_, server_.url(u"/P.zip"_s), {}, target, ignore);
            });
            QString const prefix = expected.value(path, expected.first());
            QCOMPARE(QString::number(path) + lines.first().left(prefix.size()), QString::number(path) + prefix);
            QCOMPARE(lines.filter(QRegularExpression(u"^outside: "_s)), QStringList());
            if (!lines.first().startsWith(u"0 "_s)) {
                QFile description(sentinel + u"/target/P.json"_s);
                QVERIFY(description.open(QIODevice::ReadOnly) && description.readAll() == "v1");
                QCOMPARE(lines.mid(1), unchanged);
            }
        }
    }

    // The package layout through installPackages, over the earlier version of P: the outcome,
    // then the target's paths, then each report as "<value> <text>".
    void layout_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QStringList>("requested");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("description without folder") << QStringList{u"P.json"_s} << QStringList()
            << QStringList{u"2 mismatched numbers of package files and folders"_s} + unchanged;
        QTest::newRow("description of another folder") << QStringList{u"P.json"_s, u"Q/"_s} << QStringList()
            << QStringList{u"2 no files found for P"_s} + unchanged;
        QTest::newRow("stray top-level file: upper-case description") << QStringList{u"P/"_s, u"P.JSON"_s} << QStringList()
            << QStringList{u"2 files found that do not belong to a package"_s} + unchanged;
        QTest::newRow("absent name") << QStringList{u"P.json"_s, u"P/x"_s} << QStringList{u"P"_s, u"Z"_s}
            << QStringList{u"2 The following packages were not found: "_s} + unchanged;
        QTest::newRow("not a zip") << QStringList{u"not a zip"_s} << QStringList()
            << QStringList{u"3 Unrecognized archive format"_s} + unchanged;
        QTest::newRow("one of two replaces the earlier") << QStringList{u"Q.json"_s, u"Q/q"_s, u"P.json"_s, u"P/"_s,
            u"P/new"_s, u"P/sub/"_s} << QStringList{u"P"_s} << QStringList{u"0 "_s, u"P.json"_s, u"P/"_s,
            u"P/new"_s, u"P/sub/"_s, u"0 Installing P.json"_s, u"75 Installing P/"_s, u"75 Installing P/new"_s,
            u"137 Installing P/sub/"_s};
        QTest::newRow("folder named like a description") << QStringList{u"P.json/"_s, u"P.json/x"_s, u"P.json.json"_s}
            << QStringList() << QStringList{u"0 "_s, u"P.json.json"_s, u"P.json/"_s, u"P.json/x"_s, u"P/"_s,
            u"P/old"_s, u"0 Installing P.json/"_s, u"0 Installing P.json/x"_s, u"100 Installing P.json.json"_s};
        QTest::newRow("nothing to count is whole") << QStringList{u"E.json"_s, u"E/"_s} << QStringList()
            << QStringList{u"0 "_s, u"E.json"_s, u"E/"_s} + unchanged
                   + QStringList{u"100 Installing E.json"_s, u"100 Installing E/"_s};
    }

    void layout()
    {
        QFETCH(QStringList, entries);
        QFETCH(QStringList, requested);
        QFETCH(QStringList, expected);
        QString const zip = work_.filePath(u"layout.zip"_s);
        QVERIFY(OfflineInstaller::writeTree(work_.path(), {{u"layout.zip"_s, entries == QStringList{u"not a zip"_s}
                                                                                 ? QByteArray("not a zip")
                                                                                 : makeZip(entries, {})}}));
        QCOMPARE(installOver(work_.filePath(u"layout"_s), [&](QDir const & target, LN_Package::Progress const & progress) {
            return LN_Package::installPackages(zip, QSet<QString>(requested.begin(), requested.end()), target, progress);
        }), expected);
    }

    // A zip marks every folder with a slash; a cpio archive does not, so through an open archive a
    // description file can be a folder.
    void openArchive()
    {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath(u"P.json"_s));
        QProcess bsdtar;
        bsdtar.setWorkingDirectory(dir.path());
        bsdtar.start(u"bsdtar"_s, {u"--format"_s, u"newc"_s, u"-cf"_s, u"p.cpio"_s, u"P.json"_s});
        QVERIFY(bsdtar.waitForFinished(30000) && bsdtar.exitCode() == 0);
        std::unique_ptr<archive, int (*)(archive *)> const reader(archive_read_new(), archive_read_free);
        QCOMPARE(archive_read_support_format_all(reader.get()), ARCHIVE_OK);
        QCOMPARE(archive_read_open_filename(reader.get(), QFile::encodeName(dir.filePath(u"p.cpio"_s)).constData(), 10240),
                 ARCHIVE_OK);
        LN_Package::ValidationResult const result = LN_Package::validatePackage(reader.get());
        QCOMPARE(std::pair(result.status, result.message), std::pair(LN_Package::Rejected, u"package JSON file must be a file"_s));
    }

    // An offline installer's image holding A, an empty zip for E and the package document of the
    // row: the outcome, the target's paths and the reports, then what the image offers.
    void offlineInstallers_data()
    {
        QTest::addColumn<QStringList>("requested");
        QTest::addColumn<QByteArray>("offer");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("one package") << QStringList{u"A"_s}
            << document({u"{'name': 'A', 'version': '3', 'url': 5}"_s, u"{}"_s}).toUtf8()
            << QStringList{u"0 "_s, u"A.json"_s, u"A/"_s, u"A/a"_s} + unchanged + QStringList{u"0 Opening packages/A.zip"_s,
                   u"17 Installing D/A.json"_s, u"37 Installing D/A/a"_s, u"A|A|3||-1|4:|||||@in.iso"_s,
                   u"!Required key, \"name\", was missing"_s};
        QString const none = u"No packages selected to install"_s;
        QTest::newRow("none selected") << QStringList() << QByteArray()
                                       << QStringList{u"3 "_s + none} + unchanged + QStringList{u"-1 "_s + none};
        QString const missing = u"1 N was skipped. Failed to open packages/N.zip: packages/N.zip was not found in I\n"
                                "Please check if this file exists in the offline installer."_s;
        QTest::newRow("missing, offer not JSON") << QStringList{u"N"_s} << QByteArray("{\n x}")
            << QStringList{missing} + unchanged + QStringList{u"-1"_s + missing.mid(1),
                u"!Required key, \"packages\", was missing"_s, u"!JSON Parse error at line 2, column 3: unterminated object"_s};
        QString const empty = u"E was skipped. Failed open packages/E.zip. Please check if this file exists in offline "
                              "installer."_s;
        QTest::newRow("empty zip") << QStringList{u"E"_s} << QByteArray()
                                   << QStringList{u"1 "_s + empty} + unchanged + QStringList{u"0 "_s + empty};
    }

    void offlineInstallers()
    {
        QFETCH(QStringList, requested);
        QFETCH(QByteArray, offer);
        QFETCH(QStringList, expected);
        QString const image = work_.filePath(u"in.iso"_s);
        OfflineInstaller::Files files = {
            {u"data/overview.json"_s, R"({"format version": 1, "products": [{"name": "Orvanis", "version": "21.0.1",)"
                                      R"("minimum launcher version": "21", "os name": "linux_x86_64", "compiler": "gcc12",)"
                                      R"("files": "orvanis.files"}]})"},
            {u"data/orvanis.files"_s, "bin/orvanis"}, {u"packages/E.zip"_s, {}}, {u"packages/A.zip"_s, makeZip({u"A.json"_s, u"A/a"_s})}};
        if (!offer.isEmpty())
            files.append({u"packages/packages.json"_s, offer});
        QVERIFY(OfflineInstaller::make(image, files));
        QStringList lines = installOver(work_.filePath(u"offline"_s), [&](QDir const & target, LN_Package::Progress const & progress) {
            LN_FileOpener opener(&manager_, QDir(image));
            return LN_Package::installZipPackagesFromZipStream(opener, QSet<QString>(requested.begin(), requested.end()), target,
                                                               progress);
        });
        LN_AvailablePackageResult const offered = LN_AvailablePackage::fromOfflineInstaller(QDir(image));
        LN_AvailablePackageLoader loader;
        for (QString const & path : {image, work_.path()}) {
            QList<LN_AvailablePackage> packages;
            loader.getAvailablePackages(path, &manager_, packages);
            QCOMPARE(packages.size(), offered.packages.size());
        }
        QCOMPARE((lines + described(offered)).replaceInStrings(image, u"I"_s), expected);
    }

    // Downloads from the test server ("S"), checked by a digest of the right algorithm or as text.
    void downloads_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("checksum");
        QTest::addColumn<QStringList>("expected");
        QStringList const installed = QStringList{u"0 "_s, u"A.json"_s, u"A/"_s, u"A/a"_s} + unchanged;
        QTest::newRow("SHA-256 matches") << u"/A.zip"_s << u"SHA-256"_s << installed;
        QTest::newRow("MD5 matches") << u"/A.zip"_s << u"MD5"_s << installed;
        QTest::newRow("digest differs") << u"/A.zip"_s << sha << QStringList{u"2 Checksum did not match"_s} + unchanged;
        QTest::newRow("not found") << u"/gone.zip"_s << sha << QStringList{u"3 Failed to download S/gone.zip"_s} + unchanged;
    }

    void downloads()
    {
        QFETCH(QString, path);
        QFETCH(QString, checksum);
        QFETCH(QStringList, expected);
        QByteArray const zip = makeZip({u"A.json"_s, u"A/a"_s});
        server_.on(u"/A.zip"_s, Response::ok(zip));
        auto const algorithm = checksum == u"MD5"_s ? QCryptographicHash::Md5 : QCryptographicHash::Sha256;
        LN_AvailablePackage::Checksum const digest = checksum.contains(u'=')
            ? LN_AvailablePackage::parseChecksum(checksum).first()
            : LN_AvailablePackage::Checksum{algorithm, QCryptographicHash::hash(zip, algorithm)};
        QStringList lines = installOver(work_.filePath(u"download"_s), [&](QDir const & target, LN_Package::Progress const &) {
            return LN_Package::downloadAndInstallZipPackages(&manager_, server_.url(path), {}, digest, target, [](int, int, QString) {});
        });
        // What follows the colon is the stream's own text, which depends on what the reply sent first.
        lines.first() = lines.first().replace(server_.origin(), u"S"_s).section(u':', 0, 0);
        QCOMPARE(lines, expected);
    }

    // Files before, the description file's path, then the outcome and what stays ("D" is the folder).
    void uninstall_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("expected");
        QString const warning = u"1 Warning: Couldn't find package %1:\n\"D/%2\".\nIgnored."_s;
        QTest::newRow("both") << QStringList{u"P.json"_s, u"P/x"_s, u"Q.json"_s} << u"P.json"_s << QStringList{u"0 "_s, u"Q.json"_s};
        QTest::newRow("folder missing") << QStringList{u"P.json"_s} << u"P.json"_s << QStringList{warning.arg(u"content folder"_s, u"P"_s)};
        QTest::newRow("description missing") << QStringList{u"P/x"_s} << u"P.json"_s << QStringList{warning.arg(u"json file"_s, u"P.json"_s)};
        QTest::newRow("not a description path") << QStringList{u"P/x"_s, u"Pxjson"_s} << u"Pxjson"_s
                                                << QStringList{warning.arg(u"json file"_s, u"Pxjson"_s), u"Pxjson"_s};
    }

    void uninstall()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, path);
        QFETCH(QStringList, expected);
        QTemporaryDir dir;
        for (QString const & file : files)
            QVERIFY(OfflineInstaller::writeTree(dir.path(), {{file, "x"}}));
        QString const result = outcome(LN_Package::uninstallPackage(dir.filePath(path)), dir.path());
        QCOMPARE(QStringList{result} + listing(dir.path()), expected);
    }

    // Description files as the product reads them, and the directories it looks in: the home
    // directory's ("H") and the application's ("M").
    void productPackages()
    {
        QString const home = work_.filePath(u"home"_s);
        QString const mine = QDir::cleanPath(QCoreApplication::applicationDirPath() + u"/../../marlux_packages"_s);
        qputenv("HOME", home.toLocal8Bit());
        QString const packages = home + u"/orvanis20.5/packages/"_s;
        QVERIFY(OfflineInstaller::writeTree(home, {{u"orvanis21.0/"_s, {}}, {u"Orvanis22.0/"_s, {}}, {u"orvanis2x.5/"_s, {}},
            {u"orvanis20.5/packages/a.json"_s, R"({"version": "1.2", "x": 1})"}, {u"orvanis20.5/packages/b.json"_s,
            R"({"version": 3})"}, {u"orvanis20.5/packages/c.json"_s, "[1]"}, {u"orvanis20.5/packages/d.json"_s, "{"},
            {u"orvanis20.5/packages/e.txt"_s, "{}"}, {u"orvanis20.5/packages/f.json.json"_s, "{}"}}));
        QStringList directories;
        for (QString const & directory : LN_OrvanisPackageUtil::getPackageDirectories())
            directories.append(QString(directory).replace(home, u"H"_s).replace(mine, u"M"_s) + u' '
                               + LN_OrvanisPackageUtil::getDirectoryShortcut(directory + u"/p.json"_s));
        directories.sort();
        QCOMPARE(directories, QStringList({u"H/orvanis20.5/packages 20.5 Home Directory"_s,
            u"H/orvanis21.0/packages 21.0 Home Directory"_s, u"H/orvanis2x.5/packages Custom Directory"_s,
            u"M Marlux Packages"_s}));
        QStringList found;
        for (LN_OrvanisPackage const & package : LN_OrvanisPackageUtil::parsePackageFiles(packages))
            found.append(QString(package.filePath()).replace(packages, u"D/"_s) + u' ' + package.packageName() + u' '
                         + package.version().toString());
        found.sort();
        QCOMPARE(found, QStringList({u"D/a.json a 1.2"_s, u"D/b.json b "_s, u"D/c.json c "_s, u"D/f.json.json f "_s}));
    }

private:
    QTemporaryDir work_;
    TestHttpServer server_;
    QNetworkAccessManager manager_;
};

QTEST_GUILESS_MAIN(TestPackages)
#include "tst_packages.moc"
