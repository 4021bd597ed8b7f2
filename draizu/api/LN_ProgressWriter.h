#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <cstdint>

struct LN_Message;
class QFileDevice;
class QTextStream;

/// Shows reports of a long operation on a console, for a person or in the one-line text form,
/// and keeps every report with a text in a log file. Thins progress to about one line per
/// percent, and keeps the event loop turning whenever it writes to the console.
class DRAIZU_EXPORT LN_ProgressWriter
{
public:
    enum Stream {
        Out = 0,
        Err = 1,
    };

    LN_ProgressWriter(QTextStream & out, QTextStream & err, bool machineReadable, int verbosity);

    /// The log file is not owned; null writes no log.
    void setLogFile(QFileDevice * logFile);
    void write(LN_Message const & message);
    /// Writes the text as it stands: no line end, no flush.
    void outputRaw(QString const & text, Stream stream);
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
