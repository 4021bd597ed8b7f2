#include <draizu/core/LN_Exception.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_File.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Runs one operation and gives the text of its failure (returned, or thrown as LN_Exception),
// and of the outcome where it tells more.
using Operation = std::function<QString()>;
Q_DECLARE_METATYPE(Operation)

namespace {

QString systemText(int error)
{
    return QString::fromLocal8Bit(strerror(error)) + u" (Error %1)"_s.arg(error);
}

int permissions(QString const & path)
{
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return -1;
    return static_cast<int>(status.st_mode & 07777);
}

QByteArray contents(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

// A pipe whose write end accepts exactly one page before it would block.
struct SmallPipe
{
    LN_File reader;
    LN_File writer;
};

SmallPipe smallPipe()
{
    int fds[2] = {-1, -1};
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0)
        ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
    return {LN_File(fds[0]), LN_File(fds[1])};
}

// Writes more than a small pipe takes: the failure, the count and what arrived.
QString writeToPipe(bool writeAll)
{
    SmallPipe pipe = smallPipe();
    QByteArray data(10000, 'x');
    LN_Result<unsigned long> const written = pipe.writer.write(data.constData(), data.size(), writeAll);
    unsigned long const arrived = pipe.reader.read(data.data(), data.size()).value;
    return u"%1%2 written, %3 arrived"_s.arg(written.error.message).arg(written.value).arg(arrived);
}

} // namespace

class TestFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createWritesAndCloses_data();
    void createWritesAndCloses();
    void createFailures_data();
    void createFailures();
    void failures_data();
    void failures();
    void moveTransfersOwnership();
    void exceptionFileWorks();
};

void TestFile::createWritesAndCloses_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("expectedMode");

    mode_t const mask = ::umask(0);
    ::umask(mask);
    QTest::newRow("default mode") << u"new.json"_s << -1 << int(0644 & ~mask);
    QTest::newRow("wider than the umask, exactly") << u"new.json"_s << 0666 << 0666;
    QTest::newRow("missing directories made as asked") << u"one/two/new.json"_s << 0600 << 0600;
}

void TestFile::createWritesAndCloses()
{
    QFETCH(QString, name);
    QFETCH(int, mode);
    QFETCH(int, expectedMode);
    QTemporaryDir dir;
    QString const path = dir.filePath(name);

    LN_SecurityAttributes const attributes{mode, static_cast<std::int64_t>(::geteuid())};
    LN_SecurityAttributes const directories{0700};
    LN_Result<LN_File> created = LN_File::createFileWithOwner(path, &attributes, &directories, true);
    QVERIFY2(!created.isError(), qPrintable(created.error.message));
    QCOMPARE(permissions(path), expectedMode);
    for (QString parent = QFileInfo(name).path(); parent != u"."_s; parent = QFileInfo(parent).path())
        QCOMPARE(permissions(dir.filePath(parent)), 0700);

    QByteArray const data = "{\"a\":1}";
    LN_Result<unsigned long> const written = created.value.write(data.constData(), data.size(), true);
    QVERIFY(!written.isError());
    QCOMPARE(written.value, static_cast<unsigned long>(data.size()));
    QVERIFY(!created.value.flush().isError());
    QVERIFY(!created.value.close().isError());
    QCOMPARE(contents(path), data);
}

void TestFile::createFailures_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");  // {path} is the path asked for, {dir} the temporary directory

    QString const failed = u"Failed to create file {path}: "_s;
    QTest::newRow("existing file is left alone") << u"plain"_s << EEXIST << failed + systemText(EEXIST);
    QTest::newRow("parent is a file") << u"plain/new"_s << ENOTDIR << failed + systemText(ENOTDIR);
    // The file's directory is missing, yet cannot be made.
    QTest::newRow("directory error returned as it stands") << u"link/new"_s << EEXIST
                                                          << u"Failed to create {dir}/link/: "_s + systemText(EEXIST);
}

void TestFile::createFailures()
{
    QFETCH(QString, name);
    QFETCH(int, code);
    QFETCH(QString, message);
    // Every scene holds a plain file and a dangling link.
    QTemporaryDir dir;
    QFile plain(dir.filePath(u"plain"_s));
    QVERIFY(plain.open(QIODevice::WriteOnly) && plain.write("old") == 3);
    plain.close();
    QVERIFY(QFile::link(dir.filePath(u"nowhere/deeper"_s), dir.filePath(u"link"_s)));
    QString const path = dir.filePath(name);
    QByteArray const before = contents(path);

    LN_Result<LN_File> const created = LN_File::createFileWithOwner(path, nullptr, nullptr, false);
    QVERIFY(created.isError());
    QCOMPARE(created.error.code, std::error_code(code, std::generic_category()));
    QCOMPARE(created.error.message, QString(message).replace(u"{path}"_s, path).replace(u"{dir}"_s, dir.path()));
    QCOMPARE(contents(path), before);
}

