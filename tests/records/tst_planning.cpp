// Install planning and older installations: the probe of rights on real directories, as nobody
// too; catalogues served over HTTP; the oserver and the licence server under a runsvdir of the
// test's own; older installations laid out on disk.

#include <draizu/core/LN_FixedLocations.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Service.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_InstallPlanning.h>
#include <draizu/records/LN_OldInstallations.h>

#include "support/RunitSupervisor.h"
#include "support/TestHttpServer.h"
#include "support/ThrownBy.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Change = std::function<void(LN_InstallerOptions &)>;
Q_DECLARE_METATYPE(Change)

namespace {

// Lays out entries under root: "dir/" a directory, "+dir/" one open to every user, "path=text"
// a file, "link->target" a symbolic link.
void lay(QString const & root, QStringList const & entries)
{
    for (QString const & entry : entries) {
        bool const open = entry.startsWith(u'+');
        QString const path = root + u'/' + entry.mid(open ? 1 : 0).section(u'=', 0, 0).section(u"->"_s, 0, 0);
        QVERIFY(QDir().mkpath(entry.endsWith(u'/') ? path : QFileInfo(path).path()));
        QFile file(path);
        if (entry.contains(u"->"_s))
            QVERIFY(QFile::link(entry.section(u"->"_s, 1), path));
        else if (!entry.endsWith(u'/'))
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(entry.section(u'=', 1).toUtf8()) >= 0);
        QVERIFY(!open || ::chmod(QFile::encodeName(path).constData(), 0777) == 0);
    }
}

// "<directory>|<file>" or "<path>": true, false or what the probe threw.
QString needsAdminCall(QString const & call)
{
    bool admin = false;
    QString const thrown = thrownBy([&] {
        admin = call.contains(u'|') ? LN_Util::needsAdmin(call.section(u'|', 0, 0), call.section(u'|', 1)) : LN_Util::needsAdmin(call);
    });
    return !thrown.isNull() ? thrown : admin ? u"true"_s : u"false"_s;
}

QString describe(LN_ComponentMetadata const & record)
{
    if (record.product == LN_ProductID::Invalid)
        return u"none"_s;
    QStringList features = record.features.keys(), options;
    for (auto it = record.otherOptions.constBegin(); it != record.otherOptions.constEnd(); ++it)
        options << it.key() + u'=' + it.value();
    features.sort();
    options.sort();
    return u"%1 [%2] %3%4"_s.arg(record.shortString(), features.join(u','), options.join(u' '),
                                 record.hasUninstaller ? u" uninstaller"_s : QString());
}

// One build per entry, "version tags build-type [os [product]]" with "-" for none; by default
// for linux_x86_64 and of Orvanis, 1000 bytes with the features "PDB Files" (200, and "Symbols"
// of 5 below it) and "Docs" (30).
QJsonDocument catalogue(QStringList const & builds)
{
    QJsonArray list;
    for (QString const & text : builds) {
        QStringList const f = text.split(u' ');
        QJsonObject product = QJsonDocument::fromJson(R"({"size": 1000, "features": [{"name": "PDB Files", "size": 200,
            "features": [{"name": "Symbols", "size": 5}]}, {"name": "Docs", "size": 30}]})").object();
        product.insert(u"name"_s, f.size() > 4 ? f.mid(4).join(u' ') : u"Orvanis"_s);
        QStringList const tags = f.at(1) == u"-" ? QStringList() : f.at(1).split(u',');
        list.append(QJsonObject{{u"version"_s, f.at(0)}, {u"tags"_s, QJsonArray::fromStringList(tags)},
                                {u"build type"_s, f.at(2) == u"-" ? QString() : f.at(2)}, {u"minimum launcher version"_s, u"1"_s},
                                {u"os name"_s, f.value(3, u"linux_x86_64"_s)}, {u"compiler"_s, u"gcc12"_s},
                                {u"products"_s, QJsonArray{product}}});
    }
    return QJsonDocument(list);
}

} // namespace

