// Reads every content list named by the catalogue of a generated offline installer image
// through LN_FileOpener, once in archive order and once in reverse order, beside one
// `bsdtar -tf` pass over the same image.
//
// Reopens are counted from outside the library: an inotify watch on the image counts every
// open(2) of it. A reader of the opener is opened once for its catalogue check
// (LN_AvailableInfo::fromFile, which the program also counts on its own) and once for its first
// file; every further open is a reopen, that is, a new pass from the start of the archive.
//
// The image is made with xorriso under a temporary directory (by default in /tmp) and removed
// at the end.

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>

#include "../common/BenchSupport.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QSet>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>

#include <sys/inotify.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

using BenchSupport::out;
using BenchSupport::run;
using BenchSupport::summary;
using BenchSupport::writeFile;

// Counts the opens of one file by any process, from the moment of construction.
class OpenCounter
{
public:
    explicit OpenCounter(QString const & path)
        : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        // Closes are watched too: the kernel merges identical events that follow each other
        // unread, and a close between two opens keeps them apart.
        if (fd_ >= 0)
            watch_ = inotify_add_watch(fd_, QFile::encodeName(path).constData(), IN_OPEN | IN_CLOSE_NOWRITE);
    }
    ~OpenCounter()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    OpenCounter(OpenCounter const &) = delete;
    OpenCounter & operator=(OpenCounter const &) = delete;

    bool isValid() const { return fd_ >= 0 && watch_ >= 0; }

    // Opens since the last call; -1 when events were lost.
    int take()
    {
        int opens = 0;
        alignas(inotify_event) std::array<char, 65536> buffer;
        for (;;) {
            ssize_t const length = ::read(fd_, buffer.data(), buffer.size());
            if (length < 0 && errno == EINTR)
                continue;
            if (length <= 0)
                break;
            for (ssize_t offset = 0; offset < length;) {
                auto const * event = reinterpret_cast<inotify_event const *>(buffer.data() + offset);
                if (event->mask & IN_Q_OVERFLOW)
                    return -1;
                if (event->mask & IN_OPEN)
                    ++opens;
                offset += ssize_t(sizeof(inotify_event) + event->len);
            }
        }
        return opens;
    }

private:
    int fd_ = -1;
    int watch_ = -1;
};

// Writes an offline installer tree: `entries` small files in directories of 200, and a
// catalogue of `products` products with one feature each, whose content lists are spread
// evenly through those directories.
bool writeTree(QString const & root, int entries, int products)
{
    constexpr int perDirectory = 200;
    int const directories = std::max(1, (entries + perDirectory - 1) / perDirectory);
    QDir const data(root + u"/data"_s);
    auto const directory = [&data](int index) {
        return u"content/d%1"_s.arg(index, 4, 10, QChar(u'0'));
    };
    for (int i = 0; i < directories; ++i) {
        if (!QDir().mkpath(data.filePath(directory(i))))
            return false;
    }
    for (int i = 0; i < entries; ++i) {
        if (!writeFile(data.filePath(directory(i / perDirectory) + u"/f%1.bin"_s.arg(i, 6, 10, QChar(u'0'))),
                       QByteArray::number(i)))
            return false;
    }

    QByteArray json = R"({"format version": 1, "release_type": "gold", "products": [)";
    int const lists = 2 * products;
    for (int i = 0; i < products; ++i) {
        QString const productList = directory(int(qint64(2 * i) * directories / lists)) + u"/product%1.files"_s.arg(i);
        QString const featureList = directory(int(qint64(2 * i + 1) * directories / lists)) + u"/feature%1.files"_s.arg(i);
        if (!writeFile(data.filePath(productList), "bin/product\n") || !writeFile(data.filePath(featureList), "lib/feature\n"))
            return false;
        if (i > 0)
            json += ',';
        json += uR"({"name": "Product %1", "version": "21.0.%1", "minimum launcher version": "21.0.1",
            "os name": "linux_x86_64", "compiler": "gcc12", "files": "%2",
            "features": [{"name": "Feature %1", "files": "%3"}]})"_s.arg(QString::number(i), productList, featureList)
                    .toUtf8();
    }
    return writeFile(data.filePath(u"overview.json"_s), json + "]}");
}

struct Figures
{
    QList<double> times;
    int opens = 0;
};

