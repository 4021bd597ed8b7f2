// Installs a package zip (1 GiB in 10,000 files unless told otherwise) and sets the library
// beside the standard tools doing the same on the same data:
//
//   installPackages (checking the zip, then extracting)  beside  bsdtar -xf
//   downloadAndInstallZipPackages with SHA-256 from a server on 127.0.0.1
//                                    beside  curl -o, then openssl dgst -sha256, then bsdtar -xf
//
// and prints the median times, their ratios and the peak resident memory of the library's runs.
//
//     bench_packages [MiB in the zip] [files in the zip] [runs] [work directory]

#include "../common/BenchSupport.h"

#include <draizu/host/LN_Util.h>
#include <draizu/packages/LN_Package.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QTemporaryDir>

#include <atomic>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using BenchSupport::out;

namespace {

// "VmHWM" of this process, in KiB.
qint64 peakKiB()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (QByteArray const & line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

// Lets the peak be measured again from here: writing 5 to clear_refs resets VmHWM.
void resetPeak()
{
    QFile refs(u"/proc/self/clear_refs"_s);
    if (refs.open(QIODevice::WriteOnly))
        refs.write("5");
}

// Serves one file to every GET, one connection at a time, with sendfile on its own thread:
// the library's download waits in a local event loop, where a server of the same thread would
// not get its turn fast enough to be fair to curl.
class FileServer
{
public:
    explicit FileServer(QString const & path)
        : path_(QFile::encodeName(path))
    {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
            || ::listen(listener_, 4) != 0
            || ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) != 0)
            return;
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve_(); });
    }

    ~FileServer()
    {
        stopping_ = true;
        ::shutdown(listener_, SHUT_RDWR);
        ::close(listener_);
        if (thread_.joinable())
            thread_.join();
    }

    QString url() const { return u"http://127.0.0.1:%1/package.zip"_s.arg(port_); }
    bool isListening() const { return port_ != 0; }

private:
    void serve_()
    {
        while (!stopping_) {
            int const client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0)
                return;
            QByteArray request;
            char buffer[4096];
            while (!request.contains("\r\n\r\n")) {
                ssize_t const count = ::recv(client, buffer, sizeof buffer, 0);
                if (count <= 0)
                    break;
                request.append(buffer, count);
            }
            int const file = ::open(path_.constData(), O_RDONLY | O_CLOEXEC);
            off_t const size = file < 0 ? 0 : ::lseek(file, 0, SEEK_END);
            QByteArray const header = "HTTP/1.1 200 OK\r\nContent-Type: application/zip\r\nConnection: close\r\n"
                                      "Content-Length: " + QByteArray::number(qint64(size)) + "\r\n\r\n";
            bool ok = ::send(client, header.constData(), size_t(header.size()), MSG_NOSIGNAL) == header.size();
            for (off_t offset = 0; ok && offset < size;)
                ok = ::sendfile(client, file, &offset, size_t(size - offset)) > 0;
            if (file >= 0)
                ::close(file);
            ::shutdown(client, SHUT_WR);
            ::close(client);
        }
    }

    QByteArray path_;
    int listener_ = -1;
    quint16 port_ = 0;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

// Half of each file repeats, half does not, so that deflate has work on both sides.
bool makePackageTree(QString const & root, qint64 bytes, int files)
{
    QDir const tree(root);
    if (!tree.mkpath(u"P"_s) || !BenchSupport::writeFile(tree.filePath(u"P.json"_s), "{\"version\": \"1\"}"))
        return false;
    qint64 const each = bytes / files;
    QByteArray content(each, Qt::Uninitialized);
    std::uint32_t state = 2463534242u;
    for (int i = 0; i < files; ++i) {
        for (qsizetype j = 0; j < content.size(); ++j) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            content[j] = j < content.size() / 2 ? char(state) : char('a' + j % 23);
        }
        if (!tree.mkpath(u"P/d%1"_s.arg(i / 100))
            || !BenchSupport::writeFile(tree.filePath(u"P/d%1/f%2.bin"_s.arg(i / 100).arg(i)), content))
            return false;
    }
    return true;
}

// Milliseconds of one call.
template <typename F>
double timed(F && work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

double median(QList<double> times)
{
    std::sort(times.begin(), times.end());
    return times.at(times.size() / 2);
}

} // namespace

