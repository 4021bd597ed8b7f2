#include "OfflineInstaller.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

QString toolFor(QString const & kind)
{
    return kind == u"iso"_s ? u"xorriso"_s : kind == u"zip"_s ? u"zip"_s : u"bsdtar"_s;
}

} // namespace

bool OfflineInstaller::writeTree(QString const & root, Files const & files)
{
    QDir const tree(root);
    for (auto const & [path, bytes] : files) {
        QFile file(tree.filePath(path));
        if (!tree.mkpath(path.endsWith(u'/') ? path : QFileInfo(path).path()))
            return false;
        if (!path.endsWith(u'/') && (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()))
            return false;
    }
    return true;
}

bool OfflineInstaller::make(QString const & archive, Files const & files)
{
    QString const target = QFileInfo(archive).absoluteFilePath();
    QString const kind = target.endsWith(u".tar.gz"_s) ? u"tar.gz"_s : QFileInfo(target).suffix();
    // Zip and tar are given the names one by one, without recursion, so that they hold these
    // entries in this order.
    QStringList arguments = {u"-q"_s, target};
    if (kind == u"iso"_s)
        arguments = {u"-as"_s, u"mkisofs"_s, u"-quiet"_s, u"-R"_s, u"-J"_s, u"-o"_s, target, u"."_s};
    else if (kind == u"tar"_s || kind == u"tar.gz"_s)
        arguments = {u"-n"_s, kind == u"tar"_s ? u"-cf"_s : u"-czf"_s, target};
    else if (kind != u"zip"_s)
        return false;
    for (qsizetype i = 0; kind != u"iso"_s && i < files.size(); ++i)
        arguments.append(files.at(i).first);
    QTemporaryDir tree;
    if (!tree.isValid() || !writeTree(tree.path(), files) || !QDir().mkpath(QFileInfo(target).path()))
        return false;
    QFile::remove(target);
    QProcess process;
    process.setWorkingDirectory(tree.path());
    process.start(toolFor(kind), arguments);
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return true;
    qWarning().noquote() << toolFor(kind) << process.errorString() << process.readAllStandardError();
    return false;
}

QString OfflineInstaller::missingTools(QStringList const & kinds)
{
    QStringList missing;
    for (QString const & kind : kinds) {
        if (QStandardPaths::findExecutable(toolFor(kind)).isEmpty() && !missing.contains(toolFor(kind)))
            missing.append(toolFor(kind));
    }
    return missing.isEmpty() ? QString() : missing.join(u", "_s) + u" needed to make archives"_s;
}
