#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <stdexcept>
#include <string>

/// The library's exception for damaged data, misuse and failed files, thrown with a finished
/// English text that callers show as it is or behind a prefix of their own. A QString text is
/// held as UTF-8, so what() gives it back unchanged. LN_ApiHandlerValueException is a sibling,
/// not a child: a handler for this one does not catch it.
class DRAIZU_EXPORT LN_Exception : public std::runtime_error
{
public:
    /// Holds the text as it is.
    explicit LN_Exception(std::string const & text);
    /// Holds the text as UTF-8.
    explicit LN_Exception(QString const & text);
    /// Holds the text as it is.
    explicit LN_Exception(char const * text);
};
