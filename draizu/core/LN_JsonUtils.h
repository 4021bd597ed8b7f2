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
/// that reports where the text went wrong by line and column instead of a byte offset. Every
/// record loader goes through it, so its texts are what a user sees for a damaged file.
///
/// The getters throw LN_Exception and never return a default; the exceptions are meant for the
/// loader of the record concerned, which turns the text into its own failure. Parsing never
/// throws: it returns the error. Stateless and safe from any thread.
namespace LN_JsonUtils {

/// A place in a text.
struct Position
{
    /// Line number; -1 for a place outside the text.
    qint64 line = 0;
    /// Column in UTF-16 units; -1 for a place outside the text.
    qint64 column = 0;
};

/// A parsed document, or the error with the parser's record and the place of the failure.
struct [[nodiscard]] JsonResult : LN_Result<QJsonDocument>
{
    using LN_Result<QJsonDocument>::LN_Result;

    /// The parser's own record; NoError on success.
    QJsonParseError parseError{};
    /// Where the parse failed, both counted from 1; 0, 0 when the place lay past the text.
    Position position;
};

/// The number under the key, integral or not. Throws LN_Exception
/// `Required key, "k", was missing` or "Incorrect type for key k. Expected number, got <type>.".
DRAIZU_EXPORT double getNumber(QJsonObject const & object, QString const & key);
/// A JSON number as a byte count or size, truncated towards zero. A number beyond the 64-bit
/// range is held to its nearest end and NaN gives 0, where a plain conversion would be
/// undefined. Never fails.
DRAIZU_EXPORT qint64 toSize(double value);
/// The string under the key. Throws LN_Exception as getNumber, with "Expected string".
DRAIZU_EXPORT QString getString(QJsonObject const & object, QString const & key);
/// The array under the key. Throws LN_Exception as getNumber, with "Expected array".
DRAIZU_EXPORT QJsonArray getArray(QJsonObject const & object, QString const & key);
/// The object under the key. Throws LN_Exception as getNumber, with "Expected object".
DRAIZU_EXPORT QJsonObject getObject(QJsonObject const & object, QString const & key);

/// The type of a value in words: "NULL", "boolean", "number", "string", "array", "object",
/// or "undefined". Never fails.
DRAIZU_EXPORT QString jsonTypeToString(QJsonValue const & value);
/// The kind of a document: "array", "object", "empty document", "null" or "invailid". Never
/// fails.
DRAIZU_EXPORT QString jsonTypeToString(QJsonDocument const & document);

/// Line and column of a byte offset, both from 0; the column counts UTF-16 units, and an LF
/// (with a CR before it) belongs to the line it ends. -1, -1 for an offset outside the text.
DRAIZU_EXPORT Position getPosition(QByteArray const & bytes, qint64 offset);

/// Parses a document. Never throws: a failure is an error in the QJsonParse category whose
/// text names line and column, with an empty document.
DRAIZU_EXPORT JsonResult jsonFromBytes(QByteArray const & bytes);

} // namespace LN_JsonUtils
