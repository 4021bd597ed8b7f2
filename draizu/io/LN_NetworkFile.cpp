#include <draizu/io/LN_NetworkFile.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Waits.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 replyBufferSize = 1048576;

// Exit codes of the private event loop.
constexpr int loopProgress = 0;
constexpr int loopStalled = 1;
constexpr int loopError = 2;

// The error Qt 6.4 gives a reply for its HTTP status, which it sets only when the reply ends:
// the body of an error page can reach the reader first.
QNetworkReply::NetworkError errorForStatus(int status)
{
    switch (status) {
    case 400:
    case 418:
        return QNetworkReply::ProtocolInvalidOperationError;
    case 401:
        return QNetworkReply::AuthenticationRequiredError;
    case 403:
        return QNetworkReply::ContentAccessDenied;
    case 404:
        return QNetworkReply::ContentNotFoundError;
    case 405:
        return QNetworkReply::ContentOperationNotPermittedError;
    case 407:
        return QNetworkReply::ProxyAuthenticationRequiredError;
    case 409:
        return QNetworkReply::ContentConflictError;
    case 410:
        return QNetworkReply::ContentGoneError;
    case 500:
        return QNetworkReply::InternalServerError;
    case 501:
        return QNetworkReply::OperationNotImplementedError;
    case 503:
        return QNetworkReply::ServiceUnavailableError;
    default:
        return status > 500 ? QNetworkReply::UnknownServerError : QNetworkReply::UnknownContentError;
    }
}

// A reply that has reported an error, or will report one for its status, ends by itself;
// aborting it would race Qt's own error, which Qt then refuses with a warning. Deleting such a
// reply stops its transfer all the same.
void stopReply(QNetworkReply & reply)
{
    if (reply.isRunning() && reply.error() == QNetworkReply::NoError
        && reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() < 400)
        reply.abort();
}

} // namespace

void LN_NetworkFile::ReplyCloser::operator()(QNetworkReply * reply) const
{
    QObject::disconnect(reply, nullptr, receiver, nullptr);
    stopReply(*reply);
    delete reply;
}

LN_NetworkFile::LN_NetworkFile(QNetworkAccessManager * manager, QNetworkRequest const & networkRequest,
                               QObject * parent)
    : LN_IODevice(parent)
    , networkManager_(manager)
    , request_(networkRequest)
    , reply_(nullptr, ReplyCloser{this})
{
    stallTimer_.setSingleShot(true);
    connect(&stallTimer_, &QTimer::timeout, &eventLoop_, [this] { eventLoop_.exit(loopStalled); });
}

LN_NetworkFile::~LN_NetworkFile() = default;

bool LN_NetworkFile::open(std::error_code & ec, QString & message)
{
    if (reply_ || issueRequest_())
        return true;
    ec = std::error_code(QNetworkReply::ConnectionRefusedError, QNetworkFileErrorCategory());
    message = u"Failed to receive reply from %1"_s.arg(request_.url().toString());
    return false;
}

qint64 LN_NetworkFile::size() const
{
    return totalSize_;
}

QString LN_NetworkFile::filename() const
{
    return (reply_ ? reply_->url() : request_.url()).toString();
}

QString LN_NetworkFile::getHeader(QString const & name) const
{
    return reply_ ? QString::fromUtf8(reply_->rawHeader(name.toUtf8())) : QString();
}

bool LN_NetworkFile::hasHeader(QString const & name) const
{
    return reply_ && reply_->hasRawHeader(name.toUtf8());
}

bool LN_NetworkFile::issueRequest_()
{
    reply_.reset(networkManager_->get(request_));
    if (!reply_)
        return false;
    setupNetworkReply_();
    return true;
}

void LN_NetworkFile::setupNetworkReply_()
{
    reply_->setReadBufferSize(replyBufferSize);
    // The last exit asked of a QEventLoop is the one it returns, and Qt reports an error and
    // then the end of the reply in one go; the error must not be lost to the end.
    connect(reply_.get(), &QNetworkReply::errorOccurred, this, [this] {
        errorExit_ = true;
        eventLoop_.exit(loopError);
    });
    auto const progress = [this] {
        if (!errorExit_)
            eventLoop_.exit(loopProgress);
    };
    connect(reply_.get(), &QNetworkReply::finished, this, progress);
    connect(reply_.get(), &QNetworkReply::readyRead, this, progress);
    connect(reply_.get(), &QNetworkReply::downloadProgress, this, [this](qint64, qint64 total) {
        if (total > 0)
            totalSize_ = total;
    });
}

