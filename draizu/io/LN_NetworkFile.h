#pragma once

#include <draizu/draizu_export.h>
#include <draizu/io/LN_IODevice.h>

#include <QEventLoop>
#include <QNetworkRequest>
#include <QTimer>

#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

/// The body of an HTTP GET, read synchronously: a read that finds no bytes waits in a private
/// event loop, in which the thread's other events run (user input excepted). The reply buffers
/// at most 1 MiB ahead of the reader.
///
/// A wait that sees nothing for LN_Waits::NetworkStall gives the request up; a request that
/// allowed HTTP/2 is then repeated once without it, from the start. A redirect to the site's
/// login page fails with code 1 of LN_FileErrorCategory, whatever that page answers. An HTTP
/// status of 400 or more fails the first read with the code Qt gives that status, in
/// QNetworkFileErrorCategory (404 is 203), whether the error page's body or the end of the
/// reply comes first; other network failures carry QNetworkReply's error there too.
///
/// Use on the thread of the manager, which must outlive the stream. After a failed read the
/// stream does not recover: every further read repeats the failure.
class DRAIZU_EXPORT LN_NetworkFile : public LN_IODevice
{
    Q_OBJECT

public:
    /// Keeps the request for a later open; nothing is sent yet.
    LN_NetworkFile(QNetworkAccessManager * manager, QNetworkRequest const & networkRequest,
                   QObject * parent = nullptr);
    /// Stops a transfer still running.
    ~LN_NetworkFile() override;

    /// Issues the request, once; failures of the transfer appear at the first read. False with
    /// code 1 of QNetworkFileErrorCategory when the manager makes no reply.
    bool open(std::error_code & ec, QString & message) override;
    /// The length the server announced, -1 while unknown or when it gives none.
    qint64 size() const override;
    /// The URL of the reply once there is one (after redirects), else of the request.
    QString filename() const override;

    /// The reply's raw header of that name, read as UTF-8; empty before open or when absent.
    QString getHeader(QString const & name) const;
    /// Whether the reply carries a header of that name; false before open.
    bool hasHeader(QString const & name) const;

protected:
    qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) override;

private:
    // Disconnects the stream from the reply first: stopping the transfer emits the reply's
    // signals once more, and nobody here is to hear them.
    struct ReplyCloser
    {
        QObject const * receiver;
        void operator()(QNetworkReply * reply) const;
    };
    enum class WaitEnd { Progress, ReplyError, Stalled };

    bool issueRequest_();
    void setupNetworkReply_();
    WaitEnd waitForData_();
    bool checkResponse_(WaitEnd wait, std::error_code & ec, QString & message);
    std::error_code replyError_() const;
    qint64 giveUp_(std::error_code const & ec, QString const & message);

    QNetworkAccessManager * networkManager_;
    QNetworkRequest request_;
    QEventLoop eventLoop_;
    QTimer stallTimer_;
    qint32 statusCode_ = 0;
    qint64 totalSize_ = -1;
    bool errorExit_ = false;
    bool gaveUp_ = false;
    std::error_code failureCode_;
    QString failureMessage_;
    // Last, so that the reply goes before the loop its signals end.
    std::unique_ptr<QNetworkReply, ReplyCloser> reply_;
};
