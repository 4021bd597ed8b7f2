#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_Exception.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QJsonDocument document(QByteArray const & json)
{
    QJsonParseError error{};
    QJsonDocument const parsed = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("test document does not parse: %s", qPrintable(error.errorString()));
    return parsed;
}

QString describe(LN_AvailableFeature const & feature)
{
    QStringList children;
    for (LN_AvailableFeature const & child : feature.features)
        children.append(describe(child));
    return feature.name + (feature.files.isEmpty() ? QString() : u" files="_s + feature.files)
        + (feature.sofsFiles.isEmpty() ? QString() : u" sofs="_s + feature.sofsFiles)
        + (feature.size == 0 ? QString() : u" size="_s + QString::number(feature.size))
        + (children.isEmpty() ? QString() : u" {"_s + children.join(u", "_s) + u'}');
}

// One line per element, so that a table row states a whole catalogue.
QStringList describe(QList<LN_AvailableInfo> const & catalogue)
{
    QStringList lines;
    for (LN_AvailableInfo const & info : catalogue) {
        QStringList minimums;
        for (QVersionNumber const & version : info.minimumLauncherVersions)
            minimums.append(version.isNull() ? u"null"_s : version.toString());
        QStringList parts = {describe(info.feature), info.version.toString(), u"tags["_s + info.tags.join(u',') + u']',
                             u"min["_s + minimums.join(u',') + u']'};
        if (!info.oapiVersion.isNull())
            parts.append(u"oapi "_s + info.oapiVersion.toString());
        if (!info.buildType.isEmpty() || !info.label.isEmpty())
            parts.append(info.buildType + u'/' + info.label);
        if (info.platform != LN_PlatformInfo())
            parts.append(info.platform.toString());
        if (info.releaseDate.isValid())
            parts.append(info.releaseDate.toString(Qt::ISODate));
        if (!info.licenses.isEmpty())
            parts.append(u"licenses "_s + QString::number(info.licenses.size()));
        lines.append(parts.join(u" | "_s));
    }
    return lines;
}

LN_AvailableInfo elementWith(QByteArray const & featureJson)
{
    LN_AvailableInfo info;
    info.feature = LN_AvailableFeature(document(featureJson).object(), info);
    return info;
}

} // namespace

class TestAvailableInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parses_data();
    void parses();
    void throws_data();
    void throws();
    void toString_data();
    void toString();
    void hasSofsFiles_data();
    void hasSofsFiles();
    void hasFeature();
};

void TestAvailableInfo::parses_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("format 0 block") << QByteArray(R"([{"format version": 0, "version": "20.5.332", "tags": ["Beta"],
            "release_type": "gold", "build type": "debug", "release date": "2024-03-01", "label": "not read",
            "oapi version": "3", "minimum launcher version": "21.0.400", "os name": "linux_x86_64", "compiler": "gcc",
            "license agreements": [{"name": "EULA"}, {}], "products": [
                {"name": "Orvanis", "files": "o.files", "size": 1024, "features": [{"name": "PDB Files", "files":
                    "pdb.files", "sofs_files": "pdb.sofs"}]},
                {"name": "Engine Maya", "files": "maya.files", "version": "9.9"}]}])")
        << QStringList{u"Orvanis files=o.files size=1024 {PDB Files files=pdb.files sofs=pdb.sofs} | 20.5.332 | "
                       u"tags[Beta,Production] | min[21.0.400] | debug/ | linux_x86_64_gcc | 2024-03-01 | licenses 2"_s,
                       u"Maya Plug-In files=maya.files | 20.5.332 | tags[Beta,Production] | min[21.0.400] | debug/ | "
                       u"linux_x86_64_gcc | 2024-03-01 | licenses 2"_s};
    QTest::newRow("blocks read as format 0") << QByteArray(R"([
            {"version": "20.5.332-rc1", "minimum launcher version": "21.0beta", "release_type": "beta",
             "release date": "yesterday", "products": [{"name": "Optix"}]},
            {"format version": 1.5, "version": "1", "minimum launcher version": "1", "products": [{"name": "a"}]},
            {"version": "1", "minimum launcher version": "1"}])")
        << QStringList{u"Optix | 20.5.332 | tags[] | min[21.0]"_s, u"a | 1 | tags[] | min[1]"_s};
    QTest::newRow("feature objects") << QByteArray(R"([{"version": "1", "minimum launcher version": "1", "products": [
            {"name": "Game Development Tools", "size": 1.9}, {"name": "Engine 3ds Max", "size": "12"},
            {"name": "Engine Unreal", "sofs_files": 5, "features": [{"name": "Engine Unity", "size": -3.7}]},
            {"name": "engine maya", "size": 1e300}]}])")
        << QStringList{u"Marlux Labs size=1 | 1 | tags[] | min[1]"_s, u"3ds Max Plug-In | 1 | tags[] | min[1]"_s,
                       u"Unreal Plug-In {Unity Plug-In size=-3} | 1 | tags[] | min[1]"_s,
                       u"engine maya size=9223372036854775807 | 1 | tags[] | min[1]"_s};
    QTest::newRow("format 1 block") << QByteArray(R"([{"format version": 1, "release_type": "gold", "tags": ["No"],
            "products": [
                {"name": "Orvanis", "files": "o.files", "version": "21.0.512", "oapi version": "4.2", "tags": ["Beta"],
                 "release_type": "beta", "release date": "2024-05-06", "label": "spring", "build type": "debug",
                 "minimum launcher version": ["20.5.100", "21.0.10"], "os name": "win64", "compiler": "vc143",
                 "license agreements": [{}], "features": [{"name": "PDB Files"}, {"name": "Samples"}]},
                {"name": "Engine Unreal", "version": "5.1", "minimum launcher version": ""},
                {"name": "a", "version": "1", "minimum launcher version": ["x", "2"]}]}])")
        << QStringList{u"Orvanis files=o.files {PDB Files, Samples} | 21.0.512 | tags[Beta,Production] | "
                       u"min[20.5.100,21.0.10] | oapi 4.2 | debug/spring | win64-vc143 | 2024-05-06 | licenses 1"_s,
                       u"PDB Files | 21.0.512 | tags[Beta,Production] | min[20.5.100,21.0.10] | oapi 4.2 | "
                       u"debug/spring | win64-vc143 | 2024-05-06 | licenses 1"_s,
                       u"Samples | 21.0.512 | tags[Beta,Production] | min[20.5.100,21.0.10] | oapi 4.2 | "
                       u"debug/spring | win64-vc143 | 2024-05-06 | licenses 1"_s,
                       u"Unreal Plug-In | 5.1 | tags[Production] | min[null]"_s,
                       u"a | 1 | tags[Production] | min[null,2]"_s};
    QTest::newRow("newer formats are skipped") << QByteArray(R"([{"format version": 2, "products": 7},
            {"format version": 1, "products": [{"name": "a", "version": "3", "minimum launcher version": "1"}]},
            {"format version": -1}])")
        << QStringList{u"a | 3 | tags[] | min[1]"_s};
}

