#pragma once

#include <draizu/api/LN_ProgressWriter.h>

#include <QFile>
#include <QJsonObject>
#include <QString>
#include <QTextStream>

#include <functional>
#include <memory>

struct LN_Message;

/// The documented exit statuses of draizu-installer.
enum ExitCode {
    Exit_Success = 0,
    Exit_Failure = 1,          ///< anything not below: a file that cannot be written, a damaged repository
    Exit_Usage = 2,            ///< the command line is wrong
    Exit_NotFound = 3,         ///< no such installation, build or offline installer
    Exit_ChecksumMismatch = 4, ///< a file differs from its manifest
};

/// Where the installer's reports go: for a person (a live bar on a terminal, plain lines
/// otherwise) or, with --json, one JSON object per line. Every report with a text also goes to
/// the log file once one is opened. The result of a command ends the output.
class Console
{
public:
    explicit Console(bool json);
    /// JSON mode, each object handed to `sink` instead of standard output.
    explicit Console(std::function<void(QJsonObject const &)> sink);

    bool isJson() const { return json_; }
    /// Keeps every later report in the file as well; a file that cannot be opened is reported
    /// as a warning and the command goes on without a log.
    void openLog(QString const & path);
    /// Shows one report of a long operation.
    void report(LN_Message const & message);
    /// A line of a listing for a person; nothing in JSON mode, where the result carries it.
    void line(QString const & text);
    /// Ends the command: the result object with "command", "success" and "exit code" added in
    /// JSON mode, the message on the error stream otherwise. Returns the exit code.
    int finish(QString const & command, ExitCode code, QString const & message = {}, QJsonObject result = {});

private:
    void drawBar_(LN_Message const & message);
    void clearBar_();
    void writeJson_(QJsonObject const & object);

    bool json_ = false;
    bool terminal_ = false;
    bool barShown_ = false;
    qint64 nextPercentAt_ = 0;
    qint64 lastTotal_ = 0;
    QFile nullDevice_;
    QTextStream null_;
    QTextStream out_;
    QTextStream err_;
    QFile logFile_;
    std::unique_ptr<LN_ProgressWriter> screen_;
    std::unique_ptr<LN_ProgressWriter> log_;
    std::function<void(QJsonObject const &)> sink_;
};