int main(int argc, char ** argv)
{
    QCoreApplication application(argc, argv);
    QStringList const arguments = QCoreApplication::arguments();
    qint64 const mebibytes = arguments.value(1, u"1024"_s).toLongLong();
    int const files = arguments.value(2, u"10000"_s).toInt();
    int const runs = arguments.value(3, u"3"_s).toInt();
    QTemporaryDir work(arguments.size() > 4 ? arguments.at(4) + u"/bench-packages-XXXXXX"_s : QString());
    if (mebibytes <= 0 || files <= 0 || runs <= 0 || !work.isValid()) {
        out() << "usage: bench_packages [MiB in the zip] [files in the zip] [runs] [work directory]" << Qt::endl;
        return 2;
    }

    QString const zip = work.filePath(u"package.zip"_s);
    QString const tree = work.filePath(u"tree"_s);
    out() << "making " << mebibytes << " MiB in " << files << " files..." << Qt::endl;
    if (!makePackageTree(tree, mebibytes * 1024 * 1024, files)
        || !BenchSupport::run(u"sh"_s, {u"-c"_s, u"cd '%1' && zip -q -r '%2' P.json P"_s.arg(tree, zip)}))
        return 1;
    QDir(tree).removeRecursively();
    out() << "zip: " << QFileInfo(zip).size() / (1024 * 1024) << " MiB" << Qt::endl;

    FileServer server(zip);
    if (!server.isListening())
        return 1;
    QNetworkAccessManager manager;
    LN_AvailablePackage::Checksum const checksum{QCryptographicHash::Sha256, LN_Util::checksum(zip)};
    QString const target = work.filePath(u"target"_s);
    QString const download = work.filePath(u"download.zip"_s);
    auto const clean = [&] {
        QDir(target).removeRecursively();
        QFile::remove(download);
    };
    auto const ignore = [](int, int, QString const &) {};

    QList<double> bsdtar, install, tools, library;
    qint64 installPeak = 0;
    qint64 downloadPeak = 0;
    bool ok = true;
    for (int run = 0; ok && run < runs; ++run) {
        clean();
        QDir().mkpath(target);
        bsdtar.append(timed([&] { ok = ok && BenchSupport::run(u"bsdtar"_s, {u"-xf"_s, zip, u"-C"_s, target}); }));
        clean();
        resetPeak();
        qint64 const installStart = peakKiB();
        install.append(timed([&] {
            ok = ok && LN_Package::installPackages(zip, {}, QDir(target), ignore).status == LN_Package::Success;
        }));
        installPeak = std::max(installPeak, peakKiB() - installStart);
        clean();
        QDir().mkpath(target);
        tools.append(timed([&] {
            ok = ok && BenchSupport::run(u"curl"_s, {u"-s"_s, u"-o"_s, download, server.url()})
                 && BenchSupport::run(u"openssl"_s, {u"dgst"_s, u"-sha256"_s, u"-out"_s, u"/dev/null"_s, download})
                 && BenchSupport::run(u"bsdtar"_s, {u"-xf"_s, download, u"-C"_s, target});
        }));
        clean();
        resetPeak();
        qint64 const start = peakKiB();
        library.append(timed([&] {
            ok = ok && LN_Package::downloadAndInstallZipPackages(&manager, QUrl(server.url()), {}, checksum, QDir(target), ignore)
                               .status == LN_Package::Success;
        }));
        downloadPeak = std::max(downloadPeak, peakKiB() - start);
    }
    if (!ok) {
        out() << "a run failed" << Qt::endl;
        return 1;
    }
    double const extractRatio = median(install) / median(bsdtar);
    double const downloadRatio = median(library) / median(tools);
    out() << "bsdtar -xf:                      " << BenchSupport::summary(bsdtar) << Qt::endl;
    out() << "installPackages:                 " << BenchSupport::summary(install) << Qt::endl;
    out() << "  ratio " << QString::number(extractRatio, 'f', 2) << " (goal <= 1.15)" << Qt::endl;
    out() << "curl -o; openssl dgst; bsdtar:   " << BenchSupport::summary(tools) << Qt::endl;
    out() << "downloadAndInstallZipPackages:   " << BenchSupport::summary(library) << Qt::endl;
    out() << "  ratio " << QString::number(downloadRatio, 'f', 2) << " (goal <= 1.00)" << Qt::endl;
    out() << "peak resident growth: install " << QString::number(installPeak / 1024.0, 'f', 1) << " MiB, download "
          << QString::number(downloadPeak / 1024.0, 'f', 1) << " MiB (goal <= 64)" << Qt::endl;
    return 0;
}
