#include <draizu/core/LN_Exception.h>
#include <draizu/records/LN_InstallMetadata.h>

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
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
    void loadWithoutFiles();
    void recovery_data();
    void recovery();
    void refusedCommit_data();
    void refusedCommit();
    void commitRemovesUnnamedFiles();
};

namespace {

QByteArray const digest = QCryptographicHash::hash("content", QCryptographicHash::Sha256);

LN_ComponentMetadata record(QString const & dir, QStringList const & product, QStringList const & docs = {})
{
    LN_ComponentMetadata r;
    r.installDir = dir;
    r.product = Product_Orvanis;
    r.version = QVersionNumber(20, 1);
    r.platformInfo = LN_PlatformInfo::fromStrings(u"linux_x86_64"_s, u"gcc12"_s);
    r.ready = true;
    QList<LN_FileMetadata> files;
    for (QString const & path : product)
        files.append({path, QString(), digest, 7});
    r.setFiles(u"Orvanis"_s, files);
    if (!docs.isEmpty()) {
        files.clear();
        for (QString const & path : docs)
            files.append({path, QString(), digest, 7});
        r.features.insert(u"Docs"_s, QString());
        r.setFiles(u"Docs"_s, files);
    }
    return r;
}

// A committed repository of two installations.
void commitSample(QDir const & dir, bool xReady = true)
{
    LN_InstallMetadata repo(dir);
    repo.insert(record(u"/opt/x"_s, {u"bin/a"_s, u"bin/b"_s}, {u"docs/r"_s}));
    repo.insert(record(u"/opt/y"_s, {u"bin/y"_s}));
    repo.installations[u"/opt/x"_s].ready = xReady;
    repo.saveFinal();
}

QByteArray readAll(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeBytes(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

template <typename F>
QString thrownBy(F && call)
{
    try {
        call();
    } catch (std::exception const & e) {
        return QString::fromUtf8(e.what());
    }
    return {};
}

QStringList sortedPaths(QList<LN_FileMetadata> const & files)
{
    QStringList paths;
    for (LN_FileMetadata const & file : files) {
        if (file.size != -1 || !file.checksum.isEmpty())
            paths.append(u"not merged: "_s + file.path);
        else
            paths.append(file.path);
    }
    paths.sort();
    return paths;
}

} // namespace

void TestInstallMetadata::loadDamaged_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("records");

    QString const missing =
        u"overview.json is missing a \"format version\" member.\nIt is likely the JSON file is corrupt."_s;
    QByteArray const table = R"("installations": {"/opt/x": {"product": "Orvanis"}})";
    QTest::newRow("current") << "{\"format version\": 1, " + table + "}" << QString() << 1;
    QTest::newRow("negative version reads") << "{\"format version\": -1, " + table + "}" << QString() << 1;
    QTest::newRow("no installations") << QByteArray(R"({"format version": 1})") << QString() << 0;
    QTest::newRow("version 0") << "{\"format version\": 0, " + table + "}" << missing << 0;
    QTest::newRow("version absent") << "{" + table + "}" << missing << 0;
    QTest::newRow("version a string") << "{\"format version\": \"1\", " + table + "}" << missing << 0;
    QTest::newRow("version fractional") << "{\"format version\": 1.5, " + table + "}" << missing << 0;
    QTest::newRow("version 2")
        << "{\"format version\": 2, " + table + "}"
        << u"overview.json is too new to be read by this version of the Launcher.\nUpdate the Orvanis Launcher."_s << 0;
    QTest::newRow("array") << QByteArray("[1]")
                           << u"overview.json not an object.\nIt is likely the JSON file is corrupt."_s << 0;

    // "overview.json" is rewritten in place: a crash can leave any prefix of it.
    QTemporaryDir dir;
    commitSample(QDir(dir.path()));
    QByteArray const whole = readAll(dir.filePath(u"overview.json"_s));
    QString const torn = u"Failed to read JSON file overview.json: "_s;
    for (qsizetype length : {qsizetype(0), qsizetype(1), whole.size() / 3, whole.size() / 2, whole.size() - 1})
        QTest::addRow("torn at %lld of %lld", qlonglong(length), qlonglong(whole.size())) << whole.first(length) << torn
                                                                                         << 0;
}

void TestInstallMetadata::loadDamaged()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, error);
    QFETCH(int, records);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(writeBytes(dir.filePath(u"overview.json"_s), content));
    qsizetype loaded = 0;
    QString const thrown = thrownBy([&] { loaded = LN_InstallMetadata(QDir(dir.path())).installations.size(); });
    if (error.endsWith(u": "_s))
        QVERIFY2(thrown.startsWith(error), qPrintable(thrown));
    else
        QCOMPARE(thrown, error.isEmpty() ? QString() : error);
    QCOMPARE(loaded, records);
}

