#pragma once

#include <draizu/draizu_export.h>

#include <QString>

/// System texts for error numbers.
namespace LN_ErrorCode {

/// The system's text for the number followed by " (Error n)"; "Error number n." when the
/// system has no text for it.
DRAIZU_EXPORT QString errcodeToString(unsigned long error);

/// The system's text for an errno value.
DRAIZU_EXPORT QString errnoToString(int error);

} // namespace LN_ErrorCode
