#include <draizu/api/LN_Message.h>

#include <QRegularExpression>

#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array typeWords = {u"Progress", u"Info", u"Warning", u"Error", u"Internal", u"Invalid"};

QString escaped(QString const & text)
{
    QString result;
    result.reserve(text.size());
    for (QChar const c : text) {
        if (c == u'\\')
            result += u"\\\\";
        else if (c == u'\n')
            result += u"\\n";
        else
            result += c;
    }
    return result;
}

} // namespace

LN_Message::LN_Message(std::int64_t currentAmount, std::int64_t totalAmount, QString const & text, Type messageType)
    : type(messageType)
    , message(text)
    , current(currentAmount)
    , total(totalAmount)
{
}

LN_Message LN_Message::progress(std::int64_t current, std::int64_t total, QString const & message)
{
    return {current, total, message, Progress};
}

LN_Message LN_Message::info(QString const & message)
{
    return {0, 0, message, Info};
}

LN_Message LN_Message::warn(QString const & message)
{
    return {0, 0, message, Warning};
}

LN_Message LN_Message::error(QString const & message)
{
    return {0, 0, message, Error};
}

LN_Message LN_Message::internal(QString const & message)
{
    return {0, 0, message, Internal};
}

QString LN_Message::typeWord(Type type)
{
    auto const index = static_cast<std::size_t>(type);
    if (index >= typeWords.size())
        return QString::fromUtf16(typeWords.back());
    return QString::fromUtf16(typeWords[index]);
}

QString LN_Message::serialize() const
{
    return u"%1 %2/%3 \"%4\""_s.arg(typeWord(type)).arg(current).arg(total).arg(escaped(message));
}

LN_Message LN_Message::deserialize(QString const & text)
{
    static QRegularExpression const pattern(uR"re(^\s*(\w+)\s*(-?\d+)/(-?\d+)\s*"(.*)"\s*$)re"_s,
                                            QRegularExpression::DotMatchesEverythingOption);
    QRegularExpressionMatch const match = pattern.match(text);
    if (!match.hasMatch())
        return {};

    LN_Message result;
    QString const word = match.captured(1);
    for (std::size_t i = 0; i < typeWords.size(); ++i) {
        if (word == QStringView(typeWords[i]))
            result.type = static_cast<Type>(i);
    }
    result.current = match.captured(2).toLongLong();
    result.total = match.captured(3).toLongLong();
    result.message = match.captured(4).trimmed().replace(u"\\n"_s, u"\n"_s).replace(u"\\\\"_s, u"\\"_s);
    return result;
}
