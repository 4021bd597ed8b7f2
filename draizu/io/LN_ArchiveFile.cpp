#include <draizu/io/LN_ArchiveFile_p.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_Archive_p.h>

#include <archive.h>
#include <archive_entry.h>

LN_ArchiveFile::LN_ArchiveFile(struct archive * archive, struct archive_entry * entry, QObject * parent)
    : LN_IODevice(parent)
    , archive_(archive)
    , entry_(entry)
{
}

LN_ArchiveFile::~LN_ArchiveFile() = default;

bool LN_ArchiveFile::open(std::error_code &, QString &)
{
    return true;
}

qint64 LN_ArchiveFile::size() const
{
    return archive_entry_size(entry_);
}

QString LN_ArchiveFile::filename() const
{
    return LN_Archive::entryPathname(entry_);
}

qint64 LN_ArchiveFile::readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message)
{
    la_ssize_t const count = archive_read_data(archive_, data, static_cast<size_t>(maxSize));
    if (count < 0) {
        ec = make_error_code(LN_FileError::ArchiveError);
        message = LN_Archive::errorText(archive_);
    }
    return count;
}
