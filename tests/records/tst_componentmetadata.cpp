#include <draizu/core/LN_Exception.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

#include <exception>
#include <functional>

using namespace Qt::StringLiterals;

using Change = std::function<void(LN_ComponentMetadata &)>;
Q_DECLARE_METATYPE(Change)

class TestComponentMetadata : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bodyRoundTrip();
    void damagedBody();
    void jobQueueFiles_data();
    void jobQueueFiles();
    void fileLists();
    void computeAllFiles_data();
    void computeAllFiles();
    void yesNoOption_data();
    void yesNoOption();
    void installOptions();
    void supportsPackages_data();
    void supportsPackages();
    void descriptions_data();
    void descriptions();
    void equality_data();
    void equality();
};

namespace {

// The record that the repository entry `key` with `body` reads as.
LN_ComponentMetadata fromBody(QString const & key, QJsonObject const & body)
{
    QJsonObject const table{{key, body}};
    return LN_ComponentMetadata(table.constBegin());
}

LN_ComponentMetadata sample(QString const & dir = u"/opt/orvanis"_s)
{
    LN_ComponentMetadata r;
    r.installDir = dir;
    r.product = Product_EngineMaya;
    r.version = QVersionNumber(20, 1, 4);
    r.oapiVersion = QVersionNumber(3, 2);
    r.forOrvanis = QVersionNumber(20, 1);
    r.releaseDate = QDate(2024, 2, 29);
    r.tags = {u"stable"_s, u"lts"_s};
    r.buildType = u"gold"_s;
    r.label = u"Release"_s;
    r.platformInfo = LN_PlatformInfo::fromStrings(u"linux_x86_64"_s, u"gcc12"_s);
    r.features = {{u"Docs"_s, u"/r/Docs_1.json"_s}};
    r.otherOptions = {{u"service-name"_s, u"svc"_s}};
    r.ready = true;
    r.hasUninstaller = true;
    r.failedUninstall = true;
    return r;
}

bool writeBytes(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.write(bytes) == bytes.size();
}

QStringList paths(QList<LN_FileMetadata> const & files)
{
    QStringList list;
    for (LN_FileMetadata const & file : files)
        list.append(file.path);
    return list;
}

} // namespace

void TestComponentMetadata::bodyRoundTrip()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    LN_ComponentMetadata written = sample();
    QJsonObject const body = written.save(QDir(dir.path()));
    QCOMPARE(body.size(), 18);
    QCOMPARE(body.value(u"os name"_s).toString(), u"linux_x86_64"_s);
    QCOMPARE(body.value(u"product"_s).toString(), u"Engine Maya"_s); // the older word, still read

    LN_ComponentMetadata const read = fromBody(written.installDir, body);
    QVERIFY(read == written);
    QCOMPARE(read.label, written.label);
    QCOMPARE(read.platformInfo, written.platformInfo);
    QCOMPARE(read.ready, true);
    QCOMPARE(read.failedUninstall, true);

    // A null version and date are written empty and read back null.
    LN_ComponentMetadata bare;
    bare.installDir = u"/opt/bare"_s;
    QJsonObject const bareBody = bare.save(QDir(dir.path()));
    QCOMPARE(bareBody.value(u"version"_s).toString(), QString());
    QCOMPARE(bareBody.value(u"release date"_s).toString(), QString());
    QVERIFY(fromBody(bare.installDir, bareBody) == bare);
}

void TestComponentMetadata::damagedBody()
{
    LN_ComponentMetadata const empty = fromBody(u"/opt/x"_s, {});
    QCOMPARE(empty.product, LN_ProductID::Invalid);
    QCOMPARE(empty.installDir, u"/opt/x"_s);
    QVERIFY(empty.version.isNull());

    LN_ComponentMetadata const odd = fromBody(
        u"/opt/y"_s, QJsonObject{{u"version"_s, u"1.2.3abc"_s}, {u"ready"_s, u"true"_s}, {u"tags"_s, u"a"_s},
                                 {u"features"_s, QJsonArray{u"Docs"_s}}, {u"release date"_s, u"29.02.2024"_s}});
    QCOMPARE(odd.version, QVersionNumber(1, 2, 3));
    QCOMPARE(odd.ready, false);
    QVERIFY(odd.tags.isEmpty());
    QVERIFY(odd.features.isEmpty());
    QVERIFY(odd.releaseDate.isNull());
}

