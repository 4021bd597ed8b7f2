#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include "ThrownBy.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

#include <exception>
#include <functional>

using namespace Qt::StringLiterals;

using Change = std::function<void(LN_ComponentMetadata &)>;
using Table = QHash<QString, QString>;
Q_DECLARE_METATYPE(Change)

class TestComponentMetadata : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void body();
    void jobQueueFiles_data();
    void jobQueueFiles();
    void fileLists();
    void computeAllFiles_data();
    void computeAllFiles();
    void installOptions();
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
    r.ready = r.hasUninstaller = r.failedUninstall = true;
    return r;
}

bool writeBytes(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.write(bytes) == bytes.size();
}


} // namespace

void TestComponentMetadata::body()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    LN_ComponentMetadata written = sample();
    QJsonObject const body = written.save(QDir(dir.path()));
    QCOMPARE(body.size(), 18);
    QCOMPARE(body.value(u"product"_s).toString(), u"Engine Maya"_s); // the older word, still read
    // Read back and written again, every field survives, also those that equality ignores.
    QCOMPARE(fromBody(written.installDir, body).save(QDir(dir.path())), body);

    // A null version and date are written empty and read back null.
    LN_ComponentMetadata bare;
    bare.installDir = u"/opt/bare"_s;
    QJsonObject const bareBody = bare.save(QDir(dir.path()));
    QCOMPARE(bareBody.value(u"version"_s).toString() + bareBody.value(u"release date"_s).toString(), QString());
    QVERIFY(fromBody(bare.installDir, bareBody) == bare);

    // Wrong types and texts read as empty values, never as a failure.
    LN_ComponentMetadata const odd = fromBody(
        u"/opt/y"_s, QJsonObject{{u"version"_s, u"1.2.3abc"_s}, {u"ready"_s, u"true"_s}, {u"tags"_s, u"a"_s},
                                 {u"features"_s, QJsonArray{u"Docs"_s}}, {u"release date"_s, u"29.02.2024"_s}});
    QCOMPARE(odd.product, LN_ProductID::Invalid);
    QCOMPARE(odd.version, QVersionNumber(1, 2, 3));
    QVERIFY(!odd.ready && odd.tags.isEmpty() && odd.features.isEmpty() && odd.releaseDate.isNull());
}

void TestComponentMetadata::jobQueueFiles_data()
{
    QTest::addColumn<LN_ProductID>("product");
    QTest::addColumn<Table>("files"); // name to content
    QTest::addColumn<bool>("imported");
    QTest::addColumn<Table>("options");

    Table const stored{{u"server"_s, u"old-host"_s}};
    // An imported record takes the version of the VERSION file, 2.0.1.
    auto const row = [](char const * name, LN_ProductID product, Table const & files, bool imported,
                        Table const & options) { QTest::newRow(name) << product << files << imported << options; };
    row("client upgraded, node settings", Product_OQueueClient,
        {{u"VERSION"_s, u"2.0.1\n"_s}, {u"oqnode.ini"_s, u"[main]\nserver=farm\nport=6000\n"_s}}, true,
        {{u"server"_s, u"farm"_s}, {u"port"_s, u"6000"_s}});
    row("client unchanged", Product_OQueueClient, {{u"VERSION"_s, u"1.0.0"_s}}, false, stored);
    row("client without files", Product_OQueueClient, {}, false, stored);
    row("server service name", Product_OQueueServer, {{u"oqservicename"_s, u"oq-farm"_s}, {u"VERSION"_s, u"9.0"_s}},
        false, {{u"server"_s, u"old-host"_s}, {u"service-name"_s, u"oq-farm"_s}});
    row("other products read nothing", Product_Orvanis, {{u"VERSION"_s, u"9.0"_s}, {u"oqservicename"_s, u"x"_s}},
        false, stored);
}

void TestComponentMetadata::jobQueueFiles()
{
    QFETCH(LN_ProductID, product);
    QFETCH(Table, files);
    QFETCH(bool, imported);
    QFETCH(Table, options);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QVERIFY(writeBytes(dir.filePath(it.key()), it.value().toUtf8()));
    LN_ComponentMetadata r;
    r.product = product;
    r.version = QVersionNumber(1, 0, 0);
    r.otherOptions = {{u"server"_s, u"old-host"_s}};
    LN_ComponentMetadata const read = fromBody(dir.path(), r.save(QDir(dir.path())));
    QCOMPARE(read.version, imported ? QVersionNumber(2, 0, 1) : QVersionNumber(1, 0, 0));
    QCOMPARE(read.imported, imported);
    QCOMPARE(read.otherOptions, options);
}

