#include <draizu/io/LN_File.h>

#include <draizu/host/LN_Util.h>
#include <draizu/platform/LN_NativeFile_p.h>

#include <utility>

using namespace Qt::StringLiterals;

LN_File::LN_File() = default;

LN_File::LN_File(LN_NativeHandle nativeHandle)
    : handle_(nativeHandle)
{
}

LN_File::LN_File(LN_NativeHandle nativeHandle, QString const & name)
    : handle_(nativeHandle)
    , fileName_(name)
{
}

LN_File::LN_File(LN_File && other) noexcept
    : handle_(std::exchange(other.handle_, LN_InvalidNativeHandle))
    , fileName_(std::exchange(other.fileName_, QString()))
{
}

LN_File & LN_File::operator=(LN_File && other) noexcept
{
    if (this != &other) {
        // Assignment has no way to report a failed close; the handle is gone either way.
        if (handle_ != LN_InvalidNativeHandle)
            (void)close();
        handle_ = std::exchange(other.handle_, LN_InvalidNativeHandle);
        fileName_ = std::exchange(other.fileName_, QString());
    }
    return *this;
}

LN_File::~LN_File()
{
    // A destructor has no way to report a failed close; callers who care call close() first.
    if (handle_ != LN_InvalidNativeHandle)
        (void)close();
}

LN_Result<LN_File> LN_File::createFileWithOwner(QString const & path,
                                                LN_SecurityAttributes const * const & fileAttributes,
                                                LN_SecurityAttributes const * const & directoryAttributes, bool)
{
    LN_NativeHandle created = LN_InvalidNativeHandle;
    int error = LN_NativeFile::createNew(path, fileAttributes, &created);
    if (error != 0 && LN_NativeFile::isPathNotFound(error)) {
        // Only "/" separates on this platform; a backslash is part of a name. The search starts
        // before a trailing separator. Without one, the prefix is empty and the directory call
        // decides.
        qsizetype const separator = path.size() < 2 ? -1 : path.lastIndexOf(u'/', path.size() - 2);
        LN_ErrorStruct const directories =
            LN_Util::createDirectoriesWithOwner(path.left(separator + 1), directoryAttributes);
        if (directories.isError())
            return directories;
        error = LN_NativeFile::createNew(path, fileAttributes, &created);
    }
    if (error != 0)
        return LN_ErrorStruct::fromWindowsError(static_cast<unsigned long>(error),
                                                u"Failed to create file %1: "_s.arg(path));
    // The path is not kept: messages of a created file take the form without a name.
    return LN_File(created);
}

LN_ErrorStruct LN_File::close()
{
    LN_NativeHandle const old = std::exchange(handle_, LN_InvalidNativeHandle);
    if (int const error = LN_NativeFile::close(old))
        return formatErrorMessage_(static_cast<unsigned long>(error), u"close"_s);
    return {};
}

LN_ErrorStruct LN_File::flush()
{
    if (int const error = LN_NativeFile::flush(handle_))
        return formatErrorMessage_(static_cast<unsigned long>(error), u"flush"_s);
    return {};
}

LN_Result<unsigned long> LN_File::read(char * buffer, unsigned long size)
{
    unsigned long count = 0;
    if (int const error = LN_NativeFile::read(handle_, buffer, size, &count))
        return formatErrorMessage_(static_cast<unsigned long>(error), u"read"_s);
    return count;
}

LN_Result<unsigned long> LN_File::write(char const * buffer, unsigned long size, bool writeAll)
{
    unsigned long total = 0;
    do {
        // Each pass asks for what is left of the buffer, never for bytes beyond its end.
        unsigned long written = 0;
        if (int const error = LN_NativeFile::write(handle_, buffer + total, size - total, &written)) {
            LN_Result<unsigned long> failed(formatErrorMessage_(static_cast<unsigned long>(error), u"write"_s));
            failed.value = total + written;
            return failed;
        }
        total += written;
    } while (writeAll && total < size);
    return total;
}

LN_ErrorStruct LN_File::formatErrorMessage_(unsigned long code, QString const & verb) const
{
    QString const text = fileName_.isEmpty() ? u"Failed to %1 file: "_s.arg(verb)
                                             : u"Failed to %1 \"%2\": "_s.arg(verb, fileName_);
    return LN_ErrorStruct::fromWindowsError(code, text);
}
