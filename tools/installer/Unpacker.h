#pragma once

#include <draizu/api/LN_Message.h>
#include <draizu/catalogue/LN_AvailableInfo.h>
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

/// Puts the files of one build into a directory, each checked against its manifest while it
/// is written, and keeps the repository's record through its crash-safe sequence: the record,
/// not ready, is saved with its manifests before the first file is written, and committed
/// ready after the last. A failure removes what this run wrote and leaves no new record.
/// Throws CommandError for a refusal or a failure, LN_Exception for a damaged repository.
class Unpacker
{
public:
    using Report = std::function<void(LN_Message const &)>;

    /// `archiveOrder` gives the position of each entry of an offline installer archive, so
    /// that files are asked for in one pass; empty for a directory or the site.
    Unpacker(LN_FileOpener & opener, QHash<QString, qsizetype> archiveOrder, Report report);

    /// Installs the product and the selected features of the build into options.installDir(),
    /// recorded in the repository unless `recorded` is false (an extract). Files of an
    /// interrupted installation at that place may be replaced; any other file that is there
    /// already stops the install before anything is written.
    void install(LN_InstallerOptions const & options, LN_AvailableInfo const & build, LN_InstallMetadata & repository,
                 bool recorded);

private:
    QHash<QString, QList<LN_FileMetadata>> readManifests_(LN_InstallerOptions const & options,
                                                         LN_AvailableInfo const & build);
    QList<LN_FileMetadata> plan_(QHash<QString, QList<LN_FileMetadata>> const & manifests,
                                 QSet<QString> const & owned) const;
    void checkPlace_(QString const & relativePath, QSet<QString> const & owned) const;
    void writeAll_(QList<LN_FileMetadata> const & files);
    void writeFile_(LN_FileMetadata const & file, qint64 & done, qint64 total);
    void makeDirectories_(QString const & relativeDirectory);
    void removeWritten_();

    LN_FileOpener & opener_;
    QHash<QString, qsizetype> archiveOrder_;
    Report report_;
    QString target_;
    QStringList written_;
    QStringList createdDirectories_;
    QSet<QString> knownDirectories_;
    QHash<QString, QString> firstCopies_;
    QByteArray buffer_;
};
