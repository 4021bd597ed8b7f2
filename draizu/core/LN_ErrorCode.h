#pragma once

#include <draizu/draizu_export.h>

#include <QString>

/// The operating system's texts for its error numbers, for messages people read. Neither
/// function fails: a number without a text gets a sentence naming the number. Safe from any
/// thread.
namespace LN_ErrorCode {

/// The system's text for the number followed by " (Error n)"; "Error number n." for any number
/// that is not one of the system's, whatever its size.
DRAIZU_EXPORT QString errcodeToString(unsigned long error);

/// The system's text for an errno value; "Failed to get string for error number n" when the
/// system gives none.
DRAIZU_EXPORT QString errnoToString(int error);

} // namespace LN_ErrorCode
