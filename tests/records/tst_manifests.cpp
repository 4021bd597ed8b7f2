#include <draizu/catalogue/LN_AvailableFeature.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/records/LN_FileMetadata.h>
#include <draizu/records/LN_JsonFiles.h>
#include <draizu/records/LN_SofsFileMetadata.h>

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <exception>
#include <limits>

using namespace Qt::StringLiterals;

class TestManifests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileManifest_data();
    void fileManifest();
    void sofsManifest_data();
    void sofsManifest();
    void forInstall_data();
    void forInstall();
    void readAndWriteFiles();
    void uniqueNames_data();
    void uniqueNames();
};

namespace {

QByteArray const digest = QCryptographicHash::hash("tool", QCryptographicHash::Sha256);

QJsonDocument parse(QByteArray const & json)
{
    return QJsonDocument::fromJson(json);
}

// The text of what `call` throws, or a null string.
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

bool writeBytes(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.write(bytes) == bytes.size();
}

} // namespace

void TestManifests::fileManifest_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("thrown");
    QTest::addColumn<QList<LN_FileMetadata>>("files");

    QByteArray const b64 = digest.toBase64();
    QTest::newRow("backslashes become slashes")
        << R"({"bin\\tool.exe": ["src", ")" + b64 + R"(", 4]})" << QString()
        << QList<LN_FileMetadata>{{u"bin/tool.exe"_s, u"src"_s, digest, 4}};
    QTest::newRow("entries in key order, size truncated")
        << QByteArray(R"({"b": ["", "", 12.9], "a": ["", "", 1]})") << QString()
        << QList<LN_FileMetadata>{{u"a"_s, {}, QByteArray(), 1}, {u"b"_s, {}, QByteArray(), 12}};
    QTest::newRow("element types unchecked")
        << QByteArray(R"({"a": [1, true, "7"]})") << QString() << QList<LN_FileMetadata>{{u"a"_s, {}, QByteArray(), 0}};
    QTest::newRow("size beyond range") << QByteArray(R"({"a": ["", "", 1e300]})") << QString()
                                       << QList<LN_FileMetadata>{
                                              {u"a"_s, {}, QByteArray(), std::numeric_limits<qint64>::max()}};
    QTest::newRow("empty object") << QByteArray("{}") << QString() << QList<LN_FileMetadata>{};
    QTest::newRow("string value") << QByteArray(R"({"a": "x"})") << u"Expected an array"_s << QList<LN_FileMetadata>{};
    QTest::newRow("two elements") << QByteArray(R"({"a": ["", ""]})") << u"Expected an array with 3 values"_s
                                  << QList<LN_FileMetadata>{};
    QTest::newRow("four elements") << QByteArray(R"({"a": ["", "", 1, 2]})") << u"Expected an array with 3 values"_s
                                   << QList<LN_FileMetadata>{};
}

void TestManifests::fileManifest()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, thrown);
    QFETCH(QList<LN_FileMetadata>, files);

    QList<LN_FileMetadata> read;
    QCOMPARE(thrownBy([&] { read = LN_FileMetadata::fileMetadataFromJson(parse(json).object()).value; }), thrown);
    QCOMPARE(read, files);
}

