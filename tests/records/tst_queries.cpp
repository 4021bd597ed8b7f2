#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/catalogue/LN_InfoUpdates.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_Metadata.h>

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

// Queries on a repository read back from disk, whose records point at installation directories
// that hold a file, only a dot file, nothing, or are gone.

namespace {

using Repository = LN_InstallMetadata const &;
using Query = std::function<QString(Repository, QString const & self)>;

// A record is named by its label; "none" is a default record.
QString name(LN_ComponentMetadata const & record)
{
    return record.label.isEmpty() ? u"none"_s : record.label;
}

template <typename List, typename Text>
QString sorted(List const & items, Text const & text)
{
    QStringList lines;
    for (auto const & item : items)
        lines.append(text(item));
    lines.sort();
    return lines.join(u' ');
}

QString text(QVersionNumber const & v)
{
    return v.isNull() ? u"null"_s : v.toString();
}

LN_ComponentMetadata record(QString const & label, LN_ProductID product, QString const & version, bool ready = true)
{
    LN_ComponentMetadata r;
    r.label = label;
    r.product = product;
    r.version = QVersionNumber::fromString(version);
    r.ready = ready;
    r.platformInfo = LN_PlatformInfo::fromStrings(u"linux_x86_64"_s, u"gcc12"_s);
    return r;
}

} // namespace

Q_DECLARE_METATYPE(Query)

class TestQueries : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void queries_data();
    void queries();
    void merge();

private:
    QTemporaryDir root_;
    LN_InstallMetadata repository_;
};

void TestQueries::initTestCase()
{
    // Label, product, version, engine API, directory ("" for a record without one), ready.
    struct Entry { char const * label; LN_ProductID product; char const * version, * oapi, * directory; bool ready; };
    Entry const entries[] = {
        {"o20", Product_Orvanis, "20.0", "6.0", "file", true}, {"o21a", Product_Orvanis, "21.0", "7.1", "file", true},
        {"o21b", Product_Orvanis, "21.0", "7.1", "file", true}, {"dot", Product_Orvanis, "22.5", "", "dot file", true},
        {"self", Product_Orvanis, "23.0", "", "file", true}, {"empty", Product_Orvanis, "23.2", "", "empty", true},
        {"gone", Product_Orvanis, "23.5", "", "gone", true}, {"unready", Product_Orvanis, "23.7", "", "file", false},
        {"unready gone", Product_Orvanis, "19.0", "", "gone", false}, {"nowhere", Product_Orvanis, "24.0", "", "", true},
        {"m1", Product_EngineMaya, "21.2", "8.0", "file", true}, {"m2", Product_EngineMaya, "21.2", "8.0", "file", true},
        {"m gone", Product_EngineMaya, "30.0", "", "gone", true}};
    QDir const root(root_.path());
    QVERIFY(root.mkpath(u"repository"_s));
    LN_InstallMetadata written(root.filePath(u"repository"_s));
    for (Entry const & entry : entries) {
        LN_ComponentMetadata r = record(QString::fromLatin1(entry.label), entry.product,
                                        QString::fromLatin1(entry.version), entry.ready);
        r.oapiVersion = QVersionNumber::fromString(QString::fromLatin1(entry.oapi));
        QString const directory = QString::fromLatin1(entry.directory);
        if (!directory.isEmpty()) {
            r.installDir = root.filePath(r.label);
            QVERIFY(root.mkpath(r.label));
            if (directory.endsWith(u"file"_s))
                QVERIFY(QFile(r.installDir + (directory == u"file"_s ? u"/bin"_s : u"/.keep"_s)).open(QFile::WriteOnly));
            QVERIFY(directory != u"gone"_s || root.rmdir(r.label));
        }
        written.insert(r);
    }
    written.save(u"overview.json"_s);
    repository_ = LN_InstallMetadata(root.filePath(u"repository"_s));
    QCOMPARE(repository_.installations.size(), qsizetype(std::size(entries)));
}

