#include <draizu/catalogue/LN_LicenseInfo.h>

LN_LicenseInfo::LN_LicenseInfo(QJsonObject const & object)
    : agreement(object)
{
}
