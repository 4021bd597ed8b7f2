#pragma once

#include <draizu/draizu_export.h>

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QtGlobal>

struct LN_AvailableInfo;

/// A product or feature of one build, as its catalogue lists it, with its sub-features to any
/// depth. A plain value record, copied at will; a default-constructed one stands for nothing
/// found. Parsing throws LN_Exception for a faulty feature object and gives no partial record.
/// The queries walk the whole tree below the feature. Like every value record, use one object
/// on one thread at a time.
struct DRAIZU_EXPORT LN_AvailableFeature
{
    /// The null feature: no name, no files, no size and no owner.
    LN_AvailableFeature() = default;

    /// Parses a feature object of the catalogue with its sub-features, at any depth. Old names
    /// are rewritten ("Game Development Tools" is "Marlux Labs", "Engine Maya" is
    /// "Maya Plug-In", ...); "size" is truncated to whole bytes. Throws LN_Exception "Invalid
    /// feature name" when this or any sub-feature's name is empty.
    LN_AvailableFeature(QJsonObject const & object, LN_AvailableInfo const & info);

    /// Product or feature name; null for the null feature.
    QString name;
    /// The list of its content, relative to the source's data directory.
    QString files;
    /// Manifest of its optional shared file set; empty if it has none.
    QString sofsFiles;
    /// Size in bytes.
    qint64 size = 0;
    /// Its sub-features, in catalogue order.
    QList<LN_AvailableFeature> features;
    /// The catalogue element that was being built when this feature was parsed. Copies keep
    /// the address, so it is valid only during parsing.
    LN_AvailableInfo const * owner = nullptr;

    /// owner: valid only during parsing, null for the null feature.
    LN_AvailableInfo const * info() const { return owner; }

    /// True for a default-constructed feature, which stands for nothing found.
    bool isNull() const { return name.isNull(); }

    /// Whether this feature or any of its sub-features, at any depth, has the name (exactly,
    /// case-sensitive).
    bool hasFeature(QString const & featureName) const;
};
