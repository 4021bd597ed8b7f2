#pragma once

#include <QHash>
#include <QString>

/// The order of an offline installer archive's entries, from one pass over its headers, so
/// that files can be asked for in that order and read in one pass. The scan runs on a thread
/// of its own and is watched: libarchive can loop for ever on some damaged images, and an
/// installer must not hang on one.
class ArchiveScan
{
public:
    enum Outcome {
        Scanned,   ///< `order` holds every entry
        Unreadable, ///< not an archive libarchive can read; `message` says why
        Stalled,   ///< no entry for `stallSeconds`: the scanning thread cannot be stopped and is left behind
    };

    /// Scans the file, giving up when no new entry arrives for `stallSeconds`.
    ArchiveScan(QString const & path, int stallSeconds);

    Outcome outcome = Unreadable;
    QString message;
    /// Entry name to its position in the archive.
    QHash<QString, qsizetype> order;
};
