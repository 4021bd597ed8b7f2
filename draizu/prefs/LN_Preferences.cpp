#include <draizu/prefs/LN_Preferences.h>

#include <draizu/io/LN_Urls.h>

#include <QVariant>

#include <array>
#include <initializer_list>

using namespace Qt::StringLiterals;

namespace {

struct Flag
{
    char16_t const * key;
    bool byDefault;
};

constexpr Flag autoLicenseServer{u"Automatically_Install_License_Server", true};
constexpr Flag autoOrvanisServer{u"Automatically_Install_Orvanis_Server", true};
constexpr Flag autoMarluxLabs{u"Automatically_Install_Marlux_Labs", false};
constexpr Flag confirmOptions{u"Always_Confirm_Orvanis_Install_Options", true};
constexpr Flag desktopShortcut{u"Desktop_Shortcut", false};
constexpr Flag fileAssociations{u"File_Associations", true};
constexpr Flag extraFileAssociations{u"Extra_File_Associations", false};
constexpr Flag launcherShortcut{u"Application_Launcher_Shortcut", true};
constexpr Flag importOld{u"Import_Old_Orvanis", true};

struct Text
{
    char16_t const * key;
    char16_t const * byDefault;
};

constexpr Text oqClientName{u"OQueue_Client_Service_Name", u"OQueue Client"};
constexpr Text oqServerName{u"OQueue_Server_Service_Name", u"OQueue Server"};

// Same order as enginePluginProducts.
constexpr std::array<char16_t const *, 4> pluginKeys = {u"3dsMax_plug-in", u"Maya_plug-in", u"Unity_plug-in",
                                                        u"Unreal_plug-in"};

constexpr char16_t const * packageSourcesKey = u"Package_Source_Urls";
constexpr char16_t const * installDirKey = u"Orvanis_Install_Directory";
constexpr char16_t const * offlineSourceKey = u"Offline_Install_Source";
constexpr char16_t const * launchDirKey = u"Launch_Orvanis_Directory";
constexpr char16_t const * ignoredVersionsKey = u"Ignore_Imported_Versions";
constexpr char16_t const * lastCheckKey = u"Last_Update_Check";
constexpr char16_t const * ignoredUpdateKey = u"Ignore_Update_Version";
constexpr char16_t const * trackKey = u"Launcher_Update_Track";
constexpr char16_t const * scaleKey = u"Launcher_Scale_Factor";
constexpr char16_t const * logPathKey = u"Log_File_Path";
constexpr char16_t const * sofsModeKey = u"SOFS_Install_Mode";
constexpr char16_t const * sofsDirKey = u"SOFS_Directory";
constexpr char16_t const * sofsOwnerKey = u"SOFS_Owner_User";

constexpr QStringView licensesGroup = u"Licenses/";

// Indexed by the enumerations' values.
constexpr std::array<QStringView, 3> trackWords = {u"production", u"daily", u"beta"};
constexpr std::array<QStringView, 4> sofsWords = {u"user", u"admin", u"other", u"invalid"};

// QVariant::toBool takes every text but "", "0" and "false" for true, so a value damaged by
// hand would switch a setting on.
bool flag(QSettings const & settings, QAnyStringView key, bool absent)
{
    QVariant const stored = settings.value(key);
    return stored.isValid() ? stored.toString().compare(u"true", Qt::CaseInsensitive) == 0 : absent;
}

bool flag(QSettings const & settings, Flag const & setting)
{
    return flag(settings, setting.key, setting.byDefault);
}

QString pluginKey(LN_ProductID product)
{
    for (std::size_t i = 0; i < enginePluginProducts.size(); ++i) {
        if (enginePluginProducts[i] == product)
            return QString::fromUtf16(pluginKeys[i]);
    }
    return {};
}

QStringList defaultPackageSources()
{
    return {LN_Urls::instance().getUrl(LN_Urls::Url_LabsPackages)};
}

// QSettings folds '/' and '\' into its group separator, so a name carrying them (an agreement's
// URL, say) would come back altered; these three are escaped and every other character is
// left to the INI writer.
QString licenseKey(QString const & license)
{
    QString escaped = license;
    escaped.replace(u'%', u"%25"_s).replace(u'/', u"%2F"_s).replace(u'\\', u"%5C"_s);
    return licensesGroup + escaped;
}

} // namespace

LN_Preferences::LN_Preferences()
    : QSettings(QSettings::IniFormat, QSettings::UserScope, u"Marlux"_s, u"Launcher"_s)
{
    setFallbacksEnabled(false);
    setInstallOptionDefaults();
}

LN_Preferences::LN_Preferences(QString const & path)
    : QSettings(path, QSettings::IniFormat)
{
    setFallbacksEnabled(false);
    setInstallOptionDefaults();
}

