#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_Exception.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

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

// One line per element, so that a table row states a whole catalogue. toString, whose exact
// form other programs match, stands for the version, build type and label.
QStringList describe(QList<LN_AvailableInfo> const & catalogue)
{
    QStringList lines;
    for (LN_AvailableInfo const & info : catalogue) {
        QStringList minimums;
        for (QVersionNumber const & version : info.minimumLauncherVersions)
            minimums.append(version.isNull() ? u"null"_s : version.toString());
        QStringList parts = {describe(info.feature), info.toString(), u"tags["_s + info.tags.join(u',') + u']',
                             u"min["_s + minimums.join(u',') + u']'};
        if (!info.oapiVersion.isNull())
            parts.append(u"oapi "_s + info.oapiVersion.toString());
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

// A catalogue that throws is described by the exception's text alone.
QStringList thrown(QString const & text)
{
    return {u"thrown: "_s + text};
}

} // namespace

class TestAvailableInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fromJsonDocument_data();
    void fromJsonDocument();
    void featureQueries();
};

void TestAvailableInfo::fromJsonDocument_data()
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
        << QStringList{u"Orvanis files=o.files size=1024 {PDB Files files=pdb.files sofs=pdb.sofs} | "
                       u"20.5.332-debug () | tags[Beta,Production] | min[21.0.400] | linux_x86_64_gcc | 2024-03-01 | "
                       u"licenses 2"_s,
                       u"Maya Plug-In files=maya.files | 20.5.332-debug () | tags[Beta,Production] | min[21.0.400] | "
                       u"linux_x86_64_gcc | 2024-03-01 | licenses 2"_s};
    QTest::newRow("blocks read as format 0") << QByteArray(R"([
            {"version": "20.5.332-rc1", "minimum launcher version": "21.0beta", "release_type": "beta",
             "release date": "yesterday", "products": [{"name": "Optix"}]},
            {"format version": 1.5, "version": "1", "minimum launcher version": "1", "products": [{"name": "a"}]},
            {"version": "1", "minimum launcher version": "1"}])")
        << QStringList{u"Optix | 20.5.332 () | tags[] | min[21.0]"_s, u"a | 1 () | tags[] | min[1]"_s};
    QTest::newRow("feature objects") << QByteArray(R"([{"version": "1", "minimum launcher version": "1", "products": [
            {"name": "Game Development Tools", "size": 1.9}, {"name": "Engine 3ds Max", "size": "12"},
            {"name": "Engine Unreal", "sofs_files": 5, "features": [{"name": "Engine Unity", "size": -3.7}]},
            {"name": "engine maya", "size": 1e300}]}])")
        << QStringList{u"Marlux Labs size=1 | 1 () | tags[] | min[1]"_s, u"3ds Max Plug-In | 1 () | tags[] | min[1]"_s,
                       u"Unreal Plug-In {Unity Plug-In size=-3} | 1 () | tags[] | min[1]"_s,
                       u"engine maya size=9223372036854775807 | 1 () | tags[] | min[1]"_s};
    QTest::newRow("format 1 block") << QByteArray(R"([{"format version": 1, "release_type": "gold", "tags": ["No"],
            "products": [
                {"name": "Orvanis", "files": "o.files", "version": "21.0.512", "oapi version": "4.2", "tags": ["Beta"],
                 "release_type": "beta", "release date": "2024-05-06", "label": "spring", "build type": "debug",
                 "minimum launcher version": ["20.5.100", "21.0.10"], "os name": "win64", "compiler": "vc143",
                 "license agreements": [{}], "features": [{"name": "PDB Files"}]},
                {"name": "Engine Unreal", "version": "5.1", "minimum launcher version": ""},
                {"name": "a", "version": "1", "label": "%1", "minimum launcher version": ["x", "2"]}]}])")
        << QStringList{u"Orvanis files=o.files {PDB Files} | 21.0.512-debug (spring) ( (spring)) | "
                       u"tags[Beta,Production] | min[20.5.100,21.0.10] | oapi 4.2 | win64-vc143 | 2024-05-06 | "
                       u"licenses 1"_s,
                       u"PDB Files | 21.0.512-debug (spring) ( (spring)) | tags[Beta,Production] | "
                       u"min[20.5.100,21.0.10] | oapi 4.2 | win64-vc143 | 2024-05-06 | licenses 1"_s,
                       u"Unreal Plug-In | 5.1 () | tags[Production] | min[null]"_s,
                       u"a | 1 (%1) ( (%1)) | tags[Production] | min[null,2]"_s};
    QTest::newRow("newer formats are skipped") << QByteArray(R"([{"format version": 2, "products": 7},
            {"format version": 1, "products": [{"name": "a", "version": "3", "minimum launcher version": "1"}]},
            {"format version": -1}])")
        << QStringList{u"a | 3 () | tags[] | min[1]"_s};

    // Blocks that are valid but for the members that follow.
    QByteArray const format0 = R"([{"version": "1", "minimum launcher version": "1")";
    QByteArray const format1 = R"([{"format version": 1, "products": [{"name": "a", "version": "1")";
    QTest::newRow("document is an object") << QByteArray("{}") << thrown(u"Expected JSON array."_s);
    QTest::newRow("block is not an object") << QByteArray("[5]") << thrown(u"Invalid version number"_s);
    QTest::newRow("0: minimum launcher versions as array")
        << QByteArray(R"([{"version": "1", "minimum launcher version": ["1"]}])")
        << thrown(u"Invalid minimum launcher version number"_s);
    QTest::newRow("0: tag is a number")
        << format0 + R"(, "tags": ["Beta", 3]}])" << thrown(u"Invalid JSON. Expected string, got number"_s);
    QTest::newRow("0: deep feature without name")
        << format0 + R"(, "products": [{"name": "a", "features": [{"name": "b", "features": [{}]}]}]}])"
        << thrown(u"Invalid feature name"_s);
    QTest::newRow("1: products is an object")
        << QByteArray(R"([{"format version": 1, "products": {}}])") << thrown(u"Error: Expected array"_s);
    QTest::newRow("1: no product version")
        << QByteArray(R"([{"format version": 1, "products": [{"name": "a", "minimum launcher version": "1"}]}])")
        << thrown(u"Invalid product version number"_s);
    QTest::newRow("1: minimum launcher version is a number")
        << format1 + R"(, "minimum launcher version": 21}]}])" << thrown(u"Invalid minimum launcher version number"_s);
    QTest::newRow("1: tag is an object") << format1 + R"(, "minimum launcher version": "1", "tags": [{}]}]}])"
                                         << thrown(u"Invalid JSON. Expected string, got object"_s);
    QTest::newRow("1: feature without name")
        << format1 + R"(, "minimum launcher version": "1", "features": [{"name": "b"}, {"name": 1}]}]}])"
        << thrown(u"Invalid feature name"_s);
    QTest::newRow("fault in a later block")
        << format0 + R"(, "products": [{"name": "a"}]}, {"format version": 1, "products": [3]}])"
        << thrown(u"Error: Expected object"_s);
}

