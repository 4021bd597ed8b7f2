#pragma once

#include <QString>

#include <exception>

// The text of what `call` throws, or a null string when it returns, so that a test of an
// exception's text is one comparison: QCOMPARE(thrownBy([&] { f(); }), u"..."_s).
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
