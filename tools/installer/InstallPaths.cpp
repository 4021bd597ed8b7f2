#include "InstallPaths.h"

#include <QStringTokenizer>

using namespace Qt::StringLiterals;

bool InstallPaths::isInside(QString const & relativePath)
{
    if (relativePath.isEmpty() || relativePath.startsWith(u'/') || relativePath.contains(u'\\'))
        return false;
    for (QStringView const segment : QStringTokenizer(relativePath, u'/')) {
        if (segment.isEmpty() || segment == u"."_s || segment == u".."_s)
            return false;
    }
    return true;
}
