#include <draizu/catalogue/LN_InfoUpdates.h>

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Failures_p.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_Urls.h>
#include <draizu/platform/LN_KnownFolders_p.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QUrl>

using namespace Qt::StringLiterals;

LN_InfoUpdates::LN_InfoUpdates(QObject * parent)
    : QObject(parent)
{
    stallTimer_.setSingleShot(true);
    connect(&stallTimer_, &QTimer::timeout, this, [this] {
        deleteNetworkReply_();
        Q_EMIT error(std::error_code(QNetworkReply::TimeoutError, QNetworkFileErrorCategory()),
                     u"Network connection timed out"_s);
    });
}

LN_InfoUpdates::~LN_InfoUpdates()
{
    deleteNetworkReply_();
}

void LN_InfoUpdates::getUpdates(QList<BuildIdentifier> const &, QNetworkAccessManager * manager)
{
    deleteNetworkReply_();

    reply_ = manager->get(LN_Util::createHttpRequest(
        QUrl(LN_Urls::instance().getUrl(LN_Urls::Url_UpdateVersions), QUrl::TolerantMode)));
    connect(reply_, &QNetworkReply::errorOccurred, this, [this](QNetworkReply::NetworkError code) {
        stallTimer_.stop();
        Q_EMIT error(std::error_code(code, QNetworkFileErrorCategory()), reply_->errorString());
    });
    connect(reply_, &QNetworkReply::finished, this, &LN_InfoUpdates::downloadFinished_);
    // Anything that arrives, headers included, restarts the wait: only silence ends a request.
    auto const restartStallTimer = [this] { stallTimer_.start(LN_Waits::ms(LN_Waits::NetworkStall)); };
    connect(reply_, &QNetworkReply::metaDataChanged, this, restartStallTimer);
    connect(reply_, &QNetworkReply::downloadProgress, this, restartStallTimer);
    restartStallTimer();
}

void LN_InfoUpdates::downloadFinished_()
{
    stallTimer_.stop();
    if (reply_->error() != QNetworkReply::NoError) {
        deleteNetworkReply_();
        return;
    }

    // A failed parse keeps the finished reply until the next request; only its bytes were needed.
    LN_JsonUtils::JsonResult const document = LN_JsonUtils::jsonFromBytes(reply_->readAll());
    if (document.isError()) {
        Q_EMIT error(document.error.code, document.error.message);
        return;
    }
    // The site's JSON is outside our control: a wrong shape is reported like any bad answer,
    // since an exception must not cross the event loop that called this slot.
    LN_Result<QList<LN_AvailableInfo>> const catalogue =
        LN_Failures::resultOf(make_error_code(LN_AvailableInfoError::InvalidFormat),
                              [&] { return LN_AvailableInfo::fromJsonDocument(document.value); });
    if (catalogue.isError()) {
        Q_EMIT error(catalogue.error.code, catalogue.error.message);
        return;
    }

    Table table;
    for (LN_AvailableInfo const & info : catalogue.value) {
        table.insert(BuildIdentifier{info.version, info.platform, info.buildType},
                     LN_InfoUpdate{info.version, info.oapiVersion, info.platform, info.buildType, info.tags,
                                   info.releaseDate});
    }
    deleteNetworkReply_();
    updates = std::move(table);
    Q_EMIT resultReady();
}

void LN_InfoUpdates::deleteNetworkReply_()
{
    stallTimer_.stop();
    if (!reply_)
        return;
    // Disconnected first: aborting emits the reply's signals once more, for nobody.
    reply_->disconnect(this);
    if (reply_->isRunning())
        reply_->abort();
    reply_->deleteLater();
    reply_ = nullptr;
}

void LN_InfoUpdates::merge(LN_InfoUpdates const & other)
{
    for (auto it = other.updates.constBegin(); it != other.updates.constEnd(); ++it)
        updates[it.key()] = it.value();
}

void LN_InfoUpdates::save() const
{
    QJsonArray array;
    for (LN_InfoUpdate const & update : updates) {
        array.append(QJsonObject{
            {u"version"_s, update.version.toString()},
            {u"oapiVersion"_s, update.oapiVersion.toString()},
            {u"build type"_s, update.buildType},
            {u"os"_s, update.platform.osString()},
            {u"compiler"_s, update.platform.compiler},
            {u"tags"_s, QJsonArray::fromStringList(update.tags)},
            {u"release date"_s, update.releaseDate.toString(Qt::ISODate)},
        });
    }

    QString const folder = LN_KnownFolders::roamingAppData();
    if (folder.isEmpty())
        return;
    LN_ExceptionFile file(folder + u"/marlux/updates.json"_s, QIODevice::WriteOnly | QIODevice::Text);
    file.write(QJsonDocument(array).toJson(QJsonDocument::Compact));
}

LN_InfoUpdates::Table::const_iterator LN_InfoUpdates::begin() const
{
    return updates.constBegin();
}

LN_InfoUpdates::Table::const_iterator LN_InfoUpdates::end() const
{
    return updates.constEnd();
}
