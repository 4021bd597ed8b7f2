#include <draizu/platform/LN_SystemError_p.h>

#include <cstring>

namespace {

// glibc answers every number; the ones it does not know come back as "Unknown error n".
constexpr char unknownPrefix[] = "Unknown error";

char const * systemText(int error, char * buffer, std::size_t size)
{
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
    return strerror_r(error, buffer, size);
#else
    return strerror_r(error, buffer, size) == 0 ? buffer : nullptr;
#endif
}

} // namespace

QString LN_SystemError::text(int error, bool * ok)
{
    char buffer[128] = {};
    char const * result = systemText(error, buffer, sizeof buffer);
    *ok = result != nullptr;
    return *ok ? QString::fromUtf8(result) : QString();
}

QString LN_SystemError::knownText(int error)
{
    bool ok = false;
    QString const result = text(error, &ok);
    if (!ok || result.startsWith(QLatin1String(unknownPrefix)))
        return QString();
    return result;
}