void TestAvailableInfo::fromJsonDocument()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, expected);
    QStringList found;
    try {
        found = describe(LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(json)));
    } catch (LN_Exception const & e) {
        found = thrown(QString::fromUtf8(e.what()));
    }
    QCOMPARE(found, expected);
}

void TestAvailableInfo::featureQueries()
{
    // Elements: Orvanis, PDB Files, Marlux Labs (under its old name) and Optix.
    QList<LN_AvailableInfo> const catalogue = LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(
        R"([{"format version": 1, "products": [{"name": "Orvanis", "version": "1", "minimum launcher version": "1",
             "features": [{"name": "PDB Files", "features": [{"name": "Symbols"}]}, {"name": "Game Development Tools",
                 "features": [{"name": "Samples", "features": [{"name": "Docs", "sofs_files": "d.sofs"}]}]}]},
            {"name": "Optix", "version": "1", "minimum launcher version": "1", "sofs_files": "o.sofs"}]}])"));
    QCOMPARE(catalogue.size(), 4);
    for (QString const & name : {u"Orvanis"_s, u"PDB Files"_s, u"Symbols"_s, u"Marlux Labs"_s, u"Docs"_s})
        QVERIFY2(catalogue.at(0).hasFeature(name), qPrintable(name));
    for (QString const & name : {u"Game Development Tools"_s, u"pdb files"_s, u"Optix"_s})
        QVERIFY2(!catalogue.at(0).hasFeature(name), qPrintable(name));
    // The element of a feature knows that feature and what lies below it.
    QVERIFY(catalogue.at(1).hasFeature(u"Symbols"_s));
    QVERIFY(!catalogue.at(1).hasFeature(u"Orvanis"_s));
    QVERIFY(!catalogue.at(2).hasFeature(u"PDB Files"_s));
    // A shared file set is found at any depth, past branches without one, and on the element itself.
    QCOMPARE(catalogue.at(0).hasSofsFiles(), true);
    QCOMPARE(catalogue.at(1).hasSofsFiles(), false);
    QCOMPARE(catalogue.at(3).hasSofsFiles(), true);
}

QTEST_GUILESS_MAIN(TestAvailableInfo)
#include "tst_availableinfo.moc"