void TestAvailableInfo::parses()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, expected);
    try {
        QCOMPARE(describe(LN_AvailableInfo::fromJsonDocument(document(json))), expected);
    } catch (LN_Exception const & e) {
        QFAIL(e.what());
    }
}

void TestAvailableInfo::throws_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error");

    // Blocks that are valid but for the members that follow.
    QByteArray const format0 = R"("version": "1", "minimum launcher version": "1")";
    QByteArray const format1 = R"("format version": 1, "products": [{"name": "a", "version": "1")";
    QTest::newRow("document is an object") << QByteArray(R"({"format version": 0})") << u"Expected JSON array."_s;
    QTest::newRow("block is not an object") << QByteArray("[5]") << u"Invalid version number"_s;
    QTest::newRow("0: version is a number") << QByteArray(R"([{"version": 20, "minimum launcher version": "1"}])")
                                            << u"Invalid version number"_s;
    QTest::newRow("0: no minimum launcher version") << QByteArray(R"([{"version": "1"}])")
                                                    << u"Invalid minimum launcher version number"_s;
    QTest::newRow("0: minimum launcher versions as array")
        << QByteArray(R"([{"version": "1", "minimum launcher version": ["1"]}])")
        << u"Invalid minimum launcher version number"_s;
    QTest::newRow("0: tag is a number") << "[{" + format0 + R"(, "tags": ["Beta", 3]}])"
                                        << u"Invalid JSON. Expected string, got number"_s;
    QTest::newRow("0: tag is null") << "[{" + format0 + R"(, "tags": [null]}])"
                                    << u"Invalid JSON. Expected string, got NULL"_s;
    QTest::newRow("0: product is not an object") << "[{" + format0 + R"(, "products": ["a"]}])"
                                                 << u"Invalid feature name"_s;
    QTest::newRow("0: deep feature without name")
        << "[{" + format0 + R"(, "products": [{"name": "a", "features": [{"name": "b", "features": [{}]}]}]}])"
        << u"Invalid feature name"_s;
    QTest::newRow("1: no products") << QByteArray(R"([{"format version": 1}])") << u"Error: Expected array"_s;
    QTest::newRow("1: products is an object") << QByteArray(R"([{"format version": 1, "products": {}}])")
                                              << u"Error: Expected array"_s;
    QTest::newRow("1: product is not an object") << QByteArray(R"([{"format version": 1, "products": ["a"]}])")
                                                 << u"Error: Expected object"_s;
    QTest::newRow("1: no product version")
        << QByteArray(R"([{"format version": 1, "products": [{"name": "a", "minimum launcher version": "1"}]}])")
        << u"Invalid product version number"_s;
    QTest::newRow("1: minimum launcher version is a number")
        << "[{" + format1 + R"(, "minimum launcher version": 21}]}])" << u"Invalid minimum launcher version number"_s;
    QTest::newRow("1: no minimum launcher version") << "[{" + format1 + "}]}]"
                                                    << u"Invalid minimum launcher version number"_s;
    QTest::newRow("1: tag is an object") << "[{" + format1 + R"(, "minimum launcher version": "1", "tags": [{}]}]}])"
                                         << u"Invalid JSON. Expected string, got object"_s;
    QTest::newRow("1: product name is empty")
        << QByteArray(R"([{"format version": 1, "products": [{"name": "", "version": "1",
                                                              "minimum launcher version": "1"}]}])")
        << u"Invalid feature name"_s;
    QTest::newRow("1: feature without name")
        << "[{" + format1 + R"(, "minimum launcher version": "1", "features": [{"name": "b"}, {"name": 1}]}]}])"
        << u"Invalid feature name"_s;
    QTest::newRow("fault in a later block") << "[{" + format0 + R"(, "products": [{"name": "a"}]},
                                                {"format version": 1, "products": [3]}])"
                                            << u"Error: Expected object"_s;
}

