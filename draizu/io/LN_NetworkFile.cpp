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

} // namespace

LN_NetworkFile::LN_NetworkFile(QNetworkAccessManager * manager, QNetworkRequest const & networkRequest,
                               QObject * parent)
    : LN_IODevice(parent)
    , networkManager(manager)
    , request(networkRequest)
{
    stallTimer.setSingleShot(true);
    connect(&stallTimer, &QTimer::timeout, &eventLoop, [this] { eventLoop.exit(loopStalled); });
}

LN_NetworkFile::~LN_NetworkFile()
{
    if (!reply)
        return;
    // Aborting emits the reply's signals once more; nobody here is to hear them.
    QObject::disconnect(reply, nullptr, this, nullptr);
    QObject::disconnect(reply, nullptr, &eventLoop, nullptr);
    stopReply_();
    delete reply;
}

bool LN_NetworkFile::open(std::error_code & ec, QString & message)
{
    if (reply)
        return true;
    reply = networkManager->get(request);
    if (!reply) {
        ec = std::error_code(QNetworkReply::ConnectionRefusedError, QNetworkFileErrorCategory());
        message = u"Failed to receive reply from %1"_s.arg(request.url().toString());
        return false;
    }
    setupNetworkReply(reply);
    stallTimer.setInterval(LN_Waits::ms(LN_Waits::NetworkStall));
    return true;
}

qint64 LN_NetworkFile::size() const
{
    return totalSize;
}

QString LN_NetworkFile::filename() const
{
    return (reply ? reply->url() : request.url()).toString();
}

QString LN_NetworkFile::getHeader(QString const & name) const
{
    return reply ? QString::fromUtf8(reply->rawHeader(name.toUtf8())) : QString();
}

bool LN_NetworkFile::hasHeader(QString const & name) const
{
    return reply && reply->hasRawHeader(name.toUtf8());
}

void LN_NetworkFile::setupNetworkReply(QNetworkReply * networkReply)
{
    networkReply->setReadBufferSize(replyBufferSize);
    // The last exit asked of a QEventLoop is the one it returns, and Qt reports an error and
    // then the end of the reply in one go; the error must not be lost to the end.
    connect(networkReply, &QNetworkReply::errorOccurred, &eventLoop, [this] {
        errorExit_ = true;
        eventLoop.exit(loopError);
    });
    auto const progress = [this] {
        if (!errorExit_)
            eventLoop.quit();
    };
    connect(networkReply, &QNetworkReply::finished, &eventLoop, progress);
    connect(networkReply, &QNetworkReply::readyRead, &eventLoop, progress);
    connect(networkReply, &QNetworkReply::downloadProgress, this, [this](qint64, qint64 total) {
        if (total > 0)
            totalSize = total;
    });
}

// A reply that has reported an error is ending by itself; aborting it then would report a
// second error, which Qt refuses with a warning.
void LN_NetworkFile::stopReply_()
{
    if (reply->isRunning() && reply->error() == QNetworkReply::NoError)
        reply->abort();
}

// Every failure that gives the transfer up is kept and repeated: reading on would otherwise
// hand out what the reply buffered, an error page, or start a new request.
qint64 LN_NetworkFile::giveUp_(std::error_code const & ec, QString const & message)
{
    gaveUp_ = true;
    failureCode_ = ec;
    failureMessage_ = message;
    return -1;
}

void LN_NetworkFile::failFromReply_(std::error_code & ec) const
{
    QNetworkReply::NetworkError const error = reply->error();
    ec = error != QNetworkReply::NoError ? std::error_code(error, QNetworkFileErrorCategory())
                                         : make_error_code(LN_FileError::Unknown);
}

qint64 LN_NetworkFile::readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message)
{
    if (gaveUp_) {
        ec = failureCode_;
        message = failureMessage_;
        return -1;
    }
    if (!reply && !open(ec, message))
        return -1;

    ec = make_error_code(LN_FileError::Unknown);
    message = u"Unknown error"_s;

    while (reply->bytesAvailable() == 0 && reply->isRunning()) {
        // Restarted at every wait: a transfer that delivers anything within the stall time
        // never times out, however long it takes in all.
        errorExit_ = false;
        stallTimer.start(LN_Waits::ms(LN_Waits::NetworkStall));
        int const result = eventLoop.exec(QEventLoop::ExcludeUserInputEvents);
        stallTimer.stop();
        if (result == loopError) {
            failFromReply_(ec);
            message = reply->errorString();
            stopReply_();
            return giveUp_(ec, message);
        }
        if (result != loopStalled)
            break;

        QObject::disconnect(reply, nullptr, this, nullptr);
        QObject::disconnect(reply, nullptr, &eventLoop, nullptr);
        stopReply_();
        delete reply;
        reply = nullptr;
        if (!request.attribute(QNetworkRequest::Http2AllowedAttribute).toBool()) {
            ec = std::error_code(QNetworkReply::TimeoutError, QNetworkFileErrorCategory());
            message = u"Network connection timed out"_s;
            return giveUp_(ec, message);
        }
        // Some servers stall on HTTP/2 streams; the whole request is repeated once without it,
        // and what the first reply delivered is given up.
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
        reply = networkManager->get(request);
        setupNetworkReply(reply);
    }

    // The site answers a protected download without a valid login by redirecting to its login
    // page, with a status that would otherwise pass.
    if (reply->url() != reply->request().url()
        && reply->url().path(QUrl::FullyDecoded).startsWith(QLatin1String("/login/"))) {
        stopReply_();
        ec = make_error_code(LN_FileError::NotLoggedIn);
        message = u"You need to be logged in to view "_s + reply->request().url().toString();
        return giveUp_(ec, message);
    }

    if (statusCode == 0) {
        bool valid = false;
        int const status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(&valid);
        if (!valid) {
            failFromReply_(ec);
            message = u"Request %1 did not return a valid response code"_s.arg(filename());
            stopReply_();
            return giveUp_(ec, message);
        }
        statusCode = status;
        if (statusCode >= 400) {
            failFromReply_(ec);
            message = u"Request %1 returned response code %2"_s.arg(filename(), QString::number(statusCode));
            stopReply_();
            return giveUp_(ec, message);
        }
    }

    ec.clear();
    message.clear();
    // A reply aborted by someone else, by its transfer timeout for one, is closed, and reading
    // a closed device only draws a warning.
    qint64 const count = reply->isOpen() ? reply->read(data, maxSize) : -1;
    if (count > 0)
        return count;
    // A reply that failed while nobody waited on it, a connection dropped in the body for one,
    // is drained and at its end like a complete one; only its error tells them apart.
    if (reply->error() != QNetworkReply::NoError) {
        ec = std::error_code(reply->error(), QNetworkFileErrorCategory());
        message = reply->errorString();
        return giveUp_(ec, message);
    }
    if (reply->atEnd())
        return 0;
    ec = std::error_code(reply->error(), QNetworkFileErrorCategory());
    message = reply->errorString();
    return count;
}
