#include <draizu/io/LN_DiskFile.h>

#include <draizu/core/LN_ErrorCategory.h>

LN_DiskFile::LN_DiskFile(QString const & path, QObject * parent)
    : LN_IODevice(parent)
    , file_(path)
{
}

LN_DiskFile::~LN_DiskFile() = default;

bool LN_DiskFile::open(std::error_code & ec, QString & message)
{
    if (file_.open(QIODevice::ReadOnly))
        return true;
    ec = std::error_code(file_.error(), QFileErrorCategory());
    message = file_.errorString();
    return false;
}

qint64 LN_DiskFile::size() const
{
    return file_.size();
}

QString LN_DiskFile::filename() const
{
    return file_.fileName();
}

qint64 LN_DiskFile::readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message)
{
    qint64 const count = file_.read(data, maxSize);
    if (count < 0) {
        ec = std::error_code(file_.error(), QFileErrorCategory());
        message = file_.errorString();
    }
    return count;
}
