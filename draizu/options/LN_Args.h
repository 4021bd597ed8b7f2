#pragma once

#include <draizu/draizu_export.h>

#include <QList>
#include <QString>

/// One command-line string to a list of arguments and back, for executables that receive or
/// hand on a whole command line. The two are not exact inverses: joinArgs always quotes, and
/// splitArgs keeps an empty argument only where white space follows it. Neither fails.
namespace LN_Args {

/// The arguments of the string. White space separates them; ' and " quote, may open and close
/// inside an argument, and do not nest; a backslash takes the next character as it is, inside
/// quotes too, so a path with backslashes must double them. An unterminated quote runs to the
/// end; a trailing lone backslash is dropped; a final empty argument is dropped.
DRAIZU_EXPORT QList<QString> splitArgs(QString const & line);

/// Each argument in double quotes, with \ and " escaped by a backslash, joined by one blank.
/// splitArgs gives the list back whenever its last argument is non-empty.
DRAIZU_EXPORT QString joinArgs(QList<QString> const & arguments);

} // namespace LN_Args
