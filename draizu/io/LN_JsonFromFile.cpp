#include <draizu/io/LN_JsonFromFile.h>

#include <draizu/core/LN_JsonUtils_p.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_IODevice.h>

#include <array>

namespace LN_JsonUtils {

LN_Result<QJsonDocument> jsonFromFile(LN_ExceptionFile & file)
{
    return parseNamed(file.readAll(), file.filename());
}

LN_Result<QJsonDocument> jsonFromFile(LN_IODevice & device)
{
    QByteArray bytes;
    std::array<char, 1024> chunk;
    std::error_code ec;
    QString message;
    qint64 count = 0;
    while ((count = device.read(chunk.data(), qint64(chunk.size()), ec, message)) > 0)
        bytes.append(chunk.data(), count);
    if (count < 0)
        return LN_ErrorStruct{ec, message};
    return parseNamed(bytes, device.filename());
}

} // namespace LN_JsonUtils
