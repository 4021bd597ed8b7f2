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
    /// Holds no file.
    LN_File();
    /// Takes ownership of an open handle; messages will say "file".
    explicit LN_File(LN_NativeHandle nativeHandle);
    /// Takes ownership of an open handle; messages will name the file `name`.
    LN_File(LN_NativeHandle nativeHandle, QString const & name);
    /// Takes the other's file and name; the other holds none afterwards.
    LN_File(LN_File && other) noexcept;
    /// Closes the file held, dropping a failure to close, then takes the other's.
    LN_File & operator=(LN_File && other) noexcept;
    /// Not copyable: one owner per handle.
    LN_File(LN_File const &) = delete;
    /// Not copyable: one owner per handle.
    LN_File & operator=(LN_File const &) = delete;
    /// Closes the file held; a failure to close is dropped, so call close() to see it.
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
    /// Has the written data on the device; the system's failure otherwise.
    LN_ErrorStruct flush();
    /// One read of at most `size` bytes; 0 bytes at the end of the file, the system's failure
    /// with a count of 0 otherwise.
    LN_Result<unsigned long> read(char * buffer, unsigned long size);
    /// Writes `size` bytes, with as many system calls as it takes when `writeAll` is set and
    /// with one otherwise, which may write fewer. On failure the value still counts the bytes
    /// that were written.
    LN_Result<unsigned long> write(char const * buffer, unsigned long size, bool writeAll);

private:
    LN_ErrorStruct formatErrorMessage_(unsigned long code, QString const & verb) const;

    LN_NativeHandle handle_ = LN_InvalidNativeHandle;
    QString fileName_;
};
