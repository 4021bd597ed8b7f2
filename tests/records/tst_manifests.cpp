#include <draizu/catalogue/LN_AvailableFeature.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/records/LN_FileMetadata.h>
#include <draizu/records/LN_JsonFiles.h>
#include <draizu/records/LN_SofsFileMetadata.h>

#include "ThrownBy.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <exception>

using namespace Qt::StringLiterals;

class TestManifests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void manifests_data();
    void manifests();
    void readAndWriteFiles();
    void uniqueNames_data();
    void uniqueNames();
};

namespace {

bool writeBytes(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.write(bytes) == bytes.size();
}

} // namespace

void TestManifests::manifests_data()
{
    QTest::addColumn<bool>("sofs");
    QTest::addColumn<QString>("location");
    QTest::addColumn<QByteArray>("content"); // null: no file
    QTest::addColumn<QString>("thrown");     // what the text starts with
    QTest::addColumn<QString>("failure");    // returned, not thrown
    QTest::addColumn<QStringList>("files");

    QString const b64 = QString::fromLatin1(QCryptographicHash::hash("tool", QCryptographicHash::Sha256).toBase64());
    QString const at = u"lists/a.json"_s;
    QString const invalid = u"File lists/a.json is not a valid sofs data file. Expected "_s;
    auto const row = [&at](char const * name, bool sofs, QByteArray const & content, QString const & thrown,
                           QString const & failure = {}, QStringList const & files = {}) {
        QTest::newRow(name) << sofs << at << content << thrown << failure << files;
    };
    row("backslashes become slashes", false, R"({"bin\\tool.exe": ["src", ")" + b64.toLatin1() + R"(", 4]})", {}, {},
        {u"bin/tool.exe|src|4|"_s + b64});
    row("key order, size truncated", false, R"({"b": ["", "", 12.9], "a": ["", "", 1]})", {}, {},
        {u"a||1|"_s, u"b||12|"_s});
    row("element types unchecked", false, R"({"a": [1, true, "7"]})", {}, {}, {u"a||0|"_s});
    row("size beyond range", false, R"({"a": ["", "", 1e300]})", {}, {}, {u"a||9223372036854775807|"_s});
    row("string value", false, R"({"a": "x"})", u"Expected an array"_s);
    row("two elements", false, R"({"a": ["", ""]})", u"Expected an array with 3 values"_s);
    row("four elements", false, R"({"a": ["", "", 1, 2]})", u"Expected an array with 3 values"_s);
    row("missing", false, {}, u"Failed to open lists/a.json: "_s);
    row("not an object", false, "[1]", u"lists/a.json is not a valid json file."_s);
    row("unparsable", false, "{\"x\": ", u"JSON Parse error in "_s);
    QTest::newRow("no location, to the opener")
        << false << QString() << QByteArray() << u"Failed to open : Could not locate a valid offline installer"_s
        << QString() << QStringList();
    row("sofs empty object", true, "{}", {});
    row("sofs entries, other keys ignored", true,
        R"({"files": {"x": {"required": true, "size": 3}, "w": {"required": false}}})", {}, {}, {u"w|0"_s, u"x|1"_s});
    row("sofs array document", true, "[]", invalid + u"the file to contain a JSON object."_s);
    row("sofs files an array", true, R"({"files": []})", invalid + u"\"files\" key to contain an object."_s);
    row("sofs files missing", true, R"({"other": 1})", invalid + u"\"files\" key to contain an object."_s);
    row("sofs entry not an object", true, R"({"files": {"x": true}})", {}, u"JSON data is not an object"_s);
    row("sofs required missing drops the rest", true, R"({"files": {"a": {"required": true}, "b": {}}})", {},
        u"key \"required\" was missing"_s);
    row("sofs required a number", true, R"({"files": {"x": {"required": 1}}})", {},
        u"key \"required\" must have a boolean value"_s);
    QTest::newRow("sofs, no location, opens nothing")
        << true << QString() << QByteArray() << QString() << QString() << QStringList();
}

