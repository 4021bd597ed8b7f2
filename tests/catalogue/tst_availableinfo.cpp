#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_Exception.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Format 0, format 1 and newer formats, each block with members the others do not read.
QByteArray const bothFormats = R"([{"version": "20.5-rc1", "tags": ["Beta"], "release_type": "gold", "build type": "d",
    "release date": "2024-03-01", "minimum launcher version": "21.0beta", "os name": "linux_x86_64", "compiler": "gcc",
    "license agreements": [{}, {}], "products": [{"name": "Orvanis", "files": "o", "size": 1.9, "features": [{"name":
    "PDB", "sofs_files": "p"}]}, {"name": "Engine Maya", "version": "9", "sofs_files": 5, "size": 1e300}]},
    {"format version": 1, "release_type": "gold", "tags": ["No"], "products": [{"name": "Game Development Tools",
    "version": "2", "oapi version": "4", "tags": ["Beta"], "release_type": "-", "release date": "2024-05-06", "label":
    "%1", "build type": "d", "minimum launcher version": ["2", "x"], "os name": "win64", "compiler": "vc",
    "license agreements": [{}], "features": [{"name": "Engine Unreal", "size": -3.7, "features": [{"name": "x",
    "sofs_files": "s"}]}]}, {"name": "a", "version": "5", "minimum launcher version": ""}]}, {"format version": 2,
    "products": 7}, {"format version": -1}])";

// "name(files,sofs,size){children}": every field, so that a row states the whole feature.
QString describe(LN_AvailableFeature const & feature)
{
    QStringList children;
    for (LN_AvailableFeature const & child : feature.features)
        children.append(describe(child));
    return u"%1(%2,%3,%4)%5"_s.arg(feature.name, feature.files, feature.sofsFiles, QString::number(feature.size),
                                  children.isEmpty() ? QString() : u'{' + children.join(u", "_s) + u'}');
}

// One line per element, or the text thrown; "sofs" marks a shared file set at any depth.
QStringList describe(QByteArray const & json)
{
    QStringList lines;
    try {
        for (LN_AvailableInfo const & info : LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(json))) {
            QStringList minimums;
            for (QVersionNumber const & version : info.minimumLauncherVersions)
                minimums.append(version.isNull() ? u"null"_s : version.toString());
            lines.append(u"%1 %2 [%3] [%4] %5 %6 %7 %8%9"_s.arg(describe(info.feature), info.toString(),
                info.tags.join(u','), minimums.join(u','), info.oapiVersion.toString(),
                info.platform.isValid() ? info.platform.toString() : QString(), info.releaseDate.toString(Qt::ISODate),
                QString::number(info.licenses.size()), info.hasSofsFiles() ? u" sofs"_s : QString()));
        }
    } catch (LN_Exception const & e) {
        return {u"thrown: "_s + QString::fromUtf8(e.what())};
    }
    return lines;
}

} // namespace

class TestAvailableInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fromJsonDocument_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("formats 0 and 1; newer ones skipped") << bothFormats << QStringList{
            u"Orvanis(o,,1){PDB(,p,0)} 20.5-d () [Beta,Production] [21.0]  linux_x86_64_gcc 2024-03-01 2 sofs"_s,
            u"Maya Plug-In(,,9223372036854775807) 20.5-d () [Beta,Production] [21.0]  linux_x86_64_gcc 2024-03-01 2"_s,
            u"Marlux Labs(,,0){Unreal Plug-In(,,-3){x(,s,0)}} 2-d (%1) ( (%1)) [Beta,Production] [2,null] 4 win64-vc "
            u"2024-05-06 1 sofs"_s,
            u"Unreal Plug-In(,,-3){x(,s,0)} 2-d (%1) ( (%1)) [Beta,Production] [2,null] 4 win64-vc 2024-05-06 1 sofs"_s,
            u"a(,,0) 5 () [Production] [null]    0"_s};

        auto const fault = [](char const * tag, QByteArray const & json, QString const & text) {
            QTest::newRow(tag) << json << QStringList{u"thrown: "_s + text};
        };
        QByteArray const format0 = R"([{"version": "1", "minimum launcher version": "1")";
        fault("document is an object", "{}", u"Expected JSON array."_s);
        fault("0: tag is a number", format0 + R"(, "tags": [3]}])", u"Invalid JSON. Expected string, got number"_s);
        fault("0: unnamed sub-feature", format0 + R"(, "products": [{"name": "a", "features": [{}]}]}])",
              u"Invalid feature name"_s);
        fault("1: products is an object", R"([{"format version": 1, "products": {}}])", u"Error: Expected array"_s);
        fault("1: product is a number", R"([{"format version": 1, "products": [3]}])", u"Error: Expected object"_s);
        fault("1: no product version", R"([{"format version": 1, "products": [{}]}])",
              u"Invalid product version number"_s);
        fault("1: minimum launcher version is a number",
              R"([{"format version": 1, "products": [{"version": "1", "minimum launcher version": 21}]}])",
              u"Invalid minimum launcher version number"_s);
    }

    void fromJsonDocument()
    {
        QFETCH(QByteArray, json);
        QFETCH(QStringList, expected);
        QCOMPARE(describe(json), expected);
    }

    void hasFeature()
    {
        QList<LN_AvailableInfo> const c = LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(bothFormats));
        // At any depth, exactly and by the current name only; a feature's element does not know its product.
        QVERIFY(c[2].hasFeature(u"x"_s) && c[2].hasFeature(u"Unreal Plug-In"_s) && c[3].hasFeature(u"x"_s));
        QVERIFY(!c[2].hasFeature(u"X"_s) && !c[2].hasFeature(u"Game Development Tools"_s));
        QVERIFY(!c[3].hasFeature(u"Marlux Labs"_s));
    }
};

QTEST_GUILESS_MAIN(TestAvailableInfo)
#include "tst_availableinfo.moc"