void TestComponentMetadata::jobQueueFiles_data()
{
    QTest::addColumn<LN_ProductID>("product");
    QTest::addColumn<QStringList>("files"); // name, content, name, content, ...
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("imported");
    QTest::addColumn<QStringList>("options"); // key, value, ...

    QStringList const stored{u"server"_s, u"old-host"_s};
    QTest::newRow("client upgraded") << Product_OQueueClient << QStringList{u"VERSION"_s, u"2.0.1\n"_s} << u"2.0.1"_s
                                     << true << stored;
    QTest::newRow("client unchanged") << Product_OQueueClient << QStringList{u"VERSION"_s, u"1.0.0"_s} << u"1.0.0"_s
                                      << false << stored;
    QTest::newRow("client without files") << Product_OQueueClient << QStringList() << u"1.0.0"_s << false << stored;
    QTest::newRow("client node settings")
        << Product_OQueueClient << QStringList{u"oqnode.ini"_s, u"[main]\nserver=farm\nport=6000\n"_s} << u"1.0.0"_s
        << false << QStringList{u"server"_s, u"farm"_s, u"port"_s, u"6000"_s};
    QTest::newRow("server service name")
        << Product_OQueueServer << QStringList{u"oqservicename"_s, u"oq-farm"_s, u"VERSION"_s, u"9.0"_s} << u"1.0.0"_s
        << false << QStringList{u"server"_s, u"old-host"_s, u"service-name"_s, u"oq-farm"_s};
    QTest::newRow("other products read nothing")
        << Product_Orvanis << QStringList{u"VERSION"_s, u"9.0"_s, u"oqservicename"_s, u"x"_s} << u"1.0.0"_s << false
        << stored;
}

void TestComponentMetadata::jobQueueFiles()
{
    QFETCH(LN_ProductID, product);
    QFETCH(QStringList, files);
    QFETCH(QString, version);
    QFETCH(bool, imported);
    QFETCH(QStringList, options);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    for (qsizetype i = 0; i + 1 < files.size(); i += 2)
        QVERIFY(writeBytes(dir.filePath(files.at(i)), files.at(i + 1).toUtf8()));
    LN_ComponentMetadata r;
    r.product = product;
    r.version = QVersionNumber(1, 0, 0);
    r.otherOptions = {{u"server"_s, u"old-host"_s}};
    LN_ComponentMetadata const read = fromBody(dir.path(), r.save(QDir(dir.path())));
    QCOMPARE(read.version, QVersionNumber::fromString(version));
    QCOMPARE(read.imported, imported);
    QHash<QString, QString> expected;
    for (qsizetype i = 0; i + 1 < options.size(); i += 2)
        expected.insert(options.at(i), options.at(i + 1));
    QCOMPARE(read.otherOptions, expected);
}

