#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <system_error>

/// An error code and the text to show, returned where a failure is expected. Success exactly
/// when the code's value is 0; a default record has value 0 in the system category and an
/// empty text. Texts are composed by the caller: a prefix that ends in its own separator,
/// directly followed by the system's or the category's text. A plain value; dropping one
/// unread is a compile-time warning.
struct [[nodiscard]] LN_ErrorStruct
{
    /// Value 0 means success.
    std::error_code code;
    /// The text to show; empty on success.
    QString message;

    /// Whether the code's value is non-zero.
    bool isError() const { return code.value() != 0; }

    /// An errno value in the generic category, with LN_ErrorCode::errnoToString as text.
    DRAIZU_EXPORT static LN_ErrorStruct fromPosixErrno(int error);
    /// As above, the text directly behind `prefix`, which brings its own separator.
    DRAIZU_EXPORT static LN_ErrorStruct fromPosixErrno(int error, QString const & prefix);
    /// A system error number (errno on Linux) in the generic category, with
    /// LN_ErrorCode::errcodeToString as text.
    DRAIZU_EXPORT static LN_ErrorStruct fromWindowsError(unsigned long error);
    /// As above, the text directly behind `prefix`, which brings its own separator.
    DRAIZU_EXPORT static LN_ErrorStruct fromWindowsError(unsigned long error, QString const & prefix);
};