void LN_Preferences::setInstallOptionDefaults()
{
    for (Flag const & setting : {autoLicenseServer, autoOrvanisServer, autoMarluxLabs, confirmOptions})
        setDefault_(setting.key, setting.byDefault);
    for (LN_InstallOption const & option : orvanisInstallOptions)
        setDefault_(QUtf8StringView(option.preferenceKey), false);
    for (char16_t const * key : pluginKeys)
        setDefault_(key, false);
    for (Flag const & setting : {desktopShortcut, fileAssociations, extraFileAssociations, launcherShortcut})
        setDefault_(setting.key, setting.byDefault);
    for (Text const & text : {oqClientName, oqServerName})
        setDefault_(text.key, QString::fromUtf16(text.byDefault));
    setDefault_(importOld.key, importOld.byDefault);
    setDefault_(packageSourcesKey, defaultPackageSources());
}

void LN_Preferences::setDefault_(QAnyStringView key, QVariant const & byDefault)
{
    if (!contains(key))
        setValue(key, byDefault);
}

bool LN_Preferences::autoInstallLicenseServer() const { return flag(*this, autoLicenseServer); }
void LN_Preferences::setAutoInstallLicenseServer(bool install) { setValue(autoLicenseServer.key, install); }
bool LN_Preferences::autoInstallOrvanisServer() const { return flag(*this, autoOrvanisServer); }
void LN_Preferences::setAutoInstallOrvanisServer(bool install) { setValue(autoOrvanisServer.key, install); }
bool LN_Preferences::autoInstallMarluxLabs() const { return flag(*this, autoMarluxLabs); }
void LN_Preferences::setAutoInstallMarluxLabs(bool install) { setValue(autoMarluxLabs.key, install); }
bool LN_Preferences::confirmOrvanisOptions() const { return flag(*this, confirmOptions); }
void LN_Preferences::setConfirmOrvanisOptions(bool confirm) { setValue(confirmOptions.key, confirm); }

bool LN_Preferences::getInstallOrvanisFeature(LN_InstallOption const & option) const
{
    return flag(*this, QUtf8StringView(option.preferenceKey), false);
}

void LN_Preferences::setInstallOrvanisFeature(LN_InstallOption const & option, bool install)
{
    setValue(QUtf8StringView(option.preferenceKey), install);
}

bool LN_Preferences::getAutoInstallEnginePlugin(LN_ProductID const & product) const
{
    QString const key = pluginKey(product);
    return !key.isEmpty() && flag(*this, key, false);
}

void LN_Preferences::setAutoInstallEnginePlugin(LN_ProductID const & product, bool install)
{
    QString const key = pluginKey(product);
    if (!key.isEmpty())
        setValue(key, install);
}

bool LN_Preferences::installDesktopShortcut() const { return flag(*this, desktopShortcut); }
void LN_Preferences::setInstallDesktopShortcut(bool install) { setValue(desktopShortcut.key, install); }
bool LN_Preferences::installFileAssociations() const { return flag(*this, fileAssociations); }
void LN_Preferences::setInstallFileAssociations(bool install) { setValue(fileAssociations.key, install); }
bool LN_Preferences::installExtraFileAssociations() const { return flag(*this, extraFileAssociations); }
void LN_Preferences::setInstallExtraFileAssociations(bool install) { setValue(extraFileAssociations.key, install); }
bool LN_Preferences::installLauncherShortcut() const { return flag(*this, launcherShortcut); }
void LN_Preferences::setInstallLauncherShortcut(bool install) { setValue(launcherShortcut.key, install); }

QString LN_Preferences::oqClientServiceName() const
{
    return value(oqClientName.key, QString::fromUtf16(oqClientName.byDefault)).toString();
}
void LN_Preferences::setOqClientServiceName(QString const & name) { setValue(oqClientName.key, name); }
QString LN_Preferences::oqServerServiceName() const
{
    return value(oqServerName.key, QString::fromUtf16(oqServerName.byDefault)).toString();
}
void LN_Preferences::setOqServerServiceName(QString const & name) { setValue(oqServerName.key, name); }
bool LN_Preferences::importOldOrvanis() const { return flag(*this, importOld); }
void LN_Preferences::setImportOldOrvanis(bool import) { setValue(importOld.key, import); }

QList<QUrl> LN_Preferences::getPackageSourceUrls() const
{
    QList<QUrl> urls;
    for (QString const & text : value(packageSourcesKey, defaultPackageSources()).toStringList())
        urls.append(QUrl(text, QUrl::TolerantMode));
    return urls;
}

void LN_Preferences::setPackageSourceUrls(QList<QUrl> const & urls)
{
    QStringList texts;
    for (QUrl const & url : urls)
        texts.append(url.toString());
    texts.removeDuplicates();
    setValue(packageSourcesKey, texts);
}

