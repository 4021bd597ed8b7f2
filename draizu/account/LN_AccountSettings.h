#pragma once

#include <draizu/draizu_export.h>

#include <QUrl>

/// Fixed addresses of the account's traffic that the site overrides of LN_Urls leave alone.
/// Each has a fixed default; a test may point one at a server of its own through its setter,
/// before the traffic that reads it starts. Read and set on the library's thread.
class DRAIZU_EXPORT LN_AccountSettings
{
public:
    /// Where an application login goes: "/oauth2/application_token" on the site's default
    /// host over HTTPS, whatever the environment names. Never fails.
    static QUrl applicationLoginUrl();

    /// Replaces the application login's address for the rest of the process, or until
    /// resetForTesting.
    static void setApplicationLoginUrlForTesting(QUrl const & url);
    /// Puts every address back to its default.
    static void resetForTesting();
};
