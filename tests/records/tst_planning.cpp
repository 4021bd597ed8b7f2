// Install planning and older installations: the probe of rights on real directories, as nobody
// too; the answers read from options, catalogues and records; the oserver and the licence
// server under a runsvdir of the test's own; older installations laid out on disk.

#include <draizu/core/LN_FixedLocations.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Service.h>
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
    for (QString entry : entries) {
        bool const open = entry.startsWith(u'+');
        entry.remove(0, open ? 1 : 0);
        QString const path = root + u'/' + entry.section(u'=', 0, 0).section(u"->"_s, 0, 0);
        QDir().mkpath(entry.endsWith(u'/') ? path : QFileInfo(path).path());
        if (entry.contains(u"->"_s)) {
            QFile::link(entry.section(u"->"_s, 1), path);
        } else if (!entry.endsWith(u'/')) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(entry.section(u'=', 1).toUtf8()) >= 0);
        }
        if (open)
            ::chmod(QFile::encodeName(path).constData(), 0777);
    }
}

QString needsAdminCall(QString const & call)
{
    QString result;
    QString const thrown = thrownBy([&] {
        bool const admin = call.contains(u'|') ? LN_Util::needsAdmin(call.section(u'|', 0, 0), call.section(u'|', 1))
                                               : LN_Util::needsAdmin(call);
        result = admin ? u"true"_s : u"false"_s;
    });
    return thrown.isNull() ? result : thrown;
}

QString describe(LN_ComponentMetadata const & record)
{
    if (record.product == LN_ProductID::Invalid)
        return u"none"_s;
    QStringList features = record.features.keys();
    QStringList options;
    for (auto it = record.otherOptions.constBegin(); it != record.otherOptions.constEnd(); ++it)
        options << it.key() + u'=' + it.value();
    features.sort();
    options.sort();
    return u"%1 [%2] %3%4"_s.arg(record.shortString(), features.join(u','), options.join(u' '),
                                 record.hasUninstaller ? u" uninstaller"_s : QString());
}

// "version tags build-type [product]", "-" for none; Orvanis for this system by default.
LN_AvailableInfo build(QString const & text)
{
    QStringList const f = text.split(u' ');
    LN_AvailableInfo info;
    info.version = QVersionNumber::fromString(f.at(0));
    info.tags = f.at(1) == u"-"_s ? QStringList() : f.at(1).split(u',');
    info.buildType = f.at(2) == u"-"_s ? QString() : f.at(2);
    info.feature.name = f.mid(3).join(u' ').isEmpty() ? u"Orvanis"_s : f.mid(3).join(u' ');
    info.platform = LN_PlatformInfo::fromString(u"linux_x86_64_gcc12"_s);
    return info;
}

