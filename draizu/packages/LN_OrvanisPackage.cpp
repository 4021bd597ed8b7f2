#include <draizu/packages/LN_OrvanisPackage.h>

#include <utility>

LN_OrvanisPackage::LN_OrvanisPackage(QString filePath, QString packageName, QVersionNumber version)
    : filePath_(std::move(filePath))
    , packageName_(std::move(packageName))
    , version_(std::move(version))
{
}

QString LN_OrvanisPackage::filePath() const
{
    return filePath_;
}

QString LN_OrvanisPackage::packageName() const
{
    return packageName_;
}

QVersionNumber LN_OrvanisPackage::version() const
{
    return version_;
}
