// Builds a repository of 20 installations whose manifests list 100,000 files each, under a
// temporary directory in /tmp, and times what the launcher does with it: loading, listing one
// installation's files, looking for one file, and committing. Each step is printed with the
// peak resident memory it reached (VmHWM, reset before the step), beside Python's json module
// on the largest manifest for scale. The repository is deleted afterwards.
//
//   bench_repository [installations] [files per manifest]

#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_JsonFiles.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <functional>

#include <malloc.h>

using namespace Qt::StringLiterals;

namespace {

QTextStream out(stdout);

// A memory figure of this process in KiB from /proc/self/status: "VmHWM:" (peak) or "VmRSS:".
qint64 statusKiB(QByteArray const & key)
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly | QIODevice::Text))
        return -1;
    for (QByteArray line = status.readLine(); !line.isEmpty(); line = status.readLine()) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').constFirst().toLongLong();
    }
    return -1;
}

// Lets the next step's peak be measured on its own (Linux 4.0 and later): freed heap goes
// back to the system first, so that the peak starts from what is really in use.
void resetPeak()
{
    ::malloc_trim(0);
    QFile clear(u"/proc/self/clear_refs"_s);
    if (clear.open(QIODevice::WriteOnly | QIODevice::Unbuffered | QIODevice::ExistingOnly))
        clear.write("5");
}

void step(char const * name, std::function<void()> const & work)
{
    resetPeak();
    qint64 const before = statusKiB("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    work();
    double const ms = double(timer.nsecsElapsed()) / 1e6;
    out << QString::fromLatin1(name).leftJustified(34) << QString::number(ms, 'f', 1).rightJustified(9) << " ms   peak "
        << QString::number(statusKiB("VmHWM:") / 1024).rightJustified(5) << " MiB (from "
        << QString::number(before / 1024) << " MiB)" << Qt::endl;
}

QList<LN_FileMetadata> fileList(int installation, int count)
{
    QList<LN_FileMetadata> files;
    files.reserve(count);
    for (int i = 0; i < count; ++i) {
        QByteArray const seed = QByteArray::number(installation) + '/' + QByteArray::number(i);
        QString path = u"data/dir%1/file_%2.bin"_s.arg(i / 1000, 3, 10, QChar(u'0')).arg(i, 6, 10, QChar(u'0'));
        files.emplaceBack(std::move(path), QString(), QCryptographicHash::hash(seed, QCryptographicHash::Sha256),
                          1000 + i);
    }
    return files;
}

} // namespace

int main(int argc, char ** argv)
{
    QCoreApplication application(argc, argv);
    QStringList const arguments = QCoreApplication::arguments();
    int const installations = arguments.size() > 1 ? arguments.at(1).toInt() : 20;
    int const filesPerManifest = arguments.size() > 2 ? arguments.at(2).toInt() : 100000;
    if (installations < 1 || filesPerManifest < 1) {
        QTextStream(stderr) << "usage: bench_repository [installations] [files per manifest]\n";
        return 2;
    }

    QTemporaryDir temp(u"/tmp/bench_repository-XXXXXX"_s);
    if (!temp.isValid())
        return 1;
    QDir const dir(temp.filePath(u"repository"_s));
    dir.mkpath(u"."_s);

    out << installations << " installations, " << filesPerManifest << " files per manifest, in " << dir.path()
        << Qt::endl;

    step("build (not a measured operation)", [&] {
        LN_InstallMetadata repo(dir);
        for (int i = 0; i < installations; ++i) {
            LN_ComponentMetadata r;
            r.installDir = u"/opt/orvanis-%1"_s.arg(i);
            r.product = Product_Orvanis;
            r.version = QVersionNumber(20, 1, i);
            r.platformInfo = LN_PlatformInfo::fromStrings(u"linux_x86_64"_s, u"gcc12"_s);
            r.ready = true;
            r.setFiles(u"Orvanis"_s, fileList(i, filesPerManifest));
            repo.insert(r);
            repo.save(u"overview.json"_s); // keeps one pending list in memory at a time
        }
    });

    qint64 manifestBytes = 0;
    QString largest;
    for (QFileInfo const & info : dir.entryInfoList({u"Orvanis_*.json"_s}, QDir::Files)) {
        if (info.size() > manifestBytes) {
            manifestBytes = info.size();
            largest = info.filePath();
        }
    }
    out << "largest manifest: " << manifestBytes / 1024 << " KiB" << Qt::endl << Qt::endl;

    LN_InstallMetadata repo;
    QString const target = u"/opt/orvanis-%1"_s.arg(installations - 1);
    QString const lastFile = fileList(0, filesPerManifest).constLast().path;
    qsizetype listed = 0;
    bool found = false;

    step("load (constructor)", [&] { repo = LN_InstallMetadata(dir); });
    step("readJsonFile, largest manifest", [&] { (void)readJsonFile(largest); });
    step("allFiles, one installation", [&] { listed = repo.get(target).allFiles().size(); });
    step("containsFile, last file", [&] { found = repo.get(target).containsFile(lastFile); });
    step("saveFinal", [&] { repo.saveFinal(); });

    QElapsedTimer timer;
    timer.start();
    int const python = QProcess::execute(u"python3"_s, {u"-c"_s, u"import json,sys; json.load(open(sys.argv[1]))"_s,
                                                      largest});
    out << QString::fromLatin1("python3 json.load, largest manifest").leftJustified(34)
        << QString::number(timer.elapsed()).rightJustified(9) << " ms   (exit " << python << ")" << Qt::endl;

    if (listed != filesPerManifest || !found) {
        QTextStream(stderr) << "unexpected result: " << listed << " files listed, found " << found << "\n";
        return 1;
    }
    return 0;
}
