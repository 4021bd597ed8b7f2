#pragma once

#include <draizu/draizu_export.h>

#include <QString>

#include <cstdint>

/// One report of a long operation: progress, information, a warning, an error or an internal
/// note. Operations take a `std::function<void(LN_Message const &)>` and know nothing of where
/// the message goes: to a client through LN_ApiRequest::message, to a console and a log file
/// through LN_ProgressWriter. A plain value, copied at will; nothing here fails or throws, and
/// it is safe on any thread.
struct DRAIZU_EXPORT LN_Message
{
    /// The kind of report; its word in the text form is its name.
    enum Type : int {
        Progress = 0,
        Info = 1,
        Warning = 2,
        Error = 3,
        Internal = 4,
        Invalid = 5,
    };

    /// The kind of report.
    Type type = Invalid;
    /// The text; may be empty.
    QString message;
    /// Amount done; 0 unless progress.
    std::int64_t current = 0;
    /// Whole amount; 0 unless progress.
    std::int64_t total = 0;

    /// An Invalid message with no text.
    LN_Message() = default;
    /// A message of any type, with its numbers and text as given.
    LN_Message(std::int64_t current, std::int64_t total, QString const & message, Type type);

    /// Progress: `current` of `total` done.
    static LN_Message progress(std::int64_t current, std::int64_t total, QString const & message);
    /// Information, with 0 for both numbers.
    static LN_Message info(QString const & message);
    /// A warning, with 0 for both numbers.
    static LN_Message warn(QString const & message);
    /// An error, with 0 for both numbers.
    static LN_Message error(QString const & message);
    /// An internal note, with 0 for both numbers.
    static LN_Message internal(QString const & message);

    /// The word of a type in the text form; "Invalid" for any value outside the table.
    static QString typeWord(Type type);

    /// One line: `Word current/total "text"`, with backslashes and line feeds escaped and double
    /// quotes left as they are.
    QString serialize() const;
    /// Reads the text form back, trimming the text. A line that does not match gives an
    /// `Invalid` message with an empty text; an unknown word gives `Invalid` with the numbers
    /// and text. A backslash before the letter n comes back as a backslash and a line feed.
    static LN_Message deserialize(QString const & text);
};
