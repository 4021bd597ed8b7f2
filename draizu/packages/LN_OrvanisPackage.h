#pragma once

#include <draizu/draizu_export.h>

#include <QString>
#include <QVersionNumber>

/// An installed package as the product sees it: its description file "<name>.json", which
/// lies beside the package's folder in one of the product's package directories. A plain
/// value, copied at will; a default one, with everything empty, stands for a file that could
/// not be read.
class DRAIZU_EXPORT LN_OrvanisPackage
{
public:
    /// An empty package.
    LN_OrvanisPackage() = default;
    /// The package described by the file at `filePath`.
    LN_OrvanisPackage(QString filePath, QString packageName, QVersionNumber version);

    /// The description file's path; empty for a file that could not be read.
    QString filePath() const;
    /// The file name without ".json".
    QString packageName() const;
    /// The file's "version"; null when it gives none.
    QVersionNumber version() const;

private:
    QString filePath_;
    QString packageName_;
    QVersionNumber version_;
};