void TestManifests::sofsManifest_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("thrown");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QList<LN_SofsFileMetadata>>("files");

    QString const notObject =
        u"File n.json is not a valid sofs data file. Expected the file to contain a JSON object."_s;
    QString const noFiles =
        u"File n.json is not a valid sofs data file. Expected \"files\" key to contain an object."_s;
    auto const row = [](char const * name, char const * json, QString const & thrown, QString const & failure,
                        QList<LN_SofsFileMetadata> const & files = {}) {
        QTest::newRow(name) << QByteArray(json) << thrown << failure << files;
    };
    row("empty object", "{}", {}, {});
    row("empty files", R"({"files": {}})", {}, {});
    row("entries, other keys ignored", R"({"files": {"x": {"required": true, "size": 3}, "w": {"required": false}}})",
        {}, {}, {{u"w"_s, false}, {u"x"_s, true}});
    row("array document", "[]", notObject, {});
    row("files is an array", R"({"files": []})", noFiles, {});
    row("files missing", R"({"other": 1})", noFiles, {});
    row("entry not an object", R"({"files": {"x": true}})", {}, u"JSON data is not an object"_s);
    row("required missing", R"({"files": {"x": {}}})", {}, u"key \"required\" was missing"_s);
    row("required a number", R"({"files": {"x": {"required": 1}}})", {},
        u"key \"required\" must have a boolean value"_s);
    row("first failure drops the rest", R"({"files": {"a": {"required": true}, "b": {}}})", {},
        u"key \"required\" was missing"_s);
}

void TestManifests::sofsManifest()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, thrown);
    QFETCH(QString, failure);
    QFETCH(QList<LN_SofsFileMetadata>, files);

    LN_Result<QList<LN_SofsFileMetadata>> result{QList<LN_SofsFileMetadata>()};
    QCOMPARE(thrownBy([&] { result = LN_SofsFileMetadata::fromJsonData(parse(json), u"n.json"_s); }), thrown);
    QCOMPARE(result.error.message, failure);
    if (!failure.isEmpty())
        QCOMPARE(result.error.code, std::error_code(1, LN_AvailableInfoErrorCategory()));
    QCOMPARE(result.value, files);
}

void TestManifests::forInstall_data()
{
    QTest::addColumn<bool>("sofs");
    QTest::addColumn<QString>("location");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("resolvable");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("count");

    QByteArray const none;
    QTest::newRow("files") << false << u"lists/a.json"_s << QByteArray(R"({"x": ["", "", 1], "y": ["", "", 2]})")
                           << true << QString() << 2;
    QTest::newRow("files missing") << false << u"lists/a.json"_s << none << true
                                   << u"Failed to open lists/a.json: "_s << 0;
    QTest::newRow("files not an object") << false << u"lists/a.json"_s << QByteArray("[1]") << true
                                         << u"lists/a.json is not a valid json file."_s << 0;
    QTest::newRow("files unparsable") << false << u"lists/a.json"_s << QByteArray("{\"x\": ") << true
                                      << u"JSON Parse error in "_s << 0;
    QTest::newRow("files, no location, goes to the opener")
        << false << QString() << none << false << u"Failed to open : Could not locate a valid offline installer"_s << 0;
    QTest::newRow("sofs") << true << u"lists/s.json"_s << QByteArray(R"({"files": {"x": {"required": true}}})") << true
                          << QString() << 1;
    QTest::newRow("sofs, no location, opens nothing") << true << QString() << none << false << QString() << 0;
    QTest::newRow("sofs unparsable") << true << u"lists/s.json"_s << QByteArray("{") << true
                                     << u"JSON Parse error in "_s << 0;
    QTest::newRow("sofs entry failure is returned")
        << true << u"lists/s.json"_s << QByteArray(R"({"files": {"x": {"required": "yes"}}})") << true
        << u"key \"required\" must have a boolean value"_s << 0;
}

void TestManifests::forInstall()
{
    QFETCH(bool, sofs);
    QFETCH(QString, location);
    QFETCH(QByteArray, content);
    QFETCH(bool, resolvable);
    QFETCH(QString, error);
    QFETCH(int, count);

    QTemporaryDir source;
    QVERIFY(source.isValid());
    if (resolvable)
        QVERIFY(writeBytes(source.filePath(u"data/overview.json"_s), "{}"));
    if (!content.isNull())
        QVERIFY(writeBytes(source.filePath(location), content));
    LN_FileOpener opener(nullptr, QDir(source.path()));
    LN_AvailableFeature feature;
    feature.name = u"Orvanis"_s;
    (sofs ? feature.sofsFiles : feature.files) = location;

    QString message;
    qsizetype read = 0;
    QString const thrown = thrownBy([&] {
        if (sofs) {
            auto const result = LN_SofsFileMetadata::sofsMetadataForInstall(feature, opener);
            message = result.error.message;
            read = result.value.size();
        } else {
            auto const result = LN_FileMetadata::fileMetadataForInstall(feature, opener);
            message = result.error.message;
            read = result.value.size();
        }
    });
    QString const got = thrown.isNull() ? message : thrown;
    QVERIFY2(error.isEmpty() ? got.isEmpty() : got.startsWith(error), qPrintable(got));
    QCOMPARE(read, count);
}

