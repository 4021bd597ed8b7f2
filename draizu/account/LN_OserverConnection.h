#pragma once

#include <draizu/draizu_export.h>

#include <QList>
#include <QNetworkCookie>
#include <QObject>
#include <QString>
#include <QUrl>

class LN_LoginStatus;
class QNetworkAccessManager;
class QNetworkReply;

/// The client of the local oserver, the helper that runs as the system service "OrvanisServer"
/// and holds the site's cookies. Each exchange is one request to "/api" on 127.0.0.1 at
/// LN_AccountSettings::oserverPort, with a fixed command as the form field "json".
///
/// It pings the oserver, starts it through the service manager when a cookie pull finds it
/// down (one start, then one ping after LN_Waits::OserverStart), pulls its cookies into the
/// manager's cookie jar, hands a session cookie it has not seen before to the login status
/// for validation, tells it to drop the session and stops it. Outcomes come as signals with a
/// success flag and a finished English text; nothing throws. A cookie sync whose start of the
/// oserver fails ends without a signal.
///
/// Lives on the thread of its event loop and of the manager; the login status and the manager
/// are not owned, and replies stay with the manager.
class DRAIZU_EXPORT LN_OserverConnection : public QObject
{
    Q_OBJECT

public:
    /// Talks to the oserver through `manager` and hands sessions to `loginStatus`.
    LN_OserverConnection(LN_LoginStatus & loginStatus, QNetworkAccessManager * manager);

    /// Pulls the oserver's cookies, starting the oserver first when it does not answer; ends in
    /// syncCookiesFinished unless that start fails.
    void syncCookiesFromOserver();
    /// Stops the oserver and waits for the outcome, at most LN_Waits::OserverStop. True when it
    /// stopped; false with its text in `error`, or with `error` untouched when time ran out.
    bool stopOserverSync(QString & error);
    /// Sends later exchanges through another manager.
    void setNetworkAccessManager(QNetworkAccessManager * manager);

public Q_SLOTS:
    /// Asks whether the oserver answers; ends in pingedOserver.
    void pingOserver();
    /// Tells the oserver to shut down, by PUT and once more by POST; ends in stoppedOserver.
    void stopOserver();
    /// Tells the oserver to drop the site's session; ends in loggedOserverOut.
    void logoutOserver();

Q_SIGNALS:
    /// Whether the oserver answered a ping.
    void pingedOserver(bool connected);
    /// Whether the oserver answers after the check and, where needed, the start.
    void startedOserver(bool success);
    /// Whether the oserver took the shutdown; else the failure's text.
    void stoppedOserver(bool success, QString const & error_msg);
    /// Whether the oserver took the logout.
    void loggedOserverOut(bool success);
    /// Whether the cookies were read; else the failure's text.
    void syncCookiesFinished(bool success, QString const & error_msg);

private:
    static QUrl getOserverUrl_();
    QNetworkReply * send_(QByteArray const & verb, QByteArray const & command);
    void pullCookiesFromOserver_(bool startIfNeeded);
    void syncCookiesFromOserver_();
    void handleCookiesFromOserver_(QNetworkReply * reply);
    void startOserver_();
    void startOserverService_();
    void stopOserver_(bool usePut);

    LN_LoginStatus & loginStatus_;
    QNetworkAccessManager * manager_;
    QUrl url_;
    QList<QNetworkCookie> lastCookies_;
};
