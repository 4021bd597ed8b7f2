#pragma once

#include <draizu/catalogue/LN_InfoUpdate.h>
#include <draizu/catalogue/LN_PlatformInfo.h>
#include <draizu/draizu_export.h>

#include <QHash>
#include <QList>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QVersionNumber>

#include <system_error>

class QNetworkAccessManager;

/// What the site says today about the builds it lists (tags, engine API version, release
/// date), fetched in the background and kept as one LN_InfoUpdate per build. The installation
/// repository merges these into its records; save writes them to "marlux/updates.json" in the
/// user's roaming application data folder, a file this library never reads.
///
/// One request at a time: a new getUpdates cancels the one in flight, which then reports
/// nothing. A request ends in resultReady, after which `updates` holds the site's answer and
/// nothing else, or in error, which leaves `updates` as it was: a network failure or a reply
/// that receives nothing for LN_Waits::NetworkStall carries Qt's code in
/// QNetworkFileErrorCategory, an answer that is not JSON the parser's error, and JSON that is
/// not a catalogue code 1 of LN_AvailableInfoErrorCategory with the catalogue parser's text.
///
/// Lives on the thread of its event loop and of the manager, which must outlive the request.
class DRAIZU_EXPORT LN_InfoUpdates : public QObject
{
    Q_OBJECT

public:
    /// The identity of a build: equal when the versions compare equal and the build types and
    /// platforms' long forms are the same. A plain value record.
    struct BuildIdentifier
    {
        QVersionNumber version;   ///< version of the build
        LN_PlatformInfo platform; ///< system the build is made for
        QString buildType;        ///< build type; empty for an ordinary build

        /// Version, build type and the platform's long form equal.
        friend bool operator==(BuildIdentifier const & a, BuildIdentifier const & b)
        {
            return QVersionNumber::compare(a.version, b.version) == 0 && a.buildType == b.buildType
                   && a.platform.toString() == b.platform.toString();
        }
        /// Any of the three differs.
        friend bool operator!=(BuildIdentifier const & a, BuildIdentifier const & b) { return !(a == b); }
        /// The parts' hashes combined by exclusive or, the table's seed last.
        friend size_t qHash(BuildIdentifier const & key, size_t seed = 0)
        {
            return qHash(key.platform.toString(), 0) ^ qHash(key.buildType, 0) ^ qHash(key.version, 0) ^ seed;
        }
    };
    /// The records, one per build.
    using Table = QHash<BuildIdentifier, LN_InfoUpdate>;

    /// Idle, with no records.
    explicit LN_InfoUpdates(QObject * parent = nullptr);
    /// Cancels a request in flight, silently.
    ~LN_InfoUpdates() override;

    /// Asks the site for its list of builds and returns at once; the outcome is signalled.
    /// Cancels a request in flight without a signal for it. The site is not told which builds
    /// are wanted, so `builds` does not change the answer.
    void getUpdates(QList<BuildIdentifier> const & builds, QNetworkAccessManager * manager);
    /// Takes every record of `other`, replacing the value of a build this table has already;
    /// records that `other` lacks stay. Emits nothing.
    void merge(LN_InfoUpdates const & other);
    /// Writes every record to "marlux/updates.json" in the roaming application data folder, in
    /// the table's order; does nothing when the system names no such folder. The "marlux"
    /// folder is not created: a missing one, like any file failure, throws LN_Exception
    /// "Unable to open <path>: <reason>".
    void save() const;

    /// The first record, in the table's order; equal to end() before any answer.
    Table::const_iterator begin() const;
    /// Past the last record.
    Table::const_iterator end() const;

    /// The records, keyed by build; replaced whole by each answer of the site.
    Table updates;

Q_SIGNALS:
    /// The site's answer has replaced `updates`.
    void resultReady();
    /// The request failed with the code and text; `updates` is as it was.
    void error(std::error_code code, QString const & message);

private:
    void downloadFinished_();
    void deleteNetworkReply_();

    // The manager owns the reply and may go first.
    QPointer<QNetworkReply> reply_;
    QTimer stallTimer_;
};
