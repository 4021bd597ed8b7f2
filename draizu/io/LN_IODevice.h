#pragma once

#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QObject>
#include <QString>

#include <system_error>

/// A forward-only read stream: a file on disk, an entry of an archive, or the body of an HTTP
/// GET. Reads are synchronous and may be short; a read gives the number of bytes read, 0 at
/// the end of the data, and a negative number on failure, with an error code and a readable
/// message. Owned by whoever holds it and deleted through this base.
class DRAIZU_EXPORT LN_IODevice : public QObject
{
    Q_OBJECT

public:
    explicit LN_IODevice(QObject * parent = nullptr);
    ~LN_IODevice() override;

    /// Makes the stream ready to read; false with the error set when it cannot be.
    virtual bool open(std::error_code & ec, QString & message) = 0;
    /// Bytes the whole stream holds, -1 while unknown.
    virtual qint64 size() const = 0;
    /// What the stream reads, for messages.
    virtual QString filename() const = 0;

    qint64 read(char * data, qint64 maxSize);
    qint64 read(char * data, qint64 maxSize, std::error_code & ec, QString & message);

    /// Reads to the end into `out` and returns its size, or the negative result of the read
    /// that failed; what was read before the failure stays in `out`.
    qint64 readAll(QByteArray & out);
    qint64 readAll(QByteArray & out, std::error_code & ec, QString & message);

protected:
    virtual qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) = 0;
};