void TestFile::failures_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("message");

    // A file knows its name only when it was given one.
    QTest::newRow("close named, never opened") << Operation([] {
        return LN_File(LN_InvalidNativeHandle, u"settings.ini"_s).close().message;
    }) << u"Failed to close \"settings.ini\": "_s + systemText(EBADF);
    QTest::newRow("flush a pipe") << Operation([] { return smallPipe().writer.flush().message; })
                                  << u"Failed to flush file: "_s + systemText(EINVAL);
    QTest::newRow("read a created file") << Operation([] {
        QTemporaryDir dir;
        LN_Result<LN_File> created = LN_File::createFileWithOwner(dir.filePath(u"w"_s), nullptr, nullptr, false);
        char buffer[4];
        return created.isError() ? created.error.message : created.value.read(buffer, sizeof buffer).error.message;
    }) << u"Failed to read file: "_s + systemText(EBADF);
    QTest::newRow("short write, once") << Operation([] { return writeToPipe(false); })
                                       << u"4096 written, 4096 arrived"_s;
    QTest::newRow("short write, all: counted up to the failure") << Operation([] { return writeToPipe(true); })
        << u"Failed to write file: "_s + systemText(EAGAIN) + u"4096 written, 4096 arrived"_s;
    QTest::newRow("write a full device") << Operation([] {
        return LN_File(::open("/dev/full", O_WRONLY | O_CLOEXEC), u"/dev/full"_s).write("abc", 3, true).error.message;
    }) << u"Failed to write \"/dev/full\": "_s + systemText(ENOSPC);

    QTest::newRow("exception file, open missing") << Operation([] {
        LN_ExceptionFile(u"/nonexistent/overview.json"_s, QIODevice::ReadOnly);
        return QString();
    }) << u"Unable to open /nonexistent/overview.json: No such file or directory"_s;
    QTest::newRow("exception file, read fails") << Operation([] {
        return QString::fromLatin1(LN_ExceptionFile(u"/proc/self/mem"_s, QIODevice::ReadOnly).read(16));
    }) << u"Error reading /proc/self/mem: Input/output error"_s;
    QTest::newRow("exception file, readAll fails") << Operation([] {
        return QString::fromLatin1(LN_ExceptionFile(u"/proc/self/mem"_s, QIODevice::ReadOnly).readAll());
    }) << u"Error reading /proc/self/mem: Input/output error"_s;
    QTest::newRow("exception file, resize read-only") << Operation([] {
        return QString::number(LN_ExceptionFile(u"/dev/null"_s, QIODevice::ReadOnly).resize(10));
    }) << u"Unable to resize /dev/null: Invalid argument"_s;
    QTest::newRow("exception file, seek before start") << Operation([] {
        return QString::number(LN_ExceptionFile(u"/dev/null"_s, QIODevice::ReadOnly).seek(-1));
    }) << u"Unable to seek in /dev/null: Unknown error"_s;
    QTest::newRow("exception file, write to a full device") << Operation([] {
        LN_ExceptionFile file(u"/dev/full"_s, QIODevice::WriteOnly | QIODevice::Unbuffered);
        return QString::number(file.write("data"));
    }) << u"Unable to write to /dev/full: No space left on device"_s;
}

void TestFile::failures()
{
    QFETCH(Operation, operation);
    QFETCH(QString, message);
    QString failure;
    try {
        failure = operation();
    } catch (LN_Exception const & e) {
        failure = QString::fromUtf8(e.what());
    }
    QCOMPARE(failure, message);
}

void TestFile::moveTransfersOwnership()
{
    int const first = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    int const second = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    LN_File target(second, u"second"_s);
    {
        LN_File source(first, u"first"_s);
        LN_File moved(std::move(source));
        LN_File gone(std::move(moved));
    }
    QCOMPARE(::fcntl(first, F_GETFD), -1);

    // Taking over a file closes the one held before; the file moved from holds none.
    LN_File fresh(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    target = std::move(fresh);
    QCOMPARE(::fcntl(second, F_GETFD), -1);
    QCOMPARE(fresh.close().message, u"Failed to close file: "_s + systemText(EBADF));
}

void TestFile::exceptionFileWorks()
{
    QTemporaryDir dir;
    QString const path = dir.filePath(u"data.json"_s);
    QByteArray big;
    for (int i = 0; big.size() < 5000; ++i)
        big += QByteArray::number(i) + ',';
    QCOMPARE(LN_ExceptionFile(path, QIODevice::WriteOnly).write(big), qint64(big.size()));
    // More than one piece of readAll; reads are as long as what they got.
    LN_ExceptionFile file(path, QIODevice::ReadOnly);
    QCOMPARE(file.readAll(), big);
    QCOMPARE(file.read(3), QByteArray());
    file.seek(1);
    QCOMPARE(file.read(2), big.mid(1, 2));
}

QTEST_GUILESS_MAIN(TestFile)
#include "tst_file.moc"