void TestManifests::manifests()
{
    QFETCH(bool, sofs);
    QFETCH(QString, location);
    QFETCH(QByteArray, content);
    QFETCH(QString, thrown);
    QFETCH(QString, failure);
    QFETCH(QStringList, files);

    QTemporaryDir source;
    QVERIFY(source.isValid());
    // Without a location there is nothing to find, not even the installer it would lie in.
    if (!location.isEmpty())
        QVERIFY(writeBytes(source.filePath(u"data/overview.json"_s), "{}"));
    if (!content.isNull())
        QVERIFY(writeBytes(source.filePath(location), content));
    LN_FileOpener opener(nullptr, QDir(source.path()));
    LN_AvailableFeature feature;
    (sofs ? feature.sofsFiles : feature.files) = location;

    LN_ErrorStruct error;
    QStringList read;
    QString const got = thrownBy([&] {
        if (sofs) {
            auto const result = LN_SofsFileMetadata::sofsMetadataForInstall(feature, opener);
            error = result.error;
            for (LN_SofsFileMetadata const & f : result.value)
                read.append(u"%1|%2"_s.arg(f.path).arg(int(f.required)));
        } else {
            auto const result = LN_FileMetadata::fileMetadataForInstall(feature, opener);
            error = result.error;
            for (LN_FileMetadata const & f : result.value)
                read.append(u"%1|%2|%3|"_s.arg(f.path, f.source).arg(f.size) + QLatin1String(f.checksum.toBase64()));
        }
    });
    QVERIFY2(thrown.isEmpty() ? got.isNull() : got.startsWith(thrown), qPrintable(got));
    QCOMPARE(error.message, failure);
    if (!failure.isEmpty())
        QCOMPARE(error.code, std::error_code(1, LN_AvailableInfoErrorCategory()));
    QCOMPARE(read, files);
}

void TestManifests::readAndWriteFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(!readJsonFile(QString()).isError() && readJsonFile(QString()).value.isEmpty());

    // Neither a missing nor a torn manifest throws: each is a failure that names the file.
    QString const torn = dir.filePath(u"torn.json"_s);
    QVERIFY(writeBytes(torn, R"({"a": [)"));
    for (QString const & path : {dir.filePath(u"missing.json"_s), torn}) {
        LN_Result<QList<LN_FileMetadata>> const failed = LN_FileMetadata::fileMetadataFromJson(path);
        QCOMPARE(failed.error.code, std::error_code(1, QFileErrorCategory()));
        QVERIFY2(failed.error.message.contains(path), qPrintable(failed.error.message));
    }
    QVERIFY(readJsonFile(torn).error.message.startsWith(u"JSON Parse error in \"%1\""_s.arg(torn)));

    // The parent is created, and a shorter document leaves nothing of a longer one behind.
    QString const path = dir.filePath(u"deep/er/list.json"_s);
    writeJsonFile(QJsonDocument::fromJson(R"({"long": ["0123456789", "", 1]})"), path);
    writeJsonFile(QJsonDocument::fromJson(R"({ "a" : [ "", "", 1 ] })"), path);
    QFile written(path);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), R"({"a":["","",1]})");

    QVERIFY(thrownBy([&] { writeJsonFile(QJsonDocument(), torn + u"/below-a-file.json"_s); })
                .startsWith(u"Unable to open "_s));
}

void TestManifests::uniqueNames_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QList<int>>("taken");
    QTest::addColumn<int>("number");
    QTest::newRow("gap is reused") << u"D_%1.json"_s << QList<int>{1, 3} << 2;
    QTest::newRow("past nine") << u"D_%1"_s << QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 9} << 10;
    QTest::newRow("marker in the name stays") << u"a%0%1_%1.json"_s << QList<int>{1} << 2;
}

void TestManifests::uniqueNames()
{
    QFETCH(QString, pattern);
    QFETCH(QList<int>, taken);
    QFETCH(int, number);
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    auto const name = [&pattern](int n) {
        return QString(pattern).replace(pattern.lastIndexOf(u"%1"_s), 2, QString::number(n));
    };
    for (int n : taken)
        QVERIFY(writeBytes(dir.filePath(name(n)), "{}"));
    QCOMPARE(uniqueManifestPath(pattern, QDir(dir.path())), dir.filePath(name(number)));
}

QTEST_GUILESS_MAIN(TestManifests)
#include "tst_manifests.moc"
