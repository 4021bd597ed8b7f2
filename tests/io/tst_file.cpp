#include <draizu/core/LN_Exception.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_File.h>

#include <QDir>
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

// Makes the scene in a temporary directory and gives the path to create.
using Setup = std::function<QString(QString const & dir)>;
// Runs one operation and gives its error.
using Operation = std::function<LN_ErrorStruct()>;
using ThrowingOperation = std::function<void()>;
Q_DECLARE_METATYPE(Setup)
Q_DECLARE_METATYPE(Operation)
Q_DECLARE_METATYPE(ThrowingOperation)

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

bool isOpenDescriptor(int fd)
{
    return ::fcntl(fd, F_GETFD) != -1;
}

// A pipe whose write end accepts exactly one page before it would block.
struct SmallPipe
{
    int fds[2] = {-1, -1};
    SmallPipe()
    {
        if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0)
            ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
    }
    ~SmallPipe()
    {
        for (int fd : fds) {
            if (fd >= 0)
                ::close(fd);
        }
    }
};

} // namespace

class TestFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createWritesAndCloses_data();
    void createWritesAndCloses();
    void createMakesMissingDirectories();
    void createFailures_data();
    void createFailures();
    void operationFailures_data();
    void operationFailures();
    void writeCounts_data();
    void writeCounts();
    void moveTransfersOwnership();

    void exceptionFileWorks();
    void exceptionFileFailures_data();
    void exceptionFileFailures();
};

void TestFile::createWritesAndCloses_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("expectedMode");

    mode_t const mask = ::umask(0);
    ::umask(mask);
    QTest::newRow("default mode") << -1 << int(0644 & ~mask);
    QTest::newRow("private, exactly") << 0600 << 0600;
    QTest::newRow("wider than the umask, exactly") << 0666 << 0666;
}

void TestFile::createWritesAndCloses()
{
    QFETCH(int, mode);
    QFETCH(int, expectedMode);
    QTemporaryDir dir;
    QString const path = dir.filePath(u"new.json"_s);

    LN_SecurityAttributes attributes;
    attributes.mode = mode;
    attributes.owner = static_cast<std::int64_t>(::geteuid());
    LN_SecurityAttributes const * fileAttributes = &attributes;
    LN_SecurityAttributes const * noAttributes = nullptr;
    LN_Result<LN_File> created = LN_File::createFileWithOwner(path, fileAttributes, noAttributes, true);
    QVERIFY2(!created.isError(), qPrintable(created.error.message));
    QCOMPARE(permissions(path), expectedMode);

    QByteArray const data = "{\"a\":1}";
    LN_Result<unsigned long> const written = created.value.write(data.constData(), data.size(), true);
    QVERIFY(!written.isError());
    QCOMPARE(written.value, static_cast<unsigned long>(data.size()));
    QVERIFY(!created.value.flush().isError());
    QVERIFY(!created.value.close().isError());
    QCOMPARE(contents(path), data);
}

void TestFile::createMakesMissingDirectories()
{
    QTemporaryDir dir;
    QString const path = dir.filePath(u"one/two/file.bin"_s);
    LN_SecurityAttributes directoryAttributes;
    directoryAttributes.mode = 0700;
    LN_SecurityAttributes const * fileAttributes = nullptr;
    LN_SecurityAttributes const * directories = &directoryAttributes;

    LN_Result<LN_File> created = LN_File::createFileWithOwner(path, fileAttributes, directories, false);
    QVERIFY2(!created.isError(), qPrintable(created.error.message));
    QVERIFY(QFileInfo(path).isFile());
    QCOMPARE(permissions(dir.filePath(u"one"_s)), 0700);
    QCOMPARE(permissions(dir.filePath(u"one/two"_s)), 0700);
}

