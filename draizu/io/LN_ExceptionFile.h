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
    /// Opens the file in `mode`; throws "Unable to open <name>: <reason>" when it cannot.
    LN_ExceptionFile(QString const & path, QIODeviceBase::OpenMode mode);
    /// Closes the file.
    ~LN_ExceptionFile() override;

    /// Closes the file; does not fail.
    void close() override;
    /// The file's name as given.
    QString filename() const;
    /// The file's size; does not fail.
    qint64 size() const override;

    /// At most `maxSize` bytes; empty at the end of the file. Throws "Error reading ...".
    QByteArray read(qint64 maxSize);
    /// The rest of the file. Throws "Error reading ...".
    QByteArray readAll();
    /// Resizes the file and returns true; throws "Unable to resize ..." instead of false.
    bool resize(qint64 newSize) override;
    /// Moves to `offset` and returns true; throws "Unable to seek in ..." instead of false.
    bool seek(qint64 offset) override;
    /// Writes all of `data` and returns its size; throws "Unable to write to ..." otherwise.
    qint64 write(QByteArray const & data);
};