void TestComponentMetadata::fileLists()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QDir const repo(dir.path());
    LN_FileMetadata const tool(u"bin/tool"_s, u"s"_s, QCryptographicHash::hash("x", QCryptographicHash::Sha256), 10);
    LN_FileMetadata const guide(u"docs/Guide.txt"_s, QString(), QByteArray(), 5);
    LN_ComponentMetadata r = sample();
    r.setFiles(u"Maya Plug-In"_s, {tool});
    r.setFiles(u"Docs"_s, {guide});
    r.setFiles(u"Unknown"_s, {tool});
    r.setSofsFiles(u"Docs"_s, {{u"sofs/a.dat"_s, true}});
    r.save(repo);

    // A list of a feature the record lacks is dropped; the others are read back from disk.
    QCOMPARE(repo.entryList(QDir::Files),
             (QStringList{u"Docs_1.json"_s, u"Docs_sofs_1.json"_s, u"Maya_Plug-In_1.json"_s}));
    QCOMPARE(r.allFiles(), (QList<LN_FileMetadata>{tool, guide}));
    QCOMPARE(r.installedSize(), 15);
    QCOMPARE(r.installedSize(u"Docs"_s), 5);
    QCOMPARE(r.installedSize(u"Unknown"_s), 0);
    QVERIFY(r.containsFile(u"docs/Guide.txt"_s) && !r.containsFile(u"docs/guide.txt"_s));

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
    QVERIFY(r.getFiles(u"Docs"_s).isEmpty() && r.getSofsFiles(u"Docs"_s).isEmpty());
    r.productFiles = repo.filePath(u"Docs_sofs_1.json"_s);
    QCOMPARE(thrownBy([&] { r.getFiles(u"Maya Plug-In"_s); }), u"Expected an array"_s);
}

void TestComponentMetadata::computeAllFiles_data()
{
    QTest::addColumn<int>("files");
    QTest::newRow("four files pair up") << 4;
    QTest::newRow("three files, last record empty") << 3;
    QTest::newRow("none") << 0;
}

void TestComponentMetadata::computeAllFiles()
{
    QFETCH(int, files);

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
    QCOMPARE(list.size(), (files + 1) / 2);

    // Each record carries the digest of the file walked before its own: together they
    // cover every file once.
    QSet<QString> seen;
    for (LN_FileMetadata const & file : list) {
        QString const digestOf = byDigest.value(file.checksum);
        QVERIFY(!digestOf.isEmpty() && digestOf != file.path);
        seen << digestOf << file.path;
        QCOMPARE(file.size, file.path.isEmpty() ? 0 : QFileInfo(dir.filePath(file.path)).size());
    }
    seen.remove(QString());
    QCOMPARE(seen.size(), files);
    QCOMPARE(!list.isEmpty() && list.constLast().path.isEmpty(), files % 2 == 1);
}

void TestComponentMetadata::installOptions()
{
    LN_ComponentMetadata r = sample(u"/opt/./orvanis//"_s);
    QVERIFY(!r.supportsPackages());
    r.buildType.clear();
    LN_InstallerOptions const options = r.installOptions();
    QCOMPARE(options.verb, LN_InstallerOptions::Invalid);
    QCOMPARE(options.platform, u"linux_x86_64_gcc12"_s);
    QVERIFY(options.isBuildTypeSet());
    QCOMPARE(options.existingInstallDir(), u"/opt/orvanis"_s);
    QVERIFY(options.installDir().isEmpty());
    QCOMPARE(options.features, (QHash<QString, bool>{{u"Docs"_s, true}}));
    // The record's own options replace the whole table, "for-orvanis" included.
    QCOMPARE(options.otherOptions, r.otherOptions);
    LN_InstallerOptions const uninstall = LN_InstallerOptions::uninstall(r, true);
    QVERIFY(uninstall.verb == LN_InstallerOptions::Uninstall && uninstall.force);
    QVERIFY(uninstall.features.isEmpty() && uninstall.otherOptions.isEmpty());

    r.otherOptions = {{u"on"_s, u"YES"_s}, {u"blank"_s, QString()}, {u"odd"_s, u"y"_s}};
    QVERIFY(r.getYesNoOption(u"on"_s) && !r.getYesNoOption(u"blank"_s) && !r.getYesNoOption(u"absent"_s));
    QCOMPARE(thrownBy([&] { r.getYesNoOption(u"odd"_s); }), u"Expected \"yes\" or \"no\" for option odd"_s);

    // Only Orvanis after 17.5.134 takes add-on packages.
    r.product = Product_Orvanis;
    r.version = QVersionNumber(17, 5, 134);
    QVERIFY(!r.supportsPackages());
    r.version = QVersionNumber(17, 5, 135);
    QVERIFY(r.supportsPackages());

    r.installDir.clear();
    QString const none = u"Does not refer to an existing installation"_s;
    QCOMPARE(thrownBy([&] { r.installOptions(); }), none);
    QCOMPARE(thrownBy([&] { LN_InstallerOptions::uninstall(r, false); }), none);
}

