#pragma once

#include <draizu/catalogue/LN_PlatformInfo.h>
#include <draizu/catalogue/LN_ProductID.h>
#include <draizu/draizu_export.h>
#include <draizu/records/LN_FileMetadata.h>
#include <draizu/records/LN_SofsFileMetadata.h>

#include <QDate>
#include <QDir>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVersionNumber>

class LN_InstallerOptions;
class LN_InstallMetadata;

/// The record of one installation of one product: what it is, where it lies, which features
/// it has, and where the manifests of its files are. LN_InstallMetadata keeps these records,
/// keyed by installDir, and writes their bodies into its JSON file.
///
/// File lists are keyed by feature name; the product's own list goes by
/// productName(product) and is kept in productFiles rather than in features. setFiles and
/// setSofsFiles touch only the pending tables; save writes them as manifests, each under a new
/// number, so a manifest on disk is never overwritten. Reading a list from its manifest costs a
/// file read on every call.
///
/// A plain value with member-wise copy and move. Reading a body never fails; save passes file
/// errors as LN_Exception, and installOptions and getYesNoOption throw as they say. Not
/// thread-safe, as any value.
class DRAIZU_EXPORT LN_ComponentMetadata
{
public:
    /// No installation: empty directory, product Invalid, default platform.
    LN_ComponentMetadata() = default;
    /// Reads one entry of a repository's "installations" object; the key is the directory.
    /// Nothing here fails: a missing or wrong value gives the type's empty value. Records of
    /// the job-queue products are then brought up to date from files in the directory, which
    /// the job-queue server may have changed behind the launcher's back.
    explicit LN_ComponentMetadata(QJsonObject::const_iterator entry);

    /// Version of the build.
    QVersionNumber version;
    /// Version of the engine API that the build offers.
    QVersionNumber oapiVersion;
    /// For a plug-in: the Orvanis version that it belongs to.
    QVersionNumber forOrvanis;
    /// With forward slashes; empty means no installation.
    QString installDir;
    /// Release date of the build, in ISO form on disk.
    QDate releaseDate;
    /// Catalogue tags of the build.
    QList<QString> tags;
    /// Build type, as the catalogue gave it; may be empty.
    QString buildType;
    /// Label of the build.
    QString label;
    /// Platform of the build, from "os name" and "compiler".
    LN_PlatformInfo platformInfo;
    /// The product; Invalid for no record.
    LN_ProductID product = LN_ProductID::Invalid;
    /// Path of the product's own file manifest.
    QString productFiles;
    /// Feature name to the path of its file manifest.
    QHash<QString, QString> features;
    /// Options the installation was made with, keyed by long option name.
    QHash<QString, QString> otherOptions;
    /// The installation is complete.
    bool ready = false;
    /// Made from an installation that this launcher did not install.
    bool imported = false;
    /// An uninstaller lies in the directory.
    bool hasUninstaller = false;
    /// An uninstall of it failed.
    bool failedUninstall = false;
    /// File lists set but not yet written.
    QHash<QString, QList<LN_FileMetadata>> pendingFiles;
    /// Feature name to the path of its SOFS manifest.
    QHash<QString, QString> sofsFiles;
    /// SOFS lists set through setSofsFiles; save writes them but keeps them.
    QHash<QString, QList<LN_SofsFileMetadata>> pendingSofsFiles;

    /// Writes the pending manifests into `directory`, each under a new number, and returns the
    /// JSON body with their paths. Pending file lists are emptied; pending SOFS lists stay and
    /// are written again by the next save. Lists of a feature the record does not have are
    /// dropped. Throws LN_Exception when a manifest cannot be written; manifests written
    /// before stay on disk.
    QJsonObject save(QDir const & directory);

    /// The feature's files: the pending list when there is one, else its manifest. A manifest
    /// that cannot be read gives an empty list; a malformed entry throws LN_Exception.
    QList<LN_FileMetadata> getFiles(QString const & feature) const;
    /// Touches only the pending table; the manifest is written at save.
    void setFiles(QString const & feature, QList<LN_FileMetadata> const & files);
    /// The feature's SOFS files: the pending list when there is one, else its manifest. Any
    /// failure gives an empty list.
    QList<LN_SofsFileMetadata> getSofsFiles(QString const & feature) const;
    /// Touches only the pending table; the manifest is written at save.
    void setSofsFiles(QString const & feature, QList<LN_SofsFileMetadata> const & files);

    /// The product's files, then those of each feature; duplicates are kept.
    QList<LN_FileMetadata> allFiles() const;
    /// The product's SOFS files, then those of each feature; duplicates are kept.
    QList<LN_SofsFileMetadata> allSofsFiles() const;

    /// A list made from the directory on disk rather than from the manifests. It pairs the
    /// files of the walk: each record has the path and size of every second file and the
    /// digest of the file before it. With an odd number of files the last record has an empty
    /// path and size 0.
    QList<LN_FileMetadata> computeAllFiles() const;

    /// Whether a listed file has exactly this path, case included.
    bool containsFile(QString const & path) const;

    /// Sum of the sizes of allFiles(); throws as getFiles.
    qint64 installedSize() const;
    /// Sum of the sizes of the feature's files; 0 for a feature the record does not have.
    qint64 installedSize(QString const & feature) const;

    /// True for "yes", false for "no", the empty value and an absent key; any other word
    /// throws LN_Exception.
    bool getYesNoOption(QString const & key) const;

    /// Options that describe this installation, with the verb left Invalid for the caller.
    /// Throws LN_Exception for a record without a directory.
    LN_InstallerOptions installOptions() const;

    /// Only Orvanis after 17.5.134 takes add-on packages.
    bool supportsPackages() const;

    /// "<product> <version>", with " - <build type>" when there is one.
    QString shortString() const;
    /// Several lines describing the installation, for people.
    QString detailsString() const;

    /// Compares what identifies the installation: versions, directory, release date, tags,
    /// build type, product, features, options, imported and hasUninstaller. Label, platform,
    /// manifests, ready, failedUninstall and the pending lists are not compared; the recovery
    /// of an interrupted change relies on exactly this choice.
    friend DRAIZU_EXPORT bool operator==(LN_ComponentMetadata const & a, LN_ComponentMetadata const & b);
    /// Negation of operator==.
    friend bool operator!=(LN_ComponentMetadata const & a, LN_ComponentMetadata const & b) { return !(a == b); }

private:
    friend class LN_InstallMetadata;

    /// Throws LN_Exception for an invalid product, an invalid platform of a record that is
    /// not imported, or a file with a malformed digest or a negative size.
    void validate_() const;
    /// Brings job-queue records up to date from the files in their directory.
    void readProductFiles_();
};
