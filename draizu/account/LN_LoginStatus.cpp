#include <draizu/account/LN_LoginStatus.h>

#include <draizu/account/LN_AccountSettings.h>
#include <draizu/account/LN_CookieUtil.h>
#include <draizu/account/LN_SettingsFile.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_Urls.h>

#include <QEventLoop>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkReply>
#include <QTimer>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

QString loginFailure()
{
    return u"Failed to log in: "_s;
}

QString notAnObject()
{
    return u"Incorrect JSON response. Expected object."_s;
}

QNetworkRequest siteRequest(LN_Urls::Url url)
{
    return LN_Util::createHttpRequest(QUrl(LN_Urls::instance().getUrl(url)));
}

// The form keeps a '+' as it is, which the site would read as a blank; encoded beforehand,
// every character of a name or a password reaches the site as itself.
QString percentEncoded(QString const & value)
{
    return QString::fromUtf8(QUrl::toPercentEncoding(value));
}

QByteArray formBody(QUrlQuery const & form)
{
    return form.toString(QUrl::FullyEncoded).toUtf8();
}

// What remains of the body, read in pieces; false when a read failed. A finished reply with
// nothing left answers a read with -1, so an answer without a body counts as unreadable.
bool readBody(QNetworkReply * reply, QByteArray * body)
{
    char buffer[1024];
    qint64 count = 0;
    do {
        count = reply->read(buffer, sizeof buffer);
        if (count > 0)
            body->append(buffer, count);
    } while (count > 0 && !reply->atEnd());
    return count >= 0;
}

} // namespace

LN_LoginStatus::LN_LoginStatus(QNetworkAccessManager * manager, QObject * parent)
    : QObject(parent)
    , manager_(manager)
{
}

void LN_LoginStatus::setLoginState(LN_LoginState state)
{
    if (state == state_)
        return;
    if (state == LN_LoginState::LoggedOut)
        invalidateSession_();
    LN_LoginState const oldState = state_;
    state_ = state;
    Q_EMIT loginStateChanged(oldState, state);
}

void LN_LoginStatus::refresh()
{
    setLoginState(LN_LoginState::Reconnecting);
    doReconnectSession_(session_);
}

LN_LoginState LN_LoginStatus::loginState() const
{
    return state_;
}

QString LN_LoginStatus::sessionID() const
{
    return QString::fromUtf8(session_);
}

QByteArray LN_LoginStatus::accessToken() const
{
    return token_;
}

LN_LoginStatus::UserData LN_LoginStatus::userData() const
{
    return userData_;
}

bool LN_LoginStatus::waitForStateChanged(QString & error)
{
    bool result = true;
    QEventLoop loop;
    // Both connections end with the loop, so nothing refers to the caller's string later.
    connect(this, &LN_LoginStatus::error, &loop, [&result, &error](QString const & description) {
        result = false;
        error = description;
    });
    connect(this, &LN_LoginStatus::loginStateChanged, &loop, [&loop] { loop.exit(0); });
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    return result;
}

void LN_LoginStatus::initiateLogin(QString const & username, QString const & password)
{
    setLoginState(LN_LoginState::LoggingIn);
    QUrlQuery form;
    form.addQueryItem(u"format"_s, u"json"_s);
    form.addQueryItem(u"username"_s, percentEncoded(username));
    form.addQueryItem(u"password"_s, percentEncoded(password));
    post_(siteRequest(LN_Urls::Url_LoginLauncher), formBody(form), LN_LoginState::LoggedOut, loginFailure(),
          &LN_LoginStatus::readLoginResponse_);
}

bool LN_LoginStatus::initiateLogin(LN_SettingsFile const & settings_file)
{
    if (!settings_file.clientId().isEmpty() && !settings_file.clientSecret().isEmpty()) {
        initiateOauthLogin(settings_file.clientId(), settings_file.clientSecret());
        return true;
    }
    if (!settings_file.username().isEmpty() && !settings_file.password().isEmpty()) {
        initiateLogin(settings_file.username(), settings_file.password());
        return true;
    }
    return false;
}

