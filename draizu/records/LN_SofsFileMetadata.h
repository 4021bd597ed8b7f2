#pragma once

#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QJsonDocument>
#include <QJsonValue>
#include <QList>
#include <QString>

class LN_FileOpener;
struct LN_AvailableFeature;

/// One file of a feature's shared optional file set (SOFS): which files belong to the set and
/// whether each one is required.
///
/// Its manifest is either {} or `{"files": {"<path>": {"required": <bool>}, ...}}`. A plain
/// value. A manifest of the wrong shape throws LN_Exception; a malformed entry is a returned
/// failure in LN_AvailableInfoErrorCategory.
struct DRAIZU_EXPORT LN_SofsFileMetadata
{
    /// Empty path, not required.
    LN_SofsFileMetadata() = default;
    /// The file at the path, required or not.
    LN_SofsFileMetadata(QString path, bool required);

    /// The file's path.
    QString path;
    /// The file must be present.
    bool required = false;

    /// The set of a feature offered by a build, read through the opener. A feature without a
    /// set gives an empty list and opens nothing. An unopenable or unparsable manifest, or one
    /// of the wrong shape, throws LN_Exception; a malformed entry is returned as a failure.
    static LN_Result<QList<LN_SofsFileMetadata>> sofsMetadataForInstall(LN_AvailableFeature const & feature,
                                                                       LN_FileOpener & opener);
    /// The entries of a parsed manifest, in key order; `name` is what the messages call it.
    /// A document of the wrong shape throws LN_Exception; the first malformed entry is
    /// returned as the failure, with an empty list.
    static LN_Result<QList<LN_SofsFileMetadata>> fromJsonData(QJsonDocument const & document, QString const & name);
    /// One entry. Never throws: failures carry code 1 of LN_AvailableInfoErrorCategory.
    static LN_Result<LN_SofsFileMetadata> fromJson(QString const & path, QJsonValue const & value);

    /// Member-wise equality.
    friend bool operator==(LN_SofsFileMetadata const &, LN_SofsFileMetadata const &) = default;
};