void TestComponentMetadata::fileLists()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QDir const repo(dir.path());
    LN_FileMetadata const tool(u"bin/tool"_s, u"s"_s, QCryptographicHash::hash("x", QCryptographicHash::Sha256), 10);
    LN_FileMetadata const guide(u"docs/Guide.txt"_s, QString(), QByteArray(), 5);

    LN_ComponentMetadata r;
    r.installDir = u"/opt/m"_s;
    r.product = Product_EngineMaya;
    r.features.insert(u"Docs"_s, QString());
    r.setFiles(u"Maya Plug-In"_s, {tool});
    r.setFiles(u"Docs"_s, {guide});
    r.setFiles(u"Unknown"_s, {tool});
    r.setSofsFiles(u"Docs"_s, {{u"sofs/a.dat"_s, true}});
    r.save(repo);

    QCOMPARE(r.productFiles, repo.filePath(u"Maya_Plug-In_1.json"_s));
    QCOMPARE(r.features.value(u"Docs"_s), repo.filePath(u"Docs_1.json"_s));
    QCOMPARE(r.sofsFiles.value(u"Docs"_s), repo.filePath(u"Docs_sofs_1.json"_s));
    QVERIFY(r.pendingFiles.isEmpty());
    QVERIFY(!QFile::exists(repo.filePath(u"Unknown_1.json"_s)));
    QCOMPARE(r.getFiles(u"Maya Plug-In"_s), QList<LN_FileMetadata>{tool});
    QCOMPARE(paths(r.allFiles()), (QStringList{u"bin/tool"_s, u"docs/Guide.txt"_s}));
    QCOMPARE(r.installedSize(), 15);
    QCOMPARE(r.installedSize(u"Docs"_s), 5);
    QCOMPARE(r.installedSize(u"Unknown"_s), 0);
    QVERIFY(r.containsFile(u"docs/Guide.txt"_s));
    QVERIFY(!r.containsFile(u"docs/guide.txt"_s));

    // SOFS lists stay pending and are written again; a pending empty list hides the manifest.
    r.save(repo);
    QCOMPARE(r.sofsFiles.value(u"Docs"_s), repo.filePath(u"Docs_sofs_2.json"_s));
    r.pendingSofsFiles.clear();
    QCOMPARE(r.allSofsFiles(), (QList<LN_SofsFileMetadata>{{u"sofs/a.dat"_s, true}}));
    r.setFiles(u"Docs"_s, {});
    QVERIFY(r.getFiles(u"Docs"_s).isEmpty());

    // An unreadable manifest is an empty list, a malformed one throws.
    r.pendingFiles.clear();
    r.features[u"Docs"_s] = repo.filePath(u"missing.json"_s);
    r.sofsFiles[u"Docs"_s] = repo.filePath(u"Maya_Plug-In_1.json"_s);
    QVERIFY(r.getFiles(u"Docs"_s).isEmpty());
    QVERIFY(r.getSofsFiles(u"Docs"_s).isEmpty());
    QVERIFY(writeBytes(repo.filePath(u"bad.json"_s), R"({"a": 1})"));
    r.features[u"Docs"_s] = repo.filePath(u"bad.json"_s);
    QVERIFY_THROWS_EXCEPTION(LN_Exception, r.getFiles(u"Docs"_s));

    r.product = LN_ProductID::Invalid;
    r.setFiles(u"Docs"_s, {guide});
    QVERIFY(r.getFiles(u"Docs"_s).isEmpty());
}

void TestComponentMetadata::computeAllFiles_data()
{
    QTest::addColumn<int>("files");
    QTest::addColumn<int>("records");
    QTest::newRow("four files pair up") << 4 << 2;
    QTest::newRow("three files, last record empty") << 3 << 2;
    QTest::newRow("none") << 0 << 0;
}

void TestComponentMetadata::computeAllFiles()
{
    QFETCH(int, files);
    QFETCH(int, records);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QHash<QByteArray, QString> byDigest;
    for (int i = 0; i < files; ++i) {
        QString const name = i % 2 ? u"sub/.f%1"_s.arg(i) : u"f%1"_s.arg(i);
        QByteArray const content = QByteArray::number(i);
        QVERIFY(writeBytes(dir.filePath(name), content));
        byDigest.insert(QCryptographicHash::hash(content, QCryptographicHash::Sha256), name);
    }
    LN_ComponentMetadata r;
    r.installDir = dir.path();
    QList<LN_FileMetadata> const list = r.computeAllFiles();
    QCOMPARE(list.size(), records);

    // Each record carries the digest of the file walked before its own: together they
    // cover every file once.
    QSet<QString> seen;
    for (LN_FileMetadata const & file : list) {
        QString const digestOf = byDigest.value(file.checksum);
        QVERIFY(!digestOf.isEmpty());
        QVERIFY(digestOf != file.path);
        seen.insert(digestOf);
        if (file.path.isEmpty()) {
            QCOMPARE(file.size, 0);
            continue;
        }
        seen.insert(file.path);
        QCOMPARE(file.size, QFileInfo(dir.filePath(file.path)).size());
    }
    QCOMPARE(seen.size(), files);
    QCOMPARE(!list.isEmpty() && list.constLast().path.isEmpty(), files % 2 == 1);
}

