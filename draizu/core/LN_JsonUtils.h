#pragma once

#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QString>
#include <QtGlobal>

/// Typed access to JSON that reports a missing key or a wrong type by exception, and parsing
/// that reports where the text went wrong by line and column.
namespace LN_JsonUtils {

/// A place in a text.
struct Position
{
    qint64 line = 0;
    qint64 column = 0;
};

/// A parsed document, or the error with the parser's record and the place of the failure,
/// counted from 1.
struct JsonResult : LN_Result<QJsonDocument>
{
    using LN_Result<QJsonDocument>::LN_Result;

    QJsonParseError parseError{};
    Position position;
};

/// The value of a required key. Throw LN_Exception when the key is missing
/// (`Required key, "k", was missing`) or its value is of another type
/// ("Incorrect type for key k. Expected number, got string.").
DRAIZU_EXPORT double getNumber(QJsonObject const & object, QString const & key);
DRAIZU_EXPORT QString getString(QJsonObject const & object, QString const & key);
DRAIZU_EXPORT QJsonArray getArray(QJsonObject const & object, QString const & key);
DRAIZU_EXPORT QJsonObject getObject(QJsonObject const & object, QString const & key);

/// The type of a value in words: "NULL", "boolean", "number", "string", "array", "object",
/// "undefined".
DRAIZU_EXPORT QString jsonTypeToString(QJsonValue const & value);
/// The kind of a document: "array", "object", "empty document", "null" or "invailid".
DRAIZU_EXPORT QString jsonTypeToString(QJsonDocument const & document);

/// Line and column of a byte offset, both from 0; the column counts UTF-16 units, and an LF
/// (with a CR before it) belongs to the line it ends. -1, -1 for an offset outside the text.
DRAIZU_EXPORT Position getPosition(QByteArray const & bytes, qint64 offset);

/// Parses a document. Never throws: a failure is an error in the QJsonParse category whose
/// text names line and column.
DRAIZU_EXPORT JsonResult jsonFromBytes(QByteArray const & bytes);

} // namespace LN_JsonUtils