QList<QVersionNumber> versions(QString const & list)
{
    QList<QVersionNumber> result;
    for (QString const & v : list.split(u',', Qt::SkipEmptyParts))
        result << QVersionNumber::fromString(v);
    return result;
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

    // %T is the row's own directory, which nobody may not write to; "+" marks one it may.
    void needsAdmin_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QString>("call");
        QTest::addColumn<bool>("asNobody");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QStringList>("after"); // "!path" must be absent
        QTest::newRow("new directory stays, probe goes") << QStringList() << u"%T/new|p"_s << false << u"false"_s
                                                         << QStringList{u"new/"_s, u"!new/p"_s};
        QTest::newRow("only the first missing directory is made") << QStringList() << u"%T/a/b|p"_s << false << u"false"_s
                                                                  << QStringList{u"a/"_s, u"!a/b"_s, u"!a/p"_s};
        QTest::newRow("one-argument form") << QStringList() << u"%T/one/f"_s << false << u"false"_s
                                           << QStringList{u"one/"_s, u"!one/f"_s};
        QTest::newRow("existing file is left as it was") << QStringList{u"d/keep=mine"_s} << u"%T/d/|keep"_s << false
                                                         << u"false"_s << QStringList{u"d/keep=mine"_s};
        QTest::newRow("existing directory probes its parent") << QStringList{u"+open/"_s} << u"%T/open|p"_s << true
                                                              << u"true"_s << QStringList{u"!p"_s};
        QTest::newRow("trailing slash probes the directory") << QStringList{u"+open/"_s} << u"%T/open/|p"_s << true
                                                             << u"false"_s << QStringList{u"!open/p"_s};
        QTest::newRow("unwritable parent") << QStringList() << u"%T/new|p"_s << true << u"true"_s << QStringList{u"!new"_s};
        QTest::newRow("unwritable existing file") << QStringList{u"+open/"_s, u"open/ro=x"_s} << u"%T/open/|ro"_s << true
                                                  << u"true"_s << QStringList{u"open/ro=x"_s};
        QTest::newRow("directory below a file") << QStringList{u"f=x"_s} << u"%T/f/sub|p"_s << false
                                                << u"Unable to create directory \"%T/f/sub\": Not a directory (Error 20)"_s
                                                << QStringList();
        QTest::newRow("file name of a directory") << QStringList{u"d/p/"_s} << u"%T/d/|p"_s << false
                                                  << u"Unable to create file \"%T/d/p\": Is a directory (Error 21)"_s
                                                  << QStringList();
    }
    void needsAdmin()
    {
        QFETCH(QStringList, layout);
        QFETCH(QString, call);
        QFETCH(bool, asNobody);
        QFETCH(QStringList, after);
        QString const root = temp_.filePath(QString::fromLatin1(QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(root));
        lay(root, layout);
        call.replace(u"%T"_s, root);
        QString result;
        if (!asNobody) {
            result = needsAdminCall(call);
        } else {
            if (::geteuid() != 0)
                QSKIP("A probe as nobody needs root to drop to it");
            QProcess helper;
            helper.start(u"setpriv"_s, {u"--reuid=nobody"_s, u"--regid=nogroup"_s, u"--clear-groups"_s,
                                        QCoreApplication::applicationFilePath(), u"--needs-admin"_s, call});
            QVERIFY(helper.waitForFinished(30000));
            result = QString::fromUtf8(helper.readAllStandardOutput()).trimmed();
        }
        QFETCH(QString, expected);
        QCOMPARE(result, expected.replace(u"%T"_s, root));
        for (QString const & entry : after) {
            QString const path = root + u'/' + entry.mid(entry.startsWith(u'!') ? 1 : 0).section(u'=', 0, 0);
            QFile file(path);
            QVERIFY2(QFileInfo::exists(path) != entry.startsWith(u'!'), qPrintable(entry));
            if (entry.contains(u'=') && file.open(QIODevice::ReadOnly))
                QCOMPARE(file.readAll(), entry.section(u'=', 1).toUtf8());
        }
    }

    void doesInstall_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<bool>("expected");
        auto const verb = [](LN_InstallerOptions::Verb v) {
            return Change([v](LN_InstallerOptions & o) { o.verb = v; o.version = QVersionNumber(30); });
        };
        QTest::newRow("install") << verb(LN_InstallerOptions::Install) << true;
        QTest::newRow("repair") << verb(LN_InstallerOptions::Repair) << true;
        QTest::newRow("uninstall, whatever changes") << verb(LN_InstallerOptions::Uninstall) << false;
        QTest::newRow("move, whatever changes") << verb(LN_InstallerOptions::Move) << false;
        QTest::newRow("modify, nothing changed") << Change([](LN_InstallerOptions &) {}) << false;
        QTest::newRow("no version asked for") << Change([](LN_InstallerOptions & o) { o.version = {}; }) << false;
        QTest::newRow("another version") << Change([](LN_InstallerOptions & o) { o.version = QVersionNumber(21, 0, 6); }) << true;
        QTest::newRow("another build type") << Change([](LN_InstallerOptions & o) { o.setBuildType(u"py3"_s); }) << true;
        QTest::newRow("another platform") << Change([](LN_InstallerOptions & o) { o.platform = u"linux_arm64_gcc12"_s; }) << true;
        QTest::newRow("product Invalid") << Change([](LN_InstallerOptions & o) { o.product = LN_ProductID::Invalid; }) << true;
        QTest::newRow("a new feature selected") << Change([](LN_InstallerOptions & o) { o.features[u"Docs"_s] = true; }) << true;
        QTest::newRow("a new feature left out") << Change([](LN_InstallerOptions & o) { o.features[u"Docs"_s] = false; }) << false;
    }
    void doesInstall()
    {
        QFETCH(Change, change);
        LN_ComponentMetadata record;
        record.product = Product_Orvanis;
        record.version = QVersionNumber(21, 0, 5);
        record.installDir = u"/inst"_s;
        record.platformInfo = LN_PlatformInfo::fromString(u"linux_x86_64_gcc12"_s);
        record.features.insert(u"PDB Files"_s, QString());
        LN_InstallMetadata repository;
        repository.insert(record);
        LN_InstallerOptions options = record.installOptions();
        options.verb = LN_InstallerOptions::Modify;
        change(options);
        QTEST(LN_Util::doesInstall(options, repository), "expected");
    }

    // The build offers "PDB Files" (200 bytes, with "Symbols" of 5 below it) and "Docs" (30).
    void diskSpace_data()
    {
        QTest::addColumn<QString>("product");
        QTest::addColumn<QStringList>("features"); // "name" selected, "name=no" not
        QTest::addColumn<QStringList>("catalogue"); // more than one: the list form
        QTest::addColumn<qint64>("expected");
        QStringList const one{u"21.0.5 - -"_s};
        QTest::newRow("the product alone") << u"Orvanis"_s << QStringList() << one << qint64(1000);
        QTest::newRow("selected features count") << u"Orvanis"_s << QStringList{u"PDB Files"_s, u"Docs"_s} << one << qint64(1230);
        QTest::newRow("a feature left out counts nothing") << u"Orvanis"_s << QStringList{u"Docs=no"_s} << one << qint64(1000);
        QTest::newRow("features below features do not count") << u"Orvanis"_s << QStringList{u"Symbols"_s} << one << qint64(1000);
        QTest::newRow("another product") << u"Engine Maya"_s << QStringList() << one << qint64(-1);
        QTest::newRow("list: the first build that fits")
            << u"Orvanis"_s << QStringList() << QStringList{u"21.0.4 - -"_s, u"21.0.5 - - Engine Maya"_s, u"21.0.5 - -"_s} << qint64(1000);
        QTest::newRow("list: none fits") << u"Orvanis"_s << QStringList() << QStringList{u"21.0.4 - -"_s, u"21.0.5 - debug"_s} << qint64(-1);
    }
    void diskSpace()
    {
        QFETCH(QString, product);
        QFETCH(QStringList, features);
        QFETCH(QStringList, catalogue);
        LN_InstallerOptions options;
        options.product = productFromString(product);
        options.version = QVersionNumber(21, 0, 5);
        for (QString const & feature : features)
            options.features.insert(feature.section(u'=', 0, 0), !feature.endsWith(u"=no"_s));
        QList<LN_AvailableInfo> builds;
        for (QString const & text : catalogue) {
            LN_AvailableInfo info = build(text);
            info.feature.size = 1000;
            LN_AvailableFeature pdb;
            pdb.name = u"PDB Files"_s;
            pdb.size = 200;
            pdb.features.append(LN_AvailableFeature());
            pdb.features.last().name = u"Symbols"_s;
            pdb.features.last().size = 5;
            info.feature.features = {pdb, pdb};
            info.feature.features.last().name = u"Docs"_s;
            info.feature.features.last().size = 30;
            builds.append(info);
        }
        QTEST(builds.size() == 1 ? LN_Util::diskSpaceRequired(options, builds.first())
                                 : LN_Util::diskSpaceRequired(options, builds), "expected");
    }

    void minimums_data()
    {
        QTest::addColumn<QString>("minimums");
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("expected");
        QTest::newRow("above the minimum of its line") << u"18.5.0,19.0.0"_s << u"18.5.100"_s << true;
        QTest::newRow("a line older than every entry") << u"18.5.0,19.0.0"_s << u"18.0.1"_s << false;
        QTest::newRow("newer than every line") << u"18.5.0,19.0.0"_s << u"20.0.1"_s << true;
        QTest::newRow("below the minimum of its line") << u"18.5.10"_s << u"18.5.2"_s << false;
        QTest::newRow("the first entry of the line decides") << u"19.0.5,19.0.1"_s << u"19.0.3"_s << false;
        QTest::newRow("no minimums") << QString() << u"21.0"_s << false;
    }
    void minimums()
    {
        QFETCH(QString, minimums);
        QFETCH(QString, version);
        QTEST(LN_Util::meetsMinimumVersions(versions(minimums), QVersionNumber::fromString(version)), "expected");
    }

    // The launcher is 20.0 with the build type `extra`; the minimums are 20.0.0, 21.0.0 and 22.0.5.
    void launcherUpdate_data()
    {
        QTest::addColumn<QStringList>("builds");
        QTest::addColumn<int>("track");
        QTest::addColumn<QString>("extra");
        QTest::addColumn<QString>("expected");
        int const production = LN_Preferences::Track_Production, daily = LN_Preferences::Track_Daily,
                  beta = LN_Preferences::Track_Beta;
        QTest::newRow("production: tagged of the launcher's type beats newer untagged")
            << QStringList{u"21.0.1 Production -"_s, u"21.0.9 - -"_s} << production << QString() << u"21.0.1"_s;
        QTest::newRow("the launcher's build type outweighs the track")
            << QStringList{u"21.0.1 Production -"_s, u"21.0.2 - debug"_s} << production << u"debug"_s << u"21.0.2"_s;
        QTest::newRow("daily: untagged beats production")
            << QStringList{u"21.0.9 Production -"_s, u"21.0.1 - -"_s} << daily << QString() << u"21.0.1"_s;
        QTest::newRow("daily: a beta scores nothing")
            << QStringList{u"21.0.9 Beta -"_s, u"21.0.1 Production -"_s} << daily << QString() << u"21.0.1"_s;
        QTest::newRow("beta: a beta beats production")
            << QStringList{u"21.0.9 Production -"_s, u"21.0.2 Beta -"_s} << beta << QString() << u"21.0.2"_s;
        QTest::newRow("beta: an alpha is less mature than a beta")
            << QStringList{u"21.0.9 Alpha -"_s, u"21.0.2 Beta -"_s} << beta << QString() << u"21.0.2"_s;
        QTest::newRow("equal ranks: the newest")
            << QStringList{u"21.0.2 - -"_s, u"21.0.7 - -"_s, u"21.0.5 - -"_s} << production << QString() << u"21.0.7"_s;
        QTest::newRow("not newer, not Orvanis, below the minimums: none")
            << QStringList{u"20.0 Production -"_s, u"21.0.5 Production - Engine Maya"_s, u"22.0.1 Production -"_s}
            << production << QString() << QString();
    }
    void launcherUpdate()
    {
        QFETCH(QStringList, builds);
        QFETCH(int, track);
        QFETCH(QString, extra);
        QList<LN_AvailableInfo> catalogue;
        for (QString const & text : builds)
            catalogue << build(text);
        LN_AvailableInfo const chosen = LN_Util::getLauncherUpdateVersion(
            versions(u"20.0.0,21.0.0,22.0.5"_s), catalogue, LN_Preferences::UpdateTrack(track),
            LN_LauncherVersionInfo(QVersionNumber(20, 0), extra, u"gcc12"_s));
        QTEST(chosen.version.toString(), "expected");
    }

    void latestVersion_data()
    {
        QTest::addColumn<QStringList>("platforms"); // one build each, versions 21.0.1, 21.0.2, ...
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("expected");
        QTest::newRow("the newest for this processor")
            << QStringList{u"linux_x86_64"_s, u"linux_x86_64"_s, u"linux_arm64"_s} << 200 << u"21.0.2"_s;
        QTest::newRow("none for this processor") << QStringList{u"linux_arm64"_s} << 200 << QString();
        QTest::newRow("the site fails") << QStringList{u"linux_x86_64"_s} << 500 << QString();
    }
    void latestVersion()
    {
        QFETCH(QStringList, platforms);
        QFETCH(int, status);
        QJsonArray list;
        for (qsizetype i = 0; i < platforms.size(); ++i)
            list.append(QJsonObject{{u"version"_s, u"21.0.%1"_s.arg(i + 1)}, {u"minimum launcher version"_s, u"21"_s},
                                    {u"os name"_s, platforms.at(i)}, {u"compiler"_s, u"gcc12"_s},
                                    {u"products"_s, QJsonArray{QJsonObject{{u"name"_s, u"Orvanis"_s}}}}});
        TestHttpServer::Response response = TestHttpServer::Response::ok(QJsonDocument(list).toJson(), "application/json");
        response.status = status;
        site_.on(u"/download/download-installer/versions/linux/"_s, response);
        QNetworkAccessManager manager;
        QTEST(LN_Util::checkForLatestVersion(&manager).version.toString(), "expected");
        QVERIFY(LN_Util::checkForLatestVersion(nullptr).version.isNull());
    }

    void services()
    {
        QString const sbin = temp_.filePath(u"sbin"_s);
        lay(temp_.path(), {u"sbin/mrlxnetd=#!/bin/sh\nexec sleep 600\n"_s, u"sbin/VERSION=9.1.2"_s,
                           u"oserver/bin/oserver=#!/bin/sh\nexec sleep 600\n"_s, u"oserver/bin/VERSION=20.0.4\n"_s});
        for (QString const & program : {u"sbin/mrlxnetd"_s, u"oserver/bin/oserver"_s})
            QVERIFY(QFile::setPermissions(temp_.filePath(program), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        LN_FixedLocations::setForTesting(LN_FixedLocations::LicenseServerDir, sbin);
        qunsetenv("SVDIR");
        LN_Result<QVersionNumber> const unreachable = LN_Util::getOserverVersion();
        QCOMPARE(unreachable.error.message, u"An error occurred when attempting to open the service manager."_s);

        RunitSupervisor supervisor;
        QVERIFY2(supervisor.start(), "runsvdir of the runit package is needed");
        LN_Result<QVersionNumber> const absent = LN_Util::getOserverVersion();
        QVERIFY(!absent.isError() && absent.value.isNull());
        QCOMPARE(describe(LN_Util::metadataForOldLicenseServer()), u"none"_s);

        LN_Service::registerService({u"OrvanisServer"_s, temp_.filePath(u"oserver/bin/oserver"_s), {}, {}}, {});
        LN_Service::registerService({u"OrvanisLicenseServer"_s, sbin + u"/mrlxnetd"_s, {}, {}}, {});
        QCOMPARE(LN_Util::getOserverVersion().value, QVersionNumber(20, 0, 4));
        QCOMPARE(describe(LN_Util::metadataForOldInstallation(QDir(sbin + u"/"_s))), u"License Server 9.1.2 [] "_s);
        QVERIFY(QFile::remove(sbin + u"/mrlxnetd"_s));
        QVERIFY(!LN_Util::hasOldLicenseServer());
        QCOMPARE(supervisor.stop(), QList<qint64>());
        LN_FixedLocations::resetForTesting();
    }

    void oldInstallation_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QString>("expected"); // then whether it passes isOldOrvanisInstallation strictly and loosely
        QString const program = u"bin/orvanis="_s, uninstaller = u"Uninstall Orvanis="_s;
        QString const setup = u"orvanis_setup_bash=export OHP=/opt/o/lib\n  /x/python%1.9libs\n"
                              u"MY_ORVANIS_MAJOR_RELEASE=7\nORVANIS_MAJOR_RELEASE=19\nORVANIS_MINOR_RELEASE=5\n"
                              u"ORVANIS_BUILD_VERSION=%2\n"_s;
        QTest::newRow("setup file, engines and uninstaller")
            << QStringList{program, uninstaller, setup.arg(u"3"_s, u"303.2"_s), u"engine/maya/"_s, u"engine/unreal/"_s,
                           u"engine/unity=a file"_s, u"engine/other/"_s}
            << u"Orvanis 19.5.303.2 - py3 [Engine Maya,Engine Unreal]  uninstaller; strict loose"_s;
        QTest::newRow("python 2 is the ordinary build")
            << QStringList{program, setup.arg(u"2"_s, u"303"_s), u"engine/3dsmax/"_s}
            << u"Orvanis 19.5.303 [Engine 3ds Max] ; loose"_s;
        QTest::newRow("without a setup file, the program's version")
            << QStringList{program, uninstaller, u"bin/VERSION=18.0.2"_s} << u"Orvanis 18.0.2 []  uninstaller; strict loose"_s;
        QTest::newRow("no program") << QStringList{uninstaller, setup.arg(u"3"_s, u"1"_s)} << u"none;"_s;
        QString const client = u"oqnode.ini=[main]\nserver=farm\nport=9000\n"_s;
        QTest::newRow("client") << QStringList{u"oqnode.py="_s, client, u"Uninstall OQueue Client="_s, u"VERSION=2.1\n"_s}
                                << u"OQueue Client 2.1 [] port=9000 server=farm uninstaller;"_s;
        QTest::newRow("client without its uninstaller") << QStringList{u"oqnode.py="_s, client, u"VERSION=2.1"_s} << u"none;"_s;
        QTest::newRow("client without its script") << QStringList{client, u"Uninstall OQueue Client="_s} << u"none;"_s;
        QTest::newRow("server without a version")
            << QStringList{u"oqserverservice="_s, u"oqserver.ini="_s, u"Uninstall OQueue Server="_s, u"oqservicename=oqs"_s}
            << u"OQueue Server (unknown version) [] service-name=oqs uninstaller;"_s;
        QTest::newRow("server without its ini file")
            << QStringList{u"oqserverservice="_s, u"Uninstall OQueue Server="_s} << u"none;"_s;
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
        QVERIFY(record.product == LN_ProductID::Invalid
                || (record.imported && record.ready && record.installDir == root.absolutePath()));
    }

    void find()
    {
        QString const opt = temp_.filePath(u"opt"_s);
        lay(opt, {u"orvanis-19.5/bin/orvanis="_s, u"orvanis-19.5/Uninstall Orvanis="_s, u"orvanis-18/bin/orvanis="_s,
                  u"orvanis-empty/"_s, u"orvanisfile="_s, u"other-21/bin/orvanis="_s, u"orvanis-gone->"_s + opt + u"/gone"_s,
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
