#include <draizu/records/LN_FileMetadata.h>

#include <draizu/catalogue/LN_AvailableFeature.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/records/LN_JsonFiles.h>
#include <draizu/records/LN_JsonFiles_p.h>

#include <QJsonArray>
#include <QJsonValue>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

// A size beyond the range of qint64 would make the conversion undefined; such a manifest is
// damaged, and the nearest representable size keeps it readable.
qint64 truncatedSize(double value)
{
    constexpr double limit = 9223372036854774784.0; // the largest double below 2^63
    if (value >= limit)
        return std::numeric_limits<qint64>::max();
    if (value <= -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}

} // namespace

LN_FileMetadata::LN_FileMetadata(QString path_, QString source_, QByteArray checksum_, qint64 size_)
    : path(std::move(path_))
    , source(std::move(source_))
    , checksum(std::move(checksum_))
    , size(size_)
{
}

LN_FileMetadata::LN_FileMetadata(QString path_, QString source_, QString const & checksumBase64, qint64 size_)
    : path(std::move(path_))
    , source(std::move(source_))
    , checksum(QByteArray::fromBase64(checksumBase64.toLatin1()))
    , size(size_)
{
}

LN_Result<QList<LN_FileMetadata>> LN_FileMetadata::fileMetadataForInstall(LN_AvailableFeature const & feature,
                                                                          LN_FileOpener & opener)
{
    QJsonDocument const document = readInstallManifest(feature.files, opener);
    if (!document.isObject())
        throw LN_Exception(feature.files + u" is not a valid json file."_s);
    return fileMetadataFromJson(document.object());
}

LN_Result<QList<LN_FileMetadata>> LN_FileMetadata::fileMetadataFromJson(QString const & path)
{
    LN_Result<QJsonDocument> document = readJsonFile(path);
    if (document.isError())
        return document.error;
    return fileMetadataFromJson(document.value.object());
}

LN_Result<QList<LN_FileMetadata>> LN_FileMetadata::fileMetadataFromJson(QJsonObject const & object)
{
    QList<LN_FileMetadata> files;
    files.reserve(object.size());
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        QString path = it.key();
        path.replace(u'\\', u'/');
        QJsonValue const value = it.value();
        if (!value.isArray())
            throw LN_Exception("Expected an array");
        QJsonArray const entry = value.toArray();
        if (entry.size() != 3)
            throw LN_Exception("Expected an array with 3 values");
        qint64 const size = truncatedSize(entry.at(2).toDouble());
        QByteArray checksum = QByteArray::fromBase64(entry.at(1).toString().toUtf8());
        files.emplaceBack(std::move(path), entry.at(0).toString(), std::move(checksum), size);
    }
    return files;
}
