// Downloads a generated body (1 GiB unless told otherwise) from a server on 127.0.0.1 through
// LN_NetworkFile, checks every byte, and prints the throughput and the peak resident memory.
// The reply's buffer is bounded, so the peak must stay far below the size of the body, also
// for a reader slower than the network (the third argument pauses the reader after each MiB).
//
//     bench_download [MiB to download] [bytes per read] [pause in microseconds per MiB read]

#include <draizu/host/LN_Util.h>
#include <draizu/io/LN_NetworkFile.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QTextStream>

#include <cstring>
#include <memory>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype patternSize = 1024 * 1024 + 7;  // not a power of two, so reads straddle it

QByteArray makePattern()
{
    QByteArray pattern(patternSize, Qt::Uninitialized);
    std::uint32_t state = 2463534242u;
    for (char & byte : pattern) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<char>(state);
    }
    return pattern;
}

// "VmHWM" or "VmRSS" of this process, in KiB.
qint64 statusKiB(QByteArray const & key)
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (QByteArray const & line : status.readAll().split('\n')) {
        if (line.startsWith(QByteArray(key + ':')))
            return line.mid(key.size() + 1).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

// A minimal HTTP/1.1 server on its own thread with blocking sockets: the download's event
// loop runs only when the reader waits, so a server on the same thread would starve.
class BodyServer
{
public:
    BodyServer(QByteArray const & pattern, qint64 size)
        : pattern_(pattern)
        , size_(size)
    {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address {};
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

    ~BodyServer()
    {
        ::shutdown(listener_, SHUT_RDWR);
        ::close(listener_);
        if (thread_.joinable())
            thread_.join();
    }

    quint16 port() const { return port_; }

private:
    void serve_()
    {
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
        QByteArray const header = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: "
                                  + QByteArray::number(size_) + "\r\n\r\n";
        bool ok = sendAll_(client, header.constData(), header.size());
        for (qint64 sent = 0; ok && sent < size_;) {
            qint64 const offset = sent % pattern_.size();
            qint64 const piece = std::min<qint64>(pattern_.size() - offset, size_ - sent);
            ok = sendAll_(client, pattern_.constData() + offset, piece);
            sent += piece;
        }
        ::shutdown(client, SHUT_WR);
        ::close(client);
    }

    static bool sendAll_(int socket, char const * data, qint64 size)
    {
        while (size > 0) {
            ssize_t const count = ::send(socket, data, static_cast<size_t>(size), MSG_NOSIGNAL);
            if (count <= 0)
                return false;
            data += count;
            size -= count;
        }
        return true;
    }

    QByteArray const & pattern_;
    qint64 size_;
    int listener_ = -1;
    quint16 port_ = 0;
    std::thread thread_;
};

} // namespace

int main(int argc, char ** argv)
{
    QCoreApplication application(argc, argv);
    QStringList const arguments = QCoreApplication::arguments();
    QTextStream out(stdout);
    QTextStream err(stderr);
    qint64 const mebibytes = arguments.size() > 1 ? arguments.at(1).toLongLong() : 1024;
    qint64 const readSize = arguments.size() > 2 ? arguments.at(2).toLongLong() : 65536;
    qint64 const pauseUs = arguments.size() > 3 ? arguments.at(3).toLongLong() : 0;
    if (mebibytes <= 0 || readSize <= 0 || pauseUs < 0) {
        err << "usage: bench_download [MiB to download] [bytes per read] [pause in microseconds per MiB read]\n";
        return 2;
    }
    qint64 const size = mebibytes * 1024 * 1024;

    QByteArray const pattern = makePattern();
    BodyServer server(pattern, size);
    if (server.port() == 0) {
        err << "cannot listen on 127.0.0.1\n";
        return 1;
    }
    QNetworkAccessManager manager;
    qint64 const baselineKiB = statusKiB("VmHWM");

    QElapsedTimer timer;
    timer.start();
    LN_NetworkFile file(&manager, LN_Util::createHttpRequest(QUrl(u"http://127.0.0.1:%1/body"_s.arg(server.port()))));
    std::error_code ec;
    QString message;
    if (!file.open(ec, message)) {
        err << message << "\n";
        return 1;
    }

    auto const buffer = std::make_unique<char[]>(static_cast<size_t>(readSize));
    qint64 received = 0;
    qint64 reads = 0;
    bool intact = true;
    for (;;) {
        qint64 const count = file.read(buffer.get(), readSize, ec, message);
        if (count < 0) {
            err << "read failed: " << message << "\n";
            return 1;
        }
        if (count == 0)
            break;
        ++reads;
        for (qint64 done = 0; done < count && intact;) {
            qint64 const offset = (received + done) % pattern.size();
            qint64 const piece = std::min<qint64>(pattern.size() - offset, count - done);
            intact = std::memcmp(buffer.get() + done, pattern.constData() + offset, static_cast<size_t>(piece)) == 0;
            done += piece;
        }
        if (pauseUs > 0 && (received + count) / (1024 * 1024) != received / (1024 * 1024))
            ::usleep(static_cast<useconds_t>(pauseUs));
        received += count;
    }
    qint64 const elapsedNs = timer.nsecsElapsed();
    qint64 const peakKiB = statusKiB("VmHWM");

    double const seconds = static_cast<double>(elapsedNs) / 1e9;
    double const mibPerSecond = seconds > 0 ? static_cast<double>(received) / (1024.0 * 1024.0) / seconds : 0.0;
    out << "bytes: " << received << " of " << size << (intact ? " (intact)" : " (CORRUPTED)") << "\n";
    out << "reads: " << reads << " of at most " << readSize << " bytes";
    if (pauseUs > 0)
        out << ", reader paused " << pauseUs << " us per MiB";
    out << "\n";
    out << "seconds: " << QString::number(seconds, 'f', 3) << "\n";
    out << "throughput: " << QString::number(mibPerSecond, 'f', 1) << " MiB/s\n";
    out << "peak resident before download: " << QString::number(baselineKiB / 1024.0, 'f', 1) << " MiB\n";
    out << "peak resident (VmHWM): " << QString::number(peakKiB / 1024.0, 'f', 1) << " MiB\n";
    out << "peak growth during download: " << QString::number((peakKiB - baselineKiB) / 1024.0, 'f', 1) << " MiB\n";
    return received == size && intact ? 0 : 1;
}
