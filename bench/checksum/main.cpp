// Hashes one file with LN_Util::checksum and prints its digest and the throughput, to set
// beside `openssl dgst -sha256` on the same file.

#include <draizu/host/LN_Util.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTextStream>

int main(int argc, char ** argv)
{
    QCoreApplication application(argc, argv);
    QStringList const arguments = QCoreApplication::arguments();
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (arguments.size() != 2) {
        err << "usage: bench_checksum <file>\n";
        return 2;
    }
    QString const path = arguments.at(1);
    qint64 const size = QFileInfo(path).size();

    QElapsedTimer timer;
    timer.start();
    QByteArray const digest = LN_Util::checksum(path);
    qint64 const elapsedNs = timer.nsecsElapsed();
    if (digest.isEmpty()) {
        err << "cannot read " << path << "\n";
        return 1;
    }

    double const seconds = static_cast<double>(elapsedNs) / 1e9;
    double const bytesPerSecond = seconds > 0 ? static_cast<double>(size) / seconds : 0.0;
    out << QString::fromLatin1(digest.toHex()) << "  " << path << "\n";
    out << "bytes: " << size << "\n";
    out << "seconds: " << QString::number(seconds, 'f', 3) << "\n";
    out << "bytes per second: " << QString::number(bytesPerSecond, 'f', 0) << " ("
        << QString::number(bytesPerSecond / (1024.0 * 1024.0), 'f', 1) << " MiB/s)\n";
    return 0;
}
