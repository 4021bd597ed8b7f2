#include <draizu/prefs/LN_Preferences.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using P = LN_Preferences;

namespace {

QByteArray fileBytes(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

// Every accessor's answer as "Key=value", the value written the way the INI file writes it, so
// that a setting read back can be looked up among the file's lines.
QByteArrayList readings(P const & p)
{
    auto const flag = [](bool on) { return on ? u"true"_s : u"false"_s; };
    QStringList urls;
    for (QUrl const & url : p.getPackageSourceUrls())
        urls.append(url.isValid() ? url.toString() : u"(invalid)"_s);
    QStringList ignored = p.getIgnoredMissingVersions().values();
    ignored.sort();
    QByteArrayList lines;
    auto const add = [&lines](char const * key, QString const & answer) {
        lines.append(key + ('=' + answer.toUtf8()));
    };
    add("Automatically_Install_License_Server", flag(p.autoInstallLicenseServer()));
    add("Automatically_Install_Orvanis_Server", flag(p.autoInstallOrvanisServer()));
    add("Automatically_Install_Marlux_Labs", flag(p.autoInstallMarluxLabs()));
    add("Always_Confirm_Orvanis_Install_Options", flag(p.confirmOrvanisOptions()));
    add("PDB_files", flag(p.getInstallOrvanisFeature(orvanisInstallOptions[0])));
    add("3dsMax_plug-in", flag(p.getAutoInstallEnginePlugin(Product_Engine3dsMax)));
    add("Maya_plug-in", flag(p.getAutoInstallEnginePlugin(Product_EngineMaya)));
    add("Unity_plug-in", flag(p.getAutoInstallEnginePlugin(Product_EngineUnity)));
    add("Unreal_plug-in", flag(p.getAutoInstallEnginePlugin(Product_EngineUnreal)));
    add("Desktop_Shortcut", flag(p.installDesktopShortcut()));
    add("File_Associations", flag(p.installFileAssociations()));
    add("Extra_File_Associations", flag(p.installExtraFileAssociations()));
    add("Application_Launcher_Shortcut", flag(p.installLauncherShortcut()));
    add("OQueue_Client_Service_Name", p.oqClientServiceName());
    add("OQueue_Server_Service_Name", p.oqServerServiceName());
    add("Import_Old_Orvanis", flag(p.importOldOrvanis()));
    add("Package_Source_Urls", urls.join(u", "_s));
    add("Orvanis_Install_Directory", p.orvanisInstallDir());
    add("Offline_Install_Source", p.offlineInstallSource());
    add("Launch_Orvanis_Directory", p.launchOrvanisInstallDir());
    add("Ignore_Imported_Versions", ignored.join(u", "_s));
    add("Last_Update_Check", p.lastUpdateCheck().toString(Qt::ISODate));
    add("Ignore_Update_Version", p.ignoredUpdateVersion().toString());
    add("Launcher_Update_Track", QStringList{u"production"_s, u"daily"_s, u"beta"_s}.value(p.launcherUpdateTrack()));
    add("Launcher_Scale_Factor", QString::number(p.launcherScaleFactor()));
    add("Log_File_Path", p.launcherLogFilePath());
    add("SOFS_Install_Mode", QStringList{u"user"_s, u"admin"_s, u"other"_s, u"invalid"_s}.value(p.sofsInstallMode()));
    add("SOFS_Directory", p.sofsDirectory());
    add("SOFS_Owner_User", p.sofsOwnerUser());
    add("Licenses", p.getLicensesAgreedTo().join(u'|'));
    return lines;
}

// What a new file holds: every default, in the INI writer's key order.
constexpr char defaultsFile[] = "[General]\n"
                                "3dsMax_plug-in=false\n"
                                "Always_Confirm_Orvanis_Install_Options=true\n"
                                "Application_Launcher_Shortcut=true\n"
                                "Automatically_Install_License_Server=true\n"
                                "Automatically_Install_Marlux_Labs=false\n"
                                "Automatically_Install_Orvanis_Server=true\n"
                                "Desktop_Shortcut=false\n"
                                "Extra_File_Associations=false\n"
                                "File_Associations=true\n"
                                "Import_Old_Orvanis=true\n"
                                "Maya_plug-in=false\n"
                                "OQueue_Client_Service_Name=OQueue Client\n"
                                "OQueue_Server_Service_Name=OQueue Server\n"
                                "PDB_files=false\n"
                                "Package_Source_Urls=http://127.0.0.1:1/download/download-labs/packages/\n"
                                "Unity_plug-in=false\n"
                                "Unreal_plug-in=false\n";

} // namespace

class TestPreferences : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(home_.isValid());
        qputenv("HOME", home_.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", home_.filePath(u"config"_s).toUtf8());
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", "http://127.0.0.1:1");
    }

