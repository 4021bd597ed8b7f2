#pragma once

#include <QString>

namespace LN_ServiceProgram {

/// The program of a service's command line: its first word, which double quotes may hold
/// together when it contains blanks.
inline QString programOf(QString const & commandLine)
{
    QString const line = commandLine.trimmed();
    if (line.startsWith(u'"')) {
        qsizetype const end = line.indexOf(u'"', 1);
        return end < 0 ? line.mid(1) : line.mid(1, end - 1);
    }
    return line.section(u' ', 0, 0);
}

} // namespace LN_ServiceProgram
