#pragma once

#include <draizu/draizu_export.h>

#include <QJsonObject>

/// One licence agreement of a build, as the catalogue lists it under "license agreements".
/// The catalogue only carries it: the whole entry is kept as written for the check that the
/// agreements of a build have been accepted.
struct DRAIZU_EXPORT LN_LicenseInfo
{
    LN_LicenseInfo() = default;
    explicit LN_LicenseInfo(QJsonObject const & agreement);

    QJsonObject agreement;
};
