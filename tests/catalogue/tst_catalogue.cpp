#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/catalogue/LN_InfoUpdates.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include <support/OfflineInstaller.h>
#include <support/TestHttpServer.h>
#include <support/ThrownBy.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using OfflineInstaller::Files;
using P = LN_PlatformInfo;
using Response = TestHttpServer::Response;
Q_DECLARE_METATYPE(Response)

namespace {

// Format 0, format 1 and newer formats, each block with members the others do not read.
QByteArray const allFormats = R"([{"version": "20.5-rc1", "tags": ["Beta"], "release_type": "gold", "build type": "d",
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

// One line per element, or the text thrown; "sofs" and "x": a shared file set or an "x" at any depth.
QStringList parsed(QByteArray const & json)
{
    QStringList lines;
    QString const thrown = thrownBy([&] {
        for (LN_AvailableInfo const & info : LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(json))) {
            QStringList minimums;
            for (QVersionNumber const & version : info.minimumLauncherVersions)
                minimums.append(version.isNull() ? u"null"_s : version.toString());
            lines.append(u"%1 %2 [%3] [%4] %5 %6 %7 %8%9"_s.arg(describe(info.feature), info.toString(),
                info.tags.join(u','), minimums.join(u','), info.oapiVersion.toString(),
                info.platform.isValid() ? info.platform.toString() : QString(), info.releaseDate.toString(Qt::ISODate),
                QString::number(info.licenses.size()), info.hasSofsFiles() ? u" sofs"_s : QString())
                + (info.hasFeature(u"x"_s) ? u" x"_s : QString()) + (info.hasFeature(u"X"_s) ? u" X"_s : QString()));
        }
    });
    return thrown.isNull() ? lines : QStringList{u"thrown: "_s + thrown};
}

// "name version tags build-type platform @minimums", "-" for empty, from the front as far as
// given; on Linux unless told. Lists are comma-separated.
LN_AvailableInfo element(QString const & text)
{
    QStringList f = text.split(u' ');
    LN_AvailableInfo info;
    for (QString const & minimum : f.last().startsWith(u'@') ? f.takeLast().mid(1).split(u',', Qt::SkipEmptyParts)
                                                             : QStringList())
        info.minimumLauncherVersions.append(QVersionNumber::fromString(minimum));
    auto const field = [&f](int i) { return f.value(i) == u"-"_s ? QString() : f.value(i); };
    info.feature.name = field(0);
    info.version = QVersionNumber::fromString(field(1));
    info.tags = field(2).split(u',', Qt::SkipEmptyParts);
    info.buildType = field(3);
    info.platform = P::fromString(f.value(4, u"linux_x86_64_gcc"_s));
    return info;
}

// An installer with lists at every depth; Maya is built for another processor, Unreal for another system.
QByteArray const catalogue = R"({"format version": 1, "products": [
    {"name": "Orvanis", "version": "21.0.512", "minimum launcher version": "21.0.1", "files": "orvanis.files",
     "os name": "linux_x86_64", "compiler": "gcc12", "sofs_files": "orvanis.sofs", "features": [{"name": "PDB Files",
        "files": "pdb.files", "features": [{"name": "Symbols", "files": "deep/symbols.files",
                                            "features": [{"name": "Sources", "files": "sources.files"}]}]}]},
    {"name": "Engine Maya", "version": "4.1", "minimum launcher version": "21.0.1", "files": "maya/maya.files",
     "os name": "linux_arm64", "compiler": "gcc12"},
    {"name": "Engine Unreal", "version": "4.1", "minimum launcher version": "21.0.1", "files": "maya/maya.files",
     "os name": "macosx_x86_64", "compiler": "clang"}]})";
QString const overview = u"data/overview.json"_s;
Files const installer = {{overview, catalogue}, {u"data/orvanis.files"_s, "bin/orvanis\n"},
                         {u"data/pdb.files"_s, "bin/orvanis.pdb\n"}, {u"data/deep/symbols.files"_s, "symbols\n"},
                         {u"data/maya/maya.files"_s, "plug-ins/maya\n"}};
QStringList const linuxBuilds = {u"Orvanis 21.0.512 linux_x86_64"_s, u"PDB Files 21.0.512 linux_x86_64"_s};

