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
/// serve any other byte source the same way.
namespace LN_ApiMessageReader {

struct Message
{
    LN_ApiRequest::ProtocolVersion protocol = LN_ApiRequest::Protocol_V1;
    QString tag;
    QString cmd;
    LN_ApiRequest::Body body;
};

enum class Outcome {
    NeedMore,  ///< no whole header line yet
    BadHeader, ///< a header line without words; the buffer is left as it was
    Taken,     ///< a message was read and removed from the buffer
};

/// Reads one message from the front of the buffer. A body that has not arrived in full is
/// not waited for: the message goes on with what there is.
DRAIZU_EXPORT Outcome takeMessage(QByteArray & buffer, Message & message);

/// The read loop of one front, run at each arrival of data. While `isOpen` holds and the
/// engine has not shut down, it appends `readAvailable()` to the buffer and hands each whole
/// message to the engine; a bad header line gets a FATAL on `stream` and stops the loop.
/// The message leaves the buffer before the engine sees it, so a function that turns the event
/// loop may re-enter this loop on the same buffer. Exceptions are reported as EXCEPTION.
DRAIZU_EXPORT void serve(QByteArray & buffer, LN_ApiRequestEngine & engine, QTextStream & stream,
                         std::function<bool()> const & isOpen, std::function<QByteArray()> const & readAvailable);

} // namespace LN_ApiMessageReader
