#pragma once

#include <cstdint>

/// What to apply to a file or directory that the library creates: its permission bits and its
/// owner. A negative value leaves the system's choice in place: the default mode (0644 for a
/// file, 0755 for a directory) and the creating user and group.
struct LN_SecurityAttributes
{
    int mode = -1;
    std::int64_t owner = -1;
    std::int64_t group = -1;
};
