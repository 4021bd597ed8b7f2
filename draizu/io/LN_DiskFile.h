#pragma once

#include <draizu/draizu_export.h>
#include <draizu/io/LN_IODevice.h>

#include <QFile>

/// A file on disk, read from its start. Failures are QFile's errors in QFileErrorCategory.
class DRAIZU_EXPORT LN_DiskFile : public LN_IODevice
{
    Q_OBJECT

public:
    explicit LN_DiskFile(QString const & path, QObject * parent = nullptr);
    ~LN_DiskFile() override;

    bool open(std::error_code & ec, QString & message) override;
    /// Known before open.
    qint64 size() const override;
    QString filename() const override;

protected:
    qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) override;

private:
    QFile file;
};
