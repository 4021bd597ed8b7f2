#include <draizu/catalogue/LN_AvailableFeature.h>

#include <draizu/core/LN_Exception.h>

#include <QJsonArray>
#include <QJsonValue>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

// Catalogues name some products by the names of older releases.
QString currentName(QString const & name)
{
    if (name == u"Game Development Tools"_s)
        return u"Marlux Labs"_s;
    if (name == u"Engine 3ds Max"_s)
        return u"3ds Max Plug-In"_s;
    if (name == u"Engine Maya"_s)
        return u"Maya Plug-In"_s;
    if (name == u"Engine Unity"_s)
        return u"Unity Plug-In"_s;
    if (name == u"Engine Unreal"_s)
        return u"Unreal Plug-In"_s;
    return name;
}

// Truncates towards zero. A size beyond 64 bits or not a number at all would be undefined in
// a plain conversion, so it is held to the nearest end of the range, or 0.
qint64 sizeFromDouble(double value)
{
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (std::isnan(value))
        return 0;
    if (value >= limit)
        return std::numeric_limits<qint64>::max();
    if (value < -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}

} // namespace

LN_AvailableFeature::LN_AvailableFeature(QJsonObject const & object, LN_AvailableInfo const & info)
    : name(currentName(object.value(u"name"_s).toString()))
    , owner(&info)
{
    if (name.isEmpty())
        throw LN_Exception("Invalid feature name");

    files = object.value(u"files"_s).toString();
    QJsonValue const sofs = object.value(u"sofs_files"_s);
    if (sofs.isString())
        sofsFiles = sofs.toString();
    size = sizeFromDouble(object.value(u"size"_s).toDouble());

    QJsonArray const children = object.value(u"features"_s).toArray();
    features.reserve(children.size());
    for (QJsonValue const & child : children)
        features.append(LN_AvailableFeature(child.toObject(), info));
}

bool LN_AvailableFeature::hasFeature(QString const & featureName) const
{
    if (name == featureName)
        return true;
    for (LN_AvailableFeature const & child : features) {
        if (child.hasFeature(featureName))
            return true;
    }
    return false;
}