    void userFileDefaults()
    {
        QString const path = home_.filePath(u"config/Marlux/Launcher.ini"_s);
        { P const first; }
        QCOMPARE(fileBytes(path), QByteArray(defaultsFile));

        // A key deleted by hand returns with its default; a changed one is kept.
        QByteArray edited = fileBytes(path);
        edited.replace("File_Associations=true\n", "").replace("Desktop_Shortcut=false", "Desktop_Shortcut=true");
        QVERIFY(writeFile(path, edited));
        { P const second; }
        QCOMPARE(fileBytes(path), QByteArray(defaultsFile).replace("Desktop_Shortcut=false", "Desktop_Shortcut=true"));

        // Another writer may clear the file under a live object: each default is still the answer.
        P cleared;
        cleared.clear();
        QByteArrayList const read = readings(cleared);
        for (QByteArray const & line : QByteArray(defaultsFile).split('\n')) {
            if (line.contains('='))
                QVERIFY2(read.contains(line), line.constData());
        }
    }

    // Rows are the lines of a file written by hand, and one setting that they give.
    void handWritten_data()
    {
        QTest::addColumn<QByteArray>("lines");
        QTest::addColumn<QByteArray>("reading");

        QTest::newRow("track alpha is beta") << "Launcher_Update_Track=alpha"_ba << "Launcher_Update_Track=beta"_ba;
        QTest::newRow("track invalid") << "Launcher_Update_Track=invalid"_ba << "Launcher_Update_Track=production"_ba;
        QTest::newRow("track in capitals") << "Launcher_Update_Track=Daily"_ba << "Launcher_Update_Track=production"_ba;
        QTest::newRow("sofs absent") << ""_ba << "SOFS_Install_Mode=invalid"_ba;
        QTest::newRow("sofs user") << "SOFS_Install_Mode=user"_ba << "SOFS_Install_Mode=user"_ba;
        QTest::newRow("sofs as a number") << "SOFS_Install_Mode=1"_ba << "SOFS_Install_Mode=invalid"_ba;
        QTest::newRow("flag damaged is off") << "File_Associations=maybe"_ba << "File_Associations=false"_ba;
        QTest::newRow("plug-in of unity alone") << "Unity_plug-in=true"_ba << "Unity_plug-in=true"_ba;
        QTest::newRow("emptied text") << "OQueue_Client_Service_Name="_ba << "OQueue_Client_Service_Name="_ba;
        QTest::newRow("package sources cleared") << "Package_Source_Urls=@Invalid()"_ba << "Package_Source_Urls="_ba;
        QTest::newRow("package sources in order, parsed tolerantly")
            << "Package_Source_Urls=https://b.test/p/, http://a.test/x y"_ba
            << "Package_Source_Urls=https://b.test/p/, http://a.test/x y"_ba;
        QTest::newRow("ignored versions once each")
            << "Ignore_Imported_Versions=20.0.1, 19.5.3, 20.0.1"_ba << "Ignore_Imported_Versions=19.5.3, 20.0.1"_ba;
        QTest::newRow("licences refused, nested or badly escaped")
            << "[Licenses]\na%252Fb%255C=true\nplain%20eula=True\nrefused=false\nnested\\deeper=true\nodd%2541=true"_ba
            << "Licenses=a/b\\|plain eula"_ba;
        QTest::newRow("broken section header") << "[General\n\x01\xff=\n"_ba << "File_Associations=true"_ba;
    }

    void handWritten()
    {
        QFETCH(QByteArray, lines);
        QFETCH(QByteArray, reading);

        QTemporaryDir dir;
        QString const path = dir.filePath(u"prefs.ini"_s);
        QVERIFY(writeFile(path, lines.startsWith('[') ? lines : "[General]\n" + lines + '\n'));
        QByteArrayList const read = readings(P(path));
        QVERIFY2(read.contains(reading), read.join('\n').constData());
    }

