#pragma once

#include <draizu/platform/LN_NativeHandle.h>
#include <draizu/platform/LN_SecurityAttributes.h>

#include <QString>

/// The operating system's side of LN_File. Every function that returns an `int` gives 0 on
/// success and the system's error number otherwise.
namespace LN_NativeFile {

/// Creates a file that must not exist yet, open for writing only, and applies the attributes,
/// which may be null. A file whose attributes cannot be applied is removed again.
int createNew(QString const & path, LN_SecurityAttributes const * attributes, LN_NativeHandle * handle);

/// True for the error of a path whose directory does not exist.
bool isPathNotFound(int error);

int close(LN_NativeHandle handle);
/// Has the file's data on the device before returning.
int flush(LN_NativeHandle handle);
/// One read; `count` is 0 at the end of the file.
int read(LN_NativeHandle handle, char * buffer, unsigned long size, unsigned long * count);
/// One write, which may be short.
int write(LN_NativeHandle handle, char const * buffer, unsigned long size, unsigned long * count);

} // namespace LN_NativeFile
