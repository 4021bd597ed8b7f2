#include <draizu/packages/LN_OrvanisPackageUtil.h>

#include <draizu/host/LN_Util.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QString applicationPackages()
{
    return QDir::cleanPath(QDir(LN_Util::applicationRoot()).absoluteFilePath(u"../marlux_packages"_s));
}

} // namespace

QList<QString> LN_OrvanisPackageUtil::getPackageDirectories()
{
    QList<QString> directories;
    QDir const home(QString::fromLocal8Bit(qgetenv("HOME")));
    for (QFileInfo const & product :
         home.entryInfoList({u"orvanis??.?"_s}, QDir::Dirs | QDir::CaseSensitive, QDir::NoSort))
        directories.append(product.absoluteFilePath() + u"/packages"_s);
    directories.append(applicationPackages());
    return directories;
}

QString LN_OrvanisPackageUtil::getDirectoryShortcut(QString path)
{
    QRegularExpression const home(QString::fromLocal8Bit(qgetenv("HOME")) + uR"(/orvanis(\d\d.\d)/packages)"_s);
    if (QRegularExpressionMatch const match = home.match(path); match.hasMatch())
        return match.captured(1) + u" Home Directory"_s;
    if (QFileInfo(path).absolutePath() == applicationPackages())
        return u"Marlux Packages"_s;
    return u"Custom Directory"_s;
}

LN_OrvanisPackage LN_OrvanisPackageUtil::parsePackageFile(QString const & path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return {};
    QJsonParseError error{};
    QJsonDocument const document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError)
        return {};
    QString const version = document.object().value(u"version"_s).toString();
    return {path, QFileInfo(path).fileName().remove(u".json"_s), QVersionNumber::fromString(version)};
}

QList<LN_OrvanisPackage> LN_OrvanisPackageUtil::parsePackageFiles(QString const & directory)
{
    QList<LN_OrvanisPackage> packages;
    for (QFileInfo const & file : QDir(directory).entryInfoList({u"*.json"_s}, QDir::Files, QDir::NoSort)) {
        LN_OrvanisPackage package = parsePackageFile(file.absoluteFilePath());
        if (!package.packageName().isEmpty())
            packages.append(std::move(package));
    }
    return packages;
}
