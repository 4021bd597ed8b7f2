// Times pure queries at two sizes of their input and prints the ratio of the two times for each.
// Each group names what n counts and both sizes, and prints the ratio that n log n would give
// (12.5 from 10,000 to 100,000 catalogue elements); a row above it is flagged, as its cost grows
// faster than n log n.
//
// A group of queries is one function that builds its inputs at both sizes and hands its rows to
// timeGroup; a new group adds such a function and one call in main.
//
//   bench_selection [--runs n]

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/catalogue/LN_InfoUpdates.h>
#include <draizu/records/LN_ComponentMetadata.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_Metadata.h>

#include "../common/BenchSupport.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QHash>
#include <QSet>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <numeric>
#include <random>

using namespace Qt::StringLiterals;

namespace {

using BenchSupport::out;

// One query of a group. `prepare` builds what the query needs at a size, untimed, and returns
// the call to time, which answers false when the query's answer is not the one expected.
struct Row
{
    char const * name;
    std::function<std::function<bool()>(int size)> prepare;
};

// Microseconds per call from a cold cache, the median of `runs` calls; -1 when the call gives a
// wrong answer. Every call starts after a walk through a buffer twice the size of a large
// last-level cache, so that both sizes read their catalogue from memory and the ratio speaks of
// the work rather than of which size still fits in the cache.
double microsecondsPerCall(std::function<bool()> const & call, int runs)
{
    static QByteArray evict(64 << 20, '\0');
    QList<double> times;
    for (int i = 0; i < runs; ++i) {
        for (qsizetype at = 0; at < evict.size(); at += 64)
            ++evict[at];
        QElapsedTimer timer;
        timer.start();
        if (!call())
            return -1;
        times.append(double(timer.nsecsElapsed()) / 1000.0);
    }
    std::sort(times.begin(), times.end());
    return times.at(times.size() / 2);
}

// Prints each row's time at both sizes and their ratio; false when a query answered wrongly.
bool timeGroup(char const * title, char const * unit, int small, int large, QList<Row> const & rows, int runs)
{
    double const linearithmic = large * std::log(double(large)) / (small * std::log(double(small)));
    out() << title << " (n = " << unit << "), median of " << runs << " calls from a cold cache; n log n gives "
          << QString::number(linearithmic, 'f', 1) << Qt::endl;
    bool right = true;
    for (Row const & row : rows) {
        double const smallTime = microsecondsPerCall(row.prepare(small), runs);
        double const largeTime = microsecondsPerCall(row.prepare(large), runs);
        if (smallTime < 0 || largeTime < 0) {
            out() << "  " << row.name << ": wrong answer" << Qt::endl;
            right = false;
            continue;
        }
        double const ratio = largeTime / smallTime;
        out() << "  " << QString::fromLatin1(row.name).leftJustified(26) << " n = " << small << ": "
            << QString::number(smallTime, 'f', 1).rightJustified(9) << " us   n = " << large << ": "
            << QString::number(largeTime, 'f', 1).rightJustified(9) << " us   ratio "
            << QString::number(ratio, 'f', 1) << (ratio > linearithmic ? "  (faster than n log n)" : "") << Qt::endl;
    }
    return right;
}

// A site's list as the parser makes it: builds of five products on two systems, each build's
// elements together and sharing its tags and build type, the builds in no order of version,
// with pre-releases and special builds among them.
QList<LN_AvailableInfo> catalogue(int size)
{
    QStringList const products = {u"Orvanis"_s, u"Maya Plug-In"_s, u"Unity Plug-In"_s, u"Unreal Plug-In"_s,
                                  u"3ds Max Plug-In"_s};
    QList<LN_PlatformInfo> const platforms = {LN_PlatformInfo::fromString(u"win64-vc143"_s),
                                              LN_PlatformInfo::fromString(u"linux_x86_64_gcc11"_s)};
    int const perBuild = int(products.size() * platforms.size());
    QList<int> builds(size / perBuild);
    std::iota(builds.begin(), builds.end(), 0);
    std::shuffle(builds.begin(), builds.end(), std::mt19937(size));

    QList<LN_AvailableInfo> elements;
    elements.reserve(size);
    for (int const build : builds) {
        LN_AvailableInfo header;
        header.version = QVersionNumber(18 + build / 2000, build / 1000 % 2 * 5, build % 1000);
        header.tags = build % 7 == 0 ? QStringList{u"Beta"_s} : build % 3 == 0 ? QStringList{u"Production"_s}
                                                                               : QStringList();
        header.buildType = build % 11 == 0 ? u"debug"_s : QString();
        header.minimumLauncherVersions = {QVersionNumber(21, 0, 1)};
        for (LN_PlatformInfo const & platform : platforms) {
            header.platform = platform;
            for (QString const & product : products) {
                header.feature.name = product;
                elements.append(header);
            }
        }
    }
    return elements;
}

// The selection functions of LN_AvailableInfo over catalogues of 10,000 and 100,000 elements.
bool catalogueQueries(int runs)
{
    int const small = 10'000;
    int const large = 100'000;
    QHash<int, QList<LN_AvailableInfo>> const catalogues = {{small, catalogue(small)}, {large, catalogue(large)}};

    // Answers are checked against a plain walk, so that the query timed is the one meant.
    auto const newest = [](QList<LN_AvailableInfo> const & c, auto const & fits) {
        QVersionNumber version;
        for (LN_AvailableInfo const & element : c) {
            if (fits(element) && element.version > version)
                version = element.version;
        }
        return version;
    };

    Row const production{"latestProductionVersion", [&](int size) -> std::function<bool()> {
        QList<LN_AvailableInfo> const c = catalogues.value(size);
        QVersionNumber const expected = newest(c, [](LN_AvailableInfo const & e) { return e.isProductionBuild(); });
        return [c, expected] { return LN_AvailableInfo::latestProductionVersion(c).version == expected; };
    }};
    Row const upgrade{"upgradeVersionFor", [&](int size) -> std::function<bool()> {
        QList<LN_AvailableInfo> const c = catalogues.value(size);
        QVersionNumber const expected = newest(c, [](LN_AvailableInfo const & e) {
            return e.tags.contains(u"Production"_s) && e.buildType.isEmpty() && e.feature.name == u"Orvanis"_s;
        });
        return [c, expected] {
            return LN_AvailableInfo::upgradeVersionFor(u"Orvanis"_s, QVersionNumber(18), QString(), c).version
                == expected;
        };
    }};
    // The installation is of the last element, the one of its kind: every element is looked at.
    Row const matching{"getMatchingVersion", [&](int size) -> std::function<bool()> {
        QList<LN_AvailableInfo> const c = catalogues.value(size);
        LN_ComponentMetadata installed;
        installed.product = productFromString(c.constLast().feature.name);
        installed.version = c.constLast().version;
        installed.buildType = c.constLast().buildType;
        installed.platformInfo = c.constLast().platform;
        return [c, installed] {
            LN_AvailableInfo const found = LN_AvailableInfo::getMatchingVersion(installed, c);
            return found == c.constLast() && found.feature.name == c.constLast().feature.name;
        };
    }};
    return timeGroup("catalogue queries", "catalogue elements", small, large, {production, upgrade, matching}, runs);
}

// A repository of installations of five products, in no order of version, some not ready and
// some whose directory is gone, each other directory real and holding one file, so that the
// queries that look at the disk do so. Versions are distinct.
LN_InstallMetadata repository(QDir const & root, int size)
{
    LN_ProductID const products[] = {Product_Orvanis, Product_Orvanis, Product_EngineMaya, Product_EngineUnity,
                                     Product_EngineUnreal};
    QList<int> order(size);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(size));
    LN_InstallMetadata installations;
    for (int const i : order) {
        LN_ComponentMetadata record;
        record.product = products[i % 5];
        record.version = QVersionNumber(18 + i / 100, i / 10 % 10, i % 10);
        record.oapiVersion = QVersionNumber(7, i);
        record.platformInfo = LN_PlatformInfo::fromString(u"linux_x86_64_gcc11"_s);
        record.ready = i % 13 != 0;
        record.installDir = root.filePath(u"installation-%1"_s.arg(i));
        if (i % 17 == 0)
            record.installDir += u"-gone"_s;
        installations.insert(record);
    }
    return installations;
}

