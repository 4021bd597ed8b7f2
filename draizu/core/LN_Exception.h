#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <stdexcept>
#include <string>

/// The library's exception for damaged data, misuse and failed files. Carries a finished
/// English text; a QString is held as UTF-8.
class DRAIZU_EXPORT LN_Exception : public std::runtime_error
{
public:
    explicit LN_Exception(std::string const & text);
    explicit LN_Exception(QString const & text);
    explicit LN_Exception(char const * text);
};
