#pragma once

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/catalogue/LN_ProductID.h>
#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>
#include <draizu/options/LN_LicenseAgreement.h>

#include <QHash>
#include <QList>
#include <QString>
#include <QVersionNumber>
#include <QtGlobal>

class QCommandLineOption;
class QCommandLineParser;
class LN_ComponentMetadata;

/// What one install operation is to do: the verb, which product at which version for which
/// platform, where it goes, which features, and further options keyed by their long option
/// name. A plain value: it validates no combination of fields, so the verb or the product may
/// be Invalid, and whoever consumes the record decides.
class DRAIZU_EXPORT LN_InstallerOptions
{
public:
    enum Verb : qint32 {
        Install = 0,
        Extract = 1,
        Modify = 2,
        Uninstall = 3,
        Move = 4,
        Repair = 5,
        Invalid = 6,
    };

    /// How the command line learns about offline installer files, so that it can be driven
    /// without real files.
    class DRAIZU_EXPORT DiskReader
    {
    public:
        virtual ~DiskReader();
        /// Whether the path is a file.
        virtual bool isFile(QString const & path) = 0;
        /// The builds inside the offline installer at the path; the empty path stands for the
        /// online catalogue.
        virtual LN_Result<QList<LN_AvailableInfo>> availableInfos(QString const & path) = 0;
    };

    Verb verb = Invalid;
    /// Path of an offline installer file; empty means the online catalogue.
    QString offlineInstaller;
    QVersionNumber version;
    /// In the long form of LN_PlatformInfo::toString.
    QString platform;
    LN_ProductID product = LN_ProductID::Invalid;
    /// Feature name to selected or not.
    QHash<QString, bool> features;
    /// Every other option, keyed by its long option name.
    QHash<QString, QString> otherOptions;
    QList<LN_LicenseAgreement> licenses;
    /// Uninstall ignoring errors. Not carried by serialize.
    bool force = false;
    /// Carried with the record for the executables; the library neither sets nor reads it,
    /// and serialize does not carry it.
    bool spareFlag = false;

    /// The value stored under the key; a null text when the key is absent.
    QString getOption(QString const & key) const;
    /// Whether the key is present; a key with an empty value counts.
    bool isOptionSet(QString const & key) const;
    /// True for "yes" and false for "no", in any case. Anything else, the empty value and an
    /// absent key included, throws LN_Exception "Expected "yes" or "no" for option --<key>".
    bool getYesNoOption(QString const & key) const;
    /// False when the key is absent, otherwise as getYesNoOption.
    bool getYesNoOptionIfSet(QString const & key) const;
    /// True for any name of the record's own product; otherwise the stored choice, false when
    /// the feature is absent.
    bool isSelected(QString const & feature) const;

    QString installDir() const;
    QString existingInstallDir() const;
    /// Both store canonicalInstallPath of the path.
    void setInstallDir(QString const & path);
    void setExistingInstallDir(QString const & path);

    QString buildType() const;
    /// Whether a build type was given, even the empty one.
    bool isBuildTypeSet() const;
    void setBuildType(QString const & value);
    void unsetBuildType();

    QString verbString() const;
    /// The word of the verb; "invalid" for Invalid and any number outside the enumeration.
    static QString verbString(Verb verb);
    /// The verb of a word, ignoring case; "update" also gives Modify. Anything else is Invalid.
    static Verb verbFromString(QString const & word);

    /// A Modify that puts the installation into another directory: installDir is set and
    /// differs from existingInstallDir, case included.
    bool isMove() const;
    /// Optional shared files come only from an offline installer.
    bool installOptionalSOFSFiles() const;
    bool needsAdmin() const;

    /// The form in which every installation directory from outside is stored: absolute, with
    /// forward slashes, no "." or ".." segments, no doubled or trailing separator. Relative
    /// paths are taken from the working directory. The empty path stays empty.
    static QString canonicalInstallPath(QString const & path);

    /// The uninstall of an installation: the record's installOptions with the verb Uninstall,
    /// the record's product and `forced`, and neither features nor further options. Throws
    /// LN_Exception for a record without a directory.
    static LN_InstallerOptions uninstall(LN_ComponentMetadata const & record, bool forced);

    /// Compact JSON text of the record; force and spareFlag are not part of it.
    QString serialize() const;
    /// Reads what serialize writes. Failures carry a code of
    /// LN_InstallerOptionsDeserializeErrorCategory, a text naming the fault and a default
    /// record; nothing is thrown. Directories come back through canonicalInstallPath.
    static LN_Result<LN_InstallerOptions> deserialize(QString const & text);

    friend bool operator==(LN_InstallerOptions const &, LN_InstallerOptions const &) = default;

private:
    /// Stores the option's value under its first name when the parser has it set.
    void setOption(QCommandLineOption const & option, QCommandLineParser const & parser);
    void setOption(QString const & name, QCommandLineParser const & parser);
    /// Stores the value only when the key is absent; a present empty value is kept.
    void setDefaultValue(QString const & key, QString const & value);

    bool buildTypeSet_ = false;
    QString buildType_;
    QString installDir_;
    QString existingInstallDir_;
};
