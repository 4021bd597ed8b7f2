#include "ArchiveScan.h"

#include <QFile>

#include <malloc.h>

#include <archive.h>
#include <archive_entry.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

// Shared between the scanning thread and the watcher; kept alive by whichever leaves last,
// since a stalled scan outlives the object that started it.
struct ScanState
{
    std::mutex mutex;
    std::condition_variable changed;
    qsizetype entries = 0;
    bool done = false;
    bool failed = false;
    QString error;
    QHash<QString, qsizetype> order;
};

void scan(std::shared_ptr<ScanState> state, QByteArray path)
{
    archive * reader = archive_read_new();
    archive_read_support_format_all(reader);
    archive_read_support_filter_all(reader);
    int status = archive_read_open_filename(reader, path.constData(), 64 * 1024);
    archive_entry * entry = nullptr;
    while (status == ARCHIVE_OK && (status = archive_read_next_header(reader, &entry)) == ARCHIVE_OK) {
        char const * name = archive_entry_pathname_utf8(entry);
        std::lock_guard lock(state->mutex);
        state->order.insert(QString::fromUtf8(name ? name : archive_entry_pathname(entry)), state->entries++);
        state->changed.notify_all();
    }
    std::lock_guard lock(state->mutex);
    state->failed = status != ARCHIVE_EOF;
    if (state->failed)
        state->error = QString::fromUtf8(archive_error_string(reader));
    state->done = true;
    archive_read_free(reader);
    state->changed.notify_all();
}

} // namespace

ArchiveScan::ArchiveScan(QString const & path, int stallSeconds)
{
    auto state = std::make_shared<ScanState>();
    std::thread scanner(scan, state, QFile::encodeName(path));

    std::unique_lock lock(state->mutex);
    qsizetype seen = -1;
    while (!state->done && seen != state->entries) {
        seen = state->entries;
        state->changed.wait_for(lock, std::chrono::seconds(stallSeconds),
                                [&] { return state->done || state->entries != seen; });
    }
    if (!state->done) {
        scanner.detach();
        outcome = Stalled;
        message = u"The offline installer %1 could not be read: its scan made no progress for %2 seconds"_s.arg(path)
                      .arg(stallSeconds);
        return;
    }
    lock.unlock();
    scanner.join();
    // What the scanning thread allocated lies in an arena of its own, freed but kept.
    malloc_trim(0);
    outcome = state->failed ? Unreadable : Scanned;
    message = state->error;
    order = std::move(state->order);
}