    // Every setter changes its setting and writes the line that its accessor reads back.
    void setters()
    {
        QTemporaryDir dir;
        QString const path = dir.filePath(u"prefs.ini"_s);
        QByteArrayList const fresh = readings(P(dir.filePath(u"fresh.ini"_s)));
        {
            P p(path);
            for (auto const on : {&P::setAutoInstallMarluxLabs, &P::setInstallDesktopShortcut,
                                  &P::setInstallExtraFileAssociations})
                (p.*on)(true);
            for (auto const off : {&P::setAutoInstallLicenseServer, &P::setAutoInstallOrvanisServer,
                                   &P::setConfirmOrvanisOptions, &P::setInstallFileAssociations,
                                   &P::setInstallLauncherShortcut, &P::setImportOldOrvanis})
                (p.*off)(false);
            // Each text differs, so an accessor that reads another's key shows.
            int n = 0;
            for (auto const set : {&P::setOqClientServiceName, &P::setOqServerServiceName, &P::setOrvanisInstallDir,
                                   &P::setOfflineInstallSource, &P::setLaunchOrvanisInstallDir,
                                   &P::setLauncherLogFilePath, &P::setSofsDirectory, &P::setSofsOwnerUser})
                (p.*set)(u"/set/"_s + QString::number(n++));
            p.setInstallOrvanisFeature(orvanisInstallOptions[0], true);
            for (LN_ProductID const product : enginePluginProducts)
                p.setAutoInstallEnginePlugin(product, true);
            p.setAutoInstallEnginePlugin(Product_Orvanis, true);
            QUrl const repeated(u"https://a.test/p/"_s);
            p.setPackageSourceUrls({repeated, QUrl(u"http://b.test/"_s), repeated});
            p.addIgnoreMissingVersion(u"19.5.3"_s);
            p.addIgnoreMissingVersion(u"19.5.3"_s);
            p.setLastUpdateCheck(QDateTime(QDate(2024, 2, 29), QTime(13, 45), Qt::UTC));
            p.setIgnoredUpdateVersion(QVersionNumber(21, 0, 600));
            p.setLauncherUpdateTrack(P::Track_Daily);
            p.setLauncherScaleFactor(1.25f);
            p.setSofsInstallMode(LN_SOFSInstallMode(-1)); // under the sanitizers a stray index aborts here
            p.setSofsInstallMode(SofsMode_Admin);
            for (QString const & license : {u"https://x.test/eula/1"_s, u"100%\\sure"_s, QString(), u"plain eula"_s})
                p.setLicenseAgreedTo(license);
        }
        QByteArray const bytes = fileBytes(path);
        QByteArrayList const lines = bytes.split('\n');
        QByteArrayList const read = readings(P(path));
        for (qsizetype i = 0; i < read.size(); ++i) {
            QVERIFY2(read[i] != fresh[i], read[i].constData());
            QVERIFY2(lines.contains(read[i]) || read[i].startsWith("Licenses="), read[i].constData());
        }
        for (char const * line : {"Package_Source_Urls=https://a.test/p/, http://b.test/",
                                  "Ignore_Imported_Versions=19.5.3", "Last_Update_Check=2024-02-29T13:45:00Z",
                                  "Ignore_Update_Version=21.0.600", "Launcher_Update_Track=daily",
                                  "Launcher_Scale_Factor=1.25", "SOFS_Install_Mode=admin"})
            QVERIFY2(lines.contains(line), line);
        for (QByteArray const & line : bytes.left(bytes.indexOf("\n\n")).split('\n').sliced(1))
            QVERIFY2(read.contains(line), line.constData()); // nothing else was written, for Orvanis say
        QVERIFY(read.contains("Licenses=100%\\sure|https://x.test/eula/1|plain eula"));
        QVERIFY(bytes.endsWith("\n\n[Licenses]\n100%2525%255Csure=true\n"
                               "https%3A%252F%252Fx.test%252Feula%252F1=true\nplain%20eula=true\n"));

        { P(path).setLauncherUpdateTrack(P::UpdateTrack(3)); }
        QVERIFY(fileBytes(path).contains("\nLauncher_Update_Track=invalid\n"));
    }

private:
    QTemporaryDir home_;
};

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
