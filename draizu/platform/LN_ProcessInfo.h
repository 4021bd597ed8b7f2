#pragma once

#include <QString>

#include <cstdint>

/// A process that holds a file open, as LN_Util::openHandlesToFile finds it: a plain record,
/// true at the moment it was taken, since the process may end or close the file at any time.
struct LN_ProcessInfo
{
    std::int64_t pid = 0; ///< the process id
    QString name;         ///< the process's short name; empty when it could not be read
};
