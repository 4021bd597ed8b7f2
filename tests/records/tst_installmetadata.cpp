#include <draizu/records/LN_InstallMetadata.h>

#include "ThrownBy.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <exception>
#include <functional>

using namespace Qt::StringLiterals;

using Change = std::function<void(LN_InstallMetadata &)>;
Q_DECLARE_METATYPE(Change)

class TestInstallMetadata : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loadDamaged_data();
    void loadDamaged();
    void recovery_data();
    void recovery();
    void commit_data();
    void commit();
};

namespace {

QByteArray const digest = QCryptographicHash::hash("content", QCryptographicHash::Sha256);

LN_ComponentMetadata record(QString const & dir, QStringList const & product, QStringList const & docs = {})
{
    LN_ComponentMetadata r;
    r.installDir = dir;
    r.product = Product_Orvanis;
    r.platformInfo = LN_PlatformInfo::fromStrings(u"linux_x86_64"_s, u"gcc12"_s);
    r.ready = true;
    if (!docs.isEmpty())
        r.features.insert(u"Docs"_s, QString());
    for (auto const & [feature, paths] : {std::pair(u"Orvanis"_s, product), std::pair(u"Docs"_s, docs)}) {
        QList<LN_FileMetadata> files;
        for (QString const & path : paths)
            files.append({path, QString(), digest, 7});
        r.setFiles(feature, files);
    }
    return r;
}

QByteArray readAll(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Commits a repository of two installations and returns its "overview.json".
QByteArray commitSample(QDir const & dir, bool xReady = true)
{
    LN_InstallMetadata repo(dir);
    repo.insert(record(u"/opt/x"_s, {u"bin/a"_s, u"bin/b"_s}, {u"docs/r"_s}));
    repo.insert(record(u"/opt/y"_s, {u"bin/y"_s}));
    repo.installations[u"/opt/x"_s].ready = xReady;
    repo.saveFinal();
    return readAll(dir.filePath(u"overview.json"_s));
}

bool writeBytes(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}


} // namespace

void TestInstallMetadata::loadDamaged_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("error"); // ending in ": ", what the text starts with
    QTest::addColumn<int>("records");

    QString const missing =
        u"overview.json is missing a \"format version\" member.\nIt is likely the JSON file is corrupt."_s;
    auto const row = [](char const * name, QByteArray const & version, QString const & error, int records = 0) {
        QTest::newRow(name) << "{" + version + R"("installations": {"/opt/x": {"product": "Orvanis"}}})" << error
                            << records;
    };
    row("current", R"("format version": 1, )", {}, 1);
    row("version absent", {}, missing);
    row("version fractional", R"("format version": 1.5, )", missing);
    row("version 2", R"("format version": 2, )",
        u"overview.json is too new to be read by this version of the Launcher.\nUpdate the Orvanis Launcher."_s);
    QTest::newRow("no file") << QByteArray() << QString() << 0;
    QTest::newRow("no installations") << QByteArray(R"({"format version": 1})") << QString() << 0;
    QTest::newRow("array") << QByteArray("[1]")
                           << u"overview.json not an object.\nIt is likely the JSON file is corrupt."_s << 0;

    // "overview.json" is rewritten in place: a crash can leave any prefix of it.
    QTemporaryDir dir;
    QByteArray const whole = commitSample(QDir(dir.path()));
    for (qsizetype length : {qsizetype(0), qsizetype(1), whole.size() / 3, whole.size() / 2, whole.size() - 1})
        QTest::addRow("torn at %lld of %lld", qlonglong(length), qlonglong(whole.size()))
            << whole.first(length) << u"Failed to read JSON file overview.json: "_s << 0;
}

void TestInstallMetadata::loadDamaged()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, error);
    QFETCH(int, records);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(content.isNull() || writeBytes(dir.filePath(u"overview.json"_s), content));
    qsizetype loaded = 0;
    QString const thrown = thrownBy([&] { loaded = LN_InstallMetadata(QDir(dir.path())).installations.size(); });
    QCOMPARE(QDir(dir.path()).isEmpty(), content.isNull()); // loading writes nothing
    QVERIFY2(error.endsWith(u": "_s) ? thrown.startsWith(error) : thrown == error, qPrintable(thrown));
    QCOMPARE(loaded, records);
}

void TestInstallMetadata::recovery_data()
{
    QTest::addColumn<bool>("xReady");
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("oldKey");
    QTest::addColumn<QStringList>("files"); // of the merged record, sorted

    QStringList const x{u"bin/a"_s, u"bin/b"_s, u"docs/r"_s};
    QStringList const xMoved{u"/opt/x/bin/a"_s, u"/opt/x/bin/b"_s, u"/opt/x/docs/r"_s};
    auto const row = [](char const * name, bool xReady, Change change, char const * key, char const * oldKey,
                        QStringList const & files = {}) {
        QTest::newRow(name) << xReady << change << QString::fromLatin1(key) << QString::fromLatin1(oldKey) << files;
    };
    row("unchanged, all ready", true, [](LN_InstallMetadata &) {}, "", "");
    row("unchanged, one record not ready", false, [](LN_InstallMetadata &) {}, "/opt/x", "/opt/x", x);
    // The committed record is ready and equal, so only the side of the change counts.
    row("not ready in the change only", true,
        [](LN_InstallMetadata & repo) { repo.installations[u"/opt/x"_s].ready = false; }, "/opt/x", "", x);
    row("files changed", true,
        [](LN_InstallMetadata & repo) { repo.insert(record(u"/opt/x"_s, {u"bin/a"_s, u"bin/c"_s})); }, "/opt/x",
        "/opt/x", {u"bin/a"_s, u"bin/b"_s, u"bin/c"_s, u"docs/r"_s});
    row("added", true, [](LN_InstallMetadata & repo) { repo.insert(record(u"/opt/z"_s, {u"z"_s})); }, "/opt/z", "",
        {u"z"_s});
    row("removed", true, [](LN_InstallMetadata & repo) { repo.remove(u"/opt/x"_s); }, "", "/opt/x", xMoved);
    row("moved", true, [](LN_InstallMetadata & repo) {
        repo.remove(u"/opt/x"_s);
        repo.insert(record(u"/opt/x2"_s, {u"bin/a"_s, u"bin/c"_s}));
    }, "/opt/x2", "/opt/x", xMoved + QStringList{u"bin/a"_s, u"bin/c"_s});
}

