#pragma once

#include <draizu/draizu_export.h>

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QtGlobal>

struct LN_AvailableInfo;

/// A product or feature of one build, as its catalogue lists it, with its sub-features.
struct DRAIZU_EXPORT LN_AvailableFeature
{
    LN_AvailableFeature() = default;

    /// Parses a feature object of the catalogue with its sub-features, at any depth. Old names
    /// are rewritten ("Game Development Tools" is "Marlux Labs", "Engine Maya" is
    /// "Maya Plug-In", ...). Throws LN_Exception "Invalid feature name" when the name is empty.
    LN_AvailableFeature(QJsonObject const & object, LN_AvailableInfo const & info);

    /// Product or feature name.
    QString name;
    /// The list of its content, relative to the source's data directory.
    QString files;
    /// Manifest of its optional shared file set; empty if it has none.
    QString sofsFiles;
    /// Size in bytes.
    qint64 size = 0;
    QList<LN_AvailableFeature> features;
    /// The catalogue element that was being built when this feature was parsed. Copies keep
    /// the address, so it is valid only during parsing.
    LN_AvailableInfo const * owner = nullptr;

    LN_AvailableInfo const * info() const { return owner; }

    /// True for a default-constructed feature, which stands for nothing found.
    bool isNull() const { return name.isNull(); }

    /// Whether this feature or any of its sub-features, at any depth, has the name (exactly).
    bool hasFeature(QString const & featureName) const;
};
