#pragma once

#include <draizu/draizu_export.h>
#include <draizu/io/LN_IODevice.h>

#include <QFile>

/// A file on disk, read from its start to its end. Failures are QFile's errors in
/// QFileErrorCategory with QFile's text. Owned by whoever holds it.
class DRAIZU_EXPORT LN_DiskFile : public LN_IODevice
{
    Q_OBJECT

public:
    /// Names the file; nothing is opened yet.
    explicit LN_DiskFile(QString const & path, QObject * parent = nullptr);
    /// Closes the file.
    ~LN_DiskFile() override;

    /// Opens the file for reading; false with QFile's error when it cannot.
    bool open(std::error_code & ec, QString & message) override;
    /// The file's size on disk, known before open; 0 for a file that is not there.
    qint64 size() const override;
    /// The path as given; known before open.
    QString filename() const override;

protected:
    qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) override;

private:
    QFile file_;
};
