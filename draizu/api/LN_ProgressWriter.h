#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <cstdint>

struct LN_Message;
class QFileDevice;
class QTextStream;

/// Shows reports of a long operation on a console, for a person or in the one-line text form,
/// and keeps every report with a text in a log file. Thins progress to about one line per
/// percent, and turns the event loop whenever it writes to the console, which keeps a host
/// responsive (and lets a CANCEL in) while an operation works synchronously. The streams and
/// the log file are not owned and must outlive the writer. Write failures go unnoticed; nothing
/// throws. Use on the thread of the event loop.
class DRAIZU_EXPORT LN_ProgressWriter
{
public:
    /// Which console stream `outputRaw` writes to.
    enum Stream {
        Out = 0,
        Err = 1,
    };

    /// Verbosity 0 shows warnings and errors only, 1 thins progress per percent, 2 shows every
    /// message with its percent, above 2 every message without one; internal notes go to the
    /// log only. Machine-readable output writes every message's text form to `out`, errors
    /// included, with progress thinned as at verbosity 1.
    LN_ProgressWriter(QTextStream & out, QTextStream & err, bool machineReadable, int verbosity);

    /// The log file is not owned; null writes no log.
    void setLogFile(QFileDevice * logFile);
    /// Logs the message if it has a text, then shows it as the mode and verbosity say; errors
    /// for a person go to `err`, everything else to `out`.
    void write(LN_Message const & message);
    /// Writes the text as it stands: no line end, no flush.
    void outputRaw(QString const & text, Stream stream);
    /// "Operation finished successfully" or "Operation failed", to the log file without prefix
    /// and, if asked, to `out`.
    void writeFinishMessage(bool success, bool toConsole);

private:
    void writeLog_(LN_Message const & message);
    bool passesThinning_(LN_Message const & message) const;
    std::int64_t advanceSeries_(LN_Message const & message);
    bool writeForPerson_(LN_Message const & message);

    QTextStream & out_;
    QTextStream & err_;
    QFileDevice * logFile_ = nullptr;
    std::int64_t lastTotal_ = 0;
    std::int64_t nextProgress_ = 0;
    int verbosity_ = 0;
    bool machineReadable_ = false;
};
