#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_ArchiveFile.h>
#include <draizu/io/LN_DiskFile.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <archive.h>
#include <archive_entry.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

struct ArchiveFree
{
    void operator()(struct archive * a) const { archive_read_free(a); }
};
using ArchivePointer = std::unique_ptr<struct archive, ArchiveFree>;

// Opened the way the library's opener opens offline installers: no outer filter.
ArchivePointer openArchive(QString const & path)
{
    ArchivePointer a(archive_read_new());
    archive_read_support_filter_none(a.get());
    archive_read_support_format_all(a.get());
    if (archive_read_open_filename(a.get(), QFile::encodeName(path).constData(), 10240) != ARCHIVE_OK)
        return nullptr;
    return a;
}

bool writeFile(QString const & path, QByteArray const & data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QByteArray compressible(qsizetype size)
{
    QByteArray data;
    for (int line = 0; data.size() < size; ++line)
        data += "line " + QByteArray::number(line) + " of a manifest that compresses well\n";
    data.truncate(size);
    return data;
}

// Runs a packing tool in `dir`; returns its error output on failure.
QString run(QString const & dir, QString const & program, QStringList const & arguments)
{
    if (QStandardPaths::findExecutable(program).isEmpty())
        return program + u" is not installed"_s;
    QProcess process;
    process.setWorkingDirectory(dir);
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return QString::fromLocal8Bit(process.readAllStandardError()) + process.errorString();
    return QString();
}

bool damage(QString const & path, qint64 offset, qint64 truncateTo)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    if (offset >= 0) {
        file.seek(offset);
        QByteArray bytes = file.read(16);
        for (char & byte : bytes)
            byte = static_cast<char>(~byte);
        file.seek(offset);
        file.write(bytes);
    }
    return truncateTo < 0 || file.resize(truncateTo);
}

} // namespace

class TestReadStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void diskFileReads();
    void diskFileFailures_data();
    void diskFileFailures();
    void archiveEntries_data();
    void archiveEntries();
    void damagedArchive_data();
    void damagedArchive();
};

void TestReadStreams::diskFileReads()
{
    QTemporaryDir dir;
    QString const path = dir.filePath(u"overview.json"_s);
    QByteArray const data = compressible(3000);
    QVERIFY(writeFile(path, data));

    LN_DiskFile file(path);
    QCOMPARE(file.size(), qint64(data.size()));
    QCOMPARE(file.filename(), path);
    std::error_code ec;
    QString message;
    QVERIFY(file.open(ec, message));

    char head[10];
    QCOMPARE(file.read(head, sizeof head, ec, message), qint64(10));
    QByteArray rest;
    // readAll starts over with an empty array but not from the start of the file.
    rest = "stale";
    QCOMPARE(file.readAll(rest), qint64(data.size() - 10));
    QCOMPARE(QByteArray(head, 10) + rest, data);
    QCOMPARE(file.read(head, sizeof head), qint64(0));
}

void TestReadStreams::diskFileFailures_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("opens");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    QTest::newRow("missing") << u"{dir}/missing.json"_s << false << int(QFileDevice::OpenError)
                             << u"No such file or directory"_s;
    QTest::newRow("directory") << u"{dir}"_s << false << int(QFileDevice::OpenError)
                               << u"file to open is a directory"_s;
    QTest::newRow("unreadable content") << u"/proc/self/mem"_s << true << int(QFileDevice::ReadError)
                                        << u"Input/output error"_s;
}

void TestReadStreams::diskFileFailures()
{
    QFETCH(QString, path);
    QFETCH(bool, opens);
    QFETCH(int, code);
    QFETCH(QString, message);
    QTemporaryDir dir;

    LN_DiskFile file(QString(path).replace(u"{dir}"_s, dir.path()));
    std::error_code ec;
    QString text;
    QCOMPARE(file.open(ec, text), opens);
    if (opens) {
        QByteArray data;
        QVERIFY(file.readAll(data, ec, text) < 0);
    }
    QCOMPARE(&ec.category(), &QFileErrorCategory());
    QCOMPARE(ec.value(), code);
    QCOMPARE(text, message);
}

void TestReadStreams::archiveEntries_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("tar") << u"bsdtar"_s << QStringList{u"-cf"_s, u"archive"_s, u"data"_s, u"packages"_s};
    QTest::newRow("pax tar") << u"bsdtar"_s
                             << QStringList{u"--format=pax"_s, u"-cf"_s, u"archive"_s, u"data"_s, u"packages"_s};
    QTest::newRow("zip") << u"zip"_s << QStringList{u"-qr"_s, u"archive"_s, u"data"_s, u"packages"_s};
    QTest::newRow("zip, stored") << u"zip"_s << QStringList{u"-qr0"_s, u"archive"_s, u"data"_s, u"packages"_s};
}

