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

class LN_ComponentMetadata;
class LN_FileOpener;
class LN_InstallMetadata;
class LN_Preferences;
class QCommandLineOption;
class QCommandLineParser;

/// What one install operation is to do: the verb, which product at which version for which
/// platform, where it goes, which features, and further options keyed by their long option
/// name. The command line, an installation's record and the serialised form produce it; the
/// file opener, install planning and the installers consume it.
///
/// A plain value with member-wise copy and move that owns all it holds. It validates no
/// combination of fields, so the verb or the product may be Invalid, and whoever consumes the
/// record decides. Every installation directory that enters from outside is stored through
/// canonicalInstallPath. The command line (addOptions, fromArgs) and the defaults fill a
/// record; failures are returned or thrown as each member says. Not thread-safe, as any value.
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

    /// What fromArgs learns about offline installers; LN_DiskReader asks the disk and the site,
    /// a test may answer itself.
    class DRAIZU_EXPORT DiskReader
    {
    public:
        virtual ~DiskReader();
        /// Whether the path names a file.
        virtual bool isFile(QString const & path) = 0;
        /// The builds in the offline installer at the path; the empty path means the site.
        virtual LN_Result<QList<LN_AvailableInfo>> availableInfos(QString const & path) = 0;
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

    /// Fills the parser for an installer's command line in three passes over the arguments
    /// (the first is the program name): the verb word, then the verb's arguments and options,
    /// then the options of the product that the line or, for modify, the installation names.
    /// Parse failures are left to fromArgs; it adds neither help nor "only-if-newer".
    static void addOptions(QCommandLineParser & parser, QList<QString> const & arguments,
                           LN_InstallMetadata const & installations);
    /// The operations of a parsed command line: one, and a second that upgrades the local
    /// oserver when an Orvanis install or modify brings a newer one. Failures of the line are in
    /// LN_InstallerOptionsParseErrorCategory, those of reading an offline installer or the site
    /// keep their own; repair with a wrong count, a yes/no option with another word and an
    /// operation on a directory without an installation throw LN_Exception.
    static LN_Result<QList<LN_InstallerOptions>> fromArgs(QCommandLineParser const & parser,
                                                          LN_InstallMetadata const & installations,
                                                          DiskReader & reader);
    /// The same, reading offline installers and the site through an LN_DiskReader on the opener.
    static LN_Result<QList<LN_InstallerOptions>> fromArgs(QCommandLineParser const & parser,
                                                          LN_InstallMetadata const & installations,
                                                          LN_FileOpener & opener);

    /// Takes version, build type and platform from the catalogue element, replacing them.
    void setValuesFromAvailable(LN_AvailableInfo const & info);
    /// For an install or extract of Orvanis or an engine plug-in: the directory under the
    /// preferred Orvanis directory when none is given; for Orvanis also the features the build
    /// has as preferred and the four shortcut and association options, replacing them.
    void setDefaultsFromPreferences(LN_Preferences const & preferences, LN_AvailableInfo const & info);
    /// For an install: the default directory when none is given, and the product's fixed option
    /// defaults where an option is absent. Throws LN_Exception for a "start-menu" that is
    /// neither yes nor no.
    void setDefaultValues();
    /// The product's default installation directory at that version, beside the running
    /// executable or at a fixed location; empty for a product without one.
    static QString defaultInstallDir(LN_ProductID product, QVersionNumber const & version);
    /// "<verb>-<product>[version].log", blanks of the product name as underscores.
    QString defaultLogFileName() const;
    /// Whether the first build of `available` that is the local oserver at the options'
    /// version, build type and platform is newer than the installed oserver. If so and
    /// `upgrade` is not null, it receives the operation that installs or modifies it.
    static bool getOserverUpgrade(QList<LN_AvailableInfo> const & available, LN_InstallMetadata const & installations,
                                  LN_InstallerOptions const & options, LN_InstallerOptions * upgrade);

    /// Member-wise equality, the private directories and build type included.
    friend bool operator==(LN_InstallerOptions const &, LN_InstallerOptions const &) = default;

private:
    /// The steps of fromArgs, defined beside it.
    struct CommandLine;

    /// The options of the product on the command line; none for most products.
    static QList<QCommandLineOption> productOptions(LN_ProductID product);
    /// The yes/no option of each optional feature of the product; Orvanis alone has them.
    static QList<QCommandLineOption> featureOptions(LN_ProductID product);
    /// Stores the option's value under its first name when the parser has it set.
    void setOption(QCommandLineOption const & option, QCommandLineParser const & parser);
    /// Stores the named option's value when the parser has it set.
    void setOption(QString const & name, QCommandLineParser const & parser);
    /// Stores the value only where the key is absent; an empty value present stays.
    void setDefaultValue(QString const & key, QString const & value);
    /// Completes the record from the installation it changes; throws LN_Exception when there is
    /// none.
    void setValuesFromInstallations(LN_InstallMetadata const & installations);

    bool buildTypeSet_ = false;
    QString buildType_;
    QString installDir_;
    QString existingInstallDir_;
};
