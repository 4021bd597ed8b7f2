#pragma once

#include <QString>

/// Paths that a manifest or a record names inside an installation directory. Whatever their
/// origin, they are read as hostile: only a plain relative path of named segments can lie
/// inside the directory.
namespace InstallPaths {

/// Relative, with no empty, "." or ".." segment and no backslash.
bool isInside(QString const & relativePath);

/// The path below the installation directory.
inline QString join(QString const & directory, QString const & relativePath)
{
    return directory + u'/' + relativePath;
}

} // namespace InstallPaths
