#include <draizu/io/LN_FileOpener.h>
#include <draizu/packages/LN_Package.h>

#include <support/OfflineInstaller.h>
#include <support/TestHttpServer.h>

#include <QCryptographicHash>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <archive.h>

#include <memory>

using namespace Qt::StringLiterals;
using Response = TestHttpServer::Response;

namespace {

// Entries of a package zip, in order: "name" a file holding its name, "name/" and "name#" a
// folder with and without the slash, "name>target" a symbolic link, "name!" a character device.
// "@" stands for the sentinel folder's absolute path; a file named "...damaged" gets a bad CRC.
QByteArray const zipMaker = R"(
import json, stat, sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w') as z:
    for name, kind, data in json.loads(sys.argv[2]):
        info = zipfile.ZipInfo(name)
        info.create_system = 3
        info.external_attr = {'f': stat.S_IFREG | 0o644, 'd': stat.S_IFDIR | 0o755, 'l': stat.S_IFLNK | 0o777,
                              'c': stat.S_IFCHR | 0o644}[kind] << 16
        z.writestr(info, data)
)";

QByteArray makeZip(QStringList const & entries, QString const & sentinel)
{
    QJsonArray spec;
    for (QString entry : entries) {
        entry.replace(u'@', sentinel);
        QString const kind = entry.endsWith(u'/') || entry.endsWith(u'#') ? u"d"_s
                             : entry.contains(u'>')                      ? u"l"_s
                             : entry.endsWith(u'!')                      ? u"c"_s
                                                                         : u"f"_s;
        QString const name = kind == u"l"_s ? entry.section(u'>', 0, 0) : kind == u"f"_s || entry.endsWith(u'/') ? entry : entry.chopped(1);
        spec.append(QJsonArray{name, kind, kind == u"l"_s ? entry.section(u'>', 1) : kind == u"f"_s ? name : QString()});
    }
    QTemporaryDir dir;
    QString const path = dir.filePath(u"p.zip"_s);
    QProcess python;
    python.start(u"python3"_s, {u"-c"_s, QString::fromUtf8(zipMaker), path,
                                QString::fromUtf8(QJsonDocument(spec).toJson(QJsonDocument::Compact))});
    QFile zip(path);
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
        QString const path = it.next();
        paths.append(QDir(root).relativeFilePath(path) + (it.fileInfo().isDir() && !it.fileInfo().isSymLink() ? u"/"_s : QString()));
    }
    paths.sort();
    return paths;
}

QString read(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : u"missing"_s;
}

QString outcome(LN_Package::InstallResult const & result, QString const & root)
{
    return QString::number(result.status) + u' ' + QString(result.message).replace(root, u"D"_s);
}

// An earlier version of P, which every failure must leave as it is.
QStringList const earlier = {u"target/"_s, u"target/P.json"_s, u"target/P/"_s, u"target/P/old"_s};
OfflineInstaller::Files const earlierFiles = {{u"target/P.json"_s, "v1"}, {u"target/P/old"_s, "v1"}};

} // namespace