QByteArray const windowsCatalogue = R"({"version": "20.5.332", "minimum launcher version": "21.0.1", "os name": "win64",
    "compiler": "vc143", "products": [{"name": "Orvanis", "files": "orvanis.files"}]})";
// Format 0, as an unpacked installer carries it; the content lists it names are not there.
QByteArray const directoryCatalogue = R"({"version": "21.0.7", "minimum launcher version": "21", "compiler": "gcc12",
    "os name": "linux_x86_64", "products": [{"name": "Orvanis", "files": "absent.files"}, {"name": "Engine Maya"}]})";
QStringList const directoryBuilds = {u"Orvanis 21.0.7 linux_x86_64"_s, u"Maya Plug-In 21.0.7 linux_x86_64"_s};

QString const listPath = u"/download/download-installer/versions/linux/"_s;
// Format 0 and format 1: one build listed in both with other tags, and a build of another type.
QByteArray const updatesList = R"([{"version": "21.0.4", "tags": ["Beta"], "release date": "2024-02-01",
    "minimum launcher version": "21", "os name": "linux_x86_64", "compiler": "gcc12", "products": [{"name": "O"}]},
    {"format version": 1, "release_type": "gold", "products": [
    {"name": "Orvanis", "version": "21.0.4", "oapi version": "7.1", "minimum launcher version": "21",
     "os name": "linux_x86_64", "compiler": "gcc12", "features": [{"name": "PDB Files"}]},
    {"name": "Orvanis", "version": "21.0.4", "build type": "debug", "tags": ["Alpha"], "release date": "2024-01-02",
     "minimum launcher version": "21", "os name": "linux_x86_64", "compiler": "gcc12"}]}])";
QStringList const updatesListRecords = {u"21.0.4  linux_x86_64_gcc12 debug Alpha,Production 2024-01-02"_s,
                                        u"21.0.4 7.1 linux_x86_64_gcc12  Production "_s};

QStringList records(LN_InfoUpdates const & updates)
{
    QStringList lines;
    for (LN_InfoUpdate const & u : updates)
        lines.append(u"%1 %2 %3 %4 %5 %6"_s.arg(u.version.toString(), u.oapiVersion.toString(), u.platform.toString(),
                                               u.buildType, u.tags.join(u','), u.releaseDate.toString(Qt::ISODate)));
    lines.sort();
    return lines;
}

void add(LN_InfoUpdates & updates, QString const & version, QStringList const & tags)
{
    LN_InfoUpdate const u{QVersionNumber::fromString(version), QVersionNumber(7),
                          P::fromStrings(u"linux_x86_64"_s, u"gcc12"_s), {}, tags, {}};
    updates.updates.insert({u.version, u.platform, u.buildType}, u);
}

} // namespace

