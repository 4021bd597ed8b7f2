#include <draizu/api/LN_ApiHandlerValueException.h>

LN_ApiHandlerValueException::LN_ApiHandlerValueException()
    : std::runtime_error("No acceptable value found for function argument.")
{
}

LN_ApiHandlerValueException::LN_ApiHandlerValueException(char const * text)
    : std::runtime_error(text)
{
}
