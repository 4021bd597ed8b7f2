#include <draizu/core/LN_JsonUtils.h>

#include <cmath>
#include <limits>
#include <draizu/core/LN_JsonUtils_p.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>

using namespace Qt::StringLiterals;

namespace LN_JsonUtils {

namespace {

QJsonValue requiredValue(QJsonObject const & object, QString const & key, QJsonValue::Type type,
                         QString const & wrongType)
{
    QJsonValue const value = object.value(key);
    if (value.type() == type)
        return value;
    if (value.isUndefined())
        throw LN_Exception(u"Required key, \"%1\", was missing"_s.arg(key));
    throw LN_Exception(wrongType.arg(key, jsonTypeToString(value)));
}

} // namespace

double getNumber(QJsonObject const & object, QString const & key)
{
    return requiredValue(object, key, QJsonValue::Double, u"Incorrect type for key %1. Expected number, got %2."_s)
        .toDouble();
}

QString getString(QJsonObject const & object, QString const & key)
{
    return requiredValue(object, key, QJsonValue::String, u"Incorrect type for key %1. Expected string, got %2."_s)
        .toString();
}

QJsonArray getArray(QJsonObject const & object, QString const & key)
{
    return requiredValue(object, key, QJsonValue::Array, u"Incorrect type for key %1. Expected array, got %2."_s)
        .toArray();
}

QJsonObject getObject(QJsonObject const & object, QString const & key)
{
    return requiredValue(object, key, QJsonValue::Object, u"Incorrect type for key %1. Expected object, got %2."_s)
        .toObject();
}

QString jsonTypeToString(QJsonValue const & value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return u"NULL"_s;
    case QJsonValue::Bool:
        return u"boolean"_s;
    case QJsonValue::Double:
        return u"number"_s;
    case QJsonValue::String:
        return u"string"_s;
    case QJsonValue::Array:
        return u"array"_s;
    case QJsonValue::Object:
        return u"object"_s;
    case QJsonValue::Undefined:
        break;
    }
    return u"undefined"_s;
}

QString jsonTypeToString(QJsonDocument const & document)
{
    if (document.isArray())
        return u"array"_s;
    if (document.isObject())
        return u"object"_s;
    if (document.isEmpty())
        return u"empty document"_s;
    if (document.isNull())
        return u"null"_s;
    return u"invailid"_s;
}

Position getPosition(QByteArray const & bytes, qint64 offset)
{
    if (offset < 0 || offset >= bytes.size())
        return {-1, -1};

    qsizetype lineFeed = bytes.lastIndexOf('\n', offset);
    // An offset on a line's own LF counts as part of that line. A search from -1 would run
    // from the end of the text, hence the guard.
    if (lineFeed == offset)
        lineFeed = offset > 0 ? bytes.lastIndexOf('\n', offset - 1) : -1;
    qsizetype const lineStart = lineFeed + 1;

    Position position;
    position.line = QByteArrayView(bytes).first(lineStart).count('\n');
    QString const text = QString::fromUtf8(QByteArrayView(bytes).sliced(lineStart, offset - lineStart));
    position.column = text.size();
    if (text.endsWith(u'\r'))
        --position.column;
    return position;
}

JsonResult jsonFromBytes(QByteArray const & bytes)
{
    QJsonParseError parseError{};
    QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error == QJsonParseError::NoError)
        return JsonResult(std::move(document));

    Position position = getPosition(bytes, parseError.offset);
    ++position.line;
    ++position.column;
    JsonResult result(LN_ErrorStruct{
        std::error_code(parseError.error, QJsonParseErrorCategory()),
        u"JSON Parse error at line %1, column %2: %3"_s.arg(QString::number(position.line),
                                                            QString::number(position.column),
                                                            parseError.errorString())});
    result.parseError = parseError;
    result.position = position;
    return result;
}

// Gives a parse failure of jsonFromBytes the name of what was read.
LN_Result<QJsonDocument> parseNamed(QByteArray const & bytes, QString const & name)
{
    JsonResult const result = jsonFromBytes(bytes);
    if (!result.isError())
        return result.value;
    return LN_ErrorStruct{result.error.code,
                          u"JSON Parse error in \"%1\" at line %2, column %3: %4"_s.arg(
                              name, QString::number(result.position.line), QString::number(result.position.column),
                              result.parseError.errorString())};
}

} // namespace LN_JsonUtils

qint64 LN_JsonUtils::toSize(double value)
{
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (std::isnan(value))
        return 0;
    if (value >= limit)
        return std::numeric_limits<qint64>::max();
    if (value < -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}
