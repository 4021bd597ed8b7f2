#include <draizu/io/LN_Urls.h>

#include <QHash>
#include <QProcessEnvironment>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

// Both version lists name this system's installers, so they differ from one build of the
// launcher to another.
QHash<LN_Urls::Url, QString> const urlPaths = {
    {LN_Urls::Url_Site, QString()},
    {LN_Urls::Url_LoginLauncher, u"/login/launcher/"_s},
    {LN_Urls::Url_Login, u"/login/"_s},
    {LN_Urls::Url_Logout, u"/logout/"_s},
    {LN_Urls::Url_Validate, u"/validate/"_s},
    {LN_Urls::Url_Community, u"/community/"_s},
    {LN_Urls::Url_Learn, u"/learn/"_s},
    {LN_Urls::Url_Tutorials, u"/tutorials/"_s},
    {LN_Urls::Url_Forum, u"/forum/"_s},
    {LN_Urls::Url_DownloadInstaller, u"/download/download-installer/"_s},
    {LN_Urls::Url_DownloadSofs, u"/download/sofs/"_s},
    {LN_Urls::Url_Versions, u"/download/download-installer/versions/linux/"_s},
    {LN_Urls::Url_UpdateVersions, u"/download/download-installer/versions/linux/"_s},
    {LN_Urls::Url_LabsPackages, u"/download/download-labs/packages/"_s},
};

} // namespace

LN_Urls::LN_Urls()
{
    QRegularExpression const schemeAndHost(u"(https?://)(.*)"_s);
    QProcessEnvironment const environment = QProcessEnvironment::systemEnvironment();

    host_ = environment.value(u"ORVANIS_LAUNCHER_SERVER_URL"_s);
    scheme_ = u"https://"_s;
    if (host_.isEmpty()) {
        host_ = defaultHost();
    } else {
        QRegularExpressionMatch const match = schemeAndHost.match(host_);
        if (match.hasMatch()) {
            scheme_ = match.captured(1);
            host_ = match.captured(2);
        }
    }

    cookieDomain_ = environment.value(u"ORVANIS_LAUNCHER_COOKIE_DOMAIN"_s);
    if (cookieDomain_.isEmpty()) {
        cookieDomain_ = defaultHost();
    } else {
        // Tested against the host, which has lost its scheme by now: a cookie domain given
        // with a scheme keeps it.
        QRegularExpressionMatch const match = schemeAndHost.match(host_);
        if (match.hasMatch())
            cookieDomain_ = match.captured(2);
    }
}

LN_Urls const & LN_Urls::instance()
{
    static LN_Urls const urls;
    return urls;
}

QString LN_Urls::defaultHost()
{
    return u"www.orvanis.com"_s;
}

QString LN_Urls::getUrl(Url url) const
{
    return scheme_ + host_ + urlPaths.value(url);
}

QString LN_Urls::sessionCookieName() const
{
    return u"sessionid"_s;
}

QString LN_Urls::sessionCookiePath() const
{
    return u"/"_s;
}

QString LN_Urls::sessionCookieDomain() const
{
    return cookieDomain_;
}
