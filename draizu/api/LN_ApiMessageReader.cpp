#include <draizu/api/LN_ApiMessageReader.h>

#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/core/LN_Waits.h>

#include <QStringList>

using namespace Qt::StringLiterals;

LN_ApiMessageReader::Outcome LN_ApiMessageReader::takeMessage(QByteArray & buffer, Message & message,
                                                              bool acceptShortBody)
{
    qsizetype const lineEnd = buffer.indexOf("\r\n");
    if (lineEnd < 0)
        return Outcome::NeedMore;

    QStringList const words =
        QString::fromUtf8(buffer.constData(), lineEnd).split(u' ', Qt::SkipEmptyParts);
    if (words.isEmpty())
        return Outcome::BadHeader;

    // The first word is the version whatever it holds: a client that leaves it out loses its
    // first key.
    message = Message{};
    message.protocol = LN_ApiRequest::protocolFromString(words.first());
    message.body.contentType = u"text/plain"_s;
    int length = 0;
    for (qsizetype i = 1; i < words.size(); ++i) {
        QStringList const pair = words.at(i).split(u'=');
        if (pair.size() != 2)
            continue;
        QString const & key = pair.at(0);
        if (key == u"content-length")
            length = pair.at(1).toInt(nullptr, 10);
        else if (key == u"content-type")
            message.body.contentType = pair.at(1);
        else if (key == u"tag")
            message.tag = pair.at(1);
        else if (key == u"cmd")
            message.cmd = pair.at(1);
    }

    qsizetype const bodyStart = lineEnd + 2;
    qsizetype const available = buffer.size() - bodyStart;
    if (!acceptShortBody && length > available)
        return Outcome::ShortBody;
    qsizetype const taken = length < 0 ? available : std::min<qsizetype>(length, available);
    message.body.content = QString::fromUtf8(buffer.constData() + bodyStart, taken);
    buffer.remove(0, bodyStart + taken);
    return Outcome::Taken;
}

void LN_ApiMessageReader::serve(QByteArray & buffer, LN_ApiRequestEngine & engine, QTextStream & stream,
                                std::function<bool()> const & isOpen,
                                std::function<QByteArray()> const & readAvailable,
                                std::function<bool(int ms)> const & waitForMore)
{
    bool acceptShortBody = false;
    for (;;) {
        try {
            if (!isOpen() || engine.hasShutdown())
                return;
            buffer.append(readAvailable());
            if (buffer.isEmpty())
                return;

            Message message;
            Outcome const outcome = takeMessage(buffer, message, acceptShortBody);
            if (outcome == Outcome::NeedMore)
                return;
            if (outcome == Outcome::ShortBody) {
                acceptShortBody = !waitForMore(LN_Waits::ms(LN_Waits::RequestBody));
                continue;
            }
            acceptShortBody = false;
            if (outcome == Outcome::BadHeader) {
                LN_ApiRequest::sendFatal(stream, LN_ApiRequest::Result_BadRequest, u"Badly formatted request."_s,
                                         LN_ApiRequest::Protocol_V1);
                return;
            }
            engine.queueRequest(message.protocol, message.tag, message.cmd, message.body);
        } catch (std::exception const & e) {
            engine.exceptionCaught(QString::fromUtf8(e.what()));
        } catch (...) {
            engine.exceptionCaught(u"Unknown exception caught."_s);
        }
    }
}
