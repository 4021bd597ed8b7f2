#include <draizu/io/LN_DiskFile.h>

#include <draizu/core/LN_ErrorCategory.h>

LN_DiskFile::LN_DiskFile(QString const & path, QObject * parent)
    : LN_IODevice(parent)
    , file(path)
{
}

LN_DiskFile::~LN_DiskFile() = default;

bool LN_DiskFile::open(std::error_code & ec, QString & message)
{
    if (file.open(QIODevice::ReadOnly))
        return true;
    ec = std::error_code(file.error(), QFileErrorCategory());
    message = file.errorString();
    return false;
}

qint64 LN_DiskFile::size() const
{
    return file.size();
}

QString LN_DiskFile::filename() const
{
    return file.fileName();
}

qint64 LN_DiskFile::readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message)
{
    qint64 const count = file.read(data, maxSize);
    if (count < 0) {
        ec = std::error_code(file.error(), QFileErrorCategory());
        message = file.errorString();
    }
    return count;
}