void TestInstallMetadata::loadWithoutFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    LN_InstallMetadata const empty{QDir(dir.path())};
    QVERIFY(empty.installations.isEmpty());
    QVERIFY(QDir(dir.path()).isEmpty());

    QVERIFY(thrownBy([&] { LN_InstallMetadata(QDir(dir.path()), u"other.json"_s); })
                .startsWith(u"Failed to read JSON file other.json: Unable to open "_s));

    // A second load merges into the table.
    QVERIFY(writeBytes(dir.filePath(u"a.json"_s), R"({"format version": 1, "installations": {"/a": {}}})"));
    QVERIFY(writeBytes(dir.filePath(u"b.json"_s), R"({"format version": 1, "installations": {"/b": {}}})"));
    LN_InstallMetadata repo(QDir(dir.path()), u"a.json"_s);
    repo.load(u"b.json"_s);
    QVERIFY(repo.isTaken(u"/a"_s) && repo.isTaken(u"/b"_s) && !repo.isTaken(u"/B"_s));
    QCOMPARE(repo.getAll().size(), 2);
    repo.remove(u"/a"_s);
    repo.remove(u"/none"_s);
    QCOMPARE(repo.get(u"/a"_s).installDir, QString());
}

void TestInstallMetadata::recovery_data()
{
    QTest::addColumn<bool>("xReady");
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("oldKey");
    QTest::addColumn<QStringList>("product");
    QTest::addColumn<QStringList>("docs");

    QTest::newRow("unchanged, all ready") << true << Change([](LN_InstallMetadata &) {}) << QString() << QString()
                                          << QStringList() << QStringList();
    QTest::newRow("unchanged, one record not ready")
        << false << Change([](LN_InstallMetadata &) {}) << u"/opt/x"_s << u"/opt/x"_s
        << QStringList{u"bin/a"_s, u"bin/b"_s} << QStringList{u"docs/r"_s};
    // The committed record is ready and equal, so only the side of the change counts.
    QTest::newRow("not ready in the change only") << true << Change([](LN_InstallMetadata & repo) {
        repo.installations[u"/opt/x"_s].ready = false;
    }) << u"/opt/x"_s << QString() << QStringList{u"bin/a"_s, u"bin/b"_s}
                                                  << QStringList{u"docs/r"_s};
    QTest::newRow("files changed") << true << Change([](LN_InstallMetadata & repo) {
        repo.insert(record(u"/opt/x"_s, {u"bin/a"_s, u"bin/c"_s}));
    }) << u"/opt/x"_s << u"/opt/x"_s << QStringList{u"bin/a"_s, u"bin/b"_s, u"bin/c"_s}
                                   << QStringList{u"docs/r"_s};
    QTest::newRow("added") << true << Change([](LN_InstallMetadata & repo) {
        repo.insert(record(u"/opt/z"_s, {u"z"_s}));
    }) << u"/opt/z"_s << QString() << QStringList{u"z"_s} << QStringList();
    QTest::newRow("removed") << true << Change([](LN_InstallMetadata & repo) { repo.remove(u"/opt/x"_s); }) << QString()
                             << u"/opt/x"_s << QStringList{u"/opt/x/bin/a"_s, u"/opt/x/bin/b"_s}
                             << QStringList{u"/opt/x/docs/r"_s};
    QTest::newRow("moved") << true << Change([](LN_InstallMetadata & repo) {
        repo.remove(u"/opt/x"_s);
        repo.insert(record(u"/opt/x2"_s, {u"bin/a"_s, u"bin/c"_s}));
    }) << u"/opt/x2"_s << u"/opt/x"_s
                           << QStringList{u"/opt/x/bin/a"_s, u"/opt/x/bin/b"_s, u"bin/a"_s, u"bin/c"_s}
                           << QStringList{u"/opt/x/docs/r"_s};
}

void TestInstallMetadata::recovery()
{
    QFETCH(bool, xReady);
    QFETCH(Change, change);
    QFETCH(QString, key);
    QFETCH(QString, oldKey);
    QFETCH(QStringList, product);
    QFETCH(QStringList, docs);

    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    QDir const dir(temp.path());
    commitSample(dir, xReady);
    QByteArray const overview = readAll(dir.filePath(u"overview.json"_s));
    LN_InstallMetadata changed(dir);
    change(changed);
    changed.save(u"new.json"_s);

    LN_InstallMetadata const recovered(dir);
    QCOMPARE(readAll(dir.filePath(u"overview.json"_s)), overview);
    QVERIFY(recovered.isTaken(u"/opt/y"_s) || oldKey == u"/opt/y"_s);
    if (product.isEmpty()) {
        QCOMPARE(recovered.interruptedNew.product, LN_ProductID::Invalid);
        QCOMPARE(recovered.interruptedOld.product, LN_ProductID::Invalid);
        QCOMPARE(recovered.installations.keys().size(), 2);
        return;
    }
    QCOMPARE(recovered.interruptedNew.installDir, key);
    QCOMPARE(recovered.interruptedOld.installDir, oldKey);
    QVERIFY(recovered.isTaken(key));
    QCOMPARE(recovered.isTaken(oldKey), oldKey == key && !key.isEmpty());
    LN_ComponentMetadata const merged = recovered.get(key);
    QCOMPARE(merged.product, Product_Orvanis);
    QCOMPARE(sortedPaths(merged.getFiles(u"Orvanis"_s)), product);
    QCOMPARE(sortedPaths(merged.getFiles(u"Docs"_s)), docs);
    QCOMPARE(merged.features.contains(u"Docs"_s), !docs.isEmpty());
}

