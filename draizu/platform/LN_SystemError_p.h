#pragma once

#include <QString>

/// Texts of the operating system's error numbers.
namespace LN_SystemError {

/// The system's text for the number; `ok` is false when the system could not give one.
QString text(int error, bool * ok);

/// The system's text for a number it knows, or an empty string for one it does not.
QString knownText(int error);

} // namespace LN_SystemError
