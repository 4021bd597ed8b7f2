#pragma once

#include <draizu/api/LN_ApiRequestEngine.h>

#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QSocketNotifier>
#include <QTextStream>


/// Serves the request protocol on standard input and output. Replies go to standard output;
/// the input is expected to end with a SHUTDOWN message. Like the local socket front, it goes on
/// reading while a function works inside exec and turns the event loop.
class StdioFront : public QObject
{
    Q_OBJECT

public:
    StdioFront();

    LN_ApiRequestEngine & engine() { return engine_; }

private:
    void readInput_();
    void readWhileServing_();
    bool readChunk_(int waitMs);

    QFile output_;
    QTextStream stream_;
    LN_ApiRequestEngine engine_{stream_};
    QSocketNotifier notifier_;
    QByteArray buffer_;
    QByteArray pending_;
    int readDepth_ = 0;
};
