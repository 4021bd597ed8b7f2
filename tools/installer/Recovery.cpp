#include "Recovery.h"

#include <draizu/records/LN_InstallMetadata.h>

#include <QDir>
#include <QFileInfo>

void Recovery::adoptInterruptedUninstall(LN_InstallMetadata & repository)
{
    QString const directory = repository.interruptedOld.installDir;
    if (!repository.isTaken(QString()) || directory.isEmpty() || repository.isTaken(directory))
        return;
    LN_ComponentMetadata const merged = repository.installations.take(QString());
    LN_ComponentMetadata record = repository.interruptedOld;
    record.ready = false;
    QString const prefix = directory + u'/';
    auto const adopt = [&](QString const & name) {
        QList<LN_FileMetadata> files = merged.getFiles(name);
        for (LN_FileMetadata & file : files) {
            if (file.path.startsWith(prefix))
                file.path = file.path.mid(prefix.size());
        }
        record.setFiles(name, files);
    };
    adopt(QString::fromLatin1(productName(record.product)));
    for (auto it = record.features.constBegin(); it != record.features.constEnd(); ++it)
        adopt(it.key());
    repository.insert(record);
}

void Recovery::measureUnknownSizes(LN_InstallMetadata & repository)
{
    for (LN_ComponentMetadata & record : repository.installations) {
        QStringList names = record.features.keys();
        names.append(QString::fromLatin1(productName(record.product)));
        for (QString const & name : std::as_const(names)) {
            QList<LN_FileMetadata> files = record.getFiles(name);
            bool unknown = false;
            for (LN_FileMetadata & file : files) {
                if (file.size >= 0)
                    continue;
                unknown = true;
                QFileInfo const info(QDir(record.installDir).filePath(file.path));
                file.size = info.exists() && !info.isSymLink() ? info.size() : 0;
                file.checksum.clear();
            }
            if (unknown)
                record.setFiles(name, files);
        }
    }
}
