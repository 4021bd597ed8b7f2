#include <draizu/io/LN_Archive_p.h>

#include <QFile>

#include <archive.h>
#include <archive_entry.h>

namespace {

constexpr size_t blockSize = 10240;

} // namespace

int LN_Archive::openFile(archive * reader, QString const & path)
{
    if (int const status = archive_read_support_filter_none(reader); status != ARCHIVE_OK)
        return status;
    if (int const status = archive_read_support_format_all(reader); status != ARCHIVE_OK)
        return status;
    return archive_read_open_filename(reader, QFile::encodeName(path).constData(), blockSize);
}

QString LN_Archive::entryPathname(archive_entry * entry)
{
    if (char const * utf8 = archive_entry_pathname_utf8(entry))
        return QString::fromUtf8(utf8);
    if (char const * local = archive_entry_pathname(entry))
        return QString::fromLocal8Bit(local);
    return QString();
}

QString LN_Archive::errorText(archive * reader)
{
    char const * text = archive_error_string(reader);
    return text ? QString::fromUtf8(text) : QString();
}
