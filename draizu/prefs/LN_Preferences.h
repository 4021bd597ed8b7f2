#pragma once

#include <draizu/catalogue/LN_InstallOption.h>
#include <draizu/catalogue/LN_ProductID.h>
#include <draizu/draizu_export.h>

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVersionNumber>
#include <QtGlobal>

/// How the shared optional file set is installed. The preferences store the word, never the
/// number.
enum LN_SOFSInstallMode : qint32 {
    SofsMode_User = 0,    ///< "user"
    SofsMode_Admin = 1,   ///< "admin"
    SofsMode_Other = 2,   ///< "other"
    SofsMode_Invalid = 3, ///< "invalid"; also what an absent or unknown word reads as
};

/// The launcher's persistent settings: install defaults, where things go, update behaviour,
/// package sources and the accepted licence agreements. A thin typed layer over an INI file:
/// each setting is one flat key, every accessor asks QSettings afresh and every setter writes at
/// once; nothing is copied.
///
/// Constructing writes every missing default into the file, in a fixed order, so a key deleted
/// by hand comes back with its default. The file is hostile: no accessor reports failure, and a
/// damaged value reads as its type's empty value (false, "", 0, an empty list, an invalid date,
/// a null version), as Track_Production or as SofsMode_Invalid; a key with a default that
/// another writer removed reads as that default. Write failures show only in status(). Use one
/// object on one thread at a time, like any QSettings.
class DRAIZU_EXPORT LN_Preferences : public QSettings
{
public:
    /// The launcher's own update channel; stored as "production", "daily" or "beta".
    enum UpdateTrack : qint32 {
        Track_Production = 0, ///< "production"; also what an absent or unknown word reads as
        Track_Daily = 1,      ///< "daily"
        Track_Beta = 2,       ///< "beta"; the word "alpha" reads as this too
    };

    /// The user's settings file ("Marlux/Launcher.ini" under the user's configuration folder),
    /// created with the defaults when missing.
    LN_Preferences();
    /// The INI file at path, created with the defaults when missing.
    explicit LN_Preferences(QString const & path);

    /// Writes each default whose key is missing, in the documented order; keys present, damaged
    /// or not, are left alone. The constructors have already done this once.
    void setInstallOptionDefaults();

    /// Whether an install brings the licence server along; default true.
    bool autoInstallLicenseServer() const;
    /// Stores whether an install brings the licence server along.
    void setAutoInstallLicenseServer(bool install);
    /// Whether an install brings the local oserver along; default true.
    bool autoInstallOrvanisServer() const;
    /// Stores whether an install brings the local oserver along.
    void setAutoInstallOrvanisServer(bool install);
    /// Whether an install brings Marlux Labs along; default false.
    bool autoInstallMarluxLabs() const;
    /// Stores whether an install brings Marlux Labs along.
    void setAutoInstallMarluxLabs(bool install);
    /// Whether the user confirms the options of every Orvanis install; default true.
    bool confirmOrvanisOptions() const;
    /// Stores whether the user confirms the options of every Orvanis install.
    void setConfirmOrvanisOptions(bool confirm);

    /// Whether the optional feature is installed, under the option's own preference key;
    /// default false.
    bool getInstallOrvanisFeature(LN_InstallOption const & option) const;
    /// Stores whether the optional feature is installed.
    void setInstallOrvanisFeature(LN_InstallOption const & option, bool install);
    /// Whether the engine plug-in is installed; default false, and always false for a product
    /// that is no engine plug-in.
    bool getAutoInstallEnginePlugin(LN_ProductID const & product) const;
    /// Stores whether the engine plug-in is installed; does nothing for any other product.
    void setAutoInstallEnginePlugin(LN_ProductID const & product, bool install);

    /// Whether an install adds a desktop shortcut; default false.
    bool installDesktopShortcut() const;
    /// Stores whether an install adds a desktop shortcut.
    void setInstallDesktopShortcut(bool install);
    /// Whether an install registers the file associations; default true.
    bool installFileAssociations() const;
    /// Stores whether an install registers the file associations.
    void setInstallFileAssociations(bool install);
    /// Whether an install registers the extra file associations; default false.
    bool installExtraFileAssociations() const;
    /// Stores whether an install registers the extra file associations.
    void setInstallExtraFileAssociations(bool install);
    /// Whether an install adds the launcher's application shortcut; default true.
    bool installLauncherShortcut() const;
    /// Stores whether an install adds the launcher's application shortcut.
    void setInstallLauncherShortcut(bool install);

