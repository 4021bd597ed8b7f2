#pragma once

// Small helpers shared by the benchmark programs that build an image and time readers of it.

#include <QFile>
#include <QList>
#include <QString>
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
