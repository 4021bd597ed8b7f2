#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <system_error>

/// An error code and the text to show. Success exactly when the code's value is 0; a default
/// record has value 0 in the system category and an empty text.
struct [[nodiscard]] LN_ErrorStruct
{
    std::error_code code;
    QString message;

    bool isError() const { return code.value() != 0; }

    /// The number in the generic category; the text is the prefix, which brings its own
    /// separator, directly followed by the system's text for the number.
    DRAIZU_EXPORT static LN_ErrorStruct fromPosixErrno(int error);
    DRAIZU_EXPORT static LN_ErrorStruct fromPosixErrno(int error, QString const & prefix);
    /// Takes the platform's system error number (errno on Linux), in the generic category.
    DRAIZU_EXPORT static LN_ErrorStruct fromWindowsError(unsigned long error);
    DRAIZU_EXPORT static LN_ErrorStruct fromWindowsError(unsigned long error, QString const & prefix);
};
