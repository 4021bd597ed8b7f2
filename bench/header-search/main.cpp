// Feeds one long header line to the request reader in pieces, as a client whose line crosses
// many socket reads would, and times each size. The reader runs once per piece, as a front runs
// it at each arrival of data; the line ends in CR LF and a short body only with its last piece.
// Times that grow in step with the size mean that each piece costs the same, wherever it lands.

#include <draizu/api/LN_ApiMessageReader.h>
#include <draizu/api/LN_ApiRequestEngine.h>

#include "../common/BenchSupport.h"

#include <QBuffer>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

using BenchSupport::out;
using BenchSupport::summary;

// Milliseconds to read a message whose header line is `lineBytes` long, arriving in pieces of
// `pieceBytes`; -1 if the reader did not answer it as expected.
double feedOnce(qsizetype lineBytes, qsizetype pieceBytes)
{
    // An unknown key carries the length; the message itself is a wrong command, answered once.
    QByteArray const head = "1 cmd=FOO tag=t content-length=4 padding=";
    QByteArray const wire = head + QByteArray(std::max<qsizetype>(0, lineBytes - head.size()), 'a') + "\r\nbody";

    QBuffer sink;
    sink.open(QIODevice::WriteOnly);
    QTextStream stream(&sink);
    LN_ApiRequestEngine engine(stream);
    LN_ApiMessageReader::Buffer buffer;
    qsizetype offset = 0;

    QElapsedTimer timer;
    timer.start();
    while (offset < wire.size()) {
        LN_ApiMessageReader::serve(
            buffer, engine, stream, [] { return true; },
            [&] {
                QByteArray const piece = wire.mid(offset, pieceBytes);
                offset += piece.size();
                return piece;
            },
            [](int) { return false; });
    }
    double const ms = double(timer.nsecsElapsed()) / 1e6;
    stream.flush();
    return sink.data().endsWith("Expected a JSON request.\n") && buffer.bytes.isEmpty() ? ms : -1;
}

} // namespace

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Times the request reader on a long header line that arrives in pieces."_s);
    parser.addHelpOption();
    QCommandLineOption const sizesOption(u"sizes"_s, u"Line lengths in MiB, comma-separated (default 1,10,100)."_s,
                                         u"list"_s, u"1,10,100"_s);
    QCommandLineOption const pieceOption(u"piece"_s, u"Bytes per arrival (default 65536)."_s, u"n"_s, u"65536"_s);
    QCommandLineOption const runsOption(u"runs"_s, u"Timed runs of each size (default 3)."_s, u"n"_s, u"3"_s);
    parser.addOptions({sizesOption, pieceOption, runsOption});
    parser.process(app);

    qsizetype const piece = std::max(1, parser.value(pieceOption).toInt());
    int const runs = std::max(1, parser.value(runsOption).toInt());

    out() << "pieces of " << piece << " bytes, " << runs << " run(s) per size" << Qt::endl;
    for (QString const & size : parser.value(sizesOption).split(u',', Qt::SkipEmptyParts)) {
        qsizetype const mib = size.toLongLong();
        QList<double> times;
        for (int run = 0; run < runs; ++run) {
            double const ms = feedOnce(mib * 1024 * 1024, piece);
            if (ms < 0) {
                out() << mib << " MiB: the reader did not answer the message" << Qt::endl;
                return 1;
            }
            times.append(ms);
        }
        std::sort(times.begin(), times.end());
        out() << qSetFieldWidth(4) << mib << qSetFieldWidth(0) << " MiB line, "
              << (mib * 1024 * 1024 + piece - 1) / piece << " pieces: " << summary(times) << ", "
              << QString::number(times.at(times.size() / 2) / double(mib), 'f', 2) << " ms per MiB" << Qt::endl;
    }
    return 0;
}
