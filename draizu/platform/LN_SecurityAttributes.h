#pragma once

#include <cstdint>

/// What to apply to a file or directory that the library creates: its permission bits and its
/// owner. A plain record. A negative value leaves the system's choice in place: the default
/// mode (0644 for a file, 0755 for a directory) and the creating user and group. Bits that are
/// given are applied exactly, whatever the umask; a file or directory that cannot be given
/// what is asked for is removed again and the creation fails.
struct LN_SecurityAttributes
{
    int mode = -1;           ///< permission bits, such as 0750; negative for the default
    std::int64_t owner = -1; ///< owning user id; negative for the creating user
    std::int64_t group = -1; ///< owning group id; negative for the creating group
};
