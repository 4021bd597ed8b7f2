#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_ArchiveFile_p.h>

#include <support/OfflineInstaller.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <archive.h>
#include <archive_entry.h>

#include <memory>

using namespace Qt::StringLiterals;

// Whole entries and files are read through the file opener in its test; here are reads of many
// pieces and the failures of damaged archives.

class TestReadStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void archiveEntry_data();
    void archiveEntry();
};

void TestReadStreams::archiveEntry_data()
{
    QTest::addColumn<QString>("archive");
    QTest::addColumn<qint64>("flipAt");      // 16 bytes there are inverted; -1: none
    QTest::addColumn<qint64>("truncateTo");  // -1: full length
    QTest::addColumn<QString>("failure");

    QTest::newRow("tar") << u"a.tar"_s << qint64(-1) << qint64(-1) << QString();
    QTest::newRow("zip") << u"a.zip"_s << qint64(-1) << qint64(-1) << QString();
    // The data begins after a 512-byte tar header: cut in the middle of the second block. The
    // zip header is 30 bytes plus the name: flip bytes well inside the deflated data.
    QTest::newRow("tar cut short") << u"a.tar"_s << qint64(-1) << qint64(512 + 1024 + 100)
                                   << u"Truncated tar archive"_s;
    QTest::newRow("zip with damaged data") << u"a.zip"_s << qint64(400) << qint64(-1)
                                           << u"ZIP decompression failed (-3)"_s;
}

void TestReadStreams::archiveEntry()
{
    QFETCH(QString, archive);
    QFETCH(qint64, flipAt);
    QFETCH(qint64, truncateTo);
    QFETCH(QString, failure);

    // Numbers that deflate does not squeeze into a few bytes.
    QByteArray data;
    for (int i = 0; data.size() < 100000; ++i)
        data += QByteArray::number(i * 7919 % 100003) + ',';
    QTemporaryDir dir;
    QFile file(dir.filePath(archive));
    QVERIFY(OfflineInstaller::make(file.fileName(), {{u"big.bin"_s, data}}) && file.open(QIODevice::ReadWrite));
    QByteArray bytes = flipAt < 0 ? QByteArray() : (file.seek(flipAt), file.read(16));
    for (char & byte : bytes)
        byte = static_cast<char>(~byte);
    QVERIFY(flipAt < 0 || (file.seek(flipAt) && file.write(bytes) == 16));
    QVERIFY(truncateTo < 0 || file.resize(truncateTo));
    file.close();

    // Opened the way the library opens offline installers: no outer filter.
    std::unique_ptr<struct archive, decltype(&archive_read_free)> const a(archive_read_new(), &archive_read_free);
    archive_read_support_filter_none(a.get());
    archive_read_support_format_all(a.get());
    struct archive_entry * entry = nullptr;
    QCOMPARE(archive_read_open_filename(a.get(), QFile::encodeName(file.fileName()).constData(), 10240), ARCHIVE_OK);
    QCOMPARE(archive_read_next_header(a.get(), &entry), ARCHIVE_OK);
    LN_ArchiveFile stream(a.get(), entry);
    // readAll goes on from where a read left off, into an array that it empties first.
    std::error_code ec;
    QString message;
    char head[10] = {};
    QByteArray rest = "stale";
    QVERIFY(stream.open(ec, message));
    qint64 const first = stream.read(head, sizeof head, ec, message);
    qint64 const result = first == 10 ? stream.readAll(rest, ec, message) : first;
    QCOMPARE(message, failure);
    if (failure.isEmpty()) {
        QCOMPARE(QByteArray(head, 10) + rest, data);
        QCOMPARE(result, data.size() - 10);
        QCOMPARE(stream.size(), qint64(data.size()));
        QCOMPARE(stream.read(head, sizeof head), qint64(0));
        return;
    }
    // What came before the damage stays with the caller.
    QVERIFY(result < 0 && ec == make_error_code(LN_FileError::ArchiveError));
    QVERIFY(first != 10 || (rest.size() < data.size() - 10 && data.mid(10).startsWith(rest)));
}

QTEST_GUILESS_MAIN(TestReadStreams)
#include "tst_readstreams.moc"
