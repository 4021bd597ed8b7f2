#pragma once

#include <draizu/platform/LN_ProcessInfo.h>

#include <QList>
#include <QString>

/// Which processes hold a file open.
namespace LN_OpenFiles {

/// Each process with an open handle to the file, once. Processes that the caller may not
/// inspect are left out; a file that cannot be examined gives an empty list.
QList<LN_ProcessInfo> processesHolding(QString const & path);

} // namespace LN_OpenFiles