void LN_LoginStatus::initiateOauthLogin(QString const & client, QString const & secret)
{
    QByteArray const authorization = "Basic " + (client + u':' + secret).toLocal8Bit().toBase64();
    setLoginState(LN_LoginState::LoggingIn);
    // Not a site path: the application login stays on the real host whatever LN_Urls says.
    QNetworkRequest request(LN_AccountSettings::applicationLoginUrl());
    request.setRawHeader("Authorization", authorization);
    post_(request, {}, LN_LoginState::LoggedOut, loginFailure(), &LN_LoginStatus::readOauthLoginResponse_);
}

void LN_LoginStatus::initiateReconnectSession(QByteArray const & sessionID)
{
    setLoginState(LN_LoginState::Reconnecting);
    doReconnectSession_(sessionID);
}

void LN_LoginStatus::initiateReconnectAccessToken(QByteArray const & accessToken)
{
    QNetworkRequest request = siteRequest(LN_Urls::Url_Validate);
    request.setRawHeader("Authorization", "Bearer " + accessToken);
    post_(request, {}, LN_LoginState::LoggedOut, loginFailure(), &LN_LoginStatus::readReconnectAccessTokenResponse_);
    token_ = accessToken;
}

void LN_LoginStatus::initiateLogout()
{
    token_.clear();
    setLoginState(LN_LoginState::LoggingOut);
    QUrlQuery form;
    form.addQueryItem(u"format"_s, u"json"_s);
    post_(siteRequest(LN_Urls::Url_Logout), formBody(form), LN_LoginState::LoggedIn, u"Failed to log out: "_s,
          &LN_LoginStatus::readLogoutResponse_);
}

void LN_LoginStatus::loggedInWithUserData(QByteArray const & sessionID, QString const & username)
{
    // The session is kept only by the exchanges that validated it.
    Q_UNUSED(sessionID);
    loggedInWithAccessToken(username);
}

void LN_LoginStatus::loggedInWithSessionID(QByteArray const & sessionID)
{
    doReconnectSession_(sessionID);
}

void LN_LoginStatus::loggedInWithAccessToken(QString const & username)
{
    userData_.username = username;
    setLoginState(LN_LoginState::LoggedIn);
}

void LN_LoginStatus::doReconnectSession_(QByteArray const & sessionID)
{
    QUrlQuery form;
    form.addQueryItem(u"sessionid"_s, percentEncoded(QString::fromUtf8(sessionID)));
    form.addQueryItem(u"format"_s, u"json"_s);
    post_(siteRequest(LN_Urls::Url_Validate), formBody(form), LN_LoginState::LoggedOut, loginFailure(),
          &LN_LoginStatus::readReconnectResponse_);
    session_ = sessionID;
}

void LN_LoginStatus::post_(QNetworkRequest request, QByteArray const & body, LN_LoginState failureState,
                           QString const & prefix, Reader reader)
{
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/x-www-form-urlencoded"));
    connectReplyCallbacks_(manager_->post(request, body), failureState, prefix, reader);
}

void LN_LoginStatus::connectReplyCallbacks_(QNetworkReply * reply, LN_LoginState failureState,
                                            QString const & prefix, Reader reader)
{
    // The timer's context is the reply, so it dies with it.
    QTimer::singleShot(LN_Waits::ms(LN_Waits::LoginAbort), reply, &QNetworkReply::abort);
    connect(reply, &QNetworkReply::finished, this, [this, reply, failureState, prefix, reader] {
        switch (reply->error()) {
        case QNetworkReply::NoError:
            (this->*reader)(reply);
            break;
        case QNetworkReply::OperationCanceledError:
            // Only the timer aborts these replies.
            Q_EMIT error(prefix + u"request timed out."_s);
            setLoginState(failureState);
            break;
        default:
            Q_EMIT error(prefix + reply->errorString());
            setLoginState(failureState);
            break;
        }
        reply->deleteLater();
    });
}

void LN_LoginStatus::invalidateSession_()
{
    session_.clear();
    userData_.username.clear();
}

void LN_LoginStatus::failToLoggedOut_(QString const & text)
{
    Q_EMIT error(text);
    setLoginState(LN_LoginState::LoggedOut);
}

