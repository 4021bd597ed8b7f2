#pragma once

#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QNetworkCookie>
#include <QString>

/// The site's session cookie: named "sessionid", on the path "/", for the cookie domain of
/// LN_Urls. Pure functions of their arguments and of LN_Urls; safe from any thread.
namespace LN_CookieUtil {

/// A session cookie holding `value`, for the cookie domain, secure and HTTP-only. Cannot fail.
DRAIZU_EXPORT QNetworkCookie createSessionCookie(QByteArray const & value);
/// As above, with the UTF-8 bytes of `value`.
DRAIZU_EXPORT QNetworkCookie createSessionCookie(QString const & value);

/// Whether the cookie is the session cookie: named "sessionid" exactly, path exactly "/", and
/// a domain that is the cookie domain or ends in "." and the cookie domain (a subdomain, or
/// the domain with its leading dot). Case-sensitive throughout. Never fails.
DRAIZU_EXPORT bool isSessionidCookie(QNetworkCookie const & cookie);

} // namespace LN_CookieUtil