void TestInstallMetadata::recovery()
{
    QFETCH(bool, xReady);
    QFETCH(Change, change);
    QFETCH(QString, key);
    QFETCH(QString, oldKey);
    QFETCH(QStringList, files);

    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    QDir const dir(temp.path());
    QByteArray const overview = commitSample(dir, xReady);
    LN_InstallMetadata changed(dir);
    change(changed);
    changed.save(u"new.json"_s);

    // Recovery writes nothing and keeps the installation the change was not about.
    LN_InstallMetadata const recovered(dir);
    QCOMPARE(readAll(dir.filePath(u"overview.json"_s)), overview);
    QVERIFY(recovered.isTaken(u"/opt/y"_s));
    QCOMPARE(recovered.interruptedNew.installDir, key);
    QCOMPARE(recovered.interruptedOld.installDir, oldKey);
    if (files.isEmpty()) {
        QCOMPARE(recovered.installations.size(), 2);
        return;
    }
    QVERIFY(recovered.isTaken(key));
    QCOMPARE(recovered.isTaken(oldKey), oldKey == key);
    QCOMPARE(recovered.get(key).product, Product_Orvanis);
    QStringList paths;
    for (LN_FileMetadata const & file : recovered.get(key).allFiles()) {
        QVERIFY(file.size == -1 && file.checksum.isEmpty()); // a merged list claims nothing about content
        paths.append(file.path);
    }
    paths.sort();
    QCOMPARE(paths, files);
}

void TestInstallMetadata::commit_data()
{
    QTest::addColumn<Change>("change"); // to the record of "/opt/y"
    QTest::addColumn<QString>("reason"); // empty: committed

    using Edit = std::function<void(LN_ComponentMetadata &)>;
    auto const row = [](char const * name, Edit const & edit, char const * reason) {
        QTest::newRow(name) << Change([edit](LN_InstallMetadata & repo) { edit(repo.installations[u"/opt/y"_s]); })
                            << QString::fromLatin1(reason);
    };
    auto const files = [](QByteArray checksum, qint64 size) {
        return [checksum, size](LN_ComponentMetadata & r) { r.setFiles(u"Orvanis"_s, {{u"f"_s, {}, checksum, size}}); };
    };
    row("new files, empty checksum, size 0", files(QByteArray(), 0), "");
    row("31-byte checksum", files(digest.first(31), 1), "invalid checksum");
    row("negative size", files(digest, -1), "invalid filesize");
    row("invalid product", [](LN_ComponentMetadata & r) { r.product = LN_ProductID::Invalid; }, "invalid product");
    row("invalid platform", [](LN_ComponentMetadata & r) { r.platformInfo = {}; }, "invalid platform info");
    row("imported, unknown platform", [](LN_ComponentMetadata & r) { r.platformInfo = {}; r.imported = true; }, "");
    row("key not the directory", [](LN_ComponentMetadata & r) { r.installDir = u"/opt/y/"_s; },
        "Key did not match installation directory");
    QTest::newRow("empty key") << Change([](LN_InstallMetadata & repo) {
        LN_ComponentMetadata r = repo.get(u"/opt/y"_s);
        r.installDir.clear();
        repo.insert(r);
    }) << u"Key was empty"_s;
}

void TestInstallMetadata::commit()
{
    QFETCH(Change, change);
    QFETCH(QString, reason);

    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    QDir const dir(temp.path());
    QByteArray const overview = commitSample(dir);
    LN_InstallMetadata repo(dir);
    // Left by earlier runs: a commit removes every JSON file that it does not name, and only those.
    for (QString const & name : {u"new.json"_s, u"crash.json"_s, u"notes.txt"_s})
        QVERIFY(writeBytes(dir.filePath(name), "{}"));
    QVERIFY(dir.mkdir(u"folder.json"_s));
    change(repo);

    QString const thrown = thrownBy([&] { repo.saveFinal(); });
    if (!reason.isEmpty()) {
        QCOMPARE(thrown, u"The launcher's internal state is corrupted (%1). Submit %2 for debugging."_s.arg(
                             reason, dir.absoluteFilePath(u"crash.json"_s)));
        QCOMPARE(readAll(dir.filePath(u"overview.json"_s)), overview);
        QCOMPARE(LN_InstallMetadata(dir, u"crash.json"_s).installations.size(), repo.installations.size());
        return;
    }
    QCOMPARE(thrown, QString());
    QSet<QString> expected{u"overview.json"_s, u"notes.txt"_s, u"folder.json"_s};
    for (LN_ComponentMetadata const & r : repo.installations)
        for (QString const & path : r.features.values() + QStringList{r.productFiles})
            expected.insert(QFileInfo(path).fileName());
    QStringList const left = dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    QCOMPARE(QSet(left.cbegin(), left.cend()), expected);
    QCOMPARE(LN_InstallMetadata(dir).get(u"/opt/y"_s).allFiles(), repo.get(u"/opt/y"_s).allFiles());
}

QTEST_GUILESS_MAIN(TestInstallMetadata)
#include "tst_installmetadata.moc"
