#include <draizu/io/LN_ArchiveFile.h>

#include <draizu/core/LN_ErrorCategory.h>

#include <archive.h>
#include <archive_entry.h>

LN_ArchiveFile::LN_ArchiveFile(struct archive * archiveIn, struct archive_entry * entryIn, QObject * parent)
    : LN_IODevice(parent)
    , archive(archiveIn)
    , entry(entryIn)
{
}

LN_ArchiveFile::~LN_ArchiveFile() = default;

bool LN_ArchiveFile::open(std::error_code &, QString &)
{
    return true;
}

qint64 LN_ArchiveFile::size() const
{
    return archive_entry_size(entry);
}

QString LN_ArchiveFile::filename() const
{
    // The UTF-8 form does not depend on the process's locale; the plain form is the fallback
    // for names that libarchive cannot convert.
    if (char const * name = archive_entry_pathname_utf8(entry))
        return QString::fromUtf8(name);
    return QString::fromLocal8Bit(archive_entry_pathname(entry));
}

qint64 LN_ArchiveFile::readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message)
{
    la_ssize_t const count = archive_read_data(archive, data, static_cast<size_t>(maxSize));
    if (count < 0) {
        ec = make_error_code(LN_FileError::ArchiveError);
        message = QString::fromUtf8(archive_error_string(archive));
    }
    return count;
}
