#include <draizu/account/LN_CookieUtil.h>

#include <draizu/io/LN_Urls.h>

QNetworkCookie LN_CookieUtil::createSessionCookie(QByteArray const & value)
{
    LN_Urls const & urls = LN_Urls::instance();
    QNetworkCookie cookie(urls.sessionCookieName().toUtf8(), value);
    cookie.setDomain(urls.sessionCookieDomain());
    cookie.setPath(urls.sessionCookiePath());
    cookie.setSecure(true);
    cookie.setHttpOnly(true);
    return cookie;
}

QNetworkCookie LN_CookieUtil::createSessionCookie(QString const & value)
{
    return createSessionCookie(value.toUtf8());
}

bool LN_CookieUtil::isSessionidCookie(QNetworkCookie const & cookie)
{
    LN_Urls const & urls = LN_Urls::instance();
    QString const domain = cookie.domain();
    QString const expected = urls.sessionCookieDomain();
    // A bare suffix test would let "evil" + domain through; the dot makes it a subdomain.
    bool const domainFits = domain == expected
                            || (domain.endsWith(expected) && domain.size() > expected.size()
                                && domain.at(domain.size() - expected.size() - 1) == u'.');
    return domainFits && cookie.name() == urls.sessionCookieName().toUtf8()
           && cookie.path() == urls.sessionCookiePath();
}
