#include <draizu/records/LN_SofsFileMetadata.h>

#include <draizu/catalogue/LN_AvailableFeature.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/records/LN_JsonFiles_p.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

LN_ErrorStruct entryError(QString const & message)
{
    return LN_ErrorStruct{std::error_code(1, LN_AvailableInfoErrorCategory()), message};
}

} // namespace

LN_SofsFileMetadata::LN_SofsFileMetadata(QString path_, bool required_)
    : path(std::move(path_))
    , required(required_)
{
}

LN_Result<QList<LN_SofsFileMetadata>> LN_SofsFileMetadata::sofsMetadataForInstall(LN_AvailableFeature const & feature,
                                                                                 LN_FileOpener & opener)
{
    if (feature.sofsFiles.isEmpty())
        return QList<LN_SofsFileMetadata>();
    return fromJsonData(readInstallManifest(feature.sofsFiles, opener), feature.sofsFiles);
}

LN_Result<QList<LN_SofsFileMetadata>> LN_SofsFileMetadata::fromJsonData(QJsonDocument const & document,
                                                                       QString const & name)
{
    if (!document.isObject())
        throw LN_Exception(
            u"File %1 is not a valid sofs data file. Expected the file to contain a JSON object."_s.arg(name));
    QJsonObject const root = document.object();
    if (root.isEmpty())
        return QList<LN_SofsFileMetadata>();
    QJsonValue const files = root.value(u"files"_s);
    if (!files.isObject())
        throw LN_Exception(
            u"File %1 is not a valid sofs data file. Expected \"files\" key to contain an object."_s.arg(name));

    QJsonObject const entries = files.toObject();
    QList<LN_SofsFileMetadata> result;
    result.reserve(entries.size());
    for (auto it = entries.constBegin(); it != entries.constEnd(); ++it) {
        LN_Result<LN_SofsFileMetadata> entry = fromJson(it.key(), it.value());
        if (entry.isError())
            return entry.error;
        result.append(std::move(entry.value));
    }
    return result;
}

LN_Result<LN_SofsFileMetadata> LN_SofsFileMetadata::fromJson(QString const & path, QJsonValue const & value)
{
    if (!value.isObject())
        return entryError(u"JSON data is not an object"_s);
    QJsonObject const object = value.toObject();
    auto const required = object.constFind(u"required"_s);
    if (required == object.constEnd())
        return entryError(u"key \"required\" was missing"_s);
    if (!required->isBool())
        return entryError(u"key \"required\" must have a boolean value"_s);
    return LN_SofsFileMetadata(path, required->toBool());
}
