#pragma once

// Offline installers, and archives in general, made for tests by the real archivers from a list
// of files. The name gives the kind: ".iso" (xorriso, with Rock Ridge and Joliet names), ".zip"
// (zip), ".tar" and ".tar.gz" (bsdtar). A zip or tar archive holds the listed entries alone, in
// the listed order; an ISO image holds every directory as well and orders its entries itself.
// A path ending in "/" stands for a directory entry.
//
//     using OfflineInstaller::Files;
//     if (QString const missing = OfflineInstaller::missingTools({u"iso"_s, u"zip"_s}); !missing.isEmpty())
//         QSKIP(qPrintable(missing));
//     Files const files = {{u"data/overview.json"_s, catalogue}, {u"data/orvanis.files"_s, "bin/orvanis\n"}};
//     QVERIFY(OfflineInstaller::make(dir.filePath(u"installer.iso"_s), files));
//     QVERIFY(OfflineInstaller::writeTree(dir.filePath(u"unpacked"_s), files));  // the same, unpacked
//
// A failing archiver's complaint is printed as a warning.

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

namespace OfflineInstaller {

/// Paths relative to the archive's root, with their content, in order.
using Files = QList<QPair<QString, QByteArray>>;

/// Writes the files under `root`, making directories as needed; false at the first failure.
bool writeTree(QString const & root, Files const & files);
/// Archives the files, written into a temporary tree, as `archive`, replacing any file there and
/// making its directory if missing; false when a file, the archiver or the kind of the name fails.
bool make(QString const & archive, Files const & files);
/// The archivers missing on this machine for the kinds ("iso", "zip", "tar", "tar.gz"), as a
/// text for QSKIP; empty when all are there.
QString missingTools(QStringList const & kinds);

} // namespace OfflineInstaller