void TestAvailableInfo::throws()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    try {
        QList<LN_AvailableInfo> const catalogue = LN_AvailableInfo::fromJsonDocument(document(json));
        QFAIL(qPrintable(describe(catalogue).join(u'\n')));
    } catch (LN_Exception const & e) {
        QCOMPARE(QString::fromUtf8(e.what()), error);
    }
}

void TestAvailableInfo::toString_data()
{
    QTest::addColumn<QString>("buildType");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("text");

    QTest::newRow("plain") << QString() << QString() << u"20.5.332 ()"_s;
    QTest::newRow("label stands twice") << u"debug"_s << u"beta"_s << u"20.5.332-debug (beta) ( (beta))"_s;
    QTest::newRow("label with place marker") << QString() << u"%1"_s << u"20.5.332 (%1) ( (%1))"_s;
}

void TestAvailableInfo::toString()
{
    QFETCH(QString, buildType);
    QFETCH(QString, label);
    QFETCH(QString, text);

    LN_AvailableInfo info;
    info.version = QVersionNumber(20, 5, 332);
    info.buildType = buildType;
    info.label = label;
    info.platform = LN_PlatformInfo::fromString(u"linux_x86_64_gcc"_s);
    QCOMPARE(info.toString(), text);
}

void TestAvailableInfo::hasSofsFiles_data()
{
    QTest::addColumn<QByteArray>("feature");
    QTest::addColumn<bool>("expected");

    QTest::newRow("own set") << QByteArray(R"({"name": "a", "sofs_files": "a.sofs"})") << true;
    QTest::newRow("none") << QByteArray(R"({"name": "a", "sofs_files": "", "features": [{"name": "b"}]})") << false;
    QTest::newRow("third level behind an empty branch") << QByteArray(R"({"name": "a", "features": [
            {"name": "b", "features": [{"name": "d"}]},
            {"name": "c", "features": [{"name": "e", "features": [{"name": "f", "sofs_files": "f.sofs"}]}]}]})")
                                                        << true;
    QTest::newRow("set that is not a string") << QByteArray(R"({"name": "a", "sofs_files": ["a.sofs"]})") << false;
}

void TestAvailableInfo::hasSofsFiles()
{
    QFETCH(QByteArray, feature);
    QFETCH(bool, expected);
    QCOMPARE(elementWith(feature).hasSofsFiles(), expected);
}

void TestAvailableInfo::hasFeature()
{
    QList<LN_AvailableInfo> const catalogue = LN_AvailableInfo::fromJsonDocument(document(
        R"([{"format version": 1, "products": [{"name": "Orvanis", "version": "1", "minimum launcher version": "1",
             "features": [{"name": "PDB Files", "features": [{"name": "Symbols"}]},
                          {"name": "Game Development Tools"}]}]}])"));
    QCOMPARE(catalogue.size(), 3);
    for (QString const & name : {u"Orvanis"_s, u"PDB Files"_s, u"Symbols"_s, u"Marlux Labs"_s})
        QVERIFY2(catalogue.at(0).hasFeature(name), qPrintable(name));
    for (QString const & name : {u"Game Development Tools"_s, u"pdb files"_s, u"Samples"_s})
        QVERIFY2(!catalogue.at(0).hasFeature(name), qPrintable(name));
    // The element of a feature knows that feature and what lies below it.
    QVERIFY(catalogue.at(1).hasFeature(u"Symbols"_s));
    QVERIFY(!catalogue.at(1).hasFeature(u"Orvanis"_s));
    QVERIFY(!catalogue.at(2).hasFeature(u"PDB Files"_s));
}

QTEST_GUILESS_MAIN(TestAvailableInfo)
#include "tst_availableinfo.moc"
