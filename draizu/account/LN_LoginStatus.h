#pragma once

#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QtGlobal>

class LN_SettingsFile;
class QJsonObject;
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;

/// Where the account's login stands.
enum class LN_LoginState : qint32 {
    LoggedOut = 0,    ///< no session; the initial state
    LoggingIn = 1,    ///< a login is in flight
    Reconnecting = 2, ///< a stored session is being validated
    LoggedIn = 3,     ///< the site has accepted the session or the access token
    LoggingOut = 4,   ///< a logout is in flight
};

/// The account's login for the whole process. It logs in on the site by password or by
/// application credentials, validates a stored session or access token, and logs out, each
/// by one POST of a form; a password login or a session validation leaves the session
/// cookie's value, an application login an access token.
///
/// Calls return at once and report through signals: `error` with a finished English text,
/// always before the `loginStateChanged` it causes. A request unanswered after
/// LN_Waits::LoginAbort is aborted and reported as a timeout. A failed login or validation
/// ends in LoggedOut, a failed logout in LoggedIn with the session kept. Whenever the state
/// becomes LoggedOut, the session and the user name are cleared first. Nothing stops a second
/// request while one is in flight; each is read when it finishes. Nothing throws.
///
/// Lives on the thread of its event loop and of the manager, which is not owned and must
/// outlive the requests.
class DRAIZU_EXPORT LN_LoginStatus : public QObject
{
    Q_OBJECT

public:
    /// What the site tells of the logged-in user. A plain value record.
    struct UserData
    {
        QString username; ///< empty when unknown
    };

    /// LoggedOut, with no session, token or user.
    explicit LN_LoginStatus(QNetworkAccessManager * manager, QObject * parent = nullptr);

    /// Sets the state and emits loginStateChanged, unless it is the state already; LoggedOut
    /// clears the session and the user name first.
    void setLoginState(LN_LoginState state);
    /// Validates the current session again, in Reconnecting.
    void refresh();

    /// The current state.
    LN_LoginState loginState() const;
    /// The session cookie's value; empty when there is none.
    QString sessionID() const;
    /// The access token of an application login; empty when there is none.
    QByteArray accessToken() const;
    /// The user that the site named; empty while logged out.
    UserData userData() const;

    /// Runs a local event loop, user input held back, until the next change of state of any
    /// kind; a caller that wants an end state calls again. False when `error` was emitted
    /// meanwhile, its last text then in `error`; true leaves `error` as it was.
    bool waitForStateChanged(QString & error);

public Q_SLOTS:
    /// Logs in with a password, in LoggingIn.
    void initiateLogin(QString const & username, QString const & password);
    /// Logs in with the file's application credentials when both are there, else with its
    /// user name and password when both are there, and returns true; false changes nothing.
    bool initiateLogin(LN_SettingsFile const & settings_file);
    /// Logs in with application credentials, in LoggingIn, then validates the access token
    /// that the site gives.
    void initiateOauthLogin(QString const & client, QString const & secret);
    /// Validates a stored session, in Reconnecting, and keeps it as the session.
    void initiateReconnectSession(QByteArray const & sessionID);
    /// Validates an access token without a change of state, and keeps it as the token.
    void initiateReconnectAccessToken(QByteArray const & accessToken);
    /// Drops the token and logs out, in LoggingOut.
    void initiateLogout();
    /// Takes a login that happened elsewhere: stores the user name and becomes LoggedIn. The
    /// session is not stored; no request is made.
    void loggedInWithUserData(QByteArray const & sessionID, QString const & username);
    /// Validates a session that was created elsewhere, without a change of state.
    void loggedInWithSessionID(QByteArray const & sessionID);
    /// Takes a token login that happened elsewhere: stores the user name and becomes LoggedIn.
    void loggedInWithAccessToken(QString const & username);

Q_SIGNALS:
    /// The state changed; emitted after `newState` is stored, only on a real change.
    void loginStateChanged(LN_LoginState oldState, LN_LoginState newState);
    /// An exchange failed; the text is finished and shown as it is.
    void error(QString const & description);

private:
    using Reader = void (LN_LoginStatus::*)(QNetworkReply *);

    void doReconnectSession_(QByteArray const & sessionID);
    void post_(QNetworkRequest request, QByteArray const & body, LN_LoginState failureState,
               QString const & prefix, Reader reader);
    void connectReplyCallbacks_(QNetworkReply * reply, LN_LoginState failureState, QString const & prefix,
                                Reader reader);
    void invalidateSession_();
    void failToLoggedOut_(QString const & text);
    bool readTokenAnswer_(QNetworkReply * reply, QJsonObject * answer);

    void readLoginResponse_(QNetworkReply * reply);
    void readLogoutResponse_(QNetworkReply * reply);
    void readOauthLoginResponse_(QNetworkReply * reply);
    void readReconnectResponse_(QNetworkReply * reply);
    void readReconnectAccessTokenResponse_(QNetworkReply * reply);

    QNetworkAccessManager * manager_;
    LN_LoginState state_ = LN_LoginState::LoggedOut;
    QByteArray session_;
    QByteArray token_;
    UserData userData_;
};
