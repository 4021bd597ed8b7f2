#pragma once

#include <cstdint>
#include <new>

/// An account that can own a file: a user or a group, by its numeric id. A plain record, so
/// that it can live in the bytes that LN_UserUtil hands out (see fromBytes); such a record lives
/// as long as those bytes.
struct LN_Sid
{
    /// Whether the id names a user or a group.
    enum Kind : std::uint32_t {
        Sid_User = 0,
        Sid_Group = 1,
    };

    Kind kind = Sid_User; ///< a user sid changes a file's user, a group sid its group
    std::uint32_t id = 0; ///< the user or group id

    /// The record held in bytes that LN_UserUtil returned; other bytes give undefined results.
    static LN_Sid * fromBytes(char * bytes) { return std::launder(reinterpret_cast<LN_Sid *>(bytes)); }
    /// The record held in bytes that LN_UserUtil returned, read-only.
    static LN_Sid const * fromBytes(char const * bytes)
    {
        return std::launder(reinterpret_cast<LN_Sid const *>(bytes));
    }
};
