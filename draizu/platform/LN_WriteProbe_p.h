#pragma once

#include <QString>

/// The system calls with which install planning finds out, by trying, whether a place can be
/// written to. Every function that returns an `int` gives 0 on success and the system's error
/// number otherwise; nothing is left open.
namespace LN_WriteProbe {

/// What an error number means to the probe.
enum class Outcome {
    Done,          ///< no error
    AccessDenied,  ///< the caller lacks the rights, or the file system is read-only
    PathNotFound,  ///< a directory on the way does not exist
    AlreadyExists, ///< something of that name is there already
    Other,         ///< anything else
};

/// Creates one directory with the default mode; the parent must exist.
int makeDirectory(QString const & path);
/// Creates the file for writing and closes it again: only a new one when `mustBeNew`,
/// otherwise an existing one is opened as it is, neither truncated nor touched.
int openForWriting(QString const & path, bool mustBeNew);
/// The meaning of an error number.
Outcome outcomeOf(int error);

} // namespace LN_WriteProbe
