#include <draizu/api/LN_ProgressWriter.h>

#include <draizu/api/LN_Message.h>

#include <QCoreApplication>
#include <QFileDevice>
#include <QTextStream>
#include <QTime>

using namespace Qt::StringLiterals;

LN_ProgressWriter::LN_ProgressWriter(QTextStream & out, QTextStream & err, bool machineReadable, int verbosity)
    : out_(out)
    , err_(err)
    , verbosity_(verbosity)
    , machineReadable_(machineReadable)
{
}

void LN_ProgressWriter::setLogFile(QFileDevice * logFile)
{
    logFile_ = logFile;
}

void LN_ProgressWriter::write(LN_Message const & message)
{
    writeLog_(message);
    if (message.total > 0 && message.total != lastTotal_) {
        lastTotal_ = message.total;
        nextProgress_ = -1;
    }

    bool wrote = false;
    if (machineReadable_) {
        if (passesThinning_(message)) {
            advanceSeries_(message);
            out_ << message.serialize() << Qt::endl;
            wrote = true;
        }
    } else {
        wrote = writeForPerson_(message);
    }
    if (wrote)
        QCoreApplication::processEvents();
}

bool LN_ProgressWriter::passesThinning_(LN_Message const & message) const
{
    return message.type != LN_Message::Progress || message.current >= nextProgress_;
}

std::int64_t LN_ProgressWriter::advanceSeries_(LN_Message const & message)
{
    if (message.total <= 0)
        return 0;
    std::int64_t const percent = message.current * 100 / message.total;
    nextProgress_ = (percent + 1) * message.total / 100;
    return percent;
}

bool LN_ProgressWriter::writeForPerson_(LN_Message const & message)
{
    if (message.type == LN_Message::Internal)
        return false;

    std::int64_t percent = 0;
    if (verbosity_ == 0) {
        if (message.type != LN_Message::Warning && message.type != LN_Message::Error)
            return false;
    } else if (verbosity_ == 1) {
        if (!passesThinning_(message))
            return false;
        percent = advanceSeries_(message);
    } else if (verbosity_ == 2 && message.total != 0) {
        percent = message.current * 100 / message.total;
    }

    bool const labelled = message.type == LN_Message::Warning || message.type == LN_Message::Error
                          || message.type == LN_Message::Internal;
    QString const text =
        labelled ? u"%1: %2"_s.arg(LN_Message::typeWord(message.type), message.message) : message.message;
    QTextStream & stream = message.type == LN_Message::Error ? err_ : out_;
    if (message.total >= 1 && verbosity_ >= 1)
        stream << "[" << percent << "/100] ";
    stream << text << Qt::endl;
    return true;
}

void LN_ProgressWriter::writeLog_(LN_Message const & message)
{
    if (!logFile_ || message.message.isEmpty())
        return;
    LN_Message::Type const label = message.type == LN_Message::Progress ? LN_Message::Info : message.type;
    QString const prefix =
        u"[%1 %2] "_s.arg(QTime::currentTime().toString(u"HH:mm:ss"_s), LN_Message::typeWord(label));
    QString text = message.message;
    text.replace(u'\n', u'\n' + QString(prefix.size(), u' '));
    logFile_->write(u"%1%2"_s.arg(prefix, text).toUtf8());
    logFile_->write("\n");
    logFile_->flush();
}

void LN_ProgressWriter::outputRaw(QString const & text, Stream stream)
{
    (stream == Out ? out_ : err_) << text;
}

void LN_ProgressWriter::writeFinishMessage(bool success, bool toConsole)
{
    QString const text = u"Operation "_s + (success ? u"finished successfully"_s : u"failed"_s);
    if (logFile_) {
        logFile_->write(text.toUtf8());
        logFile_->write("\n");
        logFile_->flush();
    }
    if (toConsole)
        out_ << text << Qt::endl;
    QCoreApplication::processEvents();
}
