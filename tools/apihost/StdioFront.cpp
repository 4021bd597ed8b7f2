#include "StdioFront.h"

#include <draizu/api/LN_ApiMessageReader.h>

#include <QAbstractEventDispatcher>

#include <cerrno>
#include <poll.h>
#include <unistd.h>
#include <utility>

StdioFront::StdioFront()
    : notifier_(STDIN_FILENO, QSocketNotifier::Read)
{
    output_.open(stdout, QIODevice::WriteOnly | QIODevice::Unbuffered);
    stream_.setDevice(&output_);
    connect(&notifier_, &QSocketNotifier::activated, this, &StdioFront::readInput_);
    QAbstractEventDispatcher const * dispatcher = QAbstractEventDispatcher::instance();
    connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &StdioFront::readWhileServing_);
    connect(dispatcher, &QAbstractEventDispatcher::awake, this, &StdioFront::readWhileServing_);
}

void StdioFront::readWhileServing_()
{
    if (readDepth_ > 0 && notifier_.isEnabled())
        readInput_();
}

void StdioFront::readInput_()
{
    if (readChunk_(0)) {
        ++readDepth_;
        LN_ApiMessageReader::serve(
            buffer_, engine_, stream_, [] { return true; },
            [this] { return std::exchange(pending_, QByteArray()); }, [this](int ms) { return readChunk_(ms); });
        --readDepth_;
    }
    // The end is told once everything read before it has been handed to the engine: a SHUTDOWN
    // may still wait in the buffer behind a function that works inside exec.
    if (!notifier_.isEnabled() && readDepth_ == 0 && !endTold_) {
        endTold_ = true;
        Q_EMIT inputEnded();
    }
}

bool StdioFront::readChunk_(int waitMs)
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (!notifier_.isEnabled() || ::poll(&input, 1, waitMs) <= 0)
        return false;
    char chunk[65536];
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, chunk, sizeof chunk);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        // End of input: a regular file or a closed pipe would report itself readable forever.
        notifier_.setEnabled(false);
        return false;
    }
    pending_.append(chunk, count);
    return true;
}
