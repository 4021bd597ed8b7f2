#pragma once

#include <draizu/draizu_export.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include <QDir>
#include <QHash>
#include <QJsonDocument>
#include <QList>
#include <QSet>
#include <QString>
#include <QVersionNumber>

struct LN_AvailableInfo;
class LN_InfoUpdates;

/// The repository of what is installed on this machine: records keyed by installation
/// directory, kept in one directory with the file manifests of each record. It loads the
/// table, recovers from a change that was interrupted, saves, and refuses to commit a table
/// that is not consistent: every key non-empty and equal to its record's installDir.
///
/// A change proceeds in this order, on which the recovery relies: change the table in memory,
/// save("new.json"), change the installation on disk, saveFinal(). Manifests are never
/// overwritten, only written under new numbers, and old ones are deleted only after
/// "overview.json" names the new ones. While "overview.json" itself is rewritten there is no
/// protection: a file cut short is reported by the next load.
///
/// The queries walk the table, which is a hash: where one stops at the first match, which
/// record comes first is not defined, and lists come in table order. A directory "holds an
/// installation" when it exists and has any entry at all, dot files included; an empty path
/// names no directory. Each query is one pass over the table, and merge one over the records
/// and one over the updates; only the questions about directories touch the disk.
///
/// A plain value. File and format failures throw LN_Exception with a text that names the file;
/// the queries never fail. One process at a time; not thread-safe.
class DRAIZU_EXPORT LN_InstallMetadata
{
public:
    /// An empty table on an empty directory path; nothing is read.
    LN_InstallMetadata();
    /// Loads "overview.json" when it exists and recovers from an interrupted change when
    /// "new.json" exists: the record the change was about is replaced by a merged one that
    /// names every file of both states, with unknown sizes, and the two states are kept in
    /// interruptedOld and interruptedNew. Nothing is written. Throws LN_Exception when a file
    /// is damaged.
    explicit LN_InstallMetadata(QDir const & directory);
    /// Loads that one file, without recovery; a missing file throws.
    LN_InstallMetadata(QDir const & directory, QString const & name);

    /// Reads the named file of the directory into the table, replacing records of equal keys.
    /// Throws LN_Exception with the name in the text.
    void load(QString const & name);
    /// Merges the table of a parsed document, without validating the records. Throws
    /// LN_Exception, the text beginning with `name`, for a document that is not an object,
    /// lacks a "format version" or has one above 1.
    void load(QJsonDocument const & document, QString const & name);

    /// Writes pending manifests, then the table under `name`, in place. Throws LN_Exception.
    void save(QString const & name);
    /// Commits: validates the table, writes "overview.json", then removes every JSON file of
    /// the directory that the table no longer names ("new.json" and "crash.json" included).
    /// A table that fails validation is written to "crash.json" instead and LN_Exception
    /// thrown, leaving "overview.json" alone.
    void saveFinal();

    /// A copy of the record, or a default record.
    LN_ComponentMetadata get(QString const & directory) const;
    /// Every record, in table order.
    QList<LN_ComponentMetadata> getAll() const;
    /// Stores the record under its installDir as it is, replacing an earlier one.
    void insert(LN_ComponentMetadata const & record);
    /// Drops the record under the key; an absent key is no error.
    void remove(QString const & directory);
    /// Whether a record is stored under the key, compared exactly.
    bool isTaken(QString const & directory) const;

    /// The version of each record of the product, duplicates included, ready or not.
    QList<QVersionNumber> getInstalledProductVersions(LN_ProductID product) const;
    /// The engine API versions of the product's records; a record without one adds the null
    /// version.
    QSet<QVersionNumber> getInstalledProductOapiVersions(LN_ProductID product) const;
    /// The versions of the Orvanis records as text.
    QList<QString> getInstalledOrvanisVersions() const;
    /// The first record of the product, or a default record.
    LN_ComponentMetadata getProduct(LN_ProductID product) const;
    /// The newest ready record of the product whose directory holds an installation; of equal
    /// versions the first found. A default record when there is none.
    LN_ComponentMetadata getLatestAvailableInstallation(LN_ProductID product) const;
    /// The Orvanis records, ready or not, whose directory does not hold an installation.
    QList<LN_ComponentMetadata> getNonexistentOrvanisInstallations() const;
    /// The directory of the first record of the product at that version, or empty.
    QString getInstallDirectory(LN_ProductID product, QVersionNumber const & version) const;
    /// The same with the version read from text, whose trailing non-version part is ignored.
    QString getInstallDirectory(LN_ProductID product, QString const & version) const;
    /// Whether a record of the product exists, at that version unless the version is null.
    bool hasProduct(LN_ProductID product, QVersionNumber const & version) const;
    /// Whether an installed Orvanis offers the build's engine API version or, failing that,
    /// has the build's own version. A null API version matches a record without one.
    bool hasCompatibleOrvanis(LN_AvailableInfo const & info) const;
    /// The same for an installed plug-in's record.
    bool hasCompatibleOrvanis(LN_ComponentMetadata const & record) const;
    /// Gives every record of an updated build, whatever its product, the site's tags and
    /// release date; a build is its version, platform (all four fields) and build type.
    /// Nothing is written to disk.
    void merge(LN_InfoUpdates const & updates);

    /// After a recovery: the record as "overview.json" had it; otherwise default.
    LN_ComponentMetadata interruptedOld;
    /// After a recovery: the merged record of the interrupted change; otherwise default.
    LN_ComponentMetadata interruptedNew;
    /// Keyed by installation directory with forward slashes.
    QHash<QString, LN_ComponentMetadata> installations;
    /// The repository directory; every file name is taken in it.
    QDir directory;

private:
    bool hasCompatibleOrvanis_(QVersionNumber const & oapiVersion, QVersionNumber const & version) const;

    /// Throws LN_Exception for an empty key, a key that is not its record's directory, or a
    /// record that fails its own validation.
    void validate_() const;

    /// Records of `a` that `b` does not have unchanged: a record that is not ready always
    /// counts.
    static QList<LN_ComponentMetadata> differingComponents_(LN_InstallMetadata const & a,
                                                           LN_InstallMetadata const & b);
    /// Every file that either side may have put on disk, with no claim about content: no
    /// digest and size -1. Files of an old directory other than the new one keep their
    /// absolute paths.
    static QList<LN_FileMetadata> mergeFileLists_(LN_ComponentMetadata const & newer,
                                                 LN_ComponentMetadata const & older, QString const & name);
};
