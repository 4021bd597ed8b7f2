#pragma once

#include <QByteArray>
#include <QString>

// A server message exactly as the engine writes it: the length counts UTF-16 code units of the
// text, and one uncounted line feed closes it.
inline QByteArray reply(QByteArray const & cmd, int status, QByteArray const & tag, QString const & content,
                        QByteArray const & type = "text/plain")
{
    QByteArray header = "1 cmd=" + cmd + " status=" + QByteArray::number(status);
    if (!tag.isEmpty())
        header += " tag=" + tag;
    if (!content.isEmpty())
        header += " content-type=" + type + " content-length=" + QByteArray::number(content.size());
    return header + "\r\n" + content.toUtf8() + "\n";
}

inline QByteArray reply(QByteArray const & cmd, int status, QByteArray const & tag, char const * content,
                        QByteArray const & type = "text/plain")
{
    return reply(cmd, status, tag, QString::fromUtf8(content), type);
}