class TestPlanning : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(temp_.isValid() && ::chmod(QFile::encodeName(temp_.path()).constData(), 0755) == 0);
        QVERIFY(site_.listen());
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
        LN_Service::setSystemdDirsForTesting(temp_.filePath(u"no-systemd"_s), temp_.filePath(u"units"_s));
        LN_Waits::setForTesting(LN_Waits::ServiceStartPoll, 200);
        LN_Waits::setForTesting(LN_Waits::ServicePollStep, 50);
    }

    // %T is the row's own directory, which nobody may not write to; "+" marks one it may. Then
    // whether the row probes as nobody, what comes of it, and what is left ("!path": nothing).
    void needsAdmin_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QString>("call");
        QTest::addColumn<bool>("asNobody");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QStringList>("after");
        auto const row = [](char const * name, QStringList const & layout, QString const & call, bool asNobody,
                            QString const & expected, QStringList const & after) {
            QTest::newRow(name) << layout << call << asNobody << expected << after;
        };
        row("only the first missing directory is made", {}, u"%T/a/b|p"_s, false, u"false"_s, {u"a/"_s, u"!a/b"_s, u"!a/p"_s});
        row("one-argument form", {}, u"%T/one/f"_s, false, u"false"_s, {u"one/"_s, u"!one/f"_s});
        row("existing file is left as it was", {u"d/keep=mine"_s}, u"%T/d/|keep"_s, false, u"false"_s, {u"d/keep=mine"_s});
        row("trailing slash probes the directory", {u"+open/"_s}, u"%T/open/|p"_s, true, u"false"_s, {u"!open/p"_s});
        row("unwritable parent", {}, u"%T/new|p"_s, true, u"true"_s, {u"!new"_s});
        row("unwritable existing file", {u"+open/"_s, u"open/ro=x"_s}, u"%T/open/|ro"_s, true, u"true"_s, {u"open/ro=x"_s});
        row("directory below a file", {u"f=x"_s}, u"%T/f/sub|p"_s, false,
            u"Unable to create directory \"%T/f/sub\": Not a directory (Error 20)"_s, {});
        row("file name of a directory", {u"d/p/"_s}, u"%T/d/|p"_s, false,
            u"Unable to create file \"%T/d/p\": Is a directory (Error 21)"_s, {});
    }
    void needsAdmin()
    {
        QFETCH(QString, call);
        QFETCH(bool, asNobody);
        if (asNobody && ::geteuid() != 0)
            QSKIP("A probe as nobody needs root to drop to it");
        QString const root = temp_.filePath(QString::fromLatin1(QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(root));
        QFETCH(QStringList, layout);
        lay(root, layout);
        call.replace(u"%T"_s, root);
        QProcess helper;
        if (asNobody) {
            helper.start(u"setpriv"_s, {u"--reuid=nobody"_s, u"--regid=nogroup"_s, u"--clear-groups"_s,
                                        QCoreApplication::applicationFilePath(), u"--needs-admin"_s, call});
            QVERIFY(helper.waitForFinished(30000));
        }
        QString const result = asNobody ? QString::fromUtf8(helper.readAllStandardOutput()).trimmed() : needsAdminCall(call);
        QFETCH(QString, expected);
        QCOMPARE(result, expected.replace(u"%T"_s, root));
        QFETCH(QStringList, after);
        for (QString const & entry : after) {
            QFile file(root + u'/' + entry.mid(entry.startsWith(u'!') ? 1 : 0).section(u'=', 0, 0));
            QVERIFY2(file.exists() != entry.startsWith(u'!'), qPrintable(entry));
            QVERIFY(!entry.contains(u'=') || (file.open(QIODevice::ReadOnly) && file.readAll() == entry.section(u'=', 1).toUtf8()));
        }
    }

    // The record is Orvanis 21.0.5 for linux_x86_64_gcc12 with "PDB Files"; the options modify
    // it, after the row's change.
    void doesInstall_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<bool>("expected");
        using O = LN_InstallerOptions;
        QTest::newRow("install, nothing changed") << Change([](O & o) { o.verb = O::Install; }) << true;
        QTest::newRow("uninstall, whatever changes")
            << Change([](O & o) { o.verb = O::Uninstall; o.version = QVersionNumber(30); }) << false;
        QTest::newRow("modify, nothing changed") << Change([](O &) {}) << false;
        QTest::newRow("no version asked for") << Change([](O & o) { o.version = {}; }) << false;
        QTest::newRow("another version") << Change([](O & o) { o.version = QVersionNumber(21, 0, 6); }) << true;
        QTest::newRow("another build type") << Change([](O & o) { o.setBuildType(u"py3"_s); }) << true;
        QTest::newRow("another platform") << Change([](O & o) { o.platform = u"linux_arm64_gcc12"_s; }) << true;
        QTest::newRow("product Invalid") << Change([](O & o) { o.product = LN_ProductID::Invalid; }) << true;
        QTest::newRow("a new feature selected") << Change([](O & o) { o.features[u"Docs"_s] = true; }) << true;
        QTest::newRow("a new feature left out") << Change([](O & o) { o.features[u"Docs"_s] = false; }) << false;
    }
    void doesInstall()
    {
        QFETCH(Change, change);
        QJsonObject const table{{u"/inst"_s, QJsonObject{{u"product"_s, u"Orvanis"_s}, {u"version"_s, u"21.0.5"_s},
            {u"os name"_s, u"linux_x86_64"_s}, {u"compiler"_s, u"gcc12"_s}, {u"features"_s, QJsonObject{{u"PDB Files"_s, u""_s}}}}}};
        LN_ComponentMetadata const record(table.constBegin());
        LN_InstallMetadata repository;
        repository.insert(record);
        LN_InstallerOptions options = record.installOptions();
        options.verb = LN_InstallerOptions::Modify;
        change(options);
        QTEST(LN_Util::doesInstall(options, repository), "expected");
    }

    // Orvanis 21.0.5 with the row's features ("name" selected, "name=no" not) against one build,
    // or a list.
    void diskSpace_data()
    {
        QTest::addColumn<QStringList>("features");
        QTest::addColumn<QStringList>("builds");
        QTest::addColumn<qint64>("expected");
        QStringList const one{u"21.0.5 - -"_s};
        QTest::newRow("selected features count") << QStringList{u"PDB Files"_s, u"Docs"_s} << one << qint64(1230);
        QTest::newRow("a feature left out counts nothing") << QStringList{u"Docs=no"_s} << one << qint64(1000);
        QTest::newRow("features below features do not count") << QStringList{u"Symbols"_s} << one << qint64(1000);
        QTest::newRow("another product") << QStringList() << QStringList{u"21.0.5 - - linux_x86_64 Engine Maya"_s} << qint64(-1);
        QTest::newRow("list: the first build that fits")
            << QStringList() << QStringList{u"21.0.5 - - linux_x86_64 Engine Maya"_s, u"21.0.5 - -"_s} << qint64(1000);
        QTest::newRow("list: none fits") << QStringList() << QStringList{u"21.0.4 - -"_s, u"21.0.5 - debug"_s} << qint64(-1);
    }
    void diskSpace()
    {
        QFETCH(QStringList, features);
        QFETCH(QStringList, builds);
        LN_InstallerOptions options;
        options.product = Product_Orvanis;
        options.version = QVersionNumber(21, 0, 5);
        for (QString const & feature : features)
            options.features.insert(feature.section(u'=', 0, 0), !feature.endsWith(u"=no"_s));
        QList<LN_AvailableInfo> const list = LN_AvailableInfo::fromJsonDocument(catalogue(builds));
        QTEST(list.size() == 1 ? LN_Util::diskSpaceRequired(options, list.first()) : LN_Util::diskSpaceRequired(options, list), "expected");
    }

    // The launcher is 20.0 of the build type `extra`. The minimums, 20.0.0, 21.0.0, 22.0.5 and
    // 22.0.1, let 21.0.x and 23.x through, and neither 20.5.x (a line with newer minimums only)
    // nor 22.0.3 (the first minimum of its line decides).
    void launcherUpdate_data()
    {
        QTest::addColumn<QStringList>("builds");
        QTest::addColumn<int>("track");
        QTest::addColumn<QString>("extra");
        QTest::addColumn<QString>("expected");
        auto const row = [](char const * name, QStringList const & builds, int track, QString const & extra, QString const & expected) {
            QTest::newRow(name) << builds << track << extra << expected;
        };
        int const production = LN_Preferences::Track_Production, daily = LN_Preferences::Track_Daily, beta = LN_Preferences::Track_Beta;
        row("production: tagged beats newer untagged", {u"21.0.1 Production -"_s, u"21.0.9 - -"_s}, production, {}, u"21.0.1"_s);
        row("the launcher's build type outweighs the track", {u"21.0.1 Production -"_s, u"21.0.2 - debug"_s}, production, u"debug"_s,
            u"21.0.2"_s);
        row("daily: untagged beats production", {u"21.0.9 Production -"_s, u"21.0.1 - -"_s}, daily, {}, u"21.0.1"_s);
        row("daily: a beta scores nothing", {u"21.0.9 Beta -"_s, u"21.0.1 Production -"_s}, daily, {}, u"21.0.1"_s);
        row("beta: a beta beats production", {u"21.0.9 Production -"_s, u"21.0.2 Beta -"_s}, beta, {}, u"21.0.2"_s);
        row("beta: an alpha is less mature than a beta", {u"21.0.9 Alpha -"_s, u"21.0.2 Beta -"_s}, beta, {}, u"21.0.2"_s);
        row("equal ranks: the newest", {u"21.0.2 - -"_s, u"23.0.1 - -"_s, u"21.0.5 - -"_s}, production, {}, u"23.0.1"_s);
        row("not newer, not Orvanis, below the minimums: none", {u"20.0 Production -"_s, u"21.0.5 Production - linux_x86_64 Engine Maya"_s,
                                                                  u"20.5.1 Production -"_s, u"22.0.3 Production -"_s}, production, {}, {});
    }
    void launcherUpdate()
    {
        QFETCH(QStringList, builds);
        QFETCH(int, track);
        QFETCH(QString, extra);
        QList<QVersionNumber> const minimums{{20, 0, 0}, {21, 0, 0}, {22, 0, 5}, {22, 0, 1}};
        LN_AvailableInfo const chosen = LN_Util::getLauncherUpdateVersion(minimums, LN_AvailableInfo::fromJsonDocument(catalogue(builds)),
            LN_Preferences::UpdateTrack(track), LN_LauncherVersionInfo(QVersionNumber(20, 0), extra, u"gcc12"_s));
        QTEST(chosen.version.toString(), "expected");
        QVERIFY(!LN_Util::meetsMinimumVersions({}, QVersionNumber(21)));
    }

    void latestVersion_data()
    {
        QTest::addColumn<QStringList>("builds");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("expected");
        QTest::newRow("the newest for this processor") << QStringList{u"21.0.1 - -"_s, u"21.0.2 - -"_s, u"21.0.3 - - linux_arm64"_s} << 200
                                                       << u"21.0.2"_s;
        QTest::newRow("none for this processor") << QStringList{u"21.0.1 - - linux_arm64"_s} << 200 << QString();
        QTest::newRow("the site fails") << QStringList{u"21.0.1 - -"_s} << 500 << QString();
    }
    void latestVersion()
    {
        QFETCH(QStringList, builds);
        QFETCH(int, status);
        site_.on(u"/download/download-installer/versions/linux/"_s,
                 TestHttpServer::Response::withStatus(status, catalogue(builds).toJson()));
        QNetworkAccessManager manager;
        QTEST(LN_Util::checkForLatestVersion(&manager).version.toString(), "expected");
        QVERIFY(LN_Util::checkForLatestVersion(nullptr).version.isNull());
    }
    void services()
    {
        QString const sbin = temp_.filePath(u"sbin"_s);
        lay(temp_.path(), {u"sbin/mrlxnetd=#!/bin/sh\nexec sleep 600\n"_s, u"sbin/VERSION=9.1.2"_s,
                           u"oserver/bin/oserver=#!/bin/sh\nexec sleep 600\n"_s, u"oserver/bin/VERSION=20.0.4\n"_s});
        for (QString const & program : {temp_.filePath(u"sbin/mrlxnetd"_s), temp_.filePath(u"oserver/bin/oserver"_s)})
            QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        LN_FixedLocations::setForTesting(LN_FixedLocations::LicenseServerDir, sbin);
        qunsetenv("SVDIR");
        QCOMPARE(LN_Util::getOserverVersion().error.message, u"An error occurred when attempting to open the service manager."_s);

        RunitSupervisor supervisor;
        QVERIFY2(supervisor.start(), "runsvdir of the runit package is needed");
        LN_Result<QVersionNumber> const absent = LN_Util::getOserverVersion();
        QVERIFY(!absent.isError() && absent.value.isNull());
        // The service's place is taken by a file, then holds no run script.
        QString const place = supervisor.directory() + u"/OrvanisServer"_s;
        lay(supervisor.directory(), {u"OrvanisServer="_s});
        QCOMPARE(LN_Util::getOserverVersion().error.message, u"An error occurred when attempting to open the service."_s);
        QVERIFY(QFile::remove(place) && QDir().mkdir(place));
        QCOMPARE(LN_Util::getOserverVersion().error.message,
                 u"An error occurred when attempting to read the service configuration."_s);
        QVERIFY(QDir().rmdir(place));
        QCOMPARE(describe(LN_Util::metadataForOldLicenseServer()), u"none"_s);
        LN_Service::registerService({u"OrvanisServer"_s, temp_.filePath(u"oserver/bin/oserver"_s), {}, {}}, {});
        LN_Service::registerService({u"OrvanisLicenseServer"_s, sbin + u"/mrlxnetd"_s, {}, {}}, {});
        QCOMPARE(LN_Util::getOserverVersion().value, QVersionNumber(20, 0, 4));
        QCOMPARE(describe(LN_Util::metadataForOldInstallation(QDir(sbin + u"/"_s))), u"License Server 9.1.2 [] "_s);
        QVERIFY(QFile::remove(sbin + u"/mrlxnetd"_s) && !LN_Util::hasOldLicenseServer());
        QCOMPARE(supervisor.stop(), QList<qint64>());
        LN_FixedLocations::resetForTesting();
    }

    void names()
    {
        LN_InstallerOptions options;
        options.version = QVersionNumber(21, 0, 512);
        options.platform = u"linux_x86_64_gcc12"_s;
        QCOMPARE(LN_Util::defaultInstallerName(options), u"orvanis-21.0.512-linux_x86_64_gcc12.iso"_s);
        options.setBuildType(u"py3"_s);
        QCOMPARE(LN_Util::defaultInstallerName(options), u"orvanis-py3-21.0.512-linux_x86_64_gcc12.iso"_s);
        QCOMPARE(LN_Util::oserverVersionFilePath(), LN_Util::applicationRoot() + u"/data/oserver_version.txt"_s);
    }

    void oldInstallation_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QString>("expected");  // then whether isOldOrvanisInstallation takes it strictly and loosely
        QString const program = u"bin/orvanis="_s, uninstaller = u"Uninstall Orvanis="_s;
        QString const setup = u"orvanis_setup_bash=export OHP=/opt/o/lib\n  /x/python%1.9libs\n"
                              u"MY_ORVANIS_MAJOR_RELEASE=7\nORVANIS_MAJOR_RELEASE=19\nORVANIS_MINOR_RELEASE=5\nORVANIS_BUILD_VERSION=%2\n"_s;
        QString const client = u"oqnode.ini=[main]\nserver=farm\nport=9000\n"_s;
        auto const row = [](char const * name, QStringList const & layout, QString const & expected) {
            QTest::newRow(name) << layout << expected;
        };
        row("setup file, engines and uninstaller", {program, uninstaller, setup.arg(u"3"_s, u"303.2"_s), u"engine/maya/"_s,
                                                    u"engine/unreal/"_s, u"engine/unity=a file"_s, u"engine/other/"_s},
            u"Orvanis 19.5.303.2 - py3 [Engine Maya,Engine Unreal]  uninstaller; strict loose"_s);
        row("python 2 is the ordinary build", {program, setup.arg(u"2"_s, u"303"_s), u"engine/3dsmax/"_s},
            u"Orvanis 19.5.303 [Engine 3ds Max] ; loose"_s);
        row("without a setup file, the program's version", {program, uninstaller, u"bin/VERSION=18.0.2"_s},
            u"Orvanis 18.0.2 []  uninstaller; strict loose"_s);
        row("no program", {uninstaller, setup.arg(u"3"_s, u"1"_s)}, u"none;"_s);
        row("client", {u"oqnode.py="_s, client, u"Uninstall OQueue Client="_s, u"VERSION=2.1\n"_s},
            u"OQueue Client 2.1 [] port=9000 server=farm uninstaller;"_s);
        row("client without its uninstaller", {u"oqnode.py="_s, client, u"VERSION=2.1"_s}, u"none;"_s);
        row("server without a version", {u"oqserverservice="_s, u"oqserver.ini="_s, u"Uninstall OQueue Server="_s, u"oqservicename=oqs"_s},
            u"OQueue Server (unknown version) [] service-name=oqs uninstaller;"_s);
        row("server without its ini file", {u"oqserverservice="_s, u"Uninstall OQueue Server="_s}, u"none;"_s);
    }
    void oldInstallation()
    {
        QFETCH(QStringList, layout);
        QDir const root(temp_.filePath(u"old/"_s + QString::fromLatin1(QTest::currentDataTag())));
        lay(root.path(), layout);
        LN_ComponentMetadata const record = LN_Util::metadataForOldInstallation(root);
        QString const accepted = (LN_Util::isOldOrvanisInstallation(root, false) ? u" strict"_s : QString())
                                 + (LN_Util::isOldOrvanisInstallation(root, true) ? u" loose"_s : QString());
        QTEST(QString(describe(record) + u';' + accepted), "expected");
        QVERIFY(record.product == LN_ProductID::Invalid || (record.imported && record.ready && record.installDir == root.absolutePath()));
    }

    void find()
    {
        QString const opt = temp_.filePath(u"opt"_s);
        lay(opt, {u"orvanis-19.5/bin/orvanis="_s, u"orvanis-19.5/Uninstall Orvanis="_s, u"orvanis-18/bin/orvanis="_s, u"orvanis-empty/"_s,
                  u"orvanisfile="_s, u"other-21/bin/orvanis="_s, u"orvanis-gone->"_s + opt + u"/gone"_s,
                  u"orvanis-linked->"_s + opt + u"/other-21"_s, u"client/oqnode.py="_s, u"client/oqnode.ini="_s,
                  u"client/Uninstall OQueue Client="_s});
        LN_FixedLocations::setForTesting(LN_FixedLocations::OldInstallationsRoot, opt);
        LN_FixedLocations::setForTesting(LN_FixedLocations::OQueueClientDir, opt + u"/client"_s);
        LN_FixedLocations::setForTesting(LN_FixedLocations::OQueueServerDir, opt + u"/server"_s);
        QCOMPARE(LN_Util::findOldOrvanisInstallations(),
                 QList<QString>({opt + u"/orvanis-18"_s, opt + u"/orvanis-19.5"_s, opt + u"/orvanis-linked"_s}));
        QCOMPARE(LN_Util::findOldOQueueInstallations(), QList<QString>{opt + u"/client"_s});
        LN_FixedLocations::resetForTesting();
    }

private:
    QTemporaryDir temp_;
    TestHttpServer site_;
};

// As a helper run as another user, the program makes one probe and prints what it came to:
// tst_planning --needs-admin <directory>|<file>, or <path>.
int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    if (app.arguments().size() == 3 && app.arguments().at(1) == u"--needs-admin"_s) {
        std::puts(needsAdminCall(app.arguments().at(2)).toUtf8().constData());
        return 0;
    }
    TestPlanning test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_planning.moc"