// Milliseconds of each run, in order, and the opens of the last one; no times on failure.
Figures measure(int runs, OpenCounter & counter, std::function<bool()> const & work)
{
    Figures figures;
    for (int i = 0; i < runs; ++i) {
        counter.take();
        QElapsedTimer timer;
        timer.start();
        if (!work())
            return {};
        figures.times.append(double(timer.nsecsElapsed()) / 1e6);
        figures.opens = counter.take();
    }
    return figures;
}

} // namespace

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Counts the archive passes of LN_FileOpener on an offline installer image."_s);
    parser.addHelpOption();
    QCommandLineOption const entriesOption(u"entries"_s, u"Small files in the image (default 20000)."_s, u"n"_s,
                                           u"20000"_s);
    QCommandLineOption const productsOption(u"products"_s,
                                            u"Products in the catalogue, two content lists each (default 50)."_s,
                                            u"n"_s, u"50"_s);
    QCommandLineOption const runsOption(u"runs"_s, u"Timed runs of each reading (default 3)."_s, u"n"_s, u"3"_s);
    QCommandLineOption const directoryOption(u"work-dir"_s, u"Where the image is made (default /tmp)."_s,
                                             u"dir"_s, u"/tmp"_s);
    parser.addOptions({entriesOption, productsOption, runsOption, directoryOption});
    parser.process(app);

    int const entries = parser.value(entriesOption).toInt();
    int const products = std::max(1, parser.value(productsOption).toInt());
    int const runs = std::max(1, parser.value(runsOption).toInt());

    QTemporaryDir work(QDir(parser.value(directoryOption)).filePath(u"opener-pass-XXXXXX"_s));
    if (!work.isValid()) {
        out() << "cannot create a work directory: " << work.errorString() << Qt::endl;
        return 1;
    }
    QString const tree = work.filePath(u"tree"_s);
    QString const image = work.filePath(u"installer.iso"_s);

    QElapsedTimer generation;
    generation.start();
    if (!writeTree(tree, entries, products) || !BenchSupport::makeIsoImage(tree, image))
        return 1;
    QDir(tree).removeRecursively();

    QList<LN_AvailableInfo> const catalogue = LN_AvailableInfo::fromFile(image);
    QSet<QString> wanted;
    for (LN_AvailableInfo const & element : catalogue)
        wanted.insert(u"data/"_s + element.feature.files);

    // The archive's own order, as libarchive gives it to bsdtar.
    QByteArray listing;
    if (!run(u"bsdtar"_s, {u"-tf"_s, image}, &listing))
        return 1;
    QStringList const names = QString::fromUtf8(listing).split(u'\n', Qt::SkipEmptyParts);
    QStringList inArchiveOrder;
    for (QString const & name : names) {
        if (wanted.contains(name))
            inArchiveOrder.append(name.mid(5));
    }
    if (catalogue.isEmpty() || inArchiveOrder.size() != wanted.size()) {
        out() << "the image was not read as an offline installer" << Qt::endl;
        return 1;
    }
    QStringList inReverseOrder = inArchiveOrder;
    std::reverse(inReverseOrder.begin(), inReverseOrder.end());

    out() << "image: " << QFileInfo(image).size() << " bytes, " << names.size() << " entries, "
          << inArchiveOrder.size() << " content lists, made in " << generation.elapsed() << " ms" << Qt::endl;

    OpenCounter counter(image);
    if (!counter.isValid()) {
        out() << "cannot watch the image: " << qt_error_string(errno) << Qt::endl;
        return 1;
    }

    QNetworkAccessManager manager;
    LN_InstallerOptions options;
    options.offlineInstaller = image;
    auto const readAll = [&manager, &options](QStringList const & order) {
        LN_FileOpener opener(&manager, options);
        QByteArray bytes;
        for (QString const & name : order) {
            LN_FileOpener::TypedResult<LN_IODevice> const file = opener.openFile(name);
            if (file.isError() || file.device->readAll(bytes) <= 0) {
                out() << name << ": " << file.message << Qt::endl;
                return false;
            }
        }
        return true;
    };

    // One untimed pass of each, so that all read from a warm page cache.
    if (!run(u"bsdtar"_s, {u"-tf"_s, image}, &listing) || LN_AvailableInfo::fromFile(image).isEmpty()
        || !readAll(inArchiveOrder))
        return 1;

    Figures const listed = measure(runs, counter, [&image, &listing] { return run(u"bsdtar"_s, {u"-tf"_s, image}, &listing); });
    Figures const checked = measure(runs, counter, [&image] { return !LN_AvailableInfo::fromFile(image).isEmpty(); });
    Figures const forward = measure(runs, counter, [&] { return readAll(inArchiveOrder); });
    Figures const backward = measure(runs, counter, [&] { return readAll(inReverseOrder); });
    if (listed.times.isEmpty() || checked.times.isEmpty() || forward.times.isEmpty() || backward.times.isEmpty())
        return 1;

    // Each opener checks the image's catalogue before its first open of the archive.
    auto const reopens = [&checked](Figures const & figures) {
        return figures.opens < 0 || checked.opens < 0 ? u"unknown (events lost)"_s
                                                      : QString::number(figures.opens - checked.opens - 1);
    };
    out() << "bsdtar -tf (one pass):              " << summary(listed.times) << ", including process start"
          << Qt::endl;
    out() << "catalogue check (fromFile):         " << summary(checked.times) << ", " << checked.opens
          << " open(s)" << Qt::endl;
    out() << "opener, archive order:              " << summary(forward.times) << ", " << forward.opens
          << " opens, reopens " << reopens(forward) << Qt::endl;
    out() << "opener, reverse order:              " << summary(backward.times) << ", " << backward.opens
          << " opens, reopens " << reopens(backward) << Qt::endl;
    return 0;
}
