#pragma once

#include <draizu/draizu_export.h>
#include <draizu/packages/LN_AvailablePackage.h>

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

/// Gathers the packages on offer from package sources: downloads each "packages.json", one at
/// a time, and follows the further sources each names, depth first, never fetching a URL twice
/// in the object's life (so a second run with the same URLs fetches nothing). Also reads the
/// offer of offline installers, without network.
///
/// A run ends with `finished`; a source that fails adds a text to getErrors and the others'
/// packages are kept. A server cannot make a run unbounded: a document above 16 MiB, a download
/// that receives nothing for LN_Waits::NetworkStall, and the URLs past the 1000th that one run
/// would queue each end in an error instead, and so does a document whose
/// "additional_server_urls" is not an array.
///
/// Lives on the thread of its event loop and of the manager, which is not owned and must
/// outlive the run. One run at a time.
class DRAIZU_EXPORT LN_AvailablePackageLoader : public QObject
{
    Q_OBJECT

public:
    /// A loader without a parent.
    LN_AvailablePackageLoader();
    /// A loader owned by `parent`.
    explicit LN_AvailablePackageLoader(QObject * parent);
    /// Stops a download in flight without reporting it.
    ~LN_AvailablePackageLoader() override;

    /// Starts a run over the URLs not fetched before, in their order, and returns at once; the
    /// result comes with `finished`, which is emitted before this returns when nothing is left
    /// to fetch.
    void getAvailablePackages(QList<QUrl> const & urls, QNetworkAccessManager * manager);
    /// Runs to the end in a local event loop and assigns the packages to `packages`; errors
    /// stay in getErrors. Needs at least one URL not fetched before, else it never returns.
    void getAvailablePackages(QList<QUrl> const & urls, QNetworkAccessManager * manager,
                              QList<LN_AvailablePackage> & packages);
    /// Appends the packages of the offline installer at `path`, or of every file directly in
    /// the directory at `path`, to `packages`. Touches no network, emits nothing and reports
    /// no errors: an unreadable installer adds nothing.
    void getAvailablePackages(QString path, QNetworkAccessManager * manager, QList<LN_AvailablePackage> & packages);
    /// Cancels the download in flight, which then reports nothing; with more URLs queued the
    /// next download is dropped too, and the run stops without `finished`.
    void abort();

    /// The texts of the run's failures so far.
    QList<QString> getErrors() const;
    /// The packages the run has found so far, in the order of their sources.
    QList<LN_AvailablePackage> getPackages() const;

Q_SIGNALS:
    /// The queue ran dry; `success` when no error was found.
    void finished(bool success);
    /// A download starts: `current` URLs are done of `total` known so far, which can grow.
    void progress(int current, int total, QString url);

private:
    void processNextUrl_();
    bool readReply_(QNetworkReply * reply);
    void finishReply_(QNetworkReply * reply, QUrl const & url);
    void processJson_(QUrl const & url);
    void queueUrl_(QUrl const & url);
    void stalled_();

    QNetworkAccessManager * manager_ = nullptr;
    QByteArray buffer_;
    QList<QString> errors_;
    QList<LN_AvailablePackage> packages_;
    QList<QUrl> queue_;
    QSet<QUrl> seenUrls_;
    QNetworkReply * currentReply_ = nullptr;
    qint32 completedUrls_ = 0;
    qint32 queuedUrls_ = 0;
    bool urlLimitReported_ = false;
    QString refusal_;
    QTimer stallTimer_;
};
