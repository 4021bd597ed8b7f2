#pragma once

#include <draizu/api/LN_ApiMessageReader.h>
#include <draizu/api/LN_ApiRequestEngine.h>

#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QSocketNotifier>
#include <QTextStream>

/// Serves the request protocol on standard input and output. Replies go to standard output.
/// Like the local socket front, it goes on reading while a function works inside exec and
/// turns the event loop.
class StdioFront : public QObject
{
    Q_OBJECT

public:
    StdioFront();

    LN_ApiRequestEngine & engine() { return engine_; }

Q_SIGNALS:
    /// Standard input has ended (or failed), and all that came before the end has been handed
    /// to the engine.
    void inputEnded();

private:
    void readInput_();
    void readWhileServing_();
    bool readChunk_(int waitMs);

    QFile output_;
    QTextStream stream_;
    LN_ApiRequestEngine engine_{stream_};
    QSocketNotifier notifier_;
    LN_ApiMessageReader::Buffer buffer_;
    QByteArray pending_;
    int readDepth_ = 0;
    bool endTold_ = false;
};
