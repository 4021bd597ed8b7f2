#pragma once

#include <draizu/core/LN_ErrorStruct.h>

#include <utility>

/// A value or an error, for expected failures of file, network and parse work. Callers test
/// `error` first and read `value` only on success; after a failure `value` is
/// default-constructed. A plain value like the types it holds; dropping one unread is a
/// compile-time warning, since it is usually a failure gone unnoticed.
template <typename T>
struct [[nodiscard]] LN_Result
{
    /// Success (a default record) or the failure.
    LN_ErrorStruct error;
    /// The outcome; meaningful only when `error` is not an error.
    T value{};

    /// A success holding the value.
    LN_Result(T v)
        : value(std::move(v))
    {
    }

    /// A failure; the value is default-constructed.
    LN_Result(LN_ErrorStruct e)
        : error(std::move(e))
    {
    }

    /// Whether `error` holds a failure.
    bool isError() const { return error.isError(); }
};