void TestComponentMetadata::yesNoOption_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("value");
    QTest::addColumn<QString>("thrown");
    QTest::newRow("yes in capitals") << u"upper"_s << true << QString();
    QTest::newRow("no") << u"lower"_s << false << QString();
    QTest::newRow("empty") << u"empty"_s << false << QString();
    QTest::newRow("absent") << u"absent"_s << false << QString();
    QTest::newRow("other word") << u"odd"_s << false << u"Expected \"yes\" or \"no\" for option odd"_s;
}

void TestComponentMetadata::yesNoOption()
{
    QFETCH(QString, key);
    QFETCH(bool, value);
    QFETCH(QString, thrown);
    LN_ComponentMetadata r;
    r.otherOptions = {{u"upper"_s, u"YES"_s}, {u"lower"_s, u"no"_s}, {u"empty"_s, QString()}, {u"odd"_s, u"y"_s}};
    try {
        QCOMPARE(r.getYesNoOption(key), value);
        QVERIFY(thrown.isEmpty());
    } catch (LN_Exception const & e) {
        QCOMPARE(QString::fromUtf8(e.what()), thrown);
    }
}

void TestComponentMetadata::installOptions()
{
    LN_ComponentMetadata r = sample(u"/opt/./orvanis//"_s);
    r.buildType.clear();
    LN_InstallerOptions const options = r.installOptions();
    QCOMPARE(options.verb, LN_InstallerOptions::Invalid);
    QCOMPARE(options.product, Product_EngineMaya);
    QCOMPARE(options.version, r.version);
    QCOMPARE(options.platform, u"linux_x86_64_gcc12"_s);
    QVERIFY(options.isBuildTypeSet());
    QCOMPARE(options.existingInstallDir(), u"/opt/orvanis"_s);
    QVERIFY(options.installDir().isEmpty());
    QCOMPARE(options.features, (QHash<QString, bool>{{u"Docs"_s, true}}));
    // The record's own options replace the whole table, "for-orvanis" included.
    QCOMPARE(options.otherOptions, r.otherOptions);

    LN_InstallerOptions const uninstall = LN_InstallerOptions::uninstall(r, true);
    QCOMPARE(uninstall.verb, LN_InstallerOptions::Uninstall);
    QVERIFY(uninstall.force);
    QCOMPARE(uninstall.existingInstallDir(), u"/opt/orvanis"_s);
    QVERIFY(uninstall.features.isEmpty() && uninstall.otherOptions.isEmpty());

    r.installDir.clear();
    for (auto const & call : std::initializer_list<std::function<void()>>{
             [&] { r.installOptions(); }, [&] { LN_InstallerOptions::uninstall(r, false); }}) {
        try {
            call();
            QFAIL("no exception");
        } catch (LN_Exception const & e) {
            QCOMPARE(QString::fromUtf8(e.what()), u"Does not refer to an existing installation"_s);
        }
    }
}

void TestComponentMetadata::supportsPackages_data()
{
    QTest::addColumn<LN_ProductID>("product");
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("supports");
    QTest::newRow("17.5.134") << Product_Orvanis << u"17.5.134"_s << false;
    QTest::newRow("17.5.135") << Product_Orvanis << u"17.5.135"_s << true;
    QTest::newRow("plug-in") << Product_EngineMaya << u"20.0"_s << false;
}

