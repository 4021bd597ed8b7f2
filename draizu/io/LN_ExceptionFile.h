#pragma once

#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QFile>

/// A QFile whose failures are thrown as LN_Exception, for whole-file work where any failure
/// ends the operation. An object that exists is open: the constructor opens or throws.
class DRAIZU_EXPORT LN_ExceptionFile : public QFile
{
    Q_OBJECT

public:
    LN_ExceptionFile(QString const & path, QIODeviceBase::OpenMode mode);
    ~LN_ExceptionFile() override;

    void close() override;
    QString filename() const;
    qint64 size() const override;

    /// At most `maxSize` bytes; empty at the end of the file.
    QByteArray read(qint64 maxSize);
    QByteArray readAll();
    /// Throws instead of returning false.
    bool resize(qint64 newSize) override;
    /// Throws instead of returning false.
    bool seek(qint64 offset) override;
    /// Throws unless every byte was written.
    qint64 write(QByteArray const & data);
};
