#include <draizu/account/LN_AccountSettings.h>

#include <draizu/io/LN_Urls.h>

using namespace Qt::StringLiterals;

namespace {

QUrl & applicationLoginOverride()
{
    static QUrl url;
    return url;
}

} // namespace

QUrl LN_AccountSettings::applicationLoginUrl()
{
    QUrl const & url = applicationLoginOverride();
    if (!url.isEmpty())
        return url;
    return QUrl(u"https://"_s + LN_Urls::defaultHost() + u"/oauth2/application_token"_s);
}

void LN_AccountSettings::setApplicationLoginUrlForTesting(QUrl const & url)
{
    applicationLoginOverride() = url;
}

void LN_AccountSettings::resetForTesting()
{
    applicationLoginOverride().clear();
}
