#pragma once

/// An open file of the operating system: a file descriptor on POSIX systems. A plain number
/// that owns nothing by itself; LN_File closes the handles it holds.
using LN_NativeHandle = int;

/// The value of a handle that refers to no file.
inline constexpr LN_NativeHandle LN_InvalidNativeHandle = -1;