LN_NetworkFile::WaitEnd LN_NetworkFile::waitForData_()
{
    while (reply_->bytesAvailable() == 0 && reply_->isRunning()) {
        // Restarted at every wait: a transfer that delivers anything within the stall time
        // never times out, however long it takes in all.
        errorExit_ = false;
        stallTimer_.start(LN_Waits::ms(LN_Waits::NetworkStall));
        int const result = eventLoop_.exec(QEventLoop::ExcludeUserInputEvents);
        stallTimer_.stop();
        if (result == loopError)
            return WaitEnd::ReplyError;
        if (result != loopStalled)
            return WaitEnd::Progress;

        reply_.reset();
        if (!request_.attribute(QNetworkRequest::Http2AllowedAttribute).toBool())
            return WaitEnd::Stalled;
        // Some servers stall on HTTP/2 streams; the whole request is repeated once without it,
        // and what the first reply delivered is given up.
        request_.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
        if (!issueRequest_())
            return WaitEnd::Stalled;
    }
    return WaitEnd::Progress;
}

bool LN_NetworkFile::checkResponse_(WaitEnd wait, std::error_code & ec, QString & message)
{
    // The site answers a protected download without a valid login by redirecting to its login
    // page, and what that page answers, an error included, says nothing about the download.
    if (reply_->url() != reply_->request().url()
        && reply_->url().path(QUrl::FullyDecoded).startsWith(QLatin1String("/login/"))) {
        ec = make_error_code(LN_FileError::NotLoggedIn);
        message = u"You need to be logged in to view "_s + reply_->request().url().toString();
        return false;
    }
    if (wait == WaitEnd::ReplyError) {
        ec = replyError_();
        message = reply_->errorString();
        return false;
    }
    // Judged once: the status stays, and reads after a failure never get this far.
    if (statusCode_ != 0)
        return true;
    bool valid = false;
    statusCode_ = reply_->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(&valid);
    if (!valid) {
        ec = replyError_();
        message = u"Request %1 did not return a valid response code"_s.arg(filename());
        return false;
    }
    if (statusCode_ >= 400) {
        QNetworkReply::NetworkError const error = reply_->error();
        ec = std::error_code(error != QNetworkReply::NoError ? error : errorForStatus(statusCode_),
                             QNetworkFileErrorCategory());
        message = u"Request %1 returned response code %2"_s.arg(filename(), QString::number(statusCode_));
        return false;
    }
    return true;
}

std::error_code LN_NetworkFile::replyError_() const
{
    QNetworkReply::NetworkError const error = reply_->error();
    return error != QNetworkReply::NoError ? std::error_code(error, QNetworkFileErrorCategory())
                                           : make_error_code(LN_FileError::Unknown);
}

// Every failure that gives the transfer up is kept and repeated: reading on would otherwise
// hand out what the reply buffered, an error page, or start a new request.
qint64 LN_NetworkFile::giveUp_(std::error_code const & ec, QString const & message)
{
    if (reply_)
        stopReply(*reply_);
    gaveUp_ = true;
    failureCode_ = ec;
    failureMessage_ = message;
    return -1;
}

qint64 LN_NetworkFile::readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message)
{
    if (gaveUp_) {
        ec = failureCode_;
        message = failureMessage_;
        return -1;
    }
    if (!reply_ && !open(ec, message))
        return -1;

    WaitEnd const wait = waitForData_();
    if (wait == WaitEnd::Stalled) {
        ec = std::error_code(QNetworkReply::TimeoutError, QNetworkFileErrorCategory());
        message = u"Network connection timed out"_s;
        return giveUp_(ec, message);
    }
    if (!checkResponse_(wait, ec, message))
        return giveUp_(ec, message);

    ec.clear();
    message.clear();
    // A reply aborted by someone else, by its transfer timeout for one, is closed, and reading
    // a closed device only draws a warning.
    qint64 const count = reply_->isOpen() ? reply_->read(data, maxSize) : -1;
    if (count > 0)
        return count;
    // A reply that failed while nobody waited on it, a connection dropped in the body for one,
    // is drained and at its end like a complete one; only its error tells them apart.
    if (reply_->error() != QNetworkReply::NoError) {
        ec = std::error_code(reply_->error(), QNetworkFileErrorCategory());
        message = reply_->errorString();
        return giveUp_(ec, message);
    }
    if (reply_->atEnd())
        return 0;
    ec = std::error_code(reply_->error(), QNetworkFileErrorCategory());
    message = reply_->errorString();
    return count;
}