class TestCatalogue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(work_.isValid() && site_.listen());
        // Read once, at the library's first use of the site's address.
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
        LN_Waits::setForTesting(LN_Waits::NetworkStall, 200);
    }
    void init() { site_.clearRequests(); }

    void products()
    {
        // Written names read back, and so do catalogue and short names in any case, but not the old labs name.
        for (int product = Product_Orvanis; product <= Invalid; ++product)
            QCOMPARE(productFromString(QString::fromUtf8(productName(LN_ProductID(product)))), LN_ProductID(product));
        for (auto const & [name, product] : std::initializer_list<std::pair<QString, LN_ProductID>>{
                 {u"engine unity"_s, Product_EngineUnity}, {u"MAYA"_s, Product_EngineMaya},
                 {u"Orvanis Server"_s, Product_Oserver}, {u"Game Development Tools"_s, Invalid}, {u" Maya"_s, Invalid}})
            QCOMPARE(productFromString(name), product);
        QCOMPARE(QByteArray(productName(Product_Oserver)) + ' ' + productName(LN_ProductID(12)), QByteArray("oserver Invalid"));
        // Oserver has no description row and falls back to once per machine.
        QCOMPARE(std::pair(productScope(Product_Oserver), productScope(Product_MarluxLabs)), std::pair(0, 1));
    }

    // Rows read the long form or the catalogue's "os name|compiler", and show what the record writes.
    void platforms_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QString const none = u"unknown_os_unknown_cpu_-1_"_s;
        QTest::newRow("compiler keeps separators") << u"linux_x86_64-gcc_9-3"_s << u"linux_x86_64_gcc_9-3 valid x86"_s;
        QTest::newRow("one underscore cut after the os") << u"win_64-x"_s << u"win64-x valid x86"_s;
        QTest::newRow("no cpu, no bits") << u"linux___gcc"_s << u"linux_unknown_cpu_0_gcc"_s;
        QTest::newRow("os is case-sensitive") << u"Linux_x86_64_gcc"_s << none;
        QTest::newRow("no separator after bits") << u"win64"_s << none;
        QTest::newRow("unknown cpu drops the os") << u"linux_sparc64_gcc"_s << none;
        QTest::newRow("windows takes no cpu word") << u"winarm64-vc"_s << none;
        QTest::newRow("catalogue windows") << u"win64|vc"_s << u"win64-vc valid x86"_s;
        QTest::newRow("catalogue linux, no compiler") << u"linux_x86_64|"_s << u"linux_x86_64_ x86"_s;
        QTest::newRow("catalogue macos arm") << u"macosx_arm64|cc"_s << u"macosx_arm64_cc valid"_s;
        QTest::newRow("catalogue os case-sensitive") << u"LINUX_x86_64|cc"_s << u"unknown_os_x86_64_cc x86"_s;
        QTest::newRow("catalogue unknown cpu") << u"linux_arm32|cc"_s << u"linux_unknown_cpu_-1_cc"_s;
    }

    void platforms()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QStringList const parts = text.split(u'|');
        P const info = parts.size() > 1 ? P::fromStrings(parts.at(0), parts.at(1)) : P::fromString(text);
        QCOMPARE(info.toString() + (info.isValid() ? u" valid"_s : u""_s)
                     + (info.isCompatibleArchitecture() ? u" x86"_s : u""_s), expected);
        if (info.isValid())
            QCOMPARE(P::fromString(info.toString()), info);
        QVERIFY((info != P{info.os, info.cpu, info.bits, info.compiler + u'x'})); // equality looks at the compiler too
    }

    void fromJsonDocument_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("formats 0 and 1; newer ones skipped") << allFormats << QStringList{
            u"Orvanis(o,,1){PDB(,p,0)} 20.5-d () [Beta,Production] [21.0]  linux_x86_64_gcc 2024-03-01 2 sofs"_s,
            u"Maya Plug-In(,,9223372036854775807) 20.5-d () [Beta,Production] [21.0]  linux_x86_64_gcc 2024-03-01 2"_s,
            u"Marlux Labs(,,0){Unreal Plug-In(,,-3){x(,s,0)}} 2-d (%1) ( (%1)) [Beta,Production] [2,null] 4 win64-vc "
            u"2024-05-06 1 sofs x"_s,
            u"Unreal Plug-In(,,-3){x(,s,0)} 2-d (%1) ( (%1)) [Beta,Production] [2,null] 4 win64-vc 2024-05-06 1 "
            u"sofs x"_s,
            u"a(,,0) 5 () [Production] [null]    0"_s};

        auto const fault = [](char const * tag, QByteArray const & json, QString const & text) {
            QTest::newRow(tag) << json << QStringList{u"thrown: "_s + text};
        };
        QByteArray const format0 = R"([{"version": "1", "minimum launcher version": "1")";
        QByteArray const format1 = R"([{"format version": 1, "products": )";
        fault("document is an object", "{}", u"Expected JSON array."_s);
        fault("0: tag is a number", format0 + R"(, "tags": [3]}])", u"Invalid JSON. Expected string, got number"_s);
        fault("0: unnamed sub-feature", format0 + R"(, "products": [{"name": "a", "features": [{}]}]}])",
              u"Invalid feature name"_s);
        fault("1: products is an object", format1 + "{}}]", u"Error: Expected array"_s);
        fault("1: product is a number", format1 + "[3]}]", u"Error: Expected object"_s);
        fault("1: no product version", format1 + "[{}]}]", u"Invalid product version number"_s);
        fault("1: minimum is a number", format1 + R"([{"version": "1", "minimum launcher version": 21}]}])",
              u"Invalid minimum launcher version number"_s);
    }

    void fromJsonDocument()
    {
        QFETCH(QByteArray, json);
        QFETCH(QStringList, expected);
        QCOMPARE(parsed(json), expected);
    }

    // A query is a word and an element that carries its arguments. The answer gives catalogue
    // positions: the one picked, or those accepted.
    void select_data()
    {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("catalogue");
        QTest::addColumn<QString>("answer");

        QString const ties = u"Orvanis 1; Maya 2 Production - win64-vc; Orvanis 2 Production - win64-vc; "
                             u"Orvanis 2 Production"_s;
        QString const released = u"O 6 Alpha; O 6 Beta; O 6 Production,Beta; O 6 Production d; O 5 beta,alpha; "
                                 u"O 4 production; O 3 Production; O 2 Production"_s;
        QString const mayas = u"maya 1; Maya 1; Maya 2; Unity 2"_s;
        auto const row = [](char const * tag, QString const & query, QString const & catalogue, QString const & a) {
            QTest::newRow(tag) << query << catalogue << a;
        };
        row("daily: none in an empty catalogue", u"daily"_s, QString(), u"none"_s);
        row("daily: of equal versions the first, whatever its product", u"daily"_s, ties, u"1"_s);
        row("daily: alpha, beta and special builds skipped", u"daily"_s, released, u"4"_s);
        row("production: of equal versions the first", u"production"_s, ties, u"1"_s);
        row("production: tagged exactly so, and released", u"production"_s, released, u"6"_s);
        row("production build: tagged exactly so, and released", u"isProductionBuild"_s, released, u"6,7"_s);
        row("upgrade: of equal versions the last", u"upgrade Orvanis 1"_s, ties, u"3"_s);
        row("upgrade: the minimum itself is an answer", u"upgrade Orvanis 2"_s, ties, u"3"_s);
        row("upgrade: none at the minimum", u"upgrade Orvanis 2.1"_s, ties, u"none"_s);
        row("upgrade: beta taken; other names, build types and tags not", u"upgrade Orvanis 1 - d"_s,
            u"Orvanis 2 Production,Beta d; Orvanis 3 Production; orvanis 4 Production d; Orvanis 5 Beta d; "
            u"Orvanis 1 Production d"_s, u"0"_s);
        row("matching: the first, by any name, tags ignored", u"matching Maya 2"_s,
            u"Unity 2; maya 2 Alpha; Maya 2 Production"_s, u"1"_s);
        row("matching: version, build type and platform", u"matching Orvanis 2 - d"_s,
            u"Orvanis 2.0 - d; Orvanis 2 - D; Orvanis 2 - d win64-vc; Orvanis 2 - d"_s, u"3"_s);
        row("product: the first of exactly that name", u"product Maya"_s, mayas, u"1"_s);
        row("product: by exact name", u"hasProduct Maya"_s, mayas, u"1,2"_s);
        row("product: by any of its names", u"hasProductId Maya"_s, mayas, u"0,1,2"_s);
        // Version, then build type with the empty one first, then the platform's long form.
        row("order", u"order Orvanis 2 - d"_s,
            u"Orvanis 1 - z; Orvanis 2 - - win64-vc; Orvanis 2 - D; Maya 2 Beta d; Orvanis 2 - d win64-vc; "
            u"Orvanis 2.0"_s, u"<,<,<,=,>,>"_s);
        // launcherVersion is 21.0.512, and it is what a minimum of the asked line is held against.
        row("launcher at 21.0.900: none; older lines; same line first; same line; newer line", u"launcher - 21.0.900"_s,
            u"@; @20.0.100,20.9.200; @21.0.513,20.0.0; @21.0.512; @22.0,20.0"_s, u"1,3"_s);
        row("launcher on 20.2: newer minor; same line; older lines", u"launcher - 20.2"_s,
            u"@20.0.100,20.5.200; @20.0.100,20.2.0; @19.0,20.1.900"_s, u"1,2"_s);
        row("this launcher", u"launcher"_s, u"@21.0.512; @20.0.0,21.0.513; @21.1; @20.5"_s, u"0,3"_s);
    }

    void select()
    {
        QFETCH(QString, query);
        QFETCH(QString, catalogue);
        QFETCH(QString, answer);
        QList<LN_AvailableInfo> c;
        for (QString const & text : catalogue.split(u"; "_s, Qt::SkipEmptyParts)) {
            c.append(element(text));
            c.last().label = QString::number(c.size() - 1);
        }
        QString const word = query.section(u' ', 0, 0);
        LN_AvailableInfo const a = element(query.section(u' ', 1));
        LN_ComponentMetadata installed;
        installed.product = productFromString(a.feature.name);
        std::tie(installed.version, installed.buildType, installed.platformInfo) = std::tie(a.version, a.buildType, a.platform);
        QHash<QString, LN_AvailableInfo> const picks{
            {u"daily"_s, LN_AvailableInfo::latestDailyVersion(c)},
            {u"production"_s, LN_AvailableInfo::latestProductionVersion(c)},
            {u"upgrade"_s, LN_AvailableInfo::upgradeVersionFor(a.feature.name, a.version, a.buildType, c)},
            {u"matching"_s, LN_AvailableInfo::getMatchingVersion(installed, c)},
            {u"product"_s, LN_AvailableInfo::getProduct(c, a.feature.name)}};
        QStringList found;
        for (LN_AvailableInfo const & x : c) {
            QVERIFY((x <= a) == (x < a || x == a) && (x >= a) == (a < x || a == x) && (x != a) == !(x == a));
            if (word == u"order"_s)
                found.append(x < a ? u"<"_s : x == a ? u"="_s : x > a ? u">"_s : u"?"_s);
            else if (word == u"isProductionBuild"_s  ? x.isProductionBuild()
                     : word == u"hasProduct"_s       ? x.hasProduct(a.feature.name)
                     : word == u"hasProductId"_s     ? x.hasProduct(productFromString(a.feature.name))
                     : a.version.isNull()            ? x.launcherCanInstall()
                                                     : x.launcherCanInstall(a.version))
                found.append(x.label);
        }
        if (picks.contains(word))
            found = {picks[word].version.isNull() ? u"none"_s : picks[word].label};
        QCOMPARE(found.join(u','), answer);
    }

    void fromFile_data()
    {
        if (QString const missing = OfflineInstaller::missingTools({u"iso"_s, u"zip"_s, u"tar"_s}); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QTest::addColumn<QString>("kind");
        QTest::addColumn<Files>("files");
        QTest::addColumn<QStringList>("names"); // of the elements found, or the text thrown

        auto const changed = [](QString const & removed, Files const & added = {}) {
            Files files = installer;
            files.removeIf([&removed](auto const & file) { return file.first == removed; });
            return files + added;
        };
        auto const rows = [](char const * name, Files const & files, QStringList const & names) {
            for (char const * kind : {"iso", "zip", "tar"})
                QTest::addRow("%s: %s", kind, name) << QString::fromLatin1(kind) << files << names;
        };
        rows("complete but for third-level lists and shared file sets", installer,
             {u"Orvanis"_s, u"PDB Files"_s, u"Maya Plug-In"_s, u"Unreal Plug-In"_s});
        // Required by the element of "PDB Files", whose direct sub-feature it is.
        rows("missing list of a second-level feature", changed(u"data/deep/symbols.files"_s), {});
        rows("missing list in a sub-directory", changed(u"data/maya/maya.files"_s), {});
        rows("catalogue outside data", changed(overview, {{u"overview.json"_s, catalogue}}), {});
        rows("catalogue that does not parse", changed(overview, {{overview, "{\"format version\": 1,"}}), {});
        rows("catalogue of a newer format", changed(overview, {{overview, R"({"format version": 2})"}}), {});
        rows("format 0 catalogue of another system", changed(overview, {{overview, windowsCatalogue}}), {u"Orvanis"_s});
        rows("catalogue at fault", changed(overview, {{overview, "{}"}}), {u"thrown: Invalid version number"_s});
        // A feature without a content list needs an entry named "data/": zip writes the directory
        // so, ISO 9660 images as "data".
        Files const noList = {{u"data/"_s, {}}, {overview, R"({"format version": 1, "products": [{"name": "Optix",
                                                              "version": "1", "minimum launcher version": "1"}]})"}};
        QTest::newRow("zip: feature without content list") << u"zip"_s << noList << QStringList{u"Optix"_s};
        QTest::newRow("iso: feature without content list") << u"iso"_s << noList << QStringList();
        QTest::newRow("compressed tar is not read") << u"tar.gz"_s << installer << QStringList();
    }

    void fromFile()
    {
        QFETCH(QString, kind);
        QFETCH(Files, files);
        QFETCH(QStringList, names);
        QString const archive = work_.filePath(u"installer%1.%2"_s.arg(++archives_).arg(kind));
        QVERIFY(OfflineInstaller::make(archive, files));
        QStringList found;
        QString const thrown = thrownBy([&] {
            for (LN_AvailableInfo const & info : LN_AvailableInfo::fromFile(archive))
                found.append(info.feature.name);
        });
        // Both functions let a fault through rather than call the file no installer.
        bool offline = false;
        QCOMPARE(thrownBy([&] { offline = LN_AvailableInfo::isOfflineArchiveFile(archive); }), thrown);
        QCOMPARE(offline, !found.isEmpty());
        QCOMPARE(thrown.isNull() ? found : QStringList{u"thrown: "_s + thrown}, names);
    }

    void fromFileNotInstallers()
    {
        // Sparse in the tree and in the archive, so the 1 GiB limit costs no disk.
        QDir const tree(work_.filePath(u"oversized"_s));
        QVERIFY(tree.mkpath(u"data"_s));
        QFile big(tree.filePath(u"data/overview.json"_s));
        QVERIFY(big.open(QIODevice::WriteOnly) && big.resize(0x40000000 + 1));
        QString const archive = work_.filePath(u"oversized.tar"_s);
        QCOMPARE(QProcess::execute(u"bsdtar"_s, {u"-cf"_s, archive, u"-C"_s, tree.path(), u"data"_s}), 0);
        for (QString const & path : {archive, work_.filePath(u"missing.iso"_s), work_.path()})
            QVERIFY2(LN_AvailableInfo::fromFile(path).isEmpty(), qPrintable(path));
    }

    void retrieve_data()
    {
        if (QString const missing = OfflineInstaller::missingTools({u"iso"_s, u"zip"_s}); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QVERIFY(OfflineInstaller::make(work_.filePath(u"installers/mixed.iso"_s), installer));
        QVERIFY(OfflineInstaller::writeTree(work_.path(), {{u"installers/readme.txt"_s, "not an installer"},
            {u"empty/"_s, {}}, {u"unpacked/overview.json"_s, directoryCatalogue},
            {u"other/overview.json"_s, windowsCatalogue}, {u"array/overview.json"_s, '[' + directoryCatalogue + ']'}}));
        QCOMPARE(mkfifo(QFile::encodeName(work_.filePath(u"fifo"_s)).constData(), 0600), 0);
        // Failures are answered without a body: with one, Qt may hand the body over before it sets
        // the reply's error. The site's list is given to the bearer of the token alone.
        site_.on(listPath, [](TestHttpServer::Request const & request) {
            QByteArray const list = '[' + directoryCatalogue + ',' + windowsCatalogue + ']';
            return request.header("authorization") == "Bearer t0ken" ? Response::ok(list) : Response::withStatus(404);
        });
        site_.on(u"/download/download-installer/"_s, [](TestHttpServer::Request const & request) {
            bool const known = request.query.queryItemValue(u"file"_s) == u"overview.json"_s
                               && request.query.queryItemValue(u"version"_s) == u"21.0.7"_s;
            return known ? Response::ok(directoryCatalogue) : Response::withStatus(404);
        });

        QTest::addColumn<QString>("source");
        // "path" reads the source as a path; "list" and "anonymous list" ask for the versions with
        // an opener on no source, with and without a token; else the version an opener on it is set to.
        QTest::addColumn<QString>("how");
        QTest::addColumn<QStringList>("expected"); // the builds as "<feature> <version> <os>", or the failure
        auto const info = [](int code, QString const & text) {
            return QStringList{u"LN_AvailableInfoError %1 "_s.arg(code) + text};
        };
        QString const mixed = u"installers/mixed.iso"_s;
        QTest::newRow("installer keeps this system's builds") << mixed << u"path"_s << linuxBuilds;
        QTest::newRow("file that is no installer") << u"installers/readme.txt"_s << u"path"_s
            << info(1, u"\"<work>/installers/readme.txt\" is not a valid offline installer file"_s);
        QTest::newRow("directory overview taken at its word") << u"unpacked"_s << u"path"_s << directoryBuilds;
        QTest::newRow("directory overview that is an array")
            << u"array"_s << u"path"_s << info(1, u"<work>/array/overview.json is not valid. Expected object."_s);
        QTest::newRow("directory of installers") << u"installers"_s << u"path"_s << linuxBuilds;
        // The system filter comes after the test for emptiness.
        QTest::newRow("overview of other systems only") << u"other"_s << u"path"_s << QStringList();
        QTest::newRow("directory without installers") << u"empty"_s << u"path"_s
            << info(2, u"available versions from directory \"<work>/empty\" found no results"_s);
        QTest::newRow("not a file or directory") << u"fifo"_s << u"path"_s << info(2, u"available versions is empty"_s);
        QTest::newRow("missing path") << u"missing"_s << u"path"_s
            << info(2, u"Unable to read available versions from \"<work>/missing\": Path does not exist"_s);
        // The site's list is of this system's builds already: nothing is filtered. A path given is
        // read from disk instead.
        QTest::newRow("site list") << u""_s << u"list"_s << directoryBuilds + QStringList{u"Orvanis 20.5.332 win64"_s};
        QTest::newRow("path instead of the site list") << mixed << u"list"_s << linuxBuilds;
        QTest::newRow("site list refused") << u""_s << u"anonymous list"_s << QStringList{
            u"QNetwork 203 Error transferring <site>"_s + listPath + u" - server replied: Not Found"_s};
        QTest::newRow("site overview") << u""_s << u"21.0.7"_s << directoryBuilds;
        // Nothing is filtered: the opener is set to one build.
        QTest::newRow("archive") << mixed << u"21.0.512"_s << linuxBuilds + QStringList{
            u"Maya Plug-In 4.1 linux_arm64"_s, u"Unreal Plug-In 4.1 macosx_x86_64"_s};
        QTest::newRow("no installer") << u"installers/readme.txt"_s << u"21.0.7"_s
                                      << QStringList{u"LN_FileError 3 Could not locate a valid offline installer"_s};
    }

    void retrieve()
    {
        QFETCH(QString, source);
        QFETCH(QString, how);
        QFETCH(QStringList, expected);
        QString const path = source.isEmpty() ? source : work_.filePath(source);
        LN_InstallerOptions options;
        options.version = QVersionNumber::fromString(how);
        // The list does not depend on the opener's source.
        options.offlineInstaller = how.endsWith(u"list"_s) ? work_.filePath(u"empty"_s) : path;
        LN_FileOpener opener(&manager_, options, how == u"anonymous list"_s ? QByteArray() : "t0ken");
        LN_Result<QList<LN_AvailableInfo>> const result =
            how == u"path"_s          ? LN_AvailableInfo::availableOrvanisVersionsFromPath(path)
            : how.endsWith(u"list"_s) ? LN_AvailableInfo::availableOrvanisVersions(opener, path)
                                      : LN_AvailableInfo::getProductInfo(opener);
        QStringList lines = result.isError() ? QStringList{failure_(result.error.code, result.error.message)} : QStringList();
        for (LN_AvailableInfo const & build : result.value)
            lines.append(u"%1 %2 %3"_s.arg(build.feature.name, build.version.toString(), build.platform.osString()));
        QCOMPARE(lines, expected);
    }

    // Rows answer a second request, made while the first waits: one signal, and records replaced or kept.
    void getUpdates_data()
    {
        QTest::addColumn<Response>("answer");
        QTest::addColumn<QStringList>("expected"); // the signals, then the records
        auto const error = [](QString text) { return QStringList{text, u"1.0 7 linux_x86_64_gcc12  earlier "_s}; };
        QStringList const ready = {u"ready"_s};
        QTest::newRow("both formats, one build twice: last one kept") << Response::ok(updatesList)
                                                                        << ready + updatesListRecords;
        QTest::newRow("empty list, slower in all than the stall time")
            << Response::ok({}).addChunk(150, "[").addChunk(150, "]") << ready;
        QTest::newRow("not found") << Response::withStatus(404)
            << error(u"QNetwork 203 Error transferring <site>"_s + listPath + u" - server replied: Not Found"_s);
        QTest::newRow("stall") << Response::stall() << error(u"QNetwork 4 Network connection timed out"_s);
        QTest::newRow("not JSON") << Response::ok("[1, 2, three]")
            << error(u"QJsonParse 5 JSON Parse error at line 1, column 10: illegal value"_s);
        QTest::newRow("object, not a list") << Response::ok(R"({"format version": 1})")
            << error(u"LN_AvailableInfoError 1 Expected JSON array."_s);
    }

    void getUpdates()
    {
        QFETCH(Response, answer);
        QFETCH(QStringList, expected);
        site_.on(listPath, [this, answer](TestHttpServer::Request const &) {
            return site_.requestCount(listPath) == 1 ? Response::ok({}).addChunk(150, "[]") : answer;
        });
        LN_InfoUpdates updates;
        add(updates, u"1.0"_s, {u"earlier"_s});
        updates.getUpdates({}, &manager_);
        QTRY_COMPARE(site_.requestCount(listPath), 1);
        QStringList const signalled = signalsOf_(updates);
        QCOMPARE(signalled + records(updates), expected);
        QCOMPARE(site_.requestCount(listPath), 2);
    }

    // The site's records and merged ones, read back from the file as its users read them: compact
    // JSON, one object per record.
    void mergeAndSave()
    {
        qputenv("XDG_CONFIG_HOME", work_.filePath(u"config"_s).toUtf8());
        QString const path = work_.filePath(u"config/marlux/updates.json"_s);
        site_.on(listPath, Response::ok(updatesList));
        LN_InfoUpdates updates, other;
        QCOMPARE(signalsOf_(updates), QStringList{u"ready"_s});
        add(other, u"21.0.4"_s, {u"replaced"_s});
        add(other, u"1.0"_s, {u"added"_s});
        updates.merge(other);
        QCOMPARE(thrownBy([&] { updates.save(); }), u"Unable to open "_s + path + u": No such file or directory"_s);

        QVERIFY(QDir(work_.path()).mkpath(u"config/marlux"_s));
        updates.save();
        QFile file(path);
        QByteArray const bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        QStringList objects;
        for (QJsonValue const & value : QJsonDocument::fromJson(bytes).array())
            objects.append(QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact)));
        QCOMPARE(bytes.size(), objects.join(u',').toUtf8().size() + 2); // compact: nothing between them
        objects.sort();
        QString const merged = uR"({"build type":"","compiler":"gcc12","oapiVersion":"7","os":"linux_x86_64",)"
                               uR"("release date":"","tags":["%1"],"version":"%2"})"_s;
        QCOMPARE(objects, (QStringList{merged.arg(u"added"_s, u"1.0"_s), merged.arg(u"replaced"_s, u"21.0.4"_s),
            uR"({"build type":"debug","compiler":"gcc12","oapiVersion":"","os":"linux_x86_64","release date":)"
            uR"("2024-01-02","tags":["Alpha","Production"],"version":"21.0.4"})"_s}));
    }

private:
    // "<category> <value> <text>", with the work directory as <work> and the site as <site>.
    QString failure_(std::error_code const & code, QString message) const
    {
        return u"%1 %2 "_s.arg(QString::fromLatin1(code.category().name())).arg(code.value())
               + message.replace(work_.path(), u"<work>"_s).replace(site_.origin(), u"<site>"_s);
    }

    // The signals of one request, "ready" or a failure, until past an earlier answer's end and the stall time.
    QStringList signalsOf_(LN_InfoUpdates & updates)
    {
        signals_.clear();
        connect(&updates, &LN_InfoUpdates::resultReady, this, [this] { signals_.append(u"ready"_s); });
        connect(&updates, &LN_InfoUpdates::error, this, [this](std::error_code code, QString const & message) {
            signals_.append(failure_(code, message));
        });
        updates.getUpdates({}, &manager_);
        if (!QTest::qWaitFor([this] { return !signals_.isEmpty(); }))
            return {u"no signal"_s};
        QTest::qWait(300);
        return signals_;
    }

    TestHttpServer site_;
    QTemporaryDir work_;
    QNetworkAccessManager manager_;
    int archives_ = 0;
    QStringList signals_;
};

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
