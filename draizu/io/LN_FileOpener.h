#pragma once

#include <draizu/draizu_export.h>
#include <draizu/io/LN_IODevice.h>
#include <draizu/io/LN_NetworkFile.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QVersionNumber>
#include <QtGlobal>

#include <memory>
#include <system_error>

class QDir;
class QNetworkAccessManager;
class QUrl;
struct archive;

/// Opens the files of a build by their plain names ("overview.json", a content list, a data
/// file), wherever the build lies: on the site, inside an offline installer archive, or in an
/// unpacked offline installer directory. Where that is gets decided at the first open and kept
/// until the source or the version changes.
///
/// A source names either an offline installer file, which is trusted as it is, or a directory.
/// In a directory the last archive (in directory order) that can serve the options wins, and
/// failing one, a directory holding "data/overview.json" is read as an unpacked installer.
/// When nothing fits, every open fails with code 3 of LN_FileErrorCategory and "Could not
/// locate a valid offline installer", and the next open looks again.
///
/// An archive is read strictly forward and kept open between calls: files asked for in archive
/// order cost one pass, and asking for an entry already passed (the one returned last included)
/// costs a reopen and a new pass. A stream from an archive is valid only until the next open
/// through the same opener, and never beyond the opener's life.
///
/// Failures come in the result, whose error is to be tested rather than its device. Reading a
/// source's catalogue may throw LN_Exception for a faulty one. Use on the thread of the
/// network manager, which is not owned.
class DRAIZU_EXPORT LN_FileOpener
{
public:
    /// Where the files come from; decided at the first open after a change of source or version.
    enum State : qint32 {
        State_Unresolved = 0,
        State_Network = 1,
        State_Archive = 2,
        State_Directory = 3,
    };

    /// A stream with the outcome of opening it. The stream may be there although the open
    /// failed (a disk file that could not be opened, a download that could not start), and
    /// belongs to the result until someone takes it. Not to be dropped: its failure would go
    /// unseen.
    template <typename T>
    struct [[nodiscard]] TypedResult
    {
        /// The stream, or null; test `error`, not this.
        std::unique_ptr<T> device;
        /// Value 0 on success.
        std::error_code error;
        /// The readable failure; empty on success.
        QString message;

        /// Whether the open failed.
        bool isError() const { return error.value() != 0; }
    };

    /// Files of the build that the options name, from their offline installer or, when they
    /// name none, from the site.
    LN_FileOpener(QNetworkAccessManager * manager, LN_InstallerOptions const & installerOptions,
                  QByteArray token = QByteArray());
    /// Files from an unpacked installer directory or the archives in it, with default options.
    LN_FileOpener(QNetworkAccessManager * manager, QDir const & directory, QByteArray token = QByteArray());
    /// Closes the open archive; streams from it are invalid from here on.
    ~LN_FileOpener();

    /// Not copyable: the open archive has one reader.
    LN_FileOpener(LN_FileOpener const &) = delete;
    /// Not copyable: the open archive has one reader.
    LN_FileOpener & operator=(LN_FileOpener const &) = delete;

    /// Takes the options. A different offline installer (compared as text) is looked for anew
    /// at the next open; the same one keeps what was found.
    void setInstallerOptions(LN_InstallerOptions const & installerOptions);
    /// Another version may lie elsewhere: the source is looked at again at the next open.
    void setVersion(QVersionNumber const & version);

    /// A file of the build. In an archive, names other than the launcher's installers and
    /// those beginning with "packages" are taken under "data/"; in a directory they are taken
    /// as they are.
    TypedResult<LN_IODevice> openFile(QString const & name);
    /// A file of the optional shared file set: "/download/sofs/<name>" on the site,
    /// "data/sofs/<name>" in an archive or a directory.
    TypedResult<LN_IODevice> openSofsFile(QString const & name);
    /// The text of a licence agreement. None is offered yet: always code 3 of
    /// LN_FileErrorCategory.
    TypedResult<LN_IODevice> openLicenseFile(QString const & name);

    /// The file from the site's installer download, for the options' platform, version and
    /// build type; the stream comes opened. Does not depend on where other files come from.
    TypedResult<LN_NetworkFile> downloadFile(QString const & file);
    /// A GET of the URL, with the bearer token when there is one; the stream comes opened.
    TypedResult<LN_NetworkFile> downloadFile(QUrl const & url);

private:
    struct ArchiveFree
    {
        void operator()(struct archive * reader) const;
    };

    void computeState_();
    TypedResult<LN_IODevice> openArchiveFile_(QString name);
    TypedResult<LN_IODevice> openDiskFile_(QString const & relativePath) const;
    bool reopenArchive_(std::error_code & ec, QString & message);
    static TypedResult<LN_IODevice> makeGenericResult_(TypedResult<LN_NetworkFile> && result);
    static TypedResult<LN_IODevice> notLocated_();

    State state_ = State_Unresolved;
    QString sourcePath_;
    QSet<QString> seenEntries_;
    std::unique_ptr<struct archive, ArchiveFree> archive_;
    LN_InstallerOptions options_;
    QNetworkAccessManager * networkManager_;
    QByteArray authToken_;
};
