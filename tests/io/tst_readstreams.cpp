#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_ArchiveFile_p.h>
#include <draizu/io/LN_DiskFile.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <archive.h>
#include <archive_entry.h>

#include <memory>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::error_code)

namespace {

bool writeFile(QString const & path, QByteArray const & data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

// Numbers that deflate does not squeeze into a few bytes.
QByteArray numbers(qsizetype size)
{
    QByteArray data;
    for (int i = 0; data.size() < size; ++i)
        data += QByteArray::number(i * 7919 % 100003) + ',';
    return data;
}

} // namespace

class TestReadStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void diskFile_data();
    void diskFile();
    void archives_data();
    void archives();
};

void TestReadStreams::diskFile_data()
{
    QTest::addColumn<QString>("path");  // {dir} holds overview.json
    QTest::addColumn<std::error_code>("error");
    QTest::addColumn<QString>("message");

    std::error_code const openError(QFileDevice::OpenError, QFileErrorCategory());
    std::error_code const readError(QFileDevice::ReadError, QFileErrorCategory());
    QTest::newRow("whole file") << u"{dir}/overview.json"_s << std::error_code() << QString();
    QTest::newRow("missing") << u"{dir}/missing.json"_s << openError << u"No such file or directory"_s;
    QTest::newRow("directory") << u"{dir}"_s << openError << u"file to open is a directory"_s;
    QTest::newRow("unreadable content") << u"/proc/self/mem"_s << readError << u"Input/output error"_s;
}

void TestReadStreams::diskFile()
{
    QFETCH(QString, path);
    QFETCH(std::error_code, error);
    QFETCH(QString, message);
    QTemporaryDir dir;
    QByteArray const data = numbers(3000);
    QVERIFY(writeFile(dir.filePath(u"overview.json"_s), data));

    LN_DiskFile file(path.replace(u"{dir}"_s, dir.path()));
    std::error_code ec;
    QString text;
    // readAll goes on from where a read left off, into an array that it empties first.
    char head[10];
    QByteArray rest = "stale";
    bool const read = file.open(ec, text) && file.read(head, sizeof head, ec, text) == 10
                      && file.readAll(rest, ec, text) == data.size() - 10;
    QCOMPARE(text, message);
    QCOMPARE(ec, error);
    if (!error) {
        QVERIFY(read);
        QCOMPARE(QByteArray(head, 10) + rest, data);
        QCOMPARE(file.size(), qint64(data.size()));
        QCOMPARE(file.read(head, sizeof head), qint64(0));
    }
}

void TestReadStreams::archives_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<qint64>("flipAt");      // 16 bytes there are inverted; -1: none
    QTest::addColumn<qint64>("truncateTo");  // -1: full length
    QTest::addColumn<QString>("message");    // of the failure while reading "big.bin"

    QStringList const tar = {u"-cf"_s};
    QStringList const zip = {u"-qr"_s};
    QTest::newRow("tar") << u"bsdtar"_s << tar << qint64(-1) << qint64(-1) << QString();
    QTest::newRow("zip") << u"zip"_s << zip << qint64(-1) << qint64(-1) << QString();
    // "big.bin" is the first member. Its tar data begins after a 512-byte header: cut in the
    // middle of the second block. Its zip header is 30 bytes plus the name: flip bytes well
    // inside the deflated data.
    QTest::newRow("tar cut short") << u"bsdtar"_s << tar << qint64(-1) << qint64(512 + 1024 + 100)
                                   << u"Truncated tar archive"_s;
    QTest::newRow("zip with damaged data") << u"zip"_s << zip << qint64(400) << qint64(-1)
                                           << u"ZIP decompression failed (-3)"_s;
}

void TestReadStreams::archives()
{
    QFETCH(QString, tool);
    QFETCH(QStringList, options);
    QFETCH(qint64, flipAt);
    QFETCH(qint64, truncateTo);
    QFETCH(QString, message);
    QTemporaryDir dir;
    QMap<QString, QByteArray> const files{
        {u"big.bin"_s, numbers(100000)},
        {u"data/overview.json"_s, "{\"format version\": 1}"},
        {u"data/données/é.txt"_s, "accented"},
        {u"data/empty"_s, QByteArray()},
        {u"packages/packages.json"_s, "[]"},
    };
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QVERIFY(writeFile(dir.filePath(it.key()), it.value()));
    QProcess packer;
    packer.setWorkingDirectory(dir.path());
    packer.start(tool, options << u"a.zip"_s << u"big.bin"_s << u"data"_s << u"packages"_s);
    QVERIFY2(packer.waitForFinished(30000) && packer.exitStatus() == QProcess::NormalExit && packer.exitCode() == 0,
             qPrintable(packer.errorString() + QString::fromLocal8Bit(packer.readAllStandardError())));
    QFile archiveFile(dir.filePath(u"a.zip"_s));
    QVERIFY(archiveFile.open(QIODevice::ReadWrite));
    QByteArray bytes;
    if (flipAt >= 0 && archiveFile.seek(flipAt))
        bytes = archiveFile.read(16);
    for (char & byte : bytes)
        byte = static_cast<char>(~byte);
    QVERIFY(flipAt < 0 || (archiveFile.seek(flipAt) && archiveFile.write(bytes) == 16));
    QVERIFY(truncateTo < 0 || archiveFile.resize(truncateTo));
    archiveFile.close();

    // Opened the way the library's opener opens offline installers: no outer filter.
    std::unique_ptr<struct archive, decltype(&archive_read_free)> const a(archive_read_new(), &archive_read_free);
    archive_read_support_filter_none(a.get());
    archive_read_support_format_all(a.get());
    QByteArray const name = QFile::encodeName(archiveFile.fileName());
    QCOMPARE(archive_read_open_filename(a.get(), name.constData(), 10240), ARCHIVE_OK);
    struct archive_entry * entry = nullptr;
    QMap<QString, QByteArray> found;
    std::error_code ec;
    QString text;
    while (text.isEmpty() && archive_read_next_header(a.get(), &entry) == ARCHIVE_OK) {
        if (archive_entry_filetype(entry) != AE_IFREG)
            continue;
        LN_ArchiveFile file(a.get(), entry);
        QVERIFY(file.open(ec, text));
        QCOMPARE(file.size(), qint64(files.value(file.filename()).size()));
        QByteArray data;
        qint64 const result = file.readAll(data, ec, text);
        QVERIFY(text.isEmpty() ? result == data.size() : result < 0);
        found.insert(file.filename(), data);
    }
    QCOMPARE(text, message);
    if (message.isEmpty()) {
        QCOMPARE(found, files);
        return;
    }
    // What came before the damage stays with the caller.
    QCOMPARE(ec, make_error_code(LN_FileError::ArchiveError));
    QCOMPARE(found.keys(), QStringList{u"big.bin"_s});
    QVERIFY(found.first().size() < files.first().size());
    QVERIFY(files.first().startsWith(found.first()));
}

QTEST_GUILESS_MAIN(TestReadStreams)
#include "tst_readstreams.moc"