void TestComponentMetadata::descriptions()
{
    LN_ComponentMetadata r = sample();
    QCOMPARE(r.detailsString(),
             u"Details for Maya Plug-In 20.1.4 - gold\nCompiled with gcc12 (linux_x86_64)\nInstallation Directory: "
             u"/opt/orvanis\nFeatures: Docs\nRelease Date: Thu Feb 29 2024\nOAPI Version: 3.2\nSize on disk: "_s
                 + LN_Util::numBytesToString(0) + u"\nFor Orvanis: 20.1"_s);
    r.imported = true;
    r.hasUninstaller = false;
    QString const imported = u"\nInstallation Directory: /opt/orvanis\nNote: This is an imported installation"_s;
    QCOMPARE(r.detailsString(), u"Details for Maya Plug-In 20.1.4 - gold"_s + imported
                                    + u", and no Orvanis Uninstaller is detected in installation directory"_s);
    r.product = Product_OQueueServer;
    QCOMPARE(r.detailsString(), u"Details for OQueue Server 20.1.4 - gold"_s + imported);
}

void TestComponentMetadata::equality_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<bool>("equal");
    auto const row = [](char const * name, Change change, bool equal) { QTest::newRow(name) << change << equal; };
    row("version", [](LN_ComponentMetadata & r) { r.version = QVersionNumber(20, 1, 5); }, false);
    row("oapi version", [](LN_ComponentMetadata & r) { r.oapiVersion = QVersionNumber(3, 3); }, false);
    row("for Orvanis", [](LN_ComponentMetadata & r) { r.forOrvanis = QVersionNumber(20, 2); }, false);
    row("directory case", [](LN_ComponentMetadata & r) { r.installDir = u"/opt/Orvanis"_s; }, false);
    row("release date", [](LN_ComponentMetadata & r) { r.releaseDate = QDate(2024, 3, 1); }, false);
    row("tag order", [](LN_ComponentMetadata & r) { r.tags = {u"lts"_s, u"stable"_s}; }, false);
    row("build type", [](LN_ComponentMetadata & r) { r.buildType = u"beta"_s; }, false);
    row("product", [](LN_ComponentMetadata & r) { r.product = Product_Orvanis; }, false);
    row("feature manifest", [](LN_ComponentMetadata & r) { r.features[u"Docs"_s] = u"x"_s; }, false);
    row("options", [](LN_ComponentMetadata & r) { r.otherOptions.clear(); }, false);
    row("imported", [](LN_ComponentMetadata & r) { r.imported = true; }, false);
    row("uninstaller", [](LN_ComponentMetadata & r) { r.hasUninstaller = false; }, false);
    // Everything else is ignored at once: recovery of an interrupted change relies on that.
    row("ignored fields", [](LN_ComponentMetadata & r) {
        r.label = r.productFiles = u"x"_s;
        r.platformInfo = {};
        r.ready = r.failedUninstall = false;
        r.sofsFiles[u"Docs"_s] = u"x"_s;
        r.setFiles(u"Docs"_s, {});
        r.setSofsFiles(u"Docs"_s, {});
    }, true);
}

void TestComponentMetadata::equality()
{
    QFETCH(Change, change);
    QFETCH(bool, equal);
    LN_ComponentMetadata changed = sample();
    change(changed);
    QCOMPARE(changed == sample(), equal);
}

QTEST_GUILESS_MAIN(TestComponentMetadata)
#include "tst_componentmetadata.moc"
