#pragma once

#include <draizu/draizu_export.h>

#include <QUrl>

/// Fixed addresses of the account's traffic that the site overrides of LN_Urls leave alone:
/// the application login and the local oserver.
/// Each has a fixed default; a test may point one at a server of its own through its setter,
/// before the traffic that reads it starts. Read and set on the library's thread.
class DRAIZU_EXPORT LN_AccountSettings
{
public:
    /// Where an application login goes: "/oauth2/application_token" on the site's default
    /// host over HTTPS, whatever the environment names. Never fails.
    static QUrl applicationLoginUrl();

    /// The port of the local oserver on 127.0.0.1: 1714. Never fails.
    static quint16 oserverPort();

    /// Replaces the application login's address for the rest of the process, or until
    /// resetForTesting.
    static void setApplicationLoginUrlForTesting(QUrl const & url);
    /// Replaces the oserver's port for the rest of the process, or until resetForTesting.
    static void setOserverPortForTesting(quint16 port);
    /// Puts every address back to its default.
    static void resetForTesting();
};
