#pragma once

#include <draizu/core/LN_ErrorStruct.h>
#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>
#include <draizu/platform/LN_NativeHandle.h>
#include <draizu/platform/LN_SecurityAttributes.h>

#include <QString>

/// An open file of the operating system, owned: destruction closes it. Movable, not copyable;
/// a moved-from LN_File holds no file. Never throws: every failure comes back as a value whose
/// text names the file when the LN_File was given a name, and ends in the system's text.
class DRAIZU_EXPORT LN_File
{
public:
    LN_File();
    explicit LN_File(LN_NativeHandle nativeHandle);
    LN_File(LN_NativeHandle nativeHandle, QString const & name);
    LN_File(LN_File && other) noexcept;
    LN_File & operator=(LN_File && other) noexcept;
    LN_File(LN_File const &) = delete;
    LN_File & operator=(LN_File const &) = delete;
    ~LN_File();

    /// Creates a new file for writing; an existing file is an error and stays untouched. When
    /// the file's directory is missing, it is created with `directoryAttributes` and the file
    /// is tried once more. Either attributes pointer may be null. The last parameter has no
    /// effect. The result carries no name, so its later messages say "file".
    static LN_Result<LN_File> createFileWithOwner(QString const & path,
                                                  LN_SecurityAttributes const * const & fileAttributes,
                                                  LN_SecurityAttributes const * const & directoryAttributes,
                                                  bool unused);

    /// Closes the file; afterwards the LN_File holds none, also when closing failed. Closing
    /// one that holds no file is reported as the system's failure.
    LN_ErrorStruct close();
    /// Has the written data on the device.
    LN_ErrorStruct flush();
    /// One read of at most `size` bytes; 0 bytes at the end of the file.
    LN_Result<unsigned long> read(char * buffer, unsigned long size);
    /// Writes `size` bytes, with as many system calls as it takes when `writeAll` is set and
    /// with one otherwise, which may write fewer. On failure the value still counts the bytes
    /// that were written.
    LN_Result<unsigned long> write(char const * buffer, unsigned long size, bool writeAll);

private:
    LN_ErrorStruct formatErrorMessage(unsigned long code, QString const & verb) const;

    LN_NativeHandle handle = LN_InvalidNativeHandle;
    QString fileName;
};
