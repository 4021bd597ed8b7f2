#include <draizu/core/LN_ErrorStruct.h>

#include <draizu/core/LN_ErrorCode.h>

LN_ErrorStruct LN_ErrorStruct::fromPosixErrno(int error)
{
    return fromPosixErrno(error, QString());
}

LN_ErrorStruct LN_ErrorStruct::fromPosixErrno(int error, QString const & prefix)
{
    return {std::error_code(error, std::generic_category()), prefix + LN_ErrorCode::errnoToString(error)};
}

LN_ErrorStruct LN_ErrorStruct::fromWindowsError(unsigned long error)
{
    return fromWindowsError(error, QString());
}

LN_ErrorStruct LN_ErrorStruct::fromWindowsError(unsigned long error, QString const & prefix)
{
    return {std::error_code(static_cast<int>(error), std::generic_category()),
            prefix + LN_ErrorCode::errcodeToString(error)};
}