void TestManifests::readAndWriteFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    std::error_code const fileError(1, QFileErrorCategory());

    LN_Result<QJsonDocument> const empty = readJsonFile(QString());
    QVERIFY(!empty.isError());
    QVERIFY(empty.value.isEmpty());

    QString const missing = dir.filePath(u"missing.json"_s);
    LN_Result<QList<LN_FileMetadata>> const unreadable = LN_FileMetadata::fileMetadataFromJson(missing);
    QCOMPARE(unreadable.error.code, fileError);
    QVERIFY(unreadable.error.message.contains(missing));

    QString const torn = dir.filePath(u"torn.json"_s);
    QVERIFY(writeBytes(torn, R"({"a": [)"));
    LN_Result<QJsonDocument> const unparsable = readJsonFile(torn);
    QCOMPARE(unparsable.error.code, fileError);
    QVERIFY2(unparsable.error.message.startsWith(u"JSON Parse error in \"%1\""_s.arg(torn)),
             qPrintable(unparsable.error.message));

    // The parent is created, and a shorter document leaves nothing of a longer one behind.
    QString const path = dir.filePath(u"deep/er/list.json"_s);
    writeJsonFile(parse(R"({"long": ["0123456789", "", 1]})"), path);
    writeJsonFile(parse(R"({ "a" : [ "", "", 1 ] })"), path);
    QFile written(path);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), R"({"a":["","",1]})");
    QCOMPARE(LN_FileMetadata::fileMetadataFromJson(path).value,
             (QList<LN_FileMetadata>{{u"a"_s, {}, QByteArray(), 1}}));

    QVERIFY(thrownBy([&] { writeJsonFile(QJsonDocument(), torn + u"/below-a-file.json"_s); })
                .startsWith(u"Unable to open "_s));
}

void TestManifests::uniqueNames_data()
{
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("name");

    QTest::newRow("empty directory") << QStringList() << u"Maya_Plug-In_%1.json"_s << u"Maya_Plug-In_1.json"_s;
    QTest::newRow("first taken") << QStringList{u"Maya_Plug-In_1.json"_s} << u"Maya_Plug-In_%1.json"_s
                                 << u"Maya_Plug-In_2.json"_s;
    QTest::newRow("gap is reused") << QStringList{u"Docs_1.json"_s, u"Docs_3.json"_s} << u"Docs_%1.json"_s
                                   << u"Docs_2.json"_s;
    QTest::newRow("past nine") << QStringList{u"D_1"_s, u"D_2"_s, u"D_3"_s, u"D_4"_s, u"D_5"_s, u"D_6"_s, u"D_7"_s,
                                              u"D_8"_s, u"D_9"_s}
                               << u"D_%1"_s << u"D_10"_s;
    QTest::newRow("marker in the name stays") << QStringList{u"a%0%1_1.json"_s} << u"a%0%1_%1.json"_s
                                              << u"a%0%1_2.json"_s;
}

void TestManifests::uniqueNames()
{
    QFETCH(QStringList, existing);
    QFETCH(QString, pattern);
    QFETCH(QString, name);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    for (QString const & file : existing)
        QVERIFY(writeBytes(dir.filePath(file), "{}"));
    QCOMPARE(uniqueManifestPath(pattern, QDir(dir.path())), dir.filePath(name));
}

QTEST_GUILESS_MAIN(TestManifests)
#include "tst_manifests.moc"
