#include <draizu/account/LN_OserverConnection.h>

#include <draizu/account/LN_AccountSettings.h>
#include <draizu/account/LN_CookieUtil.h>
#include <draizu/account/LN_LoginStatus.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Service.h>
#include <draizu/io/LN_Urls.h>

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QTimer>
#include <QUrlQuery>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Runs `step` at the first emission of the signal only, then forgets it.
template <typename Sender, typename Signal, typename Step>
void connectOnce(Sender * sender, Signal signal, QObject * context, Step step)
{
    auto const connection = std::make_shared<QMetaObject::Connection>();
    *connection = QObject::connect(sender, signal, context, [connection, step](auto... arguments) {
        QObject::disconnect(*connection);
        step(arguments...);
    });
}

QString noReply(QNetworkReply * reply)
{
    return u"Failed to receive reply from oserver: "_s + reply->errorString();
}

} // namespace

LN_OserverConnection::LN_OserverConnection(LN_LoginStatus & loginStatus, QNetworkAccessManager * manager)
    : loginStatus_(loginStatus)
    , manager_(manager)
    , url_(getOserverUrl_())
{
}

void LN_OserverConnection::syncCookiesFromOserver()
{
    pullCookiesFromOserver_(true);
}

bool LN_OserverConnection::stopOserverSync(QString & error)
{
    bool result = false;
    QEventLoop loop;
    // Bound to the loop, so that an answer after the time is up finds nothing to write to.
    connectOnce(this, &LN_OserverConnection::stoppedOserver, &loop, [&](bool success, QString const & text) {
        result = success;
        error = text;
        loop.quit();
    });
    stopOserver_(true);
    QTimer::singleShot(LN_Waits::ms(LN_Waits::OserverStop), &loop, &QEventLoop::quit);
    loop.exec();
    return result;
}

void LN_OserverConnection::setNetworkAccessManager(QNetworkAccessManager * manager)
{
    manager_ = manager;
}

void LN_OserverConnection::pingOserver()
{
    QNetworkReply * reply = send_("POST", R"(["cmd_ping",[]])");
    connectOnce(reply, &QNetworkReply::finished, this,
                [this, reply] { Q_EMIT pingedOserver(reply->error() == QNetworkReply::NoError); });
}

void LN_OserverConnection::stopOserver()
{
    stopOserver_(true);
}

void LN_OserverConnection::logoutOserver()
{
    QNetworkReply * reply = send_("POST", R"(["cmd_del_session",[")" + LN_Urls::defaultHost().toUtf8() + R"("]])");
    connectOnce(reply, &QNetworkReply::finished, this,
                [this, reply] { Q_EMIT loggedOserverOut(reply->error() == QNetworkReply::NoError); });
}

QUrl LN_OserverConnection::getOserverUrl_()
{
    return QUrl::fromUserInput(u"127.0.0.1:%1/api"_s.arg(LN_AccountSettings::oserverPort()));
}

QNetworkReply * LN_OserverConnection::send_(QByteArray const & verb, QByteArray const & command)
{
    QNetworkRequest request(url_);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/x-www-form-urlencoded"));
    QUrlQuery form;
    form.addQueryItem(u"json"_s, QString::fromUtf8(command));
    return manager_->sendCustomRequest(request, verb, form.toString(QUrl::FullyEncoded).toUtf8());
}

void LN_OserverConnection::pullCookiesFromOserver_(bool startIfNeeded)
{
    QNetworkReply * reply = send_("POST", R"(["pull_cookies",[]])");
    connectOnce(reply, &QNetworkReply::finished, this, [this, reply, startIfNeeded] {
        if (reply->error() == QNetworkReply::NoError) {
            if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 200)
                handleCookiesFromOserver_(reply);
            else
                syncCookiesFromOserver_();
        } else if (!startIfNeeded) {
            Q_EMIT syncCookiesFinished(false, noReply(reply));
        } else {
            connectOnce(this, &LN_OserverConnection::startedOserver, this, [this](bool started) {
                if (started)
                    pullCookiesFromOserver_(false);
            });
            startOserver_();
        }
    });
}

void LN_OserverConnection::syncCookiesFromOserver_()
{
    QNetworkReply * reply = send_("POST", R"(["cmd_sync_cookies",["18.6.205", [], "", ""]])");
    connectOnce(reply, &QNetworkReply::finished, this, [this, reply] {
        if (reply->error() == QNetworkReply::NoError)
            handleCookiesFromOserver_(reply);
        else
            Q_EMIT syncCookiesFinished(false, noReply(reply));
    });
}

void LN_OserverConnection::handleCookiesFromOserver_(QNetworkReply * reply)
{
    LN_JsonUtils::JsonResult const parsed = LN_JsonUtils::jsonFromBytes(reply->readAll());
    if (parsed.isError()) {
        Q_EMIT syncCookiesFinished(false, parsed.error.message);
        return;
    }
    if (!parsed.value.isObject()) {
        Q_EMIT syncCookiesFinished(false, u"Oserver response is not a json object"_s);
        return;
    }
    QJsonArray const lines = parsed.value.object().value(u"cookies"_s).toArray();
    for (QJsonValue const & line : lines) {
        QList<QNetworkCookie> const cookies = QNetworkCookie::parseCookies(line.toString().toUtf8());
        for (QNetworkCookie const & cookie : cookies) {
            manager_->cookieJar()->insertCookie(cookie);
            // A session seen in the pull before is not validated again.
            if (!lastCookies_.contains(cookie) && LN_CookieUtil::isSessionidCookie(cookie))
                loginStatus_.initiateReconnectSession(cookie.value());
        }
        if (!cookies.isEmpty())
            lastCookies_ = cookies;
    }
    Q_EMIT syncCookiesFinished(true, QString());
}

void LN_OserverConnection::startOserver_()
{
    connectOnce(this, &LN_OserverConnection::pingedOserver, this, [this](bool connected) {
        if (connected)
            Q_EMIT startedOserver(true);
        else
            startOserverService_();
    });
    pingOserver();
}

void LN_OserverConnection::startOserverService_()
{
    try {
        LN_Service::startService(u"OrvanisServer"_s, [](LN_Message const &) {});
    } catch (...) {
        Q_EMIT startedOserver(false);
        return;
    }
    // One start and one wait: an oserver that is not up by then is not tried again.
    QTimer::singleShot(LN_Waits::ms(LN_Waits::OserverStart), this, [this] {
        connectOnce(this, &LN_OserverConnection::pingedOserver, this,
                    [this](bool connected) { Q_EMIT startedOserver(connected); });
        pingOserver();
    });
}

void LN_OserverConnection::stopOserver_(bool usePut)
{
    QNetworkReply * reply = send_(usePut ? "PUT" : "POST", R"(["cmd_shutdown", []])");
    connectOnce(reply, &QNetworkReply::finished, this, [this, reply, usePut] {
        if (reply->error() == QNetworkReply::NoError)
            Q_EMIT stoppedOserver(true, QString());
        else if (usePut)
            stopOserver_(false);
        else
            Q_EMIT stoppedOserver(false, u"Failed to shutdown server: "_s + reply->errorString());
    });
}