void TestComponentMetadata::supportsPackages()
{
    QFETCH(LN_ProductID, product);
    QFETCH(QString, version);
    QFETCH(bool, supports);
    LN_ComponentMetadata r;
    r.product = product;
    r.version = QVersionNumber::fromString(version);
    QCOMPARE(r.supportsPackages(), supports);
}

void TestComponentMetadata::descriptions_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("shortText");
    QTest::addColumn<QString>("details");

    QString const size = LN_Util::numBytesToString(0);
    QTest::newRow("installed")
        << Change([](LN_ComponentMetadata &) {}) << u"Maya Plug-In 20.1.4 - gold"_s
        << u"Details for Maya Plug-In 20.1.4 - gold\nCompiled with gcc12 (linux_x86_64)\nInstallation Directory: "
           u"/opt/orvanis\nFeatures: Docs\nRelease Date: Thu Feb 29 2024\nOAPI Version: 3.2\nSize on disk: "_s
               + size + u"\nFor Orvanis: 20.1"_s;
    QTest::newRow("imported without uninstaller") << Change([](LN_ComponentMetadata & r) {
        r.imported = true;
        r.hasUninstaller = false;
    }) << u"Maya Plug-In 20.1.4 - gold"_s
                                                  << u"Details for Maya Plug-In 20.1.4 - gold\nInstallation Directory: "
                                                     u"/opt/orvanis\nNote: This is an imported installation, and no "
                                                     u"Orvanis Uninstaller is detected in installation directory"_s;
    QTest::newRow("imported server") << Change([](LN_ComponentMetadata & r) {
        r.imported = true;
        r.hasUninstaller = false;
        r.product = Product_OQueueServer;
    }) << u"OQueue Server 20.1.4 - gold"_s
                                     << u"Details for OQueue Server 20.1.4 - gold\nInstallation Directory: "
                                        u"/opt/orvanis\nNote: This is an imported installation"_s;
}

void TestComponentMetadata::descriptions()
{
    QFETCH(Change, change);
    QFETCH(QString, shortText);
    QFETCH(QString, details);
    LN_ComponentMetadata r = sample();
    r.features.insert(u"Docs"_s, QString());
    change(r);
    QCOMPARE(r.shortString(), shortText);
    QCOMPARE(r.detailsString(), details);
}

void TestComponentMetadata::equality_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<bool>("equal");
    auto const row = [](char const * name, Change change, bool equal) { QTest::newRow(name) << change << equal; };
    row("label", [](LN_ComponentMetadata & r) { r.label = u"x"_s; }, true);
    row("product files", [](LN_ComponentMetadata & r) { r.productFiles = u"x"_s; }, true);
    row("ready", [](LN_ComponentMetadata & r) { r.ready = false; }, true);
    row("pending files", [](LN_ComponentMetadata & r) { r.setFiles(u"Docs"_s, {}); }, true);
    row("directory case", [](LN_ComponentMetadata & r) { r.installDir = u"/opt/Orvanis"_s; }, false);
    row("tag order", [](LN_ComponentMetadata & r) { r.tags = {u"lts"_s, u"stable"_s}; }, false);
    row("feature manifest", [](LN_ComponentMetadata & r) { r.features[u"Docs"_s] = u"x"_s; }, false);
    row("imported", [](LN_ComponentMetadata & r) { r.imported = true; }, false);
    row("uninstaller", [](LN_ComponentMetadata & r) { r.hasUninstaller = false; }, false);
}

void TestComponentMetadata::equality()
{
    QFETCH(Change, change);
    QFETCH(bool, equal);
    LN_ComponentMetadata changed = sample();
    change(changed);
    QCOMPARE(changed == sample(), equal);
    QCOMPARE(changed != sample(), !equal);
}

QTEST_GUILESS_MAIN(TestComponentMetadata)
#include "tst_componentmetadata.moc"
