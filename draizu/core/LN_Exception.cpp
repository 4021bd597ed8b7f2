#include <draizu/core/LN_Exception.h>

LN_Exception::LN_Exception(std::string const & text)
    : std::runtime_error(text)
{
}

LN_Exception::LN_Exception(QString const & text)
    : std::runtime_error(text.toStdString())
{
}

LN_Exception::LN_Exception(char const * text)
    : std::runtime_error(text)
{
}
