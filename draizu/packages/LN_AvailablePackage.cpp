#include <draizu/packages/LN_AvailablePackage.h>
#include <draizu/packages/LN_AvailablePackageResult.h>

#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/io/LN_Archive_p.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr la_int64_t maxOfflineDocumentSize = 0x40000000;

struct ArchiveFree
{
    void operator()(archive * reader) const { archive_read_free(reader); }
};

QString validatePackageUrl(QUrl const & url)
{
    if (!url.isValid())
        return u"URL is not valid"_s;
    if (url.isRelative())
        return u"relative URL is not permitted"_s;
    if (url.scheme() != u"http"_s && url.scheme() != u"https"_s)
        return u"Scheme not supported. Supported schemes are http or https"_s;
    return QString();
}

QUrl urlFrom(QJsonObject const & object, QString const & key)
{
    QUrl const url(LN_JsonUtils::getString(object, key), QUrl::TolerantMode);
    if (QString const reason = validatePackageUrl(url); !reason.isEmpty())
        throw LN_Exception(u"Invalid URL for key \"%1\": %2"_s.arg(key, reason));
    return url;
}

struct Label
{
    QString text;
    QCryptographicHash::Algorithm algorithm;
};

QList<Label> const checksumLabels = {
    {u"MD5"_s, QCryptographicHash::Md5},
    {u"SHA"_s, QCryptographicHash::Sha1},
    {u"SHA-256"_s, QCryptographicHash::Sha256},
    {u"SHA-512"_s, QCryptographicHash::Sha512},
};

} // namespace

LN_AvailablePackage::LN_AvailablePackage(QJsonObject const & object, bool offline)
{
    name = LN_JsonUtils::getString(object, u"name"_s);
    displayName = object.contains(u"display_name"_s) ? LN_JsonUtils::getString(object, u"display_name"_s) : name;
    if (object.contains(u"version"_s)) {
        QString const text = LN_JsonUtils::getString(object, u"version"_s);
        qsizetype end = 0;
        version = QVersionNumber::fromString(text, &end);
        if (version.segmentCount() == 0 || end != text.size())
            throw LN_Exception(u"Invalid version number: "_s + text);
    }
    if (object.contains(u"description"_s))
        description = LN_JsonUtils::getString(object, u"description"_s);
    if (object.contains(u"info_url"_s))
        infoUrl = urlFrom(object, u"info_url"_s);
    if (offline)
        return;

    url = urlFrom(object, u"url"_s);
    fileSize = LN_JsonUtils::toSize(LN_JsonUtils::getNumber(object, u"file_size"_s));
    QList<Checksum> const checksums = parseChecksum(LN_JsonUtils::getString(object, u"checksum"_s));
    if (checksums.isEmpty())
        throw LN_Exception("no valid checksum found");
    checksum = checksums.first();
    if (object.contains(u"icon_url"_s))
        iconUrl = urlFrom(object, u"icon_url"_s);
    if (object.contains(u"requires"_s)) {
        for (QJsonValue const & required : LN_JsonUtils::getArray(object, u"requires"_s)) {
            if (!required.isString())
                throw LN_Exception("\"requires\" must be an array of strings.");
            if (required.toString().isEmpty())
                throw LN_Exception("required package must have a non-empty name");
            requiredPackages.append(required.toString());
        }
    }
}

LN_AvailablePackageResult LN_AvailablePackage::fromJson(QJsonDocument const & document, bool offline)
{
    LN_AvailablePackageResult result;
    QJsonObject const root = document.object();
    QJsonArray packages;
    try {
        packages = LN_JsonUtils::getArray(root, u"packages"_s);
    } catch (std::exception const & e) {
        result.errors.append(QString::fromUtf8(e.what()));
    }
    for (QJsonValue const & value : packages) {
        if (!value.isObject()) {
            result.errors.append(u"expected pacakge overview to be object, received "_s
                                 + LN_JsonUtils::jsonTypeToString(value));
            continue;
        }
        try {
            result.packages.append(LN_AvailablePackage(value.toObject(), offline));
        } catch (std::exception const & e) {
            result.errors.append(QString::fromUtf8(e.what()));
        }
    }

    if (!root.contains(u"additional_server_urls"_s))
        return result;
    QSet<QUrl> seen;
    for (QJsonValue const & value : LN_JsonUtils::getArray(root, u"additional_server_urls"_s)) {
        if (!value.isString()) {
            result.errors.append(u"Error processing additional_server_urls. Expected string, received "_s
                                 + LN_JsonUtils::jsonTypeToString(value));
            continue;
        }
        QUrl const url(value.toString(), QUrl::TolerantMode);
        if (!url.isValid())
            result.errors.append(
                u"Error processing additional_server_urls. \"%1\" is not a valid URL."_s.arg(value.toString()));
        else if (!seen.contains(url)) {
            seen.insert(url);
            result.additionalServerUrls.append(url);
        }
    }
    return result;
}

LN_AvailablePackageResult LN_AvailablePackage::fromOfflineInstaller(QDir const & installer)
{
    std::unique_ptr<archive, ArchiveFree> const reader(archive_read_new());
    if (!reader || LN_Archive::openFile(reader.get(), installer.path()) != ARCHIVE_OK)
        return {};

    archive_entry * entry = nullptr;
    for (;;) {
        int const status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_RETRY)
            continue;
        if (status != ARCHIVE_OK)
            return {};
        if (LN_Archive::entryPathname(entry) == u"packages/packages.json"_s)
            break;
    }
    la_int64_t const size = archive_entry_size(entry);
    if (size > maxOfflineDocumentSize)
        return {};

    QByteArray bytes(static_cast<qsizetype>(size), Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        la_ssize_t const count =
            archive_read_data(reader.get(), bytes.data() + filled, static_cast<size_t>(bytes.size() - filled));
        if (count <= 0)
            break;
        filled += count;
    }
    bytes.truncate(filled);

    LN_JsonUtils::JsonResult const parsed = LN_JsonUtils::jsonFromBytes(bytes);
    LN_AvailablePackageResult result = fromJson(parsed.value, true);
    if (parsed.isError())
        result.errors.append(parsed.error.message);
    for (LN_AvailablePackage & package : result.packages)
        package.offlineInstallerPath = installer.path();
    return result;
}

QList<LN_AvailablePackage::Checksum> LN_AvailablePackage::parseChecksum(QString const & text)
{
    QList<Checksum> checksums;
    for (QString const & item : text.split(u',')) {
        qsizetype const equals = item.indexOf(u'=');
        if (equals < 0)
            throw LN_Exception("Improperly-formatted checksum");
        QString const label = item.first(equals);
        auto const known = std::find_if(checksumLabels.begin(), checksumLabels.end(), [&label](Label const & l) {
            return l.text.compare(label, Qt::CaseInsensitive) == 0;
        });
        if (known == checksumLabels.end())
            continue;
        QByteArray::FromBase64Result const decoded =
            QByteArray::fromBase64Encoding(item.sliced(equals + 1).toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded)
            throw LN_Exception("Checksum was not a valid base64-encoded value");
        if (decoded.decoded.size() != QCryptographicHash::hashLength(known->algorithm))
            throw LN_Exception(u"Checksum is not the correct length for a %1 hash."_s.arg(label));
        checksums.append({known->algorithm, decoded.decoded});
    }
    return checksums;
}