void TestFile::createFailures_data()
{
    QTest::addColumn<Setup>("setup");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");  // {path} is the path asked for, {dir} the temporary directory

    QTest::newRow("existing file is left alone") << Setup([](QString const & dir) -> QString {
        QFile file(dir + u"/taken"_s);
        if (file.open(QIODevice::WriteOnly))
            file.write("old");
        return file.fileName();
    }) << EEXIST << u"Failed to create file {path}: "_s + systemText(EEXIST);
    QTest::newRow("parent is a file") << Setup([](QString const & dir) -> QString {
        QFile file(dir + u"/plain"_s);
        if (file.open(QIODevice::WriteOnly))
            file.write("old");
        return dir + u"/plain/new"_s;
    }) << ENOTDIR << u"Failed to create file {path}: "_s + systemText(ENOTDIR);
    QTest::newRow("directory error returned as it stands") << Setup([](QString const & dir) -> QString {
        // A dangling link: the file's directory is missing, yet cannot be made.
        QFile::link(dir + u"/nowhere/deeper"_s, dir + u"/link"_s);
        return dir + u"/link/new"_s;
    }) << EEXIST << u"Failed to create {dir}/link/: "_s + systemText(EEXIST);
}

void TestFile::createFailures()
{
    QFETCH(Setup, setup);
    QFETCH(int, code);
    QFETCH(QString, message);
    QTemporaryDir dir;
    QString const path = setup(dir.path());
    QByteArray const before = contents(path);

    LN_SecurityAttributes const * none = nullptr;
    LN_Result<LN_File> const created = LN_File::createFileWithOwner(path, none, none, false);
    QVERIFY(created.isError());
    QCOMPARE(&created.error.code.category(), &std::generic_category());
    QCOMPARE(created.error.code.value(), code);
    QCOMPARE(created.error.message, QString(message).replace(u"{path}"_s, path).replace(u"{dir}"_s, dir.path()));
    QCOMPARE(contents(path), before);
}

void TestFile::operationFailures_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("message");

    QTest::newRow("close twice") << Operation([] {
        LN_File file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        file.close();
        return file.close();
    }) << u"Failed to close file: "_s + systemText(EBADF);
    QTest::newRow("close named, never opened") << Operation([] {
        return LN_File(LN_InvalidNativeHandle, u"settings.ini"_s).close();
    }) << u"Failed to close \"settings.ini\": "_s + systemText(EBADF);
    QTest::newRow("flush a pipe") << Operation([] {
        SmallPipe pipe;
        LN_File file(std::exchange(pipe.fds[1], -1));
        return file.flush();
    }) << u"Failed to flush file: "_s + systemText(EINVAL);
    QTest::newRow("read a created file") << Operation([] {
        QTemporaryDir dir;
        LN_SecurityAttributes const * none = nullptr;
        LN_Result<LN_File> created = LN_File::createFileWithOwner(dir.filePath(u"w"_s), none, none, false);
        char buffer[4];
        LN_Result<unsigned long> const read = created.value.read(buffer, sizeof buffer);
        return read.value == 0 ? read.error : LN_ErrorStruct();
    }) << u"Failed to read file: "_s + systemText(EBADF);
    QTest::newRow("write a full device") << Operation([] {
        LN_File file(::open("/dev/full", O_WRONLY | O_CLOEXEC), u"/dev/full"_s);
        LN_Result<unsigned long> const written = file.write("abc", 3, true);
        return written.value == 0 ? written.error : LN_ErrorStruct();
    }) << u"Failed to write \"/dev/full\": "_s + systemText(ENOSPC);
}

void TestFile::operationFailures()
{
    QFETCH(Operation, operation);
    QFETCH(QString, message);
    LN_ErrorStruct const error = operation();
    QVERIFY(error.isError());
    QCOMPARE(&error.code.category(), &std::generic_category());
    QCOMPARE(error.message, message);
}

void TestFile::writeCounts_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("writeAll");
    QTest::addColumn<unsigned long>("count");
    QTest::addColumn<QString>("message");

    QTest::newRow("fits") << 1000 << true << 1000ul << QString();
    QTest::newRow("nothing") << 0 << true << 0ul << QString();
    QTest::newRow("short write, once") << 10000 << false << 4096ul << QString();
    QTest::newRow("short write, all: counted up to the failure")
        << 10000 << true << 4096ul << u"Failed to write file: "_s + systemText(EAGAIN);
}

