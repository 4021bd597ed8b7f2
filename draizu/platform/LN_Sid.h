#pragma once

#include <cstdint>
#include <new>

/// An account that can own a file: a user or a group, by its numeric id. A plain record, so
/// that it can live in the bytes that LN_UserUtil hands out (see fromBytes).
struct LN_Sid
{
    enum Kind : std::uint32_t {
        Sid_User = 0,
        Sid_Group = 1,
    };

    Kind kind = Sid_User;
    std::uint32_t id = 0;

    /// The record held in bytes that LN_UserUtil returned.
    static LN_Sid * fromBytes(char * bytes) { return std::launder(reinterpret_cast<LN_Sid *>(bytes)); }
    static LN_Sid const * fromBytes(char const * bytes)
    {
        return std::launder(reinterpret_cast<LN_Sid const *>(bytes));
    }
};
