#include <draizu/api/LN_ApiRequest.h>

#include <draizu/api/LN_Message.h>
#include <draizu/core/LN_Waits.h>

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

QString const textPlain = u"text/plain"_s;

LN_ApiRequest::Body plainBody(QString const & text)
{
    return {textPlain, text};
}

LN_ApiRequest::Body jsonBody(QJsonObject const & object)
{
    return {u"application/json"_s, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented))};
}

std::int64_t nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

} // namespace

LN_ApiRequest::LN_ApiRequest(QString const & tag, ProtocolVersion protocol, QTextStream & stream)
    : tag_(tag)
    , protocol_(protocol)
    , stream_(&stream)
    , idleTimer_(new QTimer(this))
{
    idleTimer_->setSingleShot(true);
    connect(idleTimer_, &QTimer::timeout, this, &LN_ApiRequest::idleTimeout);
}

void LN_ApiRequest::complete(QString const & text)
{
    finish_(Result_Ok, plainBody(text));
}

void LN_ApiRequest::complete(QJsonObject const & object)
{
    finish_(Result_Ok, jsonBody(object));
}

void LN_ApiRequest::complete(Body const & body)
{
    finish_(Result_Ok, body);
}

void LN_ApiRequest::fail(Result result, QString const & text)
{
    finish_(result, plainBody(text));
}

void LN_ApiRequest::fail(Result result, QJsonObject const & object)
{
    finish_(result, jsonBody(object));
}

void LN_ApiRequest::finish_(Result result, Body const & body)
{
    if (completed_)
        return;
    // Set before the write: nothing the receivers of `completed` do can answer a second time.
    completed_ = true;
    idleTimer_->stop();
    sendComplete(*stream_, tag_, result, body, protocol_);
    Q_EMIT completed(tag_);
    deleteLater();
}

void LN_ApiRequest::cancel(CancelResult result, QString const & reason)
{
    if (completed_)
        return;
    sendCancelled(*stream_, protocol_, tag_, result, reason);
}

void LN_ApiRequest::cancelAndComplete(QString const & text)
{
    if (completed_)
        return;
    sendCancelled(*stream_, protocol_, tag_, Cancel_Accepted, QString());
    complete(text);
}

void LN_ApiRequest::debug(QString const & text)
{
    notify_(u"DEBUG"_s, text);
}

void LN_ApiRequest::message(QString const & text)
{
    notify_(u"MESSAGE"_s, text);
}

void LN_ApiRequest::warn(QString const & text)
{
    notify_(u"WARNING"_s, text);
}

void LN_ApiRequest::error(QString const & text)
{
    notify_(u"ERROR"_s, text);
}

void LN_ApiRequest::notify_(QString const & cmd, QString const & text)
{
    if (completed_ || text.isEmpty())
        return;
    sendMessage_(*stream_, cmd, Result_Ok, tag_, plainBody(text), protocol_);
    restartIdleTimer();
}

void LN_ApiRequest::progress(int done, int total)
{
    if (!canSendProgress_())
        return;
    if (done < 0 || total < 0)
        return;
    sendMessage_(*stream_, u"PROGRESS"_s, Result_Ok, tag_, plainBody(u"%1 %2"_s.arg(done).arg(total)), protocol_);
    lastProgressMs_ = nowMs();
    restartIdleTimer();
}

void LN_ApiRequest::message(LN_Message const & m)
{
    switch (m.type) {
    case LN_Message::Progress:
        if (m.current >= 0 && m.total >= 0)
            progress(static_cast<int>(m.current), static_cast<int>(m.total));
        break;
    case LN_Message::Info:
        message(m.message);
        break;
    case LN_Message::Warning:
        warn(m.message);
        break;
    case LN_Message::Error:
        error(m.message);
        break;
    case LN_Message::Internal:
        debug(m.message);
        break;
    default:
        break;
    }
}

bool LN_ApiRequest::canSendProgress_() const
{
    if (completed_)
        return false;
    return nowMs() - lastProgressMs_ >= LN_Waits::ms(LN_Waits::ProgressInterval);
}

void LN_ApiRequest::restartIdleTimer()
{
    idleTimer_->start(LN_Waits::ms(LN_Waits::RequestIdle));
}

void LN_ApiRequest::releaseResponseChecks()
{
    Q_EMIT signalReleasedResponseChecks();
}

void LN_ApiRequest::idleTimeout()
{
    fail(Result_ServerError, u"The request sat idle for too long."_s);
}

QString LN_ApiRequest::protocolAsString() const
{
    return protocolAsString(protocol_);
}

LN_ApiRequest::ProtocolVersion LN_ApiRequest::protocolFromString(QString const &)
{
    // There is one version; no first word is ever refused.
    return Protocol_V1;
}

QString LN_ApiRequest::protocolAsString(ProtocolVersion protocol)
{
    return u"%1"_s.arg(static_cast<int>(protocol));
}

void LN_ApiRequest::sendComplete(QTextStream & stream, QString const & tag, Result result, Body const & body,
                                 ProtocolVersion protocol)
{
    sendMessage_(stream, u"COMPLETE"_s, result, tag, body, protocol);
}

void LN_ApiRequest::sendFatal(QTextStream & stream, Result result, QString const & message, ProtocolVersion protocol)
{
    sendMessage_(stream, u"FATAL"_s, result, QString(), plainBody(message), protocol);
}

void LN_ApiRequest::sendException(QTextStream & stream, QString const & message, ProtocolVersion protocol)
{
    if (message.isEmpty())
        return;
    sendMessage_(stream, u"EXCEPTION"_s, Result_Ok, QString(), plainBody(message), protocol);
}

void LN_ApiRequest::sendCancelled(QTextStream & stream, ProtocolVersion, QString const & tag, CancelResult result,
                                  QString const & message)
{
    QString text = result == Cancel_Accepted ? u"ACCEPTED"_s : u"REJECTED"_s;
    if (!message.isEmpty())
        text += u' ' + message;
    sendMessage_(stream, u"CANCEL_RESP"_s, Result_Ok, tag, plainBody(text), Protocol_V1);
}

void LN_ApiRequest::sendMessage_(QTextStream & stream, QString const & cmd, Result result, QString const & tag,
                                 Body const & body, ProtocolVersion protocol)
{
    stream << static_cast<int>(protocol) << " cmd=" << cmd << " status=" << static_cast<int>(result);
    if (!tag.isEmpty())
        stream << " tag=" << tag;
    if (!body.content.isEmpty()) {
        if (!body.contentType.isEmpty())
            stream << " content-type=" << body.contentType;
        // Counted in UTF-16 code units of the text, not in the bytes that go out.
        stream << " content-length=" << body.content.size();
    }
    stream << "\r\n";
    if (!body.content.isEmpty())
        stream << body.content;
    stream << Qt::endl;
}
