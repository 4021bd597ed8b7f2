#pragma once

#include <draizu/draizu_export.h>

#include <stdexcept>

/// An argument of an API function that is missing or does not convert, thrown while the
/// arguments bind and out of exec, so that the front reports it as EXCEPTION. A sibling of
/// LN_Exception, not a kind of it: a handler that catches LN_Exception lets it pass. A value,
/// copied at will; safe on any thread.
class DRAIZU_EXPORT LN_ApiHandlerValueException : public std::runtime_error
{
public:
    /// "No acceptable value found for function argument."
    LN_ApiHandlerValueException();
    /// The given text, copied.
    explicit LN_ApiHandlerValueException(char const * text);
};
