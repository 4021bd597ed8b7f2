#include "ImportCommand.h"

#include "CommandError.h"

#include <draizu/core/LN_FixedLocations.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_OldInstallations.h>

#include <QCommandLineParser>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

QStringList foundDirectories()
{
    QStringList found = LN_Util::findOldOrvanisInstallations() + LN_Util::findOldOQueueInstallations();
    LN_ComponentMetadata const licenseServer = LN_Util::metadataForOldLicenseServer();
    if (licenseServer.product != LN_ProductID::Invalid)
        found.append(licenseServer.installDir);
    return found;
}

// What lies in the directory now becomes the installation's files. The licence server shares
// its directory with the system's programs and owns its program alone.
QList<LN_FileMetadata> filesOnDisk(LN_ComponentMetadata const & record)
{
    QStringList paths;
    if (record.product == Product_LicenseServer) {
        paths << LN_FixedLocations::value(LN_FixedLocations::LicenseServerExecutable);
    } else {
        QDirIterator walk(record.installDir, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (walk.hasNext())
            paths << QDir(record.installDir).relativeFilePath(walk.next());
    }
    QList<LN_FileMetadata> files;
    for (QString const & path : std::as_const(paths)) {
        QString const absolute = QDir(record.installDir).filePath(path);
        files.append({path, QString(), LN_Util::checksum(absolute), QFileInfo(absolute).size()});
    }
    return files;
}

QJsonObject describe(LN_ComponentMetadata const & record, bool recorded)
{
    return {{u"product"_s, QString::fromLatin1(productName(record.product))},
            {u"version"_s, record.version.toString()},
            {u"directory"_s, record.installDir},
            {u"uninstaller"_s, record.hasUninstaller},
            {u"recorded"_s, recorded}};
}

int import(Context & context, QStringList directories, bool all)
{
    bool const listing = directories.isEmpty() && !all;
    if (all)
        directories = foundDirectories();
    QJsonArray installations;
    QList<LN_ComponentMetadata> records;
    for (QString const & directory : (listing ? foundDirectories() : directories)) {
        QString const canonical = LN_InstallerOptions::canonicalInstallPath(directory);
        LN_ComponentMetadata record = LN_Util::metadataForOldInstallation(QDir(canonical));
        if (record.product == LN_ProductID::Invalid)
            throw CommandError(Exit_NotFound, u"%1 does not contain an older installation."_s.arg(canonical));
        bool const recorded = context.repository.isTaken(record.installDir);
        if (recorded && !listing)
            throw CommandError(Exit_Failure, u"%1 is recorded already"_s.arg(record.installDir));
        context.console.line(u"%1  %2%3"_s.arg(record.shortString(), record.installDir,
                                               recorded ? u"  (recorded)"_s : QString()));
        installations.append(describe(record, recorded || !listing));
        if (!listing) {
            record.setFiles(QString::fromLatin1(productName(record.product)), filesOnDisk(record));
            records.append(record);
        }
    }
    if (listing) {
        if (installations.isEmpty())
            context.console.line(u"No older installations were found."_s);
        return context.console.finish(u"import"_s, Exit_Success, {}, {{u"installations"_s, installations}});
    }
    for (LN_ComponentMetadata const & record : std::as_const(records))
        context.repository.insert(record);
    context.repository.save(u"new.json"_s);
    context.repository.saveFinal();
    return context.console.finish(u"import"_s, Exit_Success, u"%1 installations recorded"_s.arg(records.size()),
                                  {{u"installations"_s, installations}});
}

} // namespace

OwnCommand ImportCommand::command()
{
    return {u"import"_s, u"import [DIR...] [--all]"_s,
            u"The installations of older installers; records the directories given, or all found"_s,
            {QCommandLineOption(u"all"_s, u"Record every older installation found"_s)},
            [](Context & context, QCommandLineParser const & parser, QStringList const & arguments) {
                return import(context, arguments, parser.isSet(u"all"_s));
            }};
}