class TestPackageInstall : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (QString const missing = OfflineInstaller::missingTools({u"iso"_s}); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QVERIFY(server_.listen());
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
        QDir const target(sentinel + u"/target"_s);
        auto const ignore = [](int, int, QString const &) {};
        for (int path = 0; path < 3; ++path) {
            QVERIFY(QDir(sentinel).removeRecursively() && OfflineInstaller::writeTree(sentinel, earlierFiles));
            LN_FileOpener opener(&manager_, QDir(installer));
            LN_Package::InstallResult const result =
                path == 0 ? LN_Package::installPackages(installer + u"/p.zip"_s, {}, target, ignore)
                : path == 1 ? LN_Package::installZipPackagesFromZipStream(opener, {u"P"_s}, target, ignore)
                            : LN_Package::downloadAndInstallZipPackages(&manager_, server_.url(u"/P.zip"_s), {}, target, ignore);
            QString const prefix = expected.value(path, expected.first());
            QCOMPARE(QString::number(path) + outcome(result, sentinel).left(prefix.size()), QString::number(path) + prefix);
            QStringList const written = listing(sentinel);
            QCOMPARE(written.filter(QRegularExpression(u"^target/"_s)).size(), written.size());
            if (result.status != LN_Package::Success)
                QCOMPARE(written + QStringList{read(target.filePath(u"P.json"_s))}, earlier + QStringList{u"v1"_s});
        }
    }

    // The package layout through installPackages, over the earlier version of P: the outcome,
    // then the target's paths, then each report as "<value> <text>".
    void layout_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QStringList>("requested");
        QTest::addColumn<QStringList>("expected");
        QStringList const unchanged = {u"P.json"_s, u"P/"_s, u"P/old"_s};
        QTest::newRow("description without folder") << QStringList{u"P.json"_s} << QStringList()
            << QStringList{u"2 mismatched numbers of package files and folders"_s} + unchanged;
        QTest::newRow("description of another folder") << QStringList{u"P.json"_s, u"Q/"_s} << QStringList()
            << QStringList{u"2 no files found for P"_s} + unchanged;
        QTest::newRow("stray top-level file") << QStringList{u"P/"_s, u"readme.txt"_s} << QStringList()
            << QStringList{u"2 files found that do not belong to a package"_s} + unchanged;
        QTest::newRow("upper-case description") << QStringList{u"P/"_s, u"P.JSON"_s} << QStringList()
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
        QString const target = work_.filePath(u"layout/target"_s);
        QVERIFY(QDir(work_.filePath(u"layout"_s)).removeRecursively());
        QVERIFY(OfflineInstaller::writeTree(work_.filePath(u"layout"_s), earlierFiles));
        QVERIFY(OfflineInstaller::writeTree(work_.path(), {{u"layout.zip"_s, entries == QStringList{u"not a zip"_s}
                                                                                 ? QByteArray("not a zip")
                                                                                 : makeZip(entries, {})}}));
        QStringList reports;
        LN_Package::InstallResult const result = LN_Package::installPackages(zip, QSet<QString>(requested.begin(),
            requested.end()), QDir(target), [&](int value, int, QString const & text) {
            reports.append(QString::number(value) + u' ' + text);
        });
        QCOMPARE(QStringList{outcome(result, target)} + listing(target) + reports, expected);
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

    // Offline installers, unpacked and as an image, holding A and an empty zip for E: the
    // outcome, the target's paths, then the reports.
    void offlineInstallers_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QStringList>("requested");
        QTest::addColumn<QStringList>("expected");
        QStringList const installed = {u"0 "_s, u"A.json"_s, u"A/"_s, u"A/a"_s, u"P.json"_s, u"P/"_s, u"P/old"_s,
            u"0 Opening packages/A.zip"_s, u"17 Installing D/A.json"_s, u"37 Installing D/A/a"_s};
        QTest::newRow("unpacked") << u"dir"_s << QStringList{u"A"_s} << installed;
        QTest::newRow("image") << u"iso"_s << QStringList{u"A"_s} << installed;
        QString const none = u"No packages selected to install"_s;
        QTest::newRow("none selected") << u"dir"_s << QStringList()
            << QStringList{u"3 "_s + none, u"P.json"_s, u"P/"_s, u"P/old"_s, u"-1 "_s + none};
        QString const missing = u"N was skipped. Failed to open packages/N.zip: %1\nPlease check if this file exists "
                                "in the offline installer."_s;
        QTest::newRow("missing, unpacked") << u"dir"_s << QStringList{u"N"_s} << QStringList{u"1 "_s
            + missing.arg(u"No such file or directory"_s), u"P.json"_s, u"P/"_s, u"P/old"_s,
            u"-1 "_s + missing.arg(u"No such file or directory"_s)};
        QTest::newRow("missing, image") << u"iso"_s << QStringList{u"N"_s} << QStringList{u"1 "_s
            + missing.arg(u"packages/N.zip was not found in I"_s), u"P.json"_s, u"P/"_s, u"P/old"_s,
            u"-1 "_s + missing.arg(u"packages/N.zip was not found in I"_s)};
        QString const empty = u"E was skipped. Failed open packages/E.zip. Please check if this file exists in offline "
                              "installer."_s;
        QTest::newRow("empty zip") << u"dir"_s << QStringList{u"E"_s}
            << QStringList{u"1 "_s + empty, u"P.json"_s, u"P/"_s, u"P/old"_s, u"0 "_s + empty};
    }

    void offlineInstallers()
    {
        QFETCH(QString, kind);
        QFETCH(QStringList, requested);
        QFETCH(QStringList, expected);
        QString const root = work_.filePath(u"offline"_s);
        QString const target = root + u"/target"_s;
        QString const image = root + u"/in.iso"_s;
        QVERIFY(QDir(root).removeRecursively() && OfflineInstaller::writeTree(root, earlierFiles));
        OfflineInstaller::Files const files = {
            {u"data/overview.json"_s, R"({"format version": 1, "products": [{"name": "Orvanis", "version": "21.0.1",)"
                                      R"("minimum launcher version": "21", "os name": "linux_x86_64", "compiler": "gcc12",)"
                                      R"("files": "orvanis.files"}]})"},
            {u"data/orvanis.files"_s, "bin/orvanis"}, {u"packages/E.zip"_s, {}},
            {u"packages/A.zip"_s, makeZip({u"A.json"_s, u"A/a"_s}, {})}};
        QVERIFY(kind == u"iso"_s ? OfflineInstaller::make(image, files)
                                 : OfflineInstaller::writeTree(root + u"/installer"_s, files));
        LN_FileOpener opener(&manager_, QDir(kind == u"iso"_s ? image : root + u"/installer"_s));
        QStringList reports;
        LN_Package::InstallResult const result = LN_Package::installZipPackagesFromZipStream(
            opener, QSet<QString>(requested.begin(), requested.end()), QDir(target),
            [&](int value, int, QString const & text) { reports.append(QString::number(value) + u' ' + text); });
        QCOMPARE((QStringList{outcome(result, target)} + listing(target) + reports).replaceInStrings(target, u"D"_s)
                     .replaceInStrings(image, u"I"_s), expected);
    }

    // Downloads from the test server ("S"); a failed one leaves the earlier version as it was.
    void downloads_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("checksum");
        QTest::addColumn<QString>("expected");
        QTest::newRow("SHA-256 matches") << u"/A.zip"_s << u"SHA-256"_s << u"0 "_s;
        QTest::newRow("MD5 matches") << u"/A.zip"_s << u"MD5"_s << u"0 "_s;
        QTest::newRow("no digest to check") << u"/A.zip"_s << QString() << u"0 "_s;
        QTest::newRow("digest differs") << u"/A.zip"_s << u"SHA-256=ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0="_s
                                        << u"2 Checksum did not match"_s;
        QTest::newRow("not found") << u"/gone.zip"_s << QString()
            << u"3 Failed to download S/gone.zip: Error transferring S/gone.zip - server replied: Not Found"_s;
    }

    void downloads()
    {
        QFETCH(QString, path);
        QFETCH(QString, checksum);
        QFETCH(QString, expected);
        QByteArray const zip = makeZip({u"A.json"_s, u"A/a"_s}, {});
        server_.on(u"/A.zip"_s, Response::ok(zip));
        QString const root = work_.filePath(u"download"_s);
        QVERIFY(QDir(root).removeRecursively() && OfflineInstaller::writeTree(root, earlierFiles));
        QDir const target(root + u"/target"_s);
        auto const ignore = [](int, int, QString const &) {};
        QCryptographicHash::Algorithm const algorithm =
            checksum == u"MD5"_s ? QCryptographicHash::Md5 : QCryptographicHash::Sha256;
        LN_Package::InstallResult const result =
            checksum.isEmpty() ? LN_Package::downloadAndInstallZipPackages(&manager_, server_.url(path), {}, target, ignore)
            : LN_Package::downloadAndInstallZipPackages(&manager_, server_.url(path), {},
                  checksum.contains(u'=') ? LN_AvailablePackage::parseChecksum(checksum).first()
                                          : LN_AvailablePackage::Checksum{algorithm, QCryptographicHash::hash(zip, algorithm)},
                  target, ignore);
        QCOMPARE(outcome(result, root).replace(server_.origin(), u"S"_s), expected);
        QCOMPARE(listing(root).size(), earlier.size() + (result.status == LN_Package::Success ? 3 : 0));
    }

    // Files and folders before, the path given, the outcome and what stays ("D" is the folder).
    void uninstall_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("both") << QStringList{u"P.json"_s, u"P/x"_s, u"Q.json"_s} << u"P.json"_s
                              << QStringList{u"0 "_s, u"Q.json"_s};
        QTest::newRow("folder missing") << QStringList{u"P.json"_s} << u"P.json"_s << QStringList{
            u"1 Warning: Couldn't find package content folder:\n\"D/P\".\nIgnored."_s};
        QTest::newRow("description missing") << QStringList{u"P/x"_s} << u"P.json"_s << QStringList{
            u"1 Warning: Couldn't find package json file:\n\"D/P.json\".\nIgnored."_s};
        QTest::newRow("not a description path") << QStringList{u"P/x"_s, u"Pxjson"_s} << u"Pxjson"_s << QStringList{
            u"1 Warning: Couldn't find package json file:\n\"D/Pxjson\".\nIgnored."_s, u"Pxjson"_s};
    }

    void uninstall()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, path);
        QFETCH(QStringList, expected);
        QTemporaryDir dir;
        OfflineInstaller::Files tree;
        for (QString const & file : files)
            tree.append({file, "x"});
        QVERIFY(OfflineInstaller::writeTree(dir.path(), tree));
        QString const result = outcome(LN_Package::uninstallPackage(dir.filePath(path)), dir.path());
        QCOMPARE(QStringList{result} + listing(dir.path()), expected);
    }

private:
    QTemporaryDir work_;
    TestHttpServer server_;
    QNetworkAccessManager manager_;
};

QTEST_GUILESS_MAIN(TestPackageInstall)
#include "tst_packageinstall.moc"
