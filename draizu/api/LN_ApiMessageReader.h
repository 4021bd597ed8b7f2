#pragma once

#include <draizu/api/LN_ApiRequest.h>
#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QString>

#include <functional>

class LN_ApiRequestEngine;
class QTextStream;

/// The server side reader of the request protocol: cuts client messages out of the bytes
/// received and hands them to an engine. LN_ApiSocket reads a local socket with it; a host can
/// serve any other byte source the same way, on the thread of its engine. Nothing here throws:
/// bad messages are answered on the stream, and exceptions of the functions become EXCEPTION.
namespace LN_ApiMessageReader {

/// What a front has received and not yet consumed. Fronts only append to `bytes`; the reader
/// takes messages from the front and remembers how far it has looked for the end of the header
/// line, so a line that arrives in many pieces costs one pass over it, not one per piece.
struct Buffer
{
    /// The bytes received and not yet taken as messages.
    QByteArray bytes;
    /// No CR LF starts before this offset of `bytes`.
    qsizetype searched = 0;
};

/// One client message as read from the wire.
struct Message
{
    /// The protocol version of the header's first word.
    LN_ApiRequest::ProtocolVersion protocol = LN_ApiRequest::Protocol_V1;
    /// The value of `tag=`; empty when the header has none.
    QString tag;
    /// The value of `cmd=`; empty when the header has none.
    QString cmd;
    /// The body of `content-length` bytes, with the header's `content-type`.
    LN_ApiRequest::Body body;
};

/// What takeMessage found at the front of the buffer.
enum class Outcome {
    NeedMore,  ///< no whole header line yet
    BadHeader, ///< a header line without words; the buffer is left as it was
    ShortBody, ///< the body has not arrived in full, and a short body was not accepted
    Taken,     ///< a message was read and removed from the buffer
};

/// Reads one message from the front of the buffer into `message`, which is left alone unless
/// the outcome is Taken. With `acceptShortBody`, a body that has not arrived in full goes on
/// with what there is, and what comes later is read as the next header. Never fails otherwise:
/// unknown keys and malformed words are skipped, a length that is no number counts as 0.
DRAIZU_EXPORT Outcome takeMessage(Buffer & buffer, Message & message, bool acceptShortBody = true);

/// The read loop of one front, run at each arrival of data. While `isOpen` holds and the
/// engine has not shut down, it appends `readAvailable()` to the buffer and hands each whole
/// message to the engine; a bad header line gets a FATAL on `stream` and stops the loop.
/// The message leaves the buffer before the engine sees it, so a function that turns the event
/// loop may re-enter this loop on the same buffer. Exceptions are reported as EXCEPTION.
/// A body cut short is given `waitForMore(ms)` (true when more bytes came) for the rest, as the
/// transport may split one write of the client; a body still short after that goes on short.
DRAIZU_EXPORT void serve(Buffer & buffer, LN_ApiRequestEngine & engine, QTextStream & stream,
                         std::function<bool()> const & isOpen, std::function<QByteArray()> const & readAvailable,
                         std::function<bool(int ms)> const & waitForMore);

} // namespace LN_ApiMessageReader
