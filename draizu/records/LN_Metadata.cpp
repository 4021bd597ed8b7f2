#include <draizu/records/LN_Metadata.h>

#include <draizu/records/LN_InstallMetadata.h>

LN_ComponentMetadata LN_Metadata::getUpdateVersion(LN_InstallMetadata const & installations,
                                                   QString const & directory, QVersionNumber const & version,
                                                   bool older)
{
    LN_ComponentMetadata const * result = nullptr;
    QVersionNumber best;
    for (LN_ComponentMetadata const & record : installations.installations) {
        if (!record.ready || record.product != Product_Orvanis || record.installDir == directory)
            continue;
        int const againstVersion = QVersionNumber::compare(record.version, version);
        if (older ? againstVersion >= 0 : againstVersion < 0)
            continue;
        // Strict comparisons: of equal versions the first found stays.
        int const againstBest = QVersionNumber::compare(best, record.version);
        if (best.isNull() || (older ? againstBest < 0 : againstBest > 0)) {
            result = &record;
            best = record.version;
        }
    }
    return result ? *result : LN_ComponentMetadata();
}
