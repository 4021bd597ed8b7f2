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
    /// A stream, owned by `parent` when one is given.
    explicit LN_IODevice(QObject * parent = nullptr);
    /// Streams are deleted through this base.
    ~LN_IODevice() override;

    /// Makes the stream ready to read; false with the error set when it cannot be.
    virtual bool open(std::error_code & ec, QString & message) = 0;
    /// Bytes the whole stream holds, -1 while unknown.
    virtual qint64 size() const = 0;
    /// What the stream reads, for messages.
    virtual QString filename() const = 0;

    /// Reads at most `maxSize` bytes: the count read, 0 at the end, negative on failure, whose
    /// reason is dropped.
    qint64 read(char * data, qint64 maxSize);
    /// Reads at most `maxSize` bytes: the count read, 0 at the end, negative on failure with
    /// `ec` and `message` set.
    qint64 read(char * data, qint64 maxSize, std::error_code & ec, QString & message);

    /// Reads to the end into `out` and returns its size, or the negative result of the read
    /// that failed, whose reason is dropped; what was read before the failure stays in `out`.
    qint64 readAll(QByteArray & out);
    /// Reads to the end into `out` and returns its size, or the negative result of the read
    /// that failed with `ec` and `message` set; what was read before stays in `out`.
    qint64 readAll(QByteArray & out, std::error_code & ec, QString & message);

protected:
    /// What every read comes to; the same promise as read().
    virtual qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) = 0;
};