    /// The OQueue client's service name; default "OQueue Client".
    QString oqClientServiceName() const;
    /// Stores the OQueue client's service name.
    void setOqClientServiceName(QString const & name);
    /// The OQueue server's service name; default "OQueue Server".
    QString oqServerServiceName() const;
    /// Stores the OQueue server's service name.
    void setOqServerServiceName(QString const & name);
    /// Whether installations of older installers are imported; default true.
    bool importOldOrvanis() const;
    /// Stores whether installations of older installers are imported.
    void setImportOldOrvanis(bool import);

    /// The package sources in their stored order, each parsed tolerantly (an unparsable entry
    /// gives an invalid URL); by default the site's Marlux Labs package list.
    QList<QUrl> getPackageSourceUrls() const;
    /// Stores the package sources in order, each text once.
    void setPackageSourceUrls(QList<QUrl> const & urls);

    /// The Orvanis installation directory chosen last; empty when unset.
    QString orvanisInstallDir() const;
    /// Stores the Orvanis installation directory.
    void setOrvanisInstallDir(QString const & directory);
    /// The offline installer chosen last; empty when unset.
    QString offlineInstallSource() const;
    /// Stores the offline installer.
    void setOfflineInstallSource(QString const & source);
    /// The installation directory that the launcher starts Orvanis from; empty when unset.
    QString launchOrvanisInstallDir() const;
    /// Stores the installation directory that the launcher starts Orvanis from.
    void setLaunchOrvanisInstallDir(QString const & directory);

    /// The versions whose missing installation the user chose to ignore; empty when unset.
    QSet<QString> getIgnoredMissingVersions() const;
    /// Adds a version to the ignored ones; one already there changes nothing.
    void addIgnoreMissingVersion(QString const & version);
    /// Whether the version is among the ignored ones.
    bool isIgnoreMissingVersion(QString const & version) const;

    /// When the launcher last looked for an update; invalid when unset or unreadable.
    QDateTime lastUpdateCheck() const;
    /// Stores the time as ISO 8601 text; an invalid time stores the empty text.
    void setLastUpdateCheck(QDateTime const & time);
    /// The launcher update the user chose to skip; null when unset or unreadable.
    QVersionNumber ignoredUpdateVersion() const;
    /// Stores the launcher update to skip, as text.
    void setIgnoredUpdateVersion(QVersionNumber const & version);
    /// The launcher's update channel; Track_Production when unset or unknown.
    UpdateTrack launcherUpdateTrack() const;
    /// Stores the channel's word; a value outside the enumeration stores "invalid".
    void setLauncherUpdateTrack(UpdateTrack track);
    /// The scale of the launcher's window; 0, meaning unset, until someone sets it or when
    /// unreadable.
    float launcherScaleFactor() const;
    /// Stores the scale of the launcher's window.
    void setLauncherScaleFactor(float factor);
    /// Where the launcher writes its log; empty when unset.
    QString launcherLogFilePath() const;
    /// Stores where the launcher writes its log.
    void setLauncherLogFilePath(QString const & path);

    /// How the shared optional file set is installed; SofsMode_Invalid when unset or unknown.
    LN_SOFSInstallMode sofsInstallMode() const;
    /// Stores the mode's word; a value outside the enumeration stores "invalid".
    void setSofsInstallMode(LN_SOFSInstallMode mode);
    /// Where the shared optional file set goes; empty when unset.
    QString sofsDirectory() const;
    /// Stores where the shared optional file set goes.
    void setSofsDirectory(QString const & directory);
    /// The account that owns the shared optional file set; empty when unset.
    QString sofsOwnerUser() const;
    /// Stores the account that owns the shared optional file set.
    void setSofsOwnerUser(QString const & user);

    /// Whether the licence agreement of this name was accepted; false for an empty name, one
    /// never accepted, or a record damaged by hand.
    bool hasAgreedToLicense(QString const & license) const;
    /// Records that the licence agreement of this name was accepted, under "Licenses/"; any text
    /// is kept exactly, and an empty name records nothing.
    void setLicenseAgreedTo(QString const & license);
    /// The names of the accepted licence agreements, in the file's key order.
    QStringList getLicensesAgreedTo() const;

private:
    // Writes the value only when contains() is false for the key.
    void setDefault_(QAnyStringView key, QVariant const & byDefault);
};
