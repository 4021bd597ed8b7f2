#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

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
    info.platform = LN_PlatformInfo::fromString(f.value(4, u"linux_x86_64_gcc"_s));
    return info;
}

} // namespace

class TestSelection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A query is a word and an element that carries its arguments. The answer gives catalogue
    // positions: the one picked, or those accepted.
    void select_data()
    {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("catalogue");
        QTest::addColumn<QString>("answer");

        QString const ties = u"Orvanis 1; Maya 2 Production - win64-vc; Orvanis 2 Production - win64-vc; "
                             u"Orvanis 2 Production"_s;
        QString const released = u"Orvanis 6 Alpha; Orvanis 6 Beta; Orvanis 6 Production,Beta; Orvanis 6 Production d; "
                                 u"Orvanis 5 beta,alpha; Orvanis 4 production; Orvanis 3 Production; "
                                 u"Orvanis 2 Production"_s;
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
            u"Orvanis 1 Production d"_s,
            u"0"_s);
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
            u"Orvanis 2.0"_s,
            u"<,<,<,=,>,>"_s);
        // launcherVersion is 21.0.512, and it is what a minimum of the asked line is held against.
        row("launcher on 21.0: none; older lines; same line first; same line; newer line", u"launcher - 21.0"_s,
            u"@; @20.0.100,20.9.200; @21.0.513,20.0.0; @21.0.512; @22.0,20.0"_s, u"1,3"_s);
        row("launcher on 20.2: newer minor; same line; older lines", u"launcher - 20.2"_s,
            u"@20.0.100,20.5.200; @20.0.100,20.2.0; @19.0,20.1.900"_s, u"1,2"_s);
        row("launcher at 21.0.900: same line", u"launcher - 21.0.900"_s, u"@21.0.513; @21.0.1"_s, u"1"_s);
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
        installed.version = a.version;
        installed.buildType = a.buildType;
        installed.platformInfo = a.platform;
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
};

QTEST_GUILESS_MAIN(TestSelection)
#include "tst_selection.moc"
