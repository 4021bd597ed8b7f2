#pragma once

#include <draizu/draizu_export.h>
#include <draizu/records/LN_ComponentMetadata.h>

#include <QString>
#include <QVersionNumber>

class LN_InstallMetadata;

/// Questions about the repository that look beyond one record. They never fail: an absent
/// answer is a default record. Pure reads of the table, safe wherever the table is.
namespace LN_Metadata {

/// Another ready Orvanis installation to compare an update with: the lowest installed version
/// at or above `version` or, with `older` set, the highest below it. The record at
/// `directory` (compared exactly) is never the answer; of equal versions the first found
/// wins, in table order. A default record when none qualifies.
DRAIZU_EXPORT LN_ComponentMetadata getUpdateVersion(LN_InstallMetadata const & installations,
                                                    QString const & directory, QVersionNumber const & version,
                                                    bool older);

} // namespace LN_Metadata
