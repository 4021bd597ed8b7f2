#include <draizu/packages/LN_AvailablePackageLoader.h>

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Util.h>
#include <draizu/packages/LN_AvailablePackageResult.h>

#include <QDir>
#include <QDirIterator>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 readBufferSize = 1048576;
constexpr qsizetype maxDocumentSize = 16 * 1024 * 1024;
constexpr qint32 maxUrlsPerRun = 1000;

} // namespace

LN_AvailablePackageLoader::LN_AvailablePackageLoader()
    : LN_AvailablePackageLoader(nullptr)
{
}

LN_AvailablePackageLoader::LN_AvailablePackageLoader(QObject * parent)
    : QObject(parent)
{
    stallTimer_.setSingleShot(true);
    connect(&stallTimer_, &QTimer::timeout, this, &LN_AvailablePackageLoader::stalled_);
}

LN_AvailablePackageLoader::~LN_AvailablePackageLoader()
{
    if (!currentReply_)
        return;
    currentReply_->disconnect(this);
    currentReply_->abort();
    currentReply_->deleteLater();
}

void LN_AvailablePackageLoader::getAvailablePackages(QList<QUrl> const & urls, QNetworkAccessManager * manager)
{
    completedUrls_ = 0;
    errors_.clear();
    packages_.clear();
    manager_ = manager;
    queuedUrls_ = 0;
    urlLimitReported_ = false;
    for (QUrl const & url : urls)
        queueUrl_(url);
    std::reverse(queue_.begin(), queue_.end());
    processNextUrl_();
}

void LN_AvailablePackageLoader::getAvailablePackages(QList<QUrl> const & urls, QNetworkAccessManager * manager,
                                                     QList<LN_AvailablePackage> & packages)
{
    QEventLoop loop;
    bool done = false;
    QMetaObject::Connection const connection = connect(this, &LN_AvailablePackageLoader::finished, &loop, [&] {
        done = true;
        loop.quit();
    });
    getAvailablePackages(urls, manager);
    if (!done)
        loop.exec();
    disconnect(connection);
    packages = packages_;
}

void LN_AvailablePackageLoader::getAvailablePackages(QString path, QNetworkAccessManager *,
                                                     QList<LN_AvailablePackage> & packages)
{
    QFileInfo const info(path);
    if (info.isFile() && LN_AvailableInfo::isOfflineArchiveFile(path)) {
        packages.append(LN_AvailablePackage::fromOfflineInstaller(QDir(path)).packages);
    } else if (info.isDir()) {
        QDirIterator files(path, QDir::Files);
        while (files.hasNext())
            packages.append(LN_AvailablePackage::fromOfflineInstaller(QDir(files.next())).packages);
    }
}

void LN_AvailablePackageLoader::abort()
{
    if (!currentReply_)
        return;
    // Names this object as the sender, so the reply's connections to the finish step stay: it
    // runs first, sees the cancellation and moves on; this step then drops whatever reply is
    // current by then.
    QObject::disconnect(this, nullptr, currentReply_, nullptr);
    connect(currentReply_, &QNetworkReply::finished, this, [this] {
        if (currentReply_)
            currentReply_->deleteLater();
        currentReply_ = nullptr;
    });
    currentReply_->abort();
}

QList<QString> LN_AvailablePackageLoader::getErrors() const
{
    return errors_;
}

QList<LN_AvailablePackage> LN_AvailablePackageLoader::getPackages() const
{
    return packages_;
}

void LN_AvailablePackageLoader::processNextUrl_()
{
    if (queue_.isEmpty()) {
        Q_EMIT finished(errors_.isEmpty());
        return;
    }
    buffer_.clear();
    refusal_.clear();
    QUrl const url = queue_.takeLast();
    Q_EMIT progress(completedUrls_, static_cast<int>(seenUrls_.size()), url.toString());

    QNetworkReply * reply = manager_->get(LN_Util::createHttpRequest(url));
    currentReply_ = reply;
    reply->setReadBufferSize(readBufferSize);
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] { readReply_(reply); });
    connect(reply, &QNetworkReply::finished, this, [this, reply, url] { finishReply_(reply, url); });
    stallTimer_.start(LN_Waits::ms(LN_Waits::NetworkStall));
}