void TestQueries::queries_data()
{
    QTest::addColumn<Query>("query");
    QTest::addColumn<QString>("expected"); // "first(a,b)": whichever of them the table holds first

    auto const row = [](char const * tag, Query const & query, QString const & expected) {
        QTest::newRow(tag) << query << expected;
    };
    auto const update = [](char const * version, bool older) {
        return [=](Repository r, QString const & self) {
            return name(LN_Metadata::getUpdateVersion(r, self, QVersionNumber::fromString(QString::fromLatin1(version)),
                                                      older));
        };
    };
    auto const yes = [](bool value) { return value ? u"y"_s : u"n"_s; };
    auto const compatible = [yes](char const * version, char const * oapi) {
        return [=](Repository r, auto) -> QString {
            LN_AvailableInfo info;
            info.version = QVersionNumber::fromString(QString::fromLatin1(version));
            info.oapiVersion = QVersionNumber::fromString(QString::fromLatin1(oapi));
            LN_ComponentMetadata plugin = record(u"p"_s, Product_EngineMaya, QString::fromLatin1(version));
            plugin.oapiVersion = info.oapiVersion;
            return yes(r.hasCompatibleOrvanis(info)) + yes(r.hasCompatibleOrvanis(plugin));
        };
    };

    row("versions, duplicates and all", [](Repository r, auto) {
        return sorted(r.getInstalledOrvanisVersions(), [](QString const & v) { return v; });
    }, u"19.0 20.0 21.0 21.0 22.5 23.0 23.2 23.5 23.7 24.0"_s);
    row("plug-in versions", [](Repository r, auto) {
        return sorted(r.getInstalledProductVersions(Product_EngineMaya), text);
    }, u"21.2 21.2 30.0"_s);
    row("API versions, null included",
        [](Repository r, auto) { return sorted(r.getInstalledProductOapiVersions(Product_Orvanis), text); },
        u"6.0 7.1 null"_s);
    row("product: first record", [](Repository r, auto) { return name(r.getProduct(Product_EngineMaya)); },
        u"first(m1,m2,m gone)"_s);
    row("product: none", [](Repository r, auto) { return name(r.getProduct(Product_Optix)); }, u"none"_s);
    row("latest skips unready, empty, gone, nowhere",
        [](Repository r, auto) { return name(r.getLatestAvailableInstallation(Product_Orvanis)); }, u"self"_s);
    row("latest of equal versions: first",
        [](Repository r, auto) { return name(r.getLatestAvailableInstallation(Product_EngineMaya)); },
        u"first(m1,m2)"_s);
    row("latest: none", [](Repository r, auto) { return name(r.getLatestAvailableInstallation(Product_Optix)); },
        u"none"_s);
    row("nonexistent: empty, gone, nowhere, ready or not",
        [](Repository r, auto) { return sorted(r.getNonexistentOrvanisInstallations(), name); },
        u"empty gone nowhere unready gone"_s);
    row("directory of a version with a suffix: first", [](Repository r, auto) {
        return QFileInfo(r.getInstallDirectory(Product_Orvanis, u"21.0-beta"_s)).fileName();
    }, u"first(o21a,o21b)"_s);
    row("directory of a version not installed",
        [](Repository r, auto) { return r.getInstallDirectory(Product_EngineMaya, QVersionNumber(21, 0)); }, QString());
    row("has product: any version, that version, another, none", [yes](Repository r, auto) -> QString {
        return yes(r.hasProduct(Product_Orvanis, {})) + yes(r.hasProduct(Product_EngineMaya, QVersionNumber(30, 0)))
               + yes(r.hasProduct(Product_EngineMaya, QVersionNumber(23))) + yes(r.hasProduct(Product_Optix, {}));
    }, u"yynn"_s);
    row("compatible by engine API", compatible("99", "7.1"), u"yy"_s);
    row("compatible by version", compatible("23.0", "9"), u"yy"_s);
    row("compatible by null engine API", compatible("99", ""), u"yy"_s);
    row("a plug-in's engine API does not count", compatible("21.2", "8.0"), u"nn"_s);
    row("update: lowest at or above, of equal versions first", update("21.0", false), u"first(o21a,o21b)"_s);
    row("update: a plug-in is no reference", update("21.1", false), u"dot"_s);
    row("update: the version itself qualifies", update("22.5", false), u"dot"_s);
    row("update: never the directory itself", update("23.0", false), u"empty"_s);
    row("update: an unready one is no reference", update("23.6", false), u"nowhere"_s);
    row("update: none at or above", update("24.1", false), u"none"_s);
    row("older: highest below, of equal versions first", update("22.0", true), u"first(o21a,o21b)"_s);
    row("older: never the directory itself", update("23.1", true), u"dot"_s);
    row("older: an unready one is no reference", update("20.0", true), u"none"_s);
}

void TestQueries::queries()
{
    QFETCH(Query, query);
    QFETCH(QString, expected);

    // Ties go by the table's order, which the hash's seed sets anew in every process.
    QRegularExpressionMatch const tie = QRegularExpression(u"^first\\((.*)\\)$"_s).match(expected);
    QList<LN_ComponentMetadata> const all = repository_.getAll();
    auto const first = std::find_if(all.begin(), all.end(), [&](LN_ComponentMetadata const & r) {
        return tie.captured(1).split(u',').contains(r.label);
    });
    if (tie.hasMatch())
        expected = first->label;
    QCOMPARE(query(repository_, QDir(root_.path()).filePath(u"self"_s)), expected);
}

// Records of an updated build take its tags and date whatever their product; one that differs
// in build type or in the platform, even where the identity's long form does not, stays.
void TestQueries::merge()
{
    LN_PlatformInfo const windows = LN_PlatformInfo::fromStrings(u"win64"_s, u"gcc12"_s);
    LN_InstallMetadata repository;
    for (char const * label : {"orvanis", "maya", "debug", "arm"}) {
        LN_ComponentMetadata r = record(QString::fromLatin1(label), label[0] == 'm' ? Product_EngineMaya : Product_Orvanis,
                                        u"21.0"_s);
        r.installDir = r.label;
        r.tags = {u"Beta"_s};
        r.buildType = label[0] == 'd' ? u"debug"_s : QString();
        r.platformInfo = windows;
        r.platformInfo.cpu = label[0] == 'a' ? LN_PlatformInfo::Cpu_Arm : LN_PlatformInfo::Cpu_X86;
        repository.insert(r);
    }
    LN_InfoUpdates updates;
    LN_InfoUpdate const u{QVersionNumber(21, 0), QVersionNumber(9), windows, {}, {u"Production"_s}, QDate(2024, 5, 6)};
    updates.updates.insert({u.version, u.platform, u.buildType}, u);
    repository.merge(updates);

    QCOMPARE(sorted(repository.getAll(), [](LN_ComponentMetadata const & r) -> QString {
        return r.label + u':' + r.tags.join(u',') + u':' + r.releaseDate.toString(Qt::ISODate) + u':' + text(r.oapiVersion);
    }), u"arm:Beta::null debug:Beta::null maya:Production:2024-05-06:null orvanis:Production:2024-05-06:null"_s);
}

QTEST_GUILESS_MAIN(TestQueries)
#include "tst_queries.moc"
