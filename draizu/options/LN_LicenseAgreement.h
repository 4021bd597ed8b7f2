#pragma once

#include <QJsonObject>

/// One licence acceptance carried with an install operation. The options only carry it, the
/// check that the agreements of a build have been accepted reads it; the entry is kept as
/// written, so that it passes between processes unchanged.
struct LN_LicenseAgreement
{
    /// The acceptance as written by the acceptance check.
    QJsonObject agreement;

    /// Equal when the entries are equal as JSON.
    friend bool operator==(LN_LicenseAgreement const & a, LN_LicenseAgreement const & b)
    {
        return a.agreement == b.agreement;
    }
    /// Negation of operator==.
    friend bool operator!=(LN_LicenseAgreement const & a, LN_LicenseAgreement const & b) { return !(a == b); }
};
