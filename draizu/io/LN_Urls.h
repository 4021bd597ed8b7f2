#pragma once

#include <draizu/draizu_export.h>

#include <QString>
#include <QtGlobal>

/// Where the maker's site is: every URL the launcher opens, and the session cookie's name,
/// path and domain.
///
/// ORVANIS_LAUNCHER_SERVER_URL replaces scheme and host ("http://127.0.0.1:8080"; without a
/// scheme, "https://" is kept), and ORVANIS_LAUNCHER_COOKIE_DOMAIN replaces the cookie domain.
/// Both are read once, at the first instance(); later changes of the environment have no effect.
class DRAIZU_EXPORT LN_Urls
{
public:
    /// The site's pages; each maps to a fixed path.
    enum Url : qint32 {
        Url_Site = 0,
        Url_LoginLauncher = 1,
        Url_Login = 2,
        Url_Logout = 3,
        Url_Validate = 4,
        Url_Community = 5,
        Url_Learn = 6,
        Url_Tutorials = 7,
        Url_Forum = 8,
        Url_DownloadInstaller = 9,
        Url_DownloadSofs = 10,
        /// The list of this system's installer versions.
        Url_Versions = 11,
        /// The list of installer versions that update information is taken from.
        Url_UpdateVersions = 12,
        Url_LabsPackages = 13,
    };

    /// Built at first use, safe from any thread, kept to the end of the process.
    static LN_Urls const & instance();

    /// The site's host when the environment names none; also the default cookie domain.
    static QString defaultHost();

    /// Scheme, host and the URL's path put together as they are; Url_Site is scheme and host
    /// alone. Paths end in "/".
    QString getUrl(Url url) const;

    /// The name of the site's session cookie, "sessionid".
    QString sessionCookieName() const;
    /// The path of the session cookie, "/".
    QString sessionCookiePath() const;
    /// The domain of the session cookie: the environment's, as written, else the default host.
    QString sessionCookieDomain() const;

private:
    LN_Urls();

    QString host_;
    QString cookieDomain_;
    QString scheme_;
};
