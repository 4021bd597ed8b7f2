#include <draizu/account/LN_AccountSettings.h>

#include <draizu/io/LN_Urls.h>

using namespace Qt::StringLiterals;

namespace {

QUrl & applicationLoginOverride()
{
    static QUrl url;
    return url;
}

// 0 means "not overridden".
quint16 & oserverPortOverride()
{
    static quint16 port = 0;
    return port;
}

} // namespace

QUrl LN_AccountSettings::applicationLoginUrl()
{
    QUrl const & url = applicationLoginOverride();
    if (!url.isEmpty())
        return url;
    return QUrl(u"https://"_s + LN_Urls::defaultHost() + u"/oauth2/application_token"_s);
}

quint16 LN_AccountSettings::oserverPort()
{
    return oserverPortOverride() != 0 ? oserverPortOverride() : quint16(1714);
}

void LN_AccountSettings::setApplicationLoginUrlForTesting(QUrl const & url)
{
    applicationLoginOverride() = url;
}

void LN_AccountSettings::setOserverPortForTesting(quint16 port)
{
    oserverPortOverride() = port;
}

void LN_AccountSettings::resetForTesting()
{
    applicationLoginOverride().clear();
    oserverPortOverride() = 0;
}
