#include "StdioFront.h"

#include <draizu/api/LN_ApiMessageReader.h>

#include <cerrno>
#include <unistd.h>
#include <utility>

StdioFront::StdioFront()
    : notifier_(STDIN_FILENO, QSocketNotifier::Read)
{
    output_.open(stdout, QIODevice::WriteOnly | QIODevice::Unbuffered);
    stream_.setDevice(&output_);
    connect(&notifier_, &QSocketNotifier::activated, this, &StdioFront::readInput_);
}

void StdioFront::readInput_()
{
    char chunk[65536];
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, chunk, sizeof chunk);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        // End of input: a regular file or a closed pipe would report itself readable forever.
        notifier_.setEnabled(false);
        return;
    }
    pending_.append(chunk, count);
    LN_ApiMessageReader::serve(buffer_, engine_, stream_, [] { return true; },
                               [this] { return std::exchange(pending_, QByteArray()); });
}
