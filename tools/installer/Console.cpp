#include "Console.h"

#include <draizu/api/LN_Message.h>

#include <QJsonDocument>

#include <cstdio>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int barWidth = 30;

QString typeName(LN_Message::Type type)
{
    return LN_Message::typeWord(type).toLower();
}

} // namespace

Console::Console(bool json)
    : json_(json)
    , terminal_(!json && isatty(STDOUT_FILENO))
    , nullDevice_(u"/dev/null"_s)
    , out_(stdout)
    , err_(stderr)
{
    nullDevice_.open(QIODevice::WriteOnly);
    null_.setDevice(&nullDevice_);
    screen_ = std::make_unique<LN_ProgressWriter>(out_, err_, false, 1);
    log_ = std::make_unique<LN_ProgressWriter>(null_, null_, false, 0);
}

Console::Console(std::function<void(QJsonObject const &)> sink)
    : Console(true)
{
    sink_ = std::move(sink);
}

void Console::openLog(QString const & path)
{
    logFile_.setFileName(path);
    if (logFile_.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        log_->setLogFile(&logFile_);
    else
        report(LN_Message::warn(u"The log file %1 cannot be written: %2"_s.arg(path, logFile_.errorString())));
}

void Console::report(LN_Message const & message)
{
    if (message.type == LN_Message::Progress && message.total > 0) {
        if (message.total != lastTotal_) {
            lastTotal_ = message.total;
            nextPercentAt_ = 0;
        }
        // One report per percent at most, whoever reads it, the log included: an install of
        // many small files would otherwise spend its time reporting.
        if (message.current < nextPercentAt_ && message.current != message.total)
            return;
        nextPercentAt_ = (message.current * 100 / message.total + 1) * message.total / 100;
    }
    log_->write(message);
    if (message.type == LN_Message::Internal)
        return;
    if (json_) {
        QJsonObject object{{u"type"_s, typeName(message.type)}, {u"message"_s, message.message}};
        if (message.type == LN_Message::Progress) {
            object.insert(u"current"_s, qint64(message.current));
            object.insert(u"total"_s, qint64(message.total));
        }
        writeJson_(object);
    } else if (terminal_ && message.type == LN_Message::Progress) {
        drawBar_(message);
    } else {
        clearBar_();
        screen_->write(message);
    }
}

void Console::line(QString const & text)
{
    if (json_)
        return;
    clearBar_();
    out_ << text << Qt::endl;
}

int Console::finish(QString const & command, ExitCode code, QString const & message, QJsonObject result)
{
    if (!message.isEmpty())
        log_->write(code == Exit_Success ? LN_Message::info(message) : LN_Message::error(message));
    log_->writeFinishMessage(code == Exit_Success, false);
    if (json_) {
        result.insert(u"type"_s, u"result"_s);
        result.insert(u"command"_s, command);
        result.insert(u"success"_s, code == Exit_Success);
        result.insert(u"exit code"_s, int(code));
        if (!message.isEmpty())
            result.insert(u"message"_s, message);
        writeJson_(result);
    } else {
        clearBar_();
        if (!message.isEmpty())
            (code == Exit_Success ? out_ : err_) << message << Qt::endl;
    }
    return code;
}

void Console::drawBar_(LN_Message const & message)
{
    qint64 const filled = message.current * barWidth / message.total;
    QString text = message.message;
    if (text.size() > 50)
        text = u"…"_s + text.right(49);
    out_ << '\r' << '[' << QString(filled, u'#') << QString(barWidth - filled, u'-') << "] "
         << message.current * 100 / message.total << "% " << text.leftJustified(50) << Qt::flush;
    barShown_ = true;
}

void Console::clearBar_()
{
    if (!barShown_)
        return;
    out_ << '\r' << QString(barWidth + 60, u' ') << '\r' << Qt::flush;
    barShown_ = false;
}

void Console::writeJson_(QJsonObject const & object)
{
    if (sink_) {
        sink_(object);
        return;
    }
    out_ << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
}
