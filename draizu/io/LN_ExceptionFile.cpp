#include <draizu/io/LN_ExceptionFile.h>

#include <draizu/core/LN_Exception.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 readAllPiece = 1024;

} // namespace

LN_ExceptionFile::LN_ExceptionFile(QString const & path, QIODeviceBase::OpenMode mode)
    : QFile(path)
{
    if (!open(mode))
        throw LN_Exception(u"Unable to open %1: %2"_s.arg(fileName(), errorString()));
}

LN_ExceptionFile::~LN_ExceptionFile()
{
    QFile::close();
}

void LN_ExceptionFile::close()
{
    QFile::close();
}

QString LN_ExceptionFile::filename() const
{
    return fileName();
}

qint64 LN_ExceptionFile::size() const
{
    return QFile::size();
}

QByteArray LN_ExceptionFile::read(qint64 maxSize)
{
    QByteArray result(maxSize, Qt::Uninitialized);
    qint64 const count = QFile::read(result.data(), maxSize);
    if (count < 0)
        throw LN_Exception(u"Error reading %1: %2"_s.arg(fileName(), errorString()));
    result.resize(count);
    return result;
}

QByteArray LN_ExceptionFile::readAll()
{
    QByteArray result;
    char buffer[readAllPiece];
    for (;;) {
        qint64 const count = QFile::read(buffer, readAllPiece);
        if (count < 0)
            throw LN_Exception(u"Error reading %1: %2"_s.arg(fileName(), errorString()));
        if (count == 0)
            return result;
        result.append(buffer, count);
    }
}

bool LN_ExceptionFile::resize(qint64 newSize)
{
    if (!QFile::resize(newSize))
        throw LN_Exception(u"Unable to resize %1: %2"_s.arg(fileName(), errorString()));
    return true;
}

bool LN_ExceptionFile::seek(qint64 offset)
{
    if (!QFile::seek(offset))
        throw LN_Exception(u"Unable to seek in %1: %2"_s.arg(fileName(), errorString()));
    return true;
}

qint64 LN_ExceptionFile::write(QByteArray const & data)
{
    qint64 const count = QFile::write(data);
    if (count < data.size())
        throw LN_Exception(u"Unable to write to %1: %2"_s.arg(fileName(), errorString()));
    return count;
}
