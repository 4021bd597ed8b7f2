#include <draizu/options/LN_DiskReader.h>

#include <QFileInfo>

LN_DiskReader::LN_DiskReader(LN_FileOpener & opener)
    : opener_(opener)
{
}

bool LN_DiskReader::isFile(QString const & path)
{
    if (!lastIsFile_ || lastIsFile_->first != path)
        lastIsFile_.emplace(path, QFileInfo(path).isFile());
    return lastIsFile_->second;
}

LN_Result<QList<LN_AvailableInfo>> LN_DiskReader::availableInfos(QString const & path)
{
    if (!lastAvailable_ || lastAvailable_->first != path)
        lastAvailable_.emplace(path, LN_AvailableInfo::availableOrvanisVersions(opener_, path));
    return lastAvailable_->second;
}