void TestFile::writeCounts()
{
    QFETCH(int, size);
    QFETCH(bool, writeAll);
    QFETCH(unsigned long, count);
    QFETCH(QString, message);

    SmallPipe pipe;
    QCOMPARE(::fcntl(pipe.fds[1], F_GETPIPE_SZ), 4096);
    QByteArray const data(size, 'x');
    LN_File file(std::exchange(pipe.fds[1], -1));
    LN_Result<unsigned long> const written = file.write(data.constData(), data.size(), writeAll);
    QCOMPARE(written.error.message, message);
    QCOMPARE(written.value, count);

    QByteArray received(size + 1, '\0');
    ssize_t const got = ::read(pipe.fds[0], received.data(), received.size());
    QCOMPARE(static_cast<unsigned long>(std::max<ssize_t>(got, 0)), count);
}

void TestFile::moveTransfersOwnership()
{
    int const first = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    int const second = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    {
        LN_File target(second, u"second"_s);
        {
            LN_File source(first, u"first"_s);
            LN_File moved(std::move(source));
            {
                LN_File gone(std::move(moved));
            }
            QVERIFY(!isOpenDescriptor(first));

            // Taking over a file closes the one held before.
            LN_File fresh(::open("/dev/null", O_RDONLY | O_CLOEXEC));
            target = std::move(fresh);
            QVERIFY(!isOpenDescriptor(second));
            QCOMPARE(fresh.close().message, u"Failed to close file: "_s + systemText(EBADF));
        }
    }
}

void TestFile::exceptionFileWorks()
{
    QTemporaryDir dir;
    QString const path = dir.filePath(u"data.json"_s);
    {
        LN_ExceptionFile file(path, QIODevice::WriteOnly);
        QCOMPARE(file.write("0123456789"), qint64(10));
        file.resize(4);
        QCOMPARE(file.size(), qint64(4));
    }
    LN_ExceptionFile file(path, QIODevice::ReadOnly);
    QCOMPARE(file.filename(), path);
    QCOMPARE(file.readAll(), QByteArray("0123"));
    QCOMPARE(file.read(3), QByteArray());
    file.seek(1);
    QCOMPARE(file.read(2), QByteArray("12"));
    file.close();
    QVERIFY(!file.isOpen());

    QByteArray const big(5000, 'z');
    {
        LN_ExceptionFile out(path, QIODevice::WriteOnly);
        out.write(big);
    }
    QCOMPARE(LN_ExceptionFile(path, QIODevice::ReadOnly).readAll(), big);
}

void TestFile::exceptionFileFailures_data()
{
    QTest::addColumn<ThrowingOperation>("operation");
    QTest::addColumn<QString>("message");  // %1 is the temporary directory

    QTest::newRow("open missing") << ThrowingOperation([] {
        LN_ExceptionFile(u"/nonexistent/overview.json"_s, QIODevice::ReadOnly);
    }) << u"Unable to open /nonexistent/overview.json: No such file or directory"_s;
    QTest::newRow("read fails") << ThrowingOperation([] {
        LN_ExceptionFile(u"/proc/self/mem"_s, QIODevice::ReadOnly).read(16);
    }) << u"Error reading /proc/self/mem: Input/output error"_s;
    QTest::newRow("readAll fails") << ThrowingOperation([] {
        LN_ExceptionFile(u"/proc/self/mem"_s, QIODevice::ReadOnly).readAll();
    }) << u"Error reading /proc/self/mem: Input/output error"_s;
    QTest::newRow("resize read-only") << ThrowingOperation([] {
        LN_ExceptionFile(u"/dev/null"_s, QIODevice::ReadOnly).resize(10);
    }) << u"Unable to resize /dev/null: Invalid argument"_s;
    QTest::newRow("seek before start") << ThrowingOperation([] {
        LN_ExceptionFile(u"/dev/null"_s, QIODevice::ReadOnly).seek(-1);
    }) << u"Unable to seek in /dev/null: Unknown error"_s;
    QTest::newRow("write to a full device") << ThrowingOperation([] {
        LN_ExceptionFile(u"/dev/full"_s, QIODevice::WriteOnly | QIODevice::Unbuffered).write("data");
    }) << u"Unable to write to /dev/full: No space left on device"_s;
}

void TestFile::exceptionFileFailures()
{
    QFETCH(ThrowingOperation, operation);
    QFETCH(QString, message);
    QString caught;
    try {
        operation();
    } catch (LN_Exception const & e) {
        caught = QString::fromUtf8(e.what());
    }
    QCOMPARE(caught, message);
}

QTEST_GUILESS_MAIN(TestFile)
#include "tst_file.moc"
