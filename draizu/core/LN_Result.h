#pragma once

#include <draizu/core/LN_ErrorStruct.h>

#include <utility>

/// A value or an error. The value is meaningful only when `error` is not an error.
template <typename T>
struct [[nodiscard]] LN_Result
{
    LN_ErrorStruct error;
    T value{};

    LN_Result(T v)
        : value(std::move(v))
    {
    }

    LN_Result(LN_ErrorStruct e)
        : error(std::move(e))
    {
    }

    bool isError() const { return error.isError(); }
};
