#pragma once

#include <QString>

#include <exception>

// The text of what `call` throws, or a null string.
template <typename F>
QString thrownBy(F && call)
{
    try {
        call();
    } catch (std::exception const & e) {
        return QString::fromUtf8(e.what());
    }
    return {};
}
