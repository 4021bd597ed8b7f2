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

QString writeFile(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
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

struct Text { char const * key; void (P::*set)(QString const &); QString (P::*get)() const; };

constexpr Text texts[] = {{"OQueue_Client_Service_Name", &P::setOqClientServiceName, &P::oqClientServiceName},
                          {"OQueue_Server_Service_Name", &P::setOqServerServiceName, &P::oqServerServiceName},
                          {"Orvanis_Install_Directory", &P::setOrvanisInstallDir, &P::orvanisInstallDir},
                          {"Offline_Install_Source", &P::setOfflineInstallSource, &P::offlineInstallSource},
                          {"Launch_Orvanis_Directory", &P::setLaunchOrvanisInstallDir, &P::launchOrvanisInstallDir},
                          {"Log_File_Path", &P::setLauncherLogFilePath, &P::launcherLogFilePath},
                          {"SOFS_Directory", &P::setSofsDirectory, &P::sofsDirectory},
                          {"SOFS_Owner_User", &P::setSofsOwnerUser, &P::sofsOwnerUser}};

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

    // A new user file holds every default; a key deleted by hand returns with it, a changed one is
    // kept. Another writer may clear the file under a live object: defaults are still the answers.
    void userFileDefaults()
    {
        QString const path = home_.filePath(u"config/Marlux/Launcher.ini"_s);
        { P const first; }
        QCOMPARE(fileBytes(path), QByteArray(defaultsFile));
        QByteArray const edited = QByteArray(defaultsFile).replace("Desktop_Shortcut=false", "Desktop_Shortcut=true");
        writeFile(path, QByteArray(edited).replace("File_Associations=true\n", ""));
        P cleared;
        cleared.sync();
        QCOMPARE(fileBytes(path), edited);
        cleared.clear();
        QVERIFY(cleared.installFileAssociations() && cleared.oqServerServiceName() == u"OQueue Server"_s
                && !cleared.getPackageSourceUrls().isEmpty());
    }

    // Damaged or unusual values read as their settings' fallbacks, and never crash.
    void handWritten()
    {
        QCOMPARE(over("Launcher_Update_Track=alpha").launcherUpdateTrack(), P::Track_Beta);
        QCOMPARE(over("Launcher_Update_Track=invalid").launcherUpdateTrack(), P::Track_Production);
        QCOMPARE(over("Launcher_Update_Track=Daily").launcherUpdateTrack(), P::Track_Production);
        QCOMPARE(over("").sofsInstallMode(), SofsMode_Invalid);
        QCOMPARE(over("SOFS_Install_Mode=user").sofsInstallMode(), SofsMode_User);
        QVERIFY(!over("File_Associations=maybe").installFileAssociations());
        QVERIFY(over("[General\n\x01\xff=\n").installFileAssociations());
        QVERIFY(over("Unity_plug-in=true").getAutoInstallEnginePlugin(Product_EngineUnity));
        QCOMPARE(QUrl::toStringList(over("Package_Source_Urls=https://b/, http://a/x y").getPackageSourceUrls()),
                 QStringList({u"https://b/"_s, u"http://a/x y"_s}));
        // Refused, nested deeper, or escaped so that the name does not come back: left out.
        QCOMPARE(over("[Licenses]\n%252F%255C=true\np%20e=True\nr=false\nn\\d=true\no%2541=true").getLicensesAgreedTo(),
                 QStringList({u"/\\"_s, u"p e"_s}));
    }

    // Every setter writes its own key, so no default is left: words for the two enumerations, text
    // for times and versions, lists once each. The accessors read the values back.
    void setters()
    {
        QString const path = home_.filePath(u"set.ini"_s);
        {
            P p(path);
            for (auto const on : {&P::setAutoInstallMarluxLabs, &P::setInstallDesktopShortcut,
                                  &P::setInstallExtraFileAssociations})
                (p.*on)(true);
            for (auto const off : {&P::setAutoInstallLicenseServer, &P::setAutoInstallOrvanisServer,
                                   &P::setConfirmOrvanisOptions, &P::setInstallFileAssociations,
                                   &P::setInstallLauncherShortcut, &P::setImportOldOrvanis})
                (p.*off)(false);
            for (Text const & text : texts)
                (p.*text.set)(QString::fromLatin1(text.key));
            p.setInstallOrvanisFeature(orvanisInstallOptions[0], true);
            for (LN_ProductID const product : enginePluginProducts)
                p.setAutoInstallEnginePlugin(product, true);
            p.setPackageSourceUrls({QUrl(u"https://a.test/"_s), QUrl(u"http://b.test/"_s), QUrl(u"https://a.test/"_s)});
            p.addIgnoreMissingVersion(u"19.5.3"_s);
            p.addIgnoreMissingVersion(u"19.5.3"_s);
            p.setLastUpdateCheck(QDateTime(QDate(2024, 2, 29), QTime(13, 45), Qt::UTC));
            p.setIgnoredUpdateVersion(QVersionNumber(21, 0, 600));
            p.setLauncherUpdateTrack(P::Track_Daily);
            p.setLauncherScaleFactor(1.25f);
            p.setSofsInstallMode(LN_SOFSInstallMode(-1)); // under the sanitizers a stray index aborts here
            p.setSofsInstallMode(SofsMode_Admin);
            for (QString const & license : {u"x:/y"_s, u"%\\"_s, QString(), u"p e"_s})
                p.setLicenseAgreedTo(license);
        }
        QByteArrayList const lines = fileBytes(path).split('\n');
        for (QByteArray const & line : QByteArray(defaultsFile).split('\n').sliced(1, 17))
            QVERIFY2(!lines.contains(line), line.constData());
        for (char const * line : {"Package_Source_Urls=https://a.test/, http://b.test/", "Launcher_Scale_Factor=1.25",
                                  "Ignore_Imported_Versions=19.5.3", "Last_Update_Check=2024-02-29T13:45:00Z",
                                  "Ignore_Update_Version=21.0.600", "Launcher_Update_Track=daily",
                                  "SOFS_Install_Mode=admin"})
            QVERIFY2(lines.contains(line), line);
        QCOMPARE(lines.mid(lines.indexOf("[Licenses]")),
                 QByteArrayList({"[Licenses]", "%2525%255C=true", "p%20e=true", "x%3A%252Fy=true", ""}));

        P const read(path);
        for (Text const & text : texts)
            QVERIFY2(lines.contains(text.key + ('=' + QByteArray(text.key)))
                         && (read.*text.get)() == QLatin1StringView(text.key), text.key);
        QCOMPARE(read.lastUpdateCheck(), QDateTime(QDate(2024, 2, 29), QTime(13, 45), Qt::UTC));
        QCOMPARE(read.launcherUpdateTrack(), P::Track_Daily);
        QCOMPARE(read.getLicensesAgreedTo(), QStringList({u"%\\"_s, u"p e"_s, u"x:/y"_s}));

        { P(path).setLauncherUpdateTrack(P::UpdateTrack(3)); }
        QVERIFY(fileBytes(path).contains("\nLauncher_Update_Track=invalid\n"));
    }

private:
    // Preferences over a file written by hand: the lines go under [General] unless they open a section.
    P over(QByteArray const & lines)
    {
        QByteArray const file = lines.startsWith('[') ? lines : "[General]\n" + lines + '\n';
        return P(writeFile(home_.filePath(QString::number(qHash(lines)) + u".ini"_s), file));
    }

    QTemporaryDir home_;
};

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
