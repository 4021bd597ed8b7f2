#include <draizu/core/LN_ErrorCode.h>

#include <draizu/platform/LN_SystemError_p.h>

QString LN_ErrorCode::errcodeToString(unsigned long error)
{
    auto const number = static_cast<int>(error);
    QString const text = LN_SystemError::knownText(number);
    if (text.isEmpty())
        return QStringLiteral("Error number %2.").arg(error);
    return text + QStringLiteral(" (Error %1)").arg(error);
}

QString LN_ErrorCode::errnoToString(int error)
{
    bool ok = false;
    QString const text = LN_SystemError::text(error, &ok);
    if (!ok)
        return QStringLiteral("Failed to get string for error number %1").arg(error);
    return text;
}