bool LN_AvailablePackageLoader::readReply_(QNetworkReply * reply)
{
    char chunk[1024];
    qint64 count = 0;
    while ((count = reply->read(chunk, sizeof chunk)) > 0) {
        buffer_.append(chunk, count);
        if (buffer_.size() > maxDocumentSize) {
            refusal_ = u"Error downloading file: %1 is larger than 16 MiB"_s.arg(reply->url().toString());
            reply->abort();
            return false;
        }
        if (count < qint64(sizeof chunk) && reply->atEnd())
            break;
    }
    if (count < 0) {
        reply->abort();
        errors_.append(u"Error downloading file: "_s + reply->errorString());
        return false;
    }
    if (reply == currentReply_)
        stallTimer_.start(LN_Waits::ms(LN_Waits::NetworkStall));
    return true;
}

void LN_AvailablePackageLoader::finishReply_(QNetworkReply * reply, QUrl const & url)
{
    stallTimer_.stop();
    currentReply_ = nullptr;
    QNetworkReply::NetworkError const error = reply->error();
    reply->deleteLater();

    if (error == QNetworkReply::NoError) {
        if (reply->atEnd() || readReply_(reply))
            processJson_(url);
    } else if (error != QNetworkReply::OperationCanceledError) {
        errors_.append(u"Error downloading file: "_s + reply->errorString());
    }
    // A cancellation of ours (too large, stalled) says why; one of the caller's stays silent.
    if (!refusal_.isEmpty())
        errors_.append(std::exchange(refusal_, QString()));
    ++completedUrls_;
    processNextUrl_();
}

void LN_AvailablePackageLoader::processJson_(QUrl const & url)
{
    QJsonParseError parseError{};
    QJsonDocument const document = QJsonDocument::fromJson(buffer_, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        errors_.append(u"%1 is not a valid JSON file: %2"_s.arg(url.toString(), parseError.errorString()));
        return;
    }
    LN_AvailablePackageResult result;
    // Thrown for a malformed list of further servers; out of a reply's signal it would end
    // the process, and the document is a server's to make.
    try {
        result = LN_AvailablePackage::fromJson(document, false);
    } catch (std::exception const & e) {
        result.errors.append(QString::fromUtf8(e.what()));
    }
    packages_.append(result.packages);
    for (QString const & error : std::as_const(result.errors))
        errors_.append(u"Error while processing %1: %2"_s.arg(url.toString(), error));

    // Pushed in reverse onto the stack, so that they are fetched in document order.
    qsizetype const end = queue_.size();
    for (QUrl const & additional : std::as_const(result.additionalServerUrls))
        queueUrl_(additional);
    std::reverse(queue_.begin() + end, queue_.end());
}

void LN_AvailablePackageLoader::queueUrl_(QUrl const & url)
{
    if (seenUrls_.contains(url))
        return;
    if (queuedUrls_ >= maxUrlsPerRun) {
        if (!std::exchange(urlLimitReported_, true))
            errors_.append(u"More than 1000 package sources in one run: %1 and the sources after it were not fetched"_s
                               .arg(url.toString()));
        return;
    }
    seenUrls_.insert(url);
    queue_.append(url);
    ++queuedUrls_;
}

void LN_AvailablePackageLoader::stalled_()
{
    if (!currentReply_)
        return;
    refusal_ = u"Error downloading file: %1 sent nothing for %2 ms"_s.arg(
        currentReply_->url().toString(), QString::number(LN_Waits::ms(LN_Waits::NetworkStall)));
    currentReply_->abort();
}
