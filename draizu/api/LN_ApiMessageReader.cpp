#include <draizu/api/LN_ApiMessageReader.h>

#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/core/LN_Waits.h>

#include <QStringList>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

LN_ApiMessageReader::Outcome LN_ApiMessageReader::takeMessage(Buffer & buffer, Message & message,
                                                              bool acceptShortBody)
{
    QByteArray & bytes = buffer.bytes;
    qsizetype const lineEnd = bytes.indexOf("\r\n", buffer.searched);
    if (lineEnd < 0) {
        // The last byte may be the CR of a line end whose LF is still on its way.
        buffer.searched = std::max<qsizetype>(0, bytes.size() - 1);
        return Outcome::NeedMore;
    }
    // A header that stays in the buffer is found again at once.
    buffer.searched = lineEnd;

    QStringList const words =
        QString::fromUtf8(bytes.constData(), lineEnd).split(u' ', Qt::SkipEmptyParts);
    if (words.isEmpty())
        return Outcome::BadHeader;

    // The first word is the version whatever it holds: a client that leaves it out loses its
    // first key.
    Message read;
    read.protocol = LN_ApiRequest::protocolFromString(words.first());
    read.body.contentType = u"text/plain"_s;
    int length = 0;
    for (qsizetype i = 1; i < words.size(); ++i) {
        QStringList const pair = words.at(i).split(u'=');
        if (pair.size() != 2)
            continue;
        QString const & key = pair.at(0);
        if (key == u"content-length")
            length = pair.at(1).toInt(nullptr, 10);
        else if (key == u"content-type")
            read.body.contentType = pair.at(1);
        else if (key == u"tag")
            read.tag = pair.at(1);
        else if (key == u"cmd")
            read.cmd = pair.at(1);
    }

    qsizetype const bodyStart = lineEnd + 2;
    qsizetype const available = bytes.size() - bodyStart;
    if (!acceptShortBody && length > available)
        return Outcome::ShortBody;
    qsizetype const taken = length < 0 ? available : std::min<qsizetype>(length, available);
    read.body.content = QString::fromUtf8(bytes.constData() + bodyStart, taken);
    bytes.remove(0, bodyStart + taken);
    buffer.searched = 0;
    message = std::move(read);
    return Outcome::Taken;
}

void LN_ApiMessageReader::serve(Buffer & buffer, LN_ApiRequestEngine & engine, QTextStream & stream,
                                std::function<bool()> const & isOpen,
                                std::function<QByteArray()> const & readAvailable,
                                std::function<bool(int ms)> const & waitForMore)
{
    bool acceptShortBody = false;
    for (;;) {
        try {
            if (!isOpen() || engine.hasShutdown())
                return;
            buffer.bytes.append(readAvailable());
            if (buffer.bytes.isEmpty())
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