void TestReadStreams::archiveEntries()
{
    QFETCH(QString, tool);
    QFETCH(QStringList, arguments);
    QTemporaryDir dir;
    QMap<QString, QByteArray> const files{
        {u"data/overview.json"_s, "{\"format version\": 1}"},
        {u"data/manifests/big.bin"_s, compressible(200000)},
        {u"data/données/é.txt"_s, "accented"},
        {u"data/empty"_s, QByteArray()},
        {u"packages/packages.json"_s, "[]"},
    };
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QVERIFY(writeFile(dir.filePath(it.key()), it.value()));
    QString const failure = run(dir.path(), tool, arguments);
    QVERIFY2(failure.isEmpty(), qPrintable(failure));
    QString const archivePath = dir.filePath(QFile::exists(dir.filePath(u"archive.zip"_s)) ? u"archive.zip"_s : u"archive"_s);

    ArchivePointer const a = openArchive(archivePath);
    QVERIFY(a);
    struct archive_entry * entry = nullptr;
    QMap<QString, QByteArray> found;
    while (archive_read_next_header(a.get(), &entry) == ARCHIVE_OK) {
        if (archive_entry_filetype(entry) != AE_IFREG)
            continue;
        LN_ArchiveFile file(a.get(), entry);
        std::error_code ec;
        QString message;
        QVERIFY(file.open(ec, message));
        QVERIFY2(files.contains(file.filename()), qPrintable(file.filename()));
        QCOMPARE(file.size(), qint64(files.value(file.filename()).size()));
        QByteArray data;
        qint64 const result = file.readAll(data, ec, message);
        QCOMPARE(result, qint64(data.size()));
        QCOMPARE(message, QString());
        found.insert(file.filename(), data);
    }
    QCOMPARE(found, files);
}

void TestReadStreams::damagedArchive_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("archiveName");
    QTest::addColumn<qint64>("flipAt");      // -1: nothing flipped
    QTest::addColumn<qint64>("truncateTo");  // -1: full length
    QTest::addColumn<QString>("message");

    // The member's data begins after a 512-byte header; cut in the middle of the second block.
    QTest::newRow("tar cut short") << u"bsdtar"_s << QStringList{u"-cf"_s, u"damaged"_s, u"big.bin"_s}
                                   << u"damaged"_s << qint64(-1) << qint64(512 + 1024 + 100)
                                   << u"Truncated tar archive"_s;
    // The local header is 30 bytes plus the name; flip bytes well inside the deflated data.
    QTest::newRow("zip with damaged data") << u"zip"_s << QStringList{u"-q"_s, u"damaged.zip"_s, u"big.bin"_s}
                                           << u"damaged.zip"_s << qint64(400) << qint64(-1)
                                           << u"ZIP decompression failed (-3)"_s;
}

void TestReadStreams::damagedArchive()
{
    QFETCH(QString, tool);
    QFETCH(QStringList, arguments);
    QFETCH(QString, archiveName);
    QFETCH(qint64, flipAt);
    QFETCH(qint64, truncateTo);
    QFETCH(QString, message);

    QTemporaryDir dir;
    QByteArray data;
    for (int i = 0; data.size() < 100000; ++i)
        data += QByteArray::number(i * 7919 % 100003) + ',';
    QVERIFY(writeFile(dir.filePath(u"big.bin"_s), data));
    QString const failure = run(dir.path(), tool, arguments);
    QVERIFY2(failure.isEmpty(), qPrintable(failure));
    QString const path = dir.filePath(archiveName);
    QVERIFY(damage(path, flipAt, truncateTo));

    ArchivePointer const a = openArchive(path);
    QVERIFY(a);
    struct archive_entry * entry = nullptr;
    QCOMPARE(archive_read_next_header(a.get(), &entry), ARCHIVE_OK);
    LN_ArchiveFile file(a.get(), entry);
    QCOMPARE(file.filename(), u"big.bin"_s);

    QByteArray read;
    std::error_code ec;
    QString text;
    QVERIFY(file.readAll(read, ec, text) < 0);
    QCOMPARE(ec, make_error_code(LN_FileError::ArchiveError));
    QCOMPARE(text, message);
    // What came before the damage stays with the caller.
    QVERIFY(read.size() < data.size());
    QVERIFY(data.startsWith(read));
}

QTEST_GUILESS_MAIN(TestReadStreams)
#include "tst_readstreams.moc"
