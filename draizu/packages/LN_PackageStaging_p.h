#pragma once

#include <QDir>
#include <QList>
#include <QPair>
#include <QString>
#include <QTemporaryDir>

struct archive;
struct archive_entry;

/// A hidden folder inside an install target that entries are extracted into, and then moved
/// into place together. libarchive refuses absolute paths under its secure flags, so entries
/// are given paths relative to the staging folder and written while it is the working
/// directory; so are the writer's deferred folder times and modes, applied when it closes.
///
/// On destruction whatever was not committed is removed, and the target stays as it was.
class LN_PackageStaging
{
public:
    /// A staging folder inside `target`, made with the target when missing; test isValid.
    LN_PackageStaging(QDir const & target, int extractFlags);
    ~LN_PackageStaging();

    LN_PackageStaging(LN_PackageStaging const &) = delete;
    LN_PackageStaging & operator=(LN_PackageStaging const &) = delete;

    /// Whether the folder and the writer exist; errorText says why not.
    bool isValid() const;
    /// Why the staging folder could not be made.
    QString errorText() const;

    /// Writes the entry that `reader` stands at to `path` below the staging folder: libarchive's
    /// status, with its text on the reader.
    int extract(struct archive * reader, struct archive_entry * entry, QString const & path);
    /// Finishes the written entries and moves every one at the top into the target, replacing
    /// what was there; an empty text on success, else why, with the target as it was.
    QString commit();

private:
    // Renames, undone in reverse order when a later one fails.
    using Moves = QList<QPair<QString, QString>>;

    int inStaging_(auto && work);
    static void undo_(Moves const & moves);

    QDir target_;
    QTemporaryDir folder_;
    QString errorText_;
    struct archive * writer_ = nullptr;
};
