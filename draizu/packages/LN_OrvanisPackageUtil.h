#pragma once

#include <draizu/draizu_export.h>
#include <draizu/packages/LN_OrvanisPackage.h>

#include <QList>
#include <QString>

/// Where the product looks for installed packages, and what it finds there. The directories
/// are "orvanisNN.N/packages" in the home directory for each product version found there, and
/// "marlux_packages" beside the application's installation; the user may choose others.
///
/// Nothing here fails: a file that cannot be read or parsed is simply not listed, and a missing
/// HOME gives no home directories. Reads the environment and the disk; safe from any thread.
namespace LN_OrvanisPackageUtil {

/// The home directory's "orvanis??.?/packages" directories, which need not exist, then the
/// application's "../marlux_packages", cleaned.
DRAIZU_EXPORT QList<QString> getPackageDirectories();
/// A label for the directory of `path`: "NN.N Home Directory" when it lies in a home product
/// directory, "Marlux Packages" for the application's, else "Custom Directory". The home path
/// is taken as a pattern, unescaped.
DRAIZU_EXPORT QString getDirectoryShortcut(QString path);
/// The package the description file at `path` describes; an empty package when the file is
/// missing, unreadable or not JSON. A "version" that is not a string counts as empty.
DRAIZU_EXPORT LN_OrvanisPackage parsePackageFile(QString const & path);
/// The packages of every "*.json" file directly in the directory, in directory order.
DRAIZU_EXPORT QList<LN_OrvanisPackage> parsePackageFiles(QString const & directory);

} // namespace LN_OrvanisPackageUtil
