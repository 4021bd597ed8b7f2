#include <draizu/catalogue/LN_LauncherVersionInfo.h>

#include <draizu/catalogue/LN_ProductID.h>

#include <utility>

using namespace Qt::StringLiterals;

LN_LauncherVersionInfo::LN_LauncherVersionInfo()
    : version(launcherVersion)
    , compiler(u"MSVC 19.42.34443.0"_s)
{
}

LN_LauncherVersionInfo::LN_LauncherVersionInfo(QVersionNumber launcher, QString text, QString compilerTag)
    : version(std::move(launcher))
    , extraText(std::move(text))
    , compiler(std::move(compilerTag))
{
}
