// Times LN_AvailableInfo::fromFile on a generated offline installer ISO image, beside
// `bsdtar -tf` listing the same image: both walk every header of the archive once.
//
// The image is made under a temporary directory (by default in /tmp) with xorriso, and
// removed at the end.

#include <draizu/catalogue/LN_AvailableInfo.h>

#include "../common/BenchSupport.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

using BenchSupport::out;
using BenchSupport::run;
using BenchSupport::summary;
using BenchSupport::writeFile;

// A format 1 catalogue whose products name content lists that the image holds.
QByteArray catalogue(int products)
{
    QByteArray json = R"({"format version": 1, "release_type": "gold", "products": [)";
    for (int i = 0; i < products; ++i) {
        if (i > 0)
            json += ',';
        json += QStringLiteral(R"({"name": "Product %1", "version": "21.0.%1", "minimum launcher version": "21.0.1",
            "os name": "linux_x86_64", "compiler": "gcc12", "files": "lists/product%1.files",
            "features": [{"name": "Feature %1", "files": "lists/feature%1.files"}]})")
                    .arg(i)
                    .toUtf8();
    }
    return json + "]}";
}

// Writes the tree of an offline installer: the catalogue, its content lists, `entries` small
// files in directories of 200, and one payload of `payloadBytes` (sparse on disk).
bool writeTree(QString const & root, int entries, qint64 payloadBytes)
{
    QDir const data(root + u"/data"_s);
    constexpr int products = 10;
    if (!QDir().mkpath(data.filePath(u"lists"_s)) || !writeFile(data.filePath(u"overview.json"_s), catalogue(products)))
        return false;
    for (int i = 0; i < products; ++i) {
        if (!writeFile(data.filePath(u"lists/product%1.files"_s.arg(i)), "content\n")
            || !writeFile(data.filePath(u"lists/feature%1.files"_s.arg(i)), "content\n"))
            return false;
    }

    constexpr int perDirectory = 200;
    for (int i = 0; i < entries; ++i) {
        QString const directory = data.filePath(u"content/d%1"_s.arg(i / perDirectory, 4, 10, QChar(u'0')));
        if (i % perDirectory == 0 && !QDir().mkpath(directory))
            return false;
        if (!writeFile(directory + u"/f%1.bin"_s.arg(i, 6, 10, QChar(u'0')), QByteArray::number(i)))
            return false;
    }

    QFile payload(data.filePath(u"content/payload.bin"_s));
    return payload.open(QIODevice::WriteOnly) && payload.resize(payloadBytes);
}

// Milliseconds of each run, in order.
QList<double> timeRuns(int runs, std::function<bool()> const & work)
{
    QList<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        if (!work())
            return {};
        times.append(double(timer.nsecsElapsed()) / 1e6);
    }
    return times;
}

} // namespace

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Times the catalogue scan of an offline installer image."_s);
    parser.addHelpOption();
    QCommandLineOption const entriesOption(u"entries"_s, u"Small files in the image (default 20000)."_s, u"n"_s,
                                           u"20000"_s);
    QCommandLineOption const payloadOption(u"payload-mib"_s, u"Size of the payload file in MiB (default 1024)."_s,
                                           u"mib"_s, u"1024"_s);
    QCommandLineOption const runsOption(u"runs"_s, u"Timed runs of each reader (default 5)."_s, u"n"_s, u"5"_s);
    QCommandLineOption const directoryOption(u"work-dir"_s, u"Where the image is made (default /tmp)."_s,
                                             u"dir"_s, u"/tmp"_s);
    parser.addOptions({entriesOption, payloadOption, runsOption, directoryOption});
    parser.process(app);

    int const entries = parser.value(entriesOption).toInt();
    qint64 const payloadBytes = parser.value(payloadOption).toLongLong() * 1024 * 1024;
    int const runs = std::max(1, parser.value(runsOption).toInt());

    QTemporaryDir work(QDir(parser.value(directoryOption)).filePath(u"catalogue-scan-XXXXXX"_s));
    if (!work.isValid()) {
        out() << "cannot create a work directory: " << work.errorString() << Qt::endl;
        return 1;
    }
    QString const tree = work.filePath(u"tree"_s);
    QString const image = work.filePath(u"installer.iso"_s);

    QElapsedTimer generation;
    generation.start();
    if (!writeTree(tree, entries, payloadBytes) || !BenchSupport::makeIsoImage(tree, image))
        return 1;
    QDir(tree).removeRecursively();

    QByteArray listing;
    if (!run(u"bsdtar"_s, {u"-tf"_s, image}, &listing))
        return 1;
    qint64 const imageEntries = listing.count('\n');
    out() << "image: " << image << ", " << QFileInfo(image).size() << " bytes ("
          << QString::number(double(QFileInfo(image).size()) / (1 << 30), 'f', 2) << " GiB), " << imageEntries
          << " entries, made in " << generation.elapsed() << " ms" << Qt::endl;

    qsizetype elements = 0;
    auto const scan = [&image, &elements] {
        elements = LN_AvailableInfo::fromFile(image).size();
        return elements > 0;
    };
    auto const list = [&image, &listing] { return run(u"bsdtar"_s, {u"-tf"_s, image}, &listing); };

    // One untimed pass of each, so that both read from a warm page cache.
    if (!scan() || !list()) {
        out() << "the image was not read as an offline installer" << Qt::endl;
        return 1;
    }
    QList<double> const scanTimes = timeRuns(runs, scan);
    QList<double> const listTimes = timeRuns(runs, list);
    if (scanTimes.isEmpty() || listTimes.isEmpty())
        return 1;

    out() << "LN_AvailableInfo::fromFile: " << summary(scanTimes) << " (" << elements << " catalogue elements)"
          << Qt::endl;
    out() << "bsdtar -tf:                 " << summary(listTimes) << " (including process start)" << Qt::endl;
    return 0;
}
