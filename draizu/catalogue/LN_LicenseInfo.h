#pragma once

#include <draizu/draizu_export.h>

#include <QJsonObject>

/// One licence agreement of a build, as the catalogue lists it under "license agreements".
/// The catalogue only carries it: the whole entry is kept as written for the check that the
/// agreements of a build have been accepted. A plain value record, copied at will; it cannot
/// fail.
struct DRAIZU_EXPORT LN_LicenseInfo
{
    /// An agreement with no entry.
    LN_LicenseInfo() = default;
    /// Keeps the catalogue's entry as it is.
    explicit LN_LicenseInfo(QJsonObject const & agreement);

    /// The catalogue's entry, untouched.
    QJsonObject agreement;
};
