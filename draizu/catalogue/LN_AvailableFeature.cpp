#include <draizu/catalogue/LN_AvailableFeature.h>

#include <draizu/core/LN_Exception.h>

#include <draizu/core/LN_JsonUtils.h>

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
    size = LN_JsonUtils::toSize(object.value(u"size"_s).toDouble());

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