QString LN_Preferences::orvanisInstallDir() const { return value(installDirKey).toString(); }
void LN_Preferences::setOrvanisInstallDir(QString const & directory) { setValue(installDirKey, directory); }
QString LN_Preferences::offlineInstallSource() const { return value(offlineSourceKey).toString(); }
void LN_Preferences::setOfflineInstallSource(QString const & source) { setValue(offlineSourceKey, source); }
QString LN_Preferences::launchOrvanisInstallDir() const { return value(launchDirKey).toString(); }
void LN_Preferences::setLaunchOrvanisInstallDir(QString const & directory) { setValue(launchDirKey, directory); }

QSet<QString> LN_Preferences::getIgnoredMissingVersions() const
{
    QStringList const versions = value(ignoredVersionsKey).toStringList();
    return QSet<QString>(versions.cbegin(), versions.cend());
}

void LN_Preferences::addIgnoreMissingVersion(QString const & version)
{
    QSet<QString> versions = getIgnoredMissingVersions();
    versions.insert(version);
    setValue(ignoredVersionsKey, QStringList(versions.cbegin(), versions.cend()));
}

bool LN_Preferences::isIgnoreMissingVersion(QString const & version) const
{
    return getIgnoredMissingVersions().contains(version);
}

QDateTime LN_Preferences::lastUpdateCheck() const
{
    return QDateTime::fromString(value(lastCheckKey).toString(), Qt::ISODate);
}
void LN_Preferences::setLastUpdateCheck(QDateTime const & time) { setValue(lastCheckKey, time.toString(Qt::ISODate)); }

QVersionNumber LN_Preferences::ignoredUpdateVersion() const
{
    return QVersionNumber::fromString(value(ignoredUpdateKey).toString());
}
void LN_Preferences::setIgnoredUpdateVersion(QVersionNumber const & version)
{
    setValue(ignoredUpdateKey, version.toString());
}

LN_Preferences::UpdateTrack LN_Preferences::launcherUpdateTrack() const
{
    QString const word = value(trackKey).toString();
    if (word == trackWords[Track_Daily])
        return Track_Daily;
    if (word == trackWords[Track_Beta] || word == u"alpha")
        return Track_Beta;
    return Track_Production;
}

void LN_Preferences::setLauncherUpdateTrack(UpdateTrack track)
{
    bool const known = track >= Track_Production && track <= Track_Beta;
    setValue(trackKey, known ? trackWords[track].toString() : u"invalid"_s);
}

float LN_Preferences::launcherScaleFactor() const { return value(scaleKey).toFloat(); }
void LN_Preferences::setLauncherScaleFactor(float factor) { setValue(scaleKey, factor); }
QString LN_Preferences::launcherLogFilePath() const { return value(logPathKey).toString(); }
void LN_Preferences::setLauncherLogFilePath(QString const & path) { setValue(logPathKey, path); }

LN_SOFSInstallMode LN_Preferences::sofsInstallMode() const
{
    QString const word = value(sofsModeKey).toString();
    for (qint32 mode = SofsMode_User; mode < SofsMode_Invalid; ++mode) {
        if (word == sofsWords[mode])
            return LN_SOFSInstallMode(mode);
    }
    return SofsMode_Invalid;
}

void LN_Preferences::setSofsInstallMode(LN_SOFSInstallMode mode)
{
    bool const known = mode >= SofsMode_User && mode <= SofsMode_Invalid;
    setValue(sofsModeKey, sofsWords[known ? mode : SofsMode_Invalid].toString());
}

QString LN_Preferences::sofsDirectory() const { return value(sofsDirKey).toString(); }
void LN_Preferences::setSofsDirectory(QString const & directory) { setValue(sofsDirKey, directory); }
QString LN_Preferences::sofsOwnerUser() const { return value(sofsOwnerKey).toString(); }
void LN_Preferences::setSofsOwnerUser(QString const & user) { setValue(sofsOwnerKey, user); }

bool LN_Preferences::hasAgreedToLicense(QString const & license) const
{
    return !license.isEmpty() && flag(*this, licenseKey(license), false);
}

void LN_Preferences::setLicenseAgreedTo(QString const & license)
{
    if (!license.isEmpty())
        setValue(licenseKey(license), true);
}

QStringList LN_Preferences::getLicensesAgreedTo() const
{
    QStringList licenses;
    for (QString const & key : allKeys()) {
        if (!key.startsWith(licensesGroup))
            continue;
        // A key written by hand may not survive the round trip (a deeper group, a stray escape);
        // asking for the decoded name again drops it.
        QString const license = QUrl::fromPercentEncoding(key.sliced(licensesGroup.size()).toUtf8());
        if (hasAgreedToLicense(license))
            licenses.append(license);
    }
    return licenses;
}
