#pragma once

// Wire text shared by the request tests: client messages as a client sends them, and server
// messages exactly as the engine writes them.

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QString>

// A client message: the length counts bytes, and nothing closes it.
inline QByteArray message(QByteArray const & cmd, QByteArray const & tag, QByteArray const & body)
{
    return "1 cmd=" + cmd + " tag=" + tag + " content-length=" + QByteArray::number(body.size()) + "\r\n" + body;
}

// An API_FUNCTION message for the JSON array `request`.
inline QByteArray call(QByteArray const & tag, QJsonArray const & request)
{
    QByteArray const json = QJsonDocument(request).toJson(QJsonDocument::Compact);
    return message("API_FUNCTION", tag, "json=" + json.toPercentEncoding());
}

inline QByteArray call(QByteArray const & tag, QByteArray const & function, QJsonArray const & args = {})
{
    return call(tag, QJsonArray{QString::fromUtf8(function), args});
}

// A server message with a UTF-8 body: the length counts the UTF-16 code units of the text, and
// one uncounted line feed closes it.
inline QByteArray reply(QByteArray const & cmd, int status, QByteArray const & tag, QByteArray const & content,
                        QByteArray const & type = "text/plain")
{
    QByteArray header = "1 cmd=" + cmd + " status=" + QByteArray::number(status);
    if (!tag.isEmpty())
        header += " tag=" + tag;
    if (!content.isEmpty())
        header += " content-type=" + type + " content-length=" + QByteArray::number(QString::fromUtf8(content).size());
    return header + "\r\n" + content + "\n";
}

inline QByteArray complete(QByteArray const & tag, QByteArray const & content, int status = 200)
{
    return reply("COMPLETE", status, tag, content);
}
