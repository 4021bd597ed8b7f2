#pragma once

#include <draizu/draizu_export.h>

#include <QByteArray>
#include <QCryptographicHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVersionNumber>
#include <QtGlobal>

class QDir;
class QJsonDocument;
class QJsonObject;
struct LN_AvailablePackageResult;

/// One add-on package on offer, as a package source's "packages.json" describes it: read from
/// a server's document (every field) or from the one inside an offline installer (name,
/// display name, version, description and information URL only). A plain value record,
/// copied at will.
///
/// The readers never throw for a bad package: they leave it out and say why in the result's
/// `errors`, keeping the good ones (include LN_AvailablePackageResult.h to use them). Every URL
/// taken from a package must be absolute http or https. Stateless and safe from any thread.
class DRAIZU_EXPORT LN_AvailablePackage
{
public:
    /// A digest the package's archive must have. A plain value record.
    struct Checksum
    {
        /// The hash that made the digest.
        QCryptographicHash::Algorithm algorithm = QCryptographicHash::Sha256;
        /// The raw digest bytes; empty for no check.
        QByteArray value;
    };

    /// The package's identity, also the name of its folder and description file.
    QString name;
    /// What people see; the name when the document gives none.
    QString displayName;
    /// Null when the document gives none.
    QVersionNumber version;
    /// Where the package's zip is downloaded from; empty offline.
    QUrl url;
    /// Bytes of the zip as the document announces them; -1 when not read (offline).
    qint64 fileSize = -1;
    /// The first digest of the document's list whose algorithm is known; empty offline.
    Checksum checksum;
    /// Free text.
    QString description;
    /// An icon's address; empty when none is given.
    QUrl iconUrl;
    /// Names of the packages this one needs, in document order; only stored, never resolved.
    QStringList requiredPackages;
    /// A page about the package; empty when none is given.
    QUrl infoUrl;
    /// The offline installer that holds the package; empty for a package from a server.
    QString offlineInstallerPath;

    /// An empty package: every field at its default.
    LN_AvailablePackage() = default;

    /// Reads one "packages.json" document; `offline` reads the few keys an offline installer
    /// gives. Never fails for bad packages or URLs, which become `errors`; throws LN_Exception
    /// when "additional_server_urls" is there but is not an array.
    static LN_AvailablePackageResult fromJson(QJsonDocument const & document, bool offline);
    /// Reads "packages/packages.json" inside the offline installer archive whose file path is
    /// `installer.path()`, and marks each package with that path. An archive that cannot be
    /// read, lacks the document or holds one above 1 GiB gives an empty result without errors;
    /// a document that is not JSON adds the parser's text to `errors`.
    static LN_AvailablePackageResult fromOfflineInstaller(QDir const & installer);
    /// Parses "<algorithm>=<base64 digest>,..." with the labels "MD5", "SHA", "SHA-256" and
    /// "SHA-512" in any case; other labels are passed over. Throws LN_Exception for an item
    /// without "=", a digest that is not base64 or has the wrong length.
    static QList<Checksum> parseChecksum(QString const & text);

private:
    // Reads the keys in a fixed order, so that the first bad one decides the text thrown.
    LN_AvailablePackage(QJsonObject const & object, bool offline);
};
