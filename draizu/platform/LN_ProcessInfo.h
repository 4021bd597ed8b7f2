#pragma once

#include <QString>

#include <cstdint>

/// A process that holds a file open.
struct LN_ProcessInfo
{
    std::int64_t pid = 0;
    QString name;
};
