#pragma once

#include <draizu/draizu_export.h>
#include <draizu/io/LN_IODevice.h>

struct archive;
struct archive_entry;

/// The current entry of an archive that someone else has open and positioned. Neither pointer
/// is owned; the stream is valid only until its owner moves on in the archive, so an entry is
/// read to its end before the next one is opened. Failures are code 2 of LN_FileErrorCategory
/// with the archive's own text.
///
/// Private to the library, which hands these streams out as LN_IODevice; exported for the tests.
class DRAIZU_EXPORT LN_ArchiveFile : public LN_IODevice
{
    Q_OBJECT

public:
    /// A stream over the entry that `archive` has just read the header of.
    LN_ArchiveFile(struct archive * archive, struct archive_entry * entry, QObject * parent = nullptr);
    ~LN_ArchiveFile() override;

    /// Nothing to do: the entry is open already. Always true.
    bool open(std::error_code & ec, QString & message) override;
    /// The entry's size as the archive records it.
    qint64 size() const override;
    /// The entry's path inside the archive.
    QString filename() const override;

protected:
    qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) override;

private:
    struct archive * archive_;
    struct archive_entry * entry_;
};