void LN_LoginStatus::readLoginResponse_(QNetworkReply * reply)
{
    session_.clear();
    // Qt reports such a status as a network error before any reader runs; a manager of the
    // host's may still hand one over as a success.
    if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() >= 400) {
        QByteArray body;
        readBody(reply, &body);
        failToLoggedOut_(u"Error while logging in: %1"_s.arg(QString::fromUtf8(body)));
    }

    QList<QNetworkCookie> const cookies = reply->header(QNetworkRequest::SetCookieHeader).value<QList<QNetworkCookie>>();
    for (QNetworkCookie cookie : cookies) {
        if (cookie.domain().isEmpty())
            cookie.setDomain(reply->url().host());
        if (LN_CookieUtil::isSessionidCookie(cookie)) {
            session_ = cookie.value();
            break;
        }
    }
    if (!session_.isEmpty()) {
        readReconnectResponse_(reply);
        return;
    }

    QByteArray body;
    readBody(reply, &body);
    QJsonDocument const document = QJsonDocument::fromJson(body);
    QString text = u"Response did not include sessionid"_s;
    if (document.isObject())
        text = document.object().value(u"error"_s).toString(text);
    failToLoggedOut_(u"Error while logging in: %1"_s.arg(text));
}

void LN_LoginStatus::readLogoutResponse_(QNetworkReply *)
{
    setLoginState(LN_LoginState::LoggedOut);
}

void LN_LoginStatus::readReconnectResponse_(QNetworkReply * reply)
{
    QByteArray body;
    if (!readBody(reply, &body)) {
        failToLoggedOut_(u"Read error: "_s + reply->errorString());
        return;
    }
    LN_JsonUtils::JsonResult const parsed = LN_JsonUtils::jsonFromBytes(body);
    if (parsed.isError()) {
        failToLoggedOut_(u"Failed parse json: %1"_s.arg(parsed.error.message));
        return;
    }
    if (!parsed.value.isObject()) {
        failToLoggedOut_(notAnObject());
        return;
    }
    QJsonObject const answer = parsed.value.object();
    QJsonValue const refusal = answer.value(u"error"_s);
    if (refusal.isString()) {
        // An expired session logs out without a word.
        if (state_ == LN_LoginState::Reconnecting && refusal.toString() != u"Invalid sessionid"_s)
            Q_EMIT error(refusal.toString());
        invalidateSession_();
        setLoginState(LN_LoginState::LoggedOut);
        return;
    }
    if (session_.isEmpty()) {
        failToLoggedOut_(u"No sessionid found"_s);
        return;
    }
    userData_.username = answer.value(u"username"_s).toString();
    setLoginState(LN_LoginState::LoggedIn);
}

// The steps that the application login and the token validation share: false when the answer
// was a failure, already reported and in LoggedOut.
bool LN_LoginStatus::readTokenAnswer_(QNetworkReply * reply, QJsonObject * answer)
{
    QByteArray body;
    if (!readBody(reply, &body)) {
        failToLoggedOut_(reply->errorString());
        return false;
    }
    LN_JsonUtils::JsonResult const parsed = LN_JsonUtils::jsonFromBytes(body);
    if (parsed.isError()) {
        failToLoggedOut_(parsed.error.message);
        return false;
    }
    if (!parsed.value.isObject()) {
        failToLoggedOut_(notAnObject());
        return false;
    }
    *answer = parsed.value.object();
    QJsonValue const refusal = answer->value(u"error"_s);
    if (refusal.isString()) {
        // During an application login the state is LoggingIn, so the site's text stays unseen.
        if (state_ == LN_LoginState::Reconnecting)
            Q_EMIT error(refusal.toString());
        setLoginState(LN_LoginState::LoggedOut);
        return false;
    }
    return true;
}

void LN_LoginStatus::readOauthLoginResponse_(QNetworkReply * reply)
{
    token_.clear();
    QJsonObject answer;
    if (!readTokenAnswer_(reply, &answer))
        return;
    QString const accessToken = answer.value(u"access_token"_s).toString();
    if (accessToken.isEmpty()) {
        failToLoggedOut_(u"No access token found"_s);
        return;
    }
    initiateReconnectAccessToken(accessToken.toLocal8Bit());
}

void LN_LoginStatus::readReconnectAccessTokenResponse_(QNetworkReply * reply)
{
    QJsonObject answer;
    if (!readTokenAnswer_(reply, &answer)) {
        token_.clear();
        return;
    }
    QString const username = answer.value(u"username"_s).toString();
    if (username.isEmpty()) {
        failToLoggedOut_(u"Access token invalid. No username found"_s);
        token_.clear();
        return;
    }
    userData_.username = username;
    setLoginState(LN_LoginState::LoggedIn);
}
