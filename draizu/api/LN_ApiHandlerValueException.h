#pragma once

#include <draizu/draizu_export.h>

#include <stdexcept>

/// An argument of an API function that is missing or does not convert. A sibling of
/// LN_Exception, not a kind of it.
class DRAIZU_EXPORT LN_ApiHandlerValueException : public std::runtime_error
{
public:
    LN_ApiHandlerValueException();
    explicit LN_ApiHandlerValueException(char const * text);
};