void TestInstallMetadata::refusedCommit_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("reason");

    auto const files = [](QByteArray checksum, qint64 size) {
        return Change([checksum, size](LN_InstallMetadata & repo) {
            repo.installations[u"/opt/y"_s].setFiles(u"Orvanis"_s, {{u"f"_s, QString(), checksum, size}});
        });
    };
    QTest::newRow("valid") << Change([](LN_InstallMetadata &) {}) << QString();
    QTest::newRow("empty checksum, size 0") << files(QByteArray(), 0) << QString();
    QTest::newRow("31-byte checksum") << files(digest.first(31), 1) << u"invalid checksum"_s;
    QTest::newRow("negative size") << files(digest, -1) << u"invalid filesize"_s;
    QTest::newRow("invalid product") << Change([](LN_InstallMetadata & repo) {
        repo.installations[u"/opt/y"_s].product = LN_ProductID::Invalid;
    }) << u"invalid product"_s;
    QTest::newRow("invalid platform") << Change([](LN_InstallMetadata & repo) {
        repo.installations[u"/opt/y"_s].platformInfo = {};
    }) << u"invalid platform info"_s;
    QTest::newRow("imported, unknown platform") << Change([](LN_InstallMetadata & repo) {
        repo.installations[u"/opt/y"_s].platformInfo = {};
        repo.installations[u"/opt/y"_s].imported = true;
    }) << QString();
    QTest::newRow("key not the directory") << Change([](LN_InstallMetadata & repo) {
        repo.installations[u"/opt/y"_s].installDir = u"/opt/y/"_s;
    }) << u"Key did not match installation directory"_s;
    QTest::newRow("empty key") << Change([](LN_InstallMetadata & repo) {
        LN_ComponentMetadata r = repo.get(u"/opt/y"_s);
        r.installDir.clear();
        repo.insert(r);
    }) << u"Key was empty"_s;
}

void TestInstallMetadata::refusedCommit()
{
    QFETCH(Change, change);
    QFETCH(QString, reason);

    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    QDir const dir(temp.path());
    commitSample(dir);
    QByteArray const overview = readAll(dir.filePath(u"overview.json"_s));

    LN_InstallMetadata repo(dir);
    change(repo);
    QString const crash = dir.absoluteFilePath(u"crash.json"_s);
    QString const thrown = thrownBy([&] { repo.saveFinal(); });
    if (reason.isEmpty()) {
        QCOMPARE(thrown, QString());
        return;
    }
    QCOMPARE(thrown, u"The launcher's internal state is corrupted (%1). Submit %2 for debugging."_s.arg(reason, crash));
    QCOMPARE(readAll(dir.filePath(u"overview.json"_s)), overview);
    QCOMPARE(LN_InstallMetadata(dir, u"crash.json"_s).installations.size(), repo.installations.size());
}

void TestInstallMetadata::commitRemovesUnnamedFiles()
{
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    QDir const dir(temp.path());
    commitSample(dir);

    LN_InstallMetadata repo(dir);
    repo.installations[u"/opt/y"_s].product = LN_ProductID::Invalid;
    QVERIFY(!thrownBy([&] { repo.saveFinal(); }).isEmpty());
    repo.installations[u"/opt/y"_s].product = Product_Orvanis;
    repo.insert(record(u"/opt/x"_s, {u"bin/new"_s}));
    repo.save(u"new.json"_s);
    QVERIFY(writeBytes(dir.filePath(u"notes.txt"_s), "kept"));
    QVERIFY(dir.mkdir(u"folder.json"_s));
    repo.saveFinal();

    QStringList expected{u"overview.json"_s, u"notes.txt"_s, u"folder.json"_s};
    for (LN_ComponentMetadata const & r : repo.installations) {
        expected.append(QFileInfo(r.productFiles).fileName());
        for (QString const & path : r.features)
            expected.append(QFileInfo(path).fileName());
    }
    QStringList left = dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    expected.sort();
    left.sort();
    QCOMPARE(left, expected);
    QCOMPARE(LN_InstallMetadata(dir).get(u"/opt/x"_s).allFiles().constFirst().path, u"bin/new"_s);
}

QTEST_GUILESS_MAIN(TestInstallMetadata)
#include "tst_installmetadata.moc"
