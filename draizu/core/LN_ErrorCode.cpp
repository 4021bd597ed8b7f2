#include <draizu/core/LN_ErrorCode.h>

#include <draizu/platform/LN_SystemError_p.h>

#include <limits>

QString LN_ErrorCode::errcodeToString(unsigned long error)
{
    // System error numbers are ints; a larger number must not wrap onto a known one.
    QString const text = error <= static_cast<unsigned long>(std::numeric_limits<int>::max())
        ? LN_SystemError::knownText(static_cast<int>(error))
        : QString();
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
