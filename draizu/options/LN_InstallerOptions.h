#pragma once

#include <draizu/catalogue/LN_ProductID.h>
#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>
#include <draizu/options/LN_LicenseAgreement.h>

#include <QHash>
#include <QList>
#include <QString>
#include <QVersionNumber>
#include <QtGlobal>

class LN_ComponentMetadata;

/// What one install operation is to do: the verb, which product at which version for which
/// platform, where it goes, which features, and further options keyed by their long option
/// name. The command line, an installation's record and the serialised form produce it; the
/// file opener, install planning and the installers consume it.
///
/// A plain value with member-wise copy and move that owns all it holds. It validates no
/// combination of fields, so the verb or the product may be Invalid, and whoever consumes the
/// record decides. Every installation directory that enters from outside is stored through
/// canonicalInstallPath. Only getYesNoOption throws and only deserialize returns failures; no
/// other member fails. Not thread-safe, as any value.
class DRAIZU_EXPORT LN_InstallerOptions
{
public:
    /// The operation; its words are those of verbString and verbFromString.
    enum Verb : qint32 {
        Install = 0,   ///< "install"
        Extract = 1,   ///< "extract"
        Modify = 2,    ///< "modify"; "update" is read as it too
        Uninstall = 3, ///< "uninstall"
        Move = 4,      ///< "move"
        Repair = 5,    ///< "repair"
        Invalid = 6,   ///< "invalid"; any word not above reads as it
    };

    /// The operation; Invalid until someone sets it.
    Verb verb = Invalid;
    /// Path of an offline installer file; empty means the online catalogue.
    QString offlineInstaller;
    /// Version of the build; null when none was given.
    QVersionNumber version;
    /// Platform in the long form of LN_PlatformInfo::toString; empty for any.
    QString platform;
    /// The product; Invalid until someone sets it.
    LN_ProductID product = LN_ProductID::Invalid;
    /// Feature name to selected or not.
    QHash<QString, bool> features;
    /// Every other option, keyed by its long option name.
    QHash<QString, QString> otherOptions;
    /// Licence acceptances carried for the acceptance check, which alone reads them.
    QList<LN_LicenseAgreement> licenses;
    /// Uninstall ignoring errors. Not carried by serialize.
    bool force = false;
    /// Carried with the record for the executables; the library neither sets nor reads it,
    /// and serialize does not carry it.
    bool spareFlag = false;

    /// The value stored under the key; a null text when the key is absent. Never fails.
    QString getOption(QString const & key) const;
    /// Whether the key is present; a key with an empty value counts. Never fails.
    bool isOptionSet(QString const & key) const;
    /// True for "yes" and false for "no", in any case. Anything else, the empty value and an
    /// absent key included, throws LN_Exception "Expected "yes" or "no" for option --<key>".
    bool getYesNoOption(QString const & key) const;
    /// False when the key is absent, otherwise as getYesNoOption, whose exception it passes.
    bool getYesNoOptionIfSet(QString const & key) const;
    /// True for any name of the record's own product; otherwise the stored choice, false when
    /// the feature is absent. Never fails.
    bool isSelected(QString const & feature) const;

    /// The target directory as stored; empty when none was given.
    QString installDir() const;
    /// The directory of the installation being changed, as stored; empty when none.
    QString existingInstallDir() const;
    /// Stores canonicalInstallPath of the path as the target directory. Never fails.
    void setInstallDir(QString const & path);
    /// Stores canonicalInstallPath of the path as the existing installation. Never fails.
    void setExistingInstallDir(QString const & path);

    /// The build type; empty when unset or given as empty.
    QString buildType() const;
    /// Whether a build type was given, even the empty one.
    bool isBuildTypeSet() const;
    /// Gives the build type, which then counts as set even when empty. Never fails.
    void setBuildType(QString const & value);
    /// Forgets the build type: unset and empty. Never fails.
    void unsetBuildType();

    /// The word of this record's verb, as verbString(verb).
    QString verbString() const;
    /// The word of the verb; "invalid" for Invalid and any number outside the enumeration.
    static QString verbString(Verb verb);
    /// The verb of a word, ignoring case; "update" also gives Modify. Anything else is Invalid.
    static Verb verbFromString(QString const & word);

    /// A Modify that puts the installation into another directory: installDir is set and
    /// differs from existingInstallDir, case included.
    bool isMove() const;
    /// Optional shared files come only from an offline installer: whether one is named.
    bool installOptionalSOFSFiles() const;
    /// Always true: every operation on an installation asks for administrator rights.
    bool needsAdmin() const;

    /// The form in which every installation directory from outside is stored: absolute, with
    /// forward slashes, no "." or ".." segments, no doubled or trailing separator. Relative
    /// paths are taken from the working directory. The empty path stays empty. Never fails.
    static QString canonicalInstallPath(QString const & path);

    /// The uninstall of an installation: the record's installOptions with the verb Uninstall,
    /// the record's product and `forced`, and neither features nor further options. Throws
    /// LN_Exception for a record without a directory.
    static LN_InstallerOptions uninstall(LN_ComponentMetadata const & record, bool forced);

    /// Compact JSON text of the record; force and spareFlag are not part of it. Never fails.
    QString serialize() const;
    /// Reads what serialize writes. Failures carry a code of
    /// LN_InstallerOptionsDeserializeErrorCategory, a text naming the fault and a default
    /// record; nothing is thrown. Directories come back through canonicalInstallPath.
    static LN_Result<LN_InstallerOptions> deserialize(QString const & text);

    /// Member-wise equality, the private directories and build type included.
    friend bool operator==(LN_InstallerOptions const &, LN_InstallerOptions const &) = default;

private:
    bool buildTypeSet_ = false;
    QString buildType_;
    QString installDir_;
    QString existingInstallDir_;
};
