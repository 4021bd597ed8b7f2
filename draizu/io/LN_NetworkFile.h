#pragma once

#include <draizu/draizu_export.h>
#include <draizu/io/LN_IODevice.h>

#include <QEventLoop>
#include <QNetworkRequest>
#include <QTimer>

class QNetworkAccessManager;
class QNetworkReply;

/// The body of an HTTP GET, read synchronously: a read that finds no bytes waits in a private
/// event loop, in which the thread's other events run (user input excepted). The reply buffers
/// at most 1 MiB ahead of the reader.
///
/// A wait that sees nothing for LN_Waits::NetworkStall gives the request up; a request that
/// allowed HTTP/2 is then repeated once without it, from the start. A redirect to the site's
/// login page fails with code 1 of LN_FileErrorCategory, and an HTTP status of 400 or more
/// fails on the first read. Network failures carry QNetworkReply's error in
/// QNetworkFileErrorCategory.
///
/// Use on the thread of the manager, which must outlive the stream. Open a stream before
/// destroying it. After a failed read the stream does not recover.
class DRAIZU_EXPORT LN_NetworkFile : public LN_IODevice
{
    Q_OBJECT

public:
    LN_NetworkFile(QNetworkAccessManager * manager, QNetworkRequest const & networkRequest,
                   QObject * parent = nullptr);
    ~LN_NetworkFile() override;

    /// Issues the request; failures of the transfer appear at the first read.
    bool open(std::error_code & ec, QString & message) override;
    /// The length the server announced, -1 while unknown or when it gives none.
    qint64 size() const override;
    /// The URL of the reply once there is one, else of the request.
    QString filename() const override;

    /// The reply's raw header of that name, read as UTF-8; empty before open.
    QString getHeader(QString const & name) const;
    bool hasHeader(QString const & name) const;

protected:
    qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) override;

private:
    void setupNetworkReply(QNetworkReply * networkReply);
    void failFromReply_(std::error_code & ec) const;
    void stopReply_();
    qint64 giveUp_(std::error_code const & ec, QString const & message);

    QNetworkAccessManager * networkManager;
    QNetworkReply * reply = nullptr;
    QNetworkRequest request;
    QEventLoop eventLoop;
    QTimer stallTimer;
    qint32 statusCode = 0;
    qint64 totalSize = -1;
    bool errorExit_ = false;
    bool gaveUp_ = false;
    std::error_code failureCode_;
    QString failureMessage_;
};