// The queries of the installation repository over 100 and 1,000 installations. Answers are
// checked against a plain walk of the table, so that the query timed is the one meant; queries
// that stop at the first match are asked for what is not there, which walks the whole table.
bool repositoryQueries(int runs)
{
    int const small = 100;
    int const large = 1'000;
    QTemporaryDir temp(u"/tmp/bench_selection-XXXXXX"_s);
    QDir const root(temp.path());
    for (int i = 0; i < large; ++i) {
        QString const name = u"installation-%1"_s.arg(i);
        if (!root.mkpath(name) || !BenchSupport::writeFile(root.filePath(name + u"/bin"_s), "bin"))
            return false;
    }
    QHash<int, LN_InstallMetadata> const repositories = {{small, repository(root, small)},
                                                         {large, repository(root, large)}};
    // Records of the table in its order, as the queries walk it.
    auto const walk = [&](int size, auto const & fits) {
        QList<LN_ComponentMetadata> records;
        for (LN_ComponentMetadata const & record : repositories.value(size).installations) {
            if (fits(record))
                records.append(record);
        }
        return records;
    };
    auto const orvanis = [](LN_ComponentMetadata const & r) { return r.product == Product_Orvanis; };
    QVersionNumber const absent(99);

    QList<Row> rows;
    rows.append({"product versions", [&](int size) -> std::function<bool()> {
        QList<QVersionNumber> expected;
        for (LN_ComponentMetadata const & record : walk(size, orvanis))
            expected.append(record.version);
        return [r = repositories.value(size), expected] {
            return r.getInstalledProductVersions(Product_Orvanis) == expected;
        };
    }});
    rows.append({"product API versions", [&](int size) -> std::function<bool()> {
        // Every version differs; a whole comparison of two sets would time lookups, not the query.
        QList<LN_ComponentMetadata> const records = walk(size, orvanis);
        return [r = repositories.value(size), count = records.size(), last = records.constLast().oapiVersion] {
            QSet<QVersionNumber> const versions = r.getInstalledProductOapiVersions(Product_Orvanis);
            return versions.size() == count && versions.contains(last);
        };
    }});
    rows.append({"Orvanis version texts", [&](int size) -> std::function<bool()> {
        qsizetype const expected = walk(size, orvanis).size();
        return [r = repositories.value(size), expected] { return r.getInstalledOrvanisVersions().size() == expected; };
    }});
    rows.append({"getProduct (none)", [&](int size) -> std::function<bool()> {
        return [r = repositories.value(size)] { return r.getProduct(Product_Optix).product == LN_ProductID::Invalid; };
    }});
    rows.append({"getInstallDirectory (none)", [&](int size) -> std::function<bool()> {
        return [r = repositories.value(size), absent] {
            return r.getInstallDirectory(Product_Orvanis, absent).isEmpty();
        };
    }});
    rows.append({"hasProduct (none)", [&](int size) -> std::function<bool()> {
        return [r = repositories.value(size), absent] { return !r.hasProduct(Product_Orvanis, absent); };
    }});
    rows.append({"hasCompatibleOrvanis (no)", [&](int size) -> std::function<bool()> {
        LN_AvailableInfo info;
        info.version = absent;
        info.oapiVersion = absent;
        return [r = repositories.value(size), info] { return !r.hasCompatibleOrvanis(info); };
    }});
    rows.append({"latest available", [&](int size) -> std::function<bool()> {
        QList<LN_ComponentMetadata> const candidates = walk(size, [](LN_ComponentMetadata const & r) {
            return r.product == Product_Orvanis && r.ready && !r.installDir.endsWith(u"-gone"_s);
        });
        QVersionNumber const expected = std::max_element(candidates.begin(), candidates.end(), [](auto & a, auto & b) {
            return a.version < b.version;
        })->version;
        return [r = repositories.value(size), expected] {
            return r.getLatestAvailableInstallation(Product_Orvanis).version == expected;
        };
    }});
    rows.append({"nonexistent Orvanis", [&](int size) -> std::function<bool()> {
        qsizetype const expected = walk(size, [](LN_ComponentMetadata const & r) {
            return r.product == Product_Orvanis && r.installDir.endsWith(u"-gone"_s);
        }).size();
        return [r = repositories.value(size), expected] {
            return r.getNonexistentOrvanisInstallations().size() == expected;
        };
    }});
    rows.append({"getUpdateVersion", [&](int size) -> std::function<bool()> {
        QVersionNumber const middle(18 + size / 200);
        QList<LN_ComponentMetadata> const candidates = walk(size, [&](LN_ComponentMetadata const & r) {
            return r.product == Product_Orvanis && r.ready && r.version >= middle;
        });
        QVersionNumber const expected = std::min_element(candidates.begin(), candidates.end(), [](auto & a, auto & b) {
            return a.version < b.version;
        })->version;
        return [r = repositories.value(size), middle, expected] {
            return LN_Metadata::getUpdateVersion(r, QString(), middle, false).version == expected;
        };
    }});
    // One update per installation: the cost that a walk of every update over every record
    // would make quadratic.
    rows.append({"merge, one update each", [&](int size) -> std::function<bool()> {
        LN_InstallMetadata r = repositories.value(size);
        auto updates = std::make_shared<LN_InfoUpdates>();
        for (LN_ComponentMetadata const & record : r.installations) {
            LN_InfoUpdate const update{record.version, {}, record.platformInfo, {}, {u"Production"_s},
                                       QDate(2025, 1, 2)};
            updates->updates.insert({update.version, update.platform, update.buildType}, update);
        }
        return [r, updates]() mutable {
            r.merge(*updates);
            return std::all_of(r.installations.cbegin(), r.installations.cend(), [](LN_ComponentMetadata const & c) {
                return c.tags == QStringList{u"Production"_s};
            });
        };
    }});
    return timeGroup("repository queries", "installations", small, large, rows, runs);
}

} // namespace

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Times pure queries at two sizes and prints the ratio of the times."_s);
    parser.addHelpOption();
    QCommandLineOption const runsOption(u"runs"_s, u"Timed calls per query and size (default 15)."_s, u"n"_s,
                                        u"15"_s);
    parser.addOption(runsOption);
    parser.process(app);
    int const runs = std::max(1, parser.value(runsOption).toInt());

    // One function per group of queries, each with its own sizes.
    bool const cataloguesRight = catalogueQueries(runs);
    bool const repositoriesRight = repositoryQueries(runs);
    return cataloguesRight && repositoriesRight ? 0 : 1;
}
