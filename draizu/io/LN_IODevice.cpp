#include <draizu/io/LN_IODevice.h>

namespace {

constexpr qint64 readAllPiece = 1024;

} // namespace

LN_IODevice::LN_IODevice(QObject * parent)
    : QObject(parent)
{
}

LN_IODevice::~LN_IODevice() = default;

qint64 LN_IODevice::read(char * data, qint64 maxSize)
{
    std::error_code ec;
    QString message;
    return readImpl(data, maxSize, ec, message);
}

qint64 LN_IODevice::read(char * data, qint64 maxSize, std::error_code & ec, QString & message)
{
    return readImpl(data, maxSize, ec, message);
}

qint64 LN_IODevice::readAll(QByteArray & out)
{
    std::error_code ec;
    QString message;
    return readAll(out, ec, message);
}

qint64 LN_IODevice::readAll(QByteArray & out, std::error_code & ec, QString & message)
{
    out.clear();
    char buffer[readAllPiece];
    qint64 result = 0;
    while ((result = readImpl(buffer, readAllPiece, ec, message)) > 0)
        out.append(buffer, result);
    return result == 0 ? out.size() : result;
}
