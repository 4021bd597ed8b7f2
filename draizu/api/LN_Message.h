#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <cstdint>

/// One report of a long operation: progress, information, a warning, an error or an internal
/// note. Operations take a `std::function<void(LN_Message const &)>` and know nothing of where
/// the message goes.
struct DRAIZU_EXPORT LN_Message
{
    enum Type : int {
        Progress = 0,
        Info = 1,
        Warning = 2,
        Error = 3,
        Internal = 4,
        Invalid = 5,
    };

    Type type = Invalid;
    QString message;
    std::int64_t current = 0;
    std::int64_t total = 0;

    LN_Message() = default;
    LN_Message(std::int64_t current, std::int64_t total, QString const & message, Type type);

    static LN_Message progress(std::int64_t current, std::int64_t total, QString const & message);
    static LN_Message info(QString const & message);
    static LN_Message warn(QString const & message);
    static LN_Message error(QString const & message);
    static LN_Message internal(QString const & message);

    /// The word of a type in the text form; "Invalid" for any value outside the table.
    static QString typeWord(Type type);

    /// One line: `Word current/total "text"`, with backslashes and line feeds escaped.
    QString serialize() const;
    /// Reads the text form back. A line that does not match gives an `Invalid` message with
    /// an empty text; an unknown word gives `Invalid` with the numbers and text.
    static LN_Message deserialize(QString const & text);
};
