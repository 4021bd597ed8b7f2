#pragma once

#include <draizu/api/LN_Message.h>
#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/records/LN_ComponentMetadata.h>
#include <draizu/records/LN_FileMetadata.h>

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

class LN_FileOpener;
class LN_InstallMetadata;
class LN_InstallerOptions;

/// Brings a directory to the files of one build: a new installation, a change of features,
/// version or place of a recorded one, the completion of one that was interrupted, or its
/// repair. Only the difference is written or removed; files the user put there stay.
///
/// Every file is checked against its manifest while it is written under a temporary name
/// beside its place, and all of them are written before the first one is renamed into place,
/// so that a failure or a cancel before that point leaves the installation as it was. The
/// repository keeps the change through its crash-safe sequence: the new record, not ready, is
/// saved with its manifests before the first file is written, and committed ready after the
/// last file is in place and the last old one removed. A kill at any point leaves a record
/// naming every file either state may have put on disk; running the operation again, or a
/// repair, finishes it.
///
/// Throws CommandError for a refusal, a failure or a cancel, LN_Exception for a damaged
/// repository. Not thread-safe; one operation per object.
class Unpacker
{
public:
    using Report = std::function<void(LN_Message const &)>;
    /// Asked between files; true stops the operation, which is then undone.
    using Cancelled = std::function<bool()>;

    enum Mode {
        Extract, ///< the files only: nothing is recorded and nothing removed
        Install, ///< install or modify: a file the ready record vouches for is not read again
        Repair,  ///< every file is hashed on disk, and only those that differ are written
    };

    /// What an operation changed, as paths below the installation directory (absolute for
    /// files left in another directory by an interrupted move).
    struct Outcome
    {
        QStringList written;
        QStringList removed;
        qsizetype unchanged = 0;
    };

    /// `archiveOrder` gives the position of each entry of an offline installer archive, so
    /// that files are asked for in one pass; empty for a directory or the site.
    Unpacker(LN_FileOpener & opener, QHash<QString, qsizetype> archiveOrder, Report report,
             Cancelled cancelled = {});

    /// Brings options.installDir(), or options.existingInstallDir() when that is empty, to the
    /// product and selected features of the build. The installation recorded at
    /// existingInstallDir (at the target when that is empty) is the starting point: its files
    /// that the build keeps unchanged stay, those the build no longer has are removed (from the
    /// old directory in a move), and any other file in the way stops the operation before
    /// anything is written. A Repair of a ready installation leaves its record as it is.
    Outcome apply(LN_InstallerOptions const & options, LN_AvailableInfo const & build, LN_InstallMetadata & repository,
                  Mode mode);

    /// Removes the installation recorded at `directory` through the same sequence: exactly its
    /// recorded files, never through a link, then the directories left empty, then the record.
    /// Files the user added stay, with their directories. With `force`, a file that cannot be
    /// removed is reported as a warning instead of stopping the uninstall.
    Outcome uninstall(QString const & directory, LN_InstallMetadata & repository, bool force);

private:
    using Manifests = QHash<QString, QList<LN_FileMetadata>>;
    struct Plan
    {
        QList<LN_FileMetadata> toWrite;
        QStringList toRemove;
        qsizetype unchanged = 0;
    };
    struct Staged
    {
        QString temporary;
        QString path;
    };

    Manifests readManifests_(LN_InstallerOptions const & options, LN_AvailableInfo const & build);
    Manifests listsOf_(LN_ComponentMetadata const & record) const;
    Plan plan_(Manifests const & manifests, LN_ComponentMetadata const & old, Manifests const & oldLists, Mode mode);
    LN_ComponentMetadata recordFor_(LN_InstallerOptions const & options, LN_AvailableInfo const & build,
                                    Manifests const & manifests, LN_ComponentMetadata const & old,
                                    Manifests const & oldLists) const;
    QString oldPath_(QString const & recorded) const;
    bool isIntact_(QString const & path, LN_FileMetadata const & expected);
    void checkPlace_(QString const & relativePath, QSet<QString> const & owned) const;
    void checkCancel_() const;
    void removeStrayTemporaries_(LN_ComponentMetadata const & record) const;
    void stageAll_(QList<LN_FileMetadata> const & files);
    void stageFile_(LN_FileMetadata const & file, qint64 & done, qint64 total);
    void moveIntoPlace_();
    void removeAll_(QStringList const & paths, bool ignoreErrors);
    void makeDirectories_(QString const & relativeDirectory);
    void undo_();

    LN_FileOpener & opener_;
    QHash<QString, qsizetype> archiveOrder_;
    Report report_;
    Cancelled cancelled_;
    QString target_;
    QString oldDirectory_;
    QList<Staged> staged_;
    QStringList createdDirectories_;
    QSet<QString> knownDirectories_;
    QHash<QString, QString> firstCopies_;
    QByteArray buffer_;
};
