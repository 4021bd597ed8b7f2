#pragma once

// Installations with real files, shared by the crash test and the helper program that it
// kills, so that both agree on what a change looks like.

#include <draizu/records/LN_ComponentMetadata.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

namespace RepositoryFixture {

using namespace Qt::StringLiterals;

inline QString const docs = u"Docs"_s;

// A file of an installation: its path and the content it is to have.
struct Content
{
    QString path;
    QByteArray bytes;
};
using Contents = QList<Content>;

inline bool writeContent(QString const & root, Content const & file)
{
    QString const path = QDir(root).filePath(file.path);
    QFile out(path);
    return QDir().mkpath(QFileInfo(path).path()) && out.open(QIODevice::WriteOnly)
        && out.write(file.bytes) == file.bytes.size();
}

// A ready Orvanis installation whose product and "Docs" feature own the given files.
inline LN_ComponentMetadata record(QString const & dir, Contents const & product, Contents const & documents)
{
    auto const manifest = [](Contents const & files) {
        QList<LN_FileMetadata> list;
        for (Content const & file : files)
            list.append({file.path, u"src/"_s + file.path,
                         QCryptographicHash::hash(file.bytes, QCryptographicHash::Sha256), file.bytes.size()});
        return list;
    };
    LN_ComponentMetadata r;
    r.installDir = dir;
    r.product = Product_Orvanis;
    r.version = QVersionNumber(20, 1, 4);
    r.platformInfo = LN_PlatformInfo::fromStrings(u"linux_x86_64"_s, u"gcc12"_s);
    r.ready = true;
    r.features.insert(docs, QString());
    r.setFiles(u"Orvanis"_s, manifest(product));
    r.setFiles(docs, manifest(documents));
    return r;
}

inline Contents productContents(QString const & tag)
{
    return {{u"bin/orvanis"_s, "binary of " + tag.toUtf8()}, {u"bin/old-tool"_s, "old tool"}};
}

inline Contents const docsContents{{u"docs/readme.txt"_s, "read me"}};

} // namespace RepositoryFixture
