#pragma once

#include <draizu/core/LN_ErrorStruct.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Result.h>

#include <QString>

#include <exception>
#include <system_error>
#include <type_traits>
#include <utility>

/// The two crossings between the library's failure forms, written once: a returned error
/// that the caller must throw, and thrown work whose caller must return an error. Texts pass
/// unchanged; the only thing added is the caller's prefix.
namespace LN_Failures {

namespace detail {
template <typename T> struct ResultOf { using type = LN_Result<T>; };
template <typename T> struct ResultOf<LN_Result<T>> { using type = LN_Result<T>; };
template <> struct ResultOf<void> { using type = LN_ErrorStruct; };
} // namespace detail

/// The result's value. Throws LN_Exception with `prefix` directly followed by the error's
/// message when the result holds an error.
template <typename T>
T valueOrThrow(LN_Result<T> && result, QString const & prefix = QString())
{
    if (result.isError())
        throw LN_Exception(prefix + result.error.message);
    return std::move(result.value);
}

/// Runs `work` and returns its outcome as a result: a value becomes an LN_Result, an LN_Result
/// passes as it is, and work without a value gives an LN_ErrorStruct. An LN_Exception or other
/// std::exception that the work throws becomes an error of `code` with the exception's text.
template <typename Work>
auto resultOf(std::error_code code, Work && work) -> typename detail::ResultOf<std::invoke_result_t<Work>>::type
{
    try {
        if constexpr (std::is_void_v<std::invoke_result_t<Work>>) {
            std::forward<Work>(work)();
            return LN_ErrorStruct{};
        } else {
            return std::forward<Work>(work)();
        }
    } catch (std::exception const & e) {
        return LN_ErrorStruct{code, QString::fromUtf8(e.what())};
    }
}

} // namespace LN_Failures
