#pragma once

// Small helpers shared by the benchmark programs that build an image and time readers of it.

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <algorithm>

namespace BenchSupport {

inline QTextStream & out()
{
    static QTextStream stream(stdout);
    return stream;
}

inline bool writeFile(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Runs a program to its end; false, after printing its complaint, when it fails. Its standard
// output goes to `output` when given, else with its errors to ours.
inline bool run(QString const & program, QStringList const & arguments, QByteArray * output = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(output ? QProcess::SeparateChannels : QProcess::ForwardedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        out() << program << " failed: " << process.errorString() << ' ' << process.readAllStandardError() << Qt::endl;
        return false;
    }
    if (output)
        *output = process.readAllStandardOutput();
    return true;
}

// An ISO 9660 image of the tree with Rock Ridge and Joliet names, as offline installers are made.
inline bool makeIsoImage(QString const & tree, QString const & image)
{
    return run(QStringLiteral("xorriso"),
               {QStringLiteral("-as"), QStringLiteral("mkisofs"), QStringLiteral("-quiet"), QStringLiteral("-R"),
                QStringLiteral("-J"), QStringLiteral("-o"), image, tree});
}

// Median, best and worst of run times in milliseconds.
inline QString summary(QList<double> times)
{
    std::sort(times.begin(), times.end());
    return QStringLiteral("median %1 ms, best %2 ms, worst %3 ms")
        .arg(times.at(times.size() / 2), 0, 'f', 1)
        .arg(times.first(), 0, 'f', 1)
        .arg(times.last(), 0, 'f', 1);
}

} // namespace BenchSupport
