#pragma once

#include <QString>

struct archive;
struct archive_entry;

/// What the readers of offline installer archives share: how an archive is opened, and how its
/// names and errors become text.
namespace LN_Archive {

/// Prepares a new reader for an uncompressed archive of any format and opens the file for
/// forward reading. Returns libarchive's status; the reader is the caller's to free either way.
int openFile(archive * reader, QString const & path);

/// The entry's path name, as UTF-8 where the archive records it, else in the local encoding.
QString entryPathname(archive_entry * entry);

/// The reader's last error, or an empty text.
QString errorText(archive * reader);

} // namespace LN_Archive
