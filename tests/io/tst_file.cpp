#include <draizu/core/LN_Exception.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_File.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Runs one operation and tells its outcome, or the text of its failure, returned or thrown as
// LN_Exception.
using Operation = std::function<QString()>;
Q_DECLARE_METATYPE(Operation)

namespace {

QString systemText(int error)
{
    return QString::fromLocal8Bit(strerror(error)) + u" (Error %1)"_s.arg(error);
}

QString contents(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : u"none"_s;
}

QString mode(QString const & path)
{
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? QString::number(status.st_mode & 07777, 8)
                                                                     : u"none"_s;
}

// Creates `name` with `fileMode` and directories of 0700 beside a plain file "plain" and a
// dangling link "link", reads from it and writes to it: the failures, the count written, the
// modes of the file and of its directory, and what the file holds. A failure to create reads as
// its message and what "plain" holds.
QString create(QString const & name, int fileMode)
{
    QTemporaryDir dir;
    QFile plain(dir.filePath(u"plain"_s));
    if (!plain.open(QIODevice::WriteOnly) || plain.write("old") != 3
        || !QFile::link(dir.filePath(u"nowhere/deeper"_s), dir.filePath(u"link"_s)))
        return u"no scene"_s;
    plain.close();
    LN_SecurityAttributes const attributes{fileMode, static_cast<std::int64_t>(::geteuid())};
    LN_SecurityAttributes const directories{0700};
    QString const path = dir.filePath(name);
    LN_Result<LN_File> created = LN_File::createFileWithOwner(path, &attributes, &directories, true);
    if (created.isError())
        return created.error.message.replace(dir.path(), u"{dir}"_s) + u", plain "_s + contents(plain.fileName());
    char byte = 0;
    QString const read = created.value.read(&byte, 1).error.message;
    LN_Result<unsigned long> const written = created.value.write("{}", 2, true);
    QString const flushed = created.value.flush().message;
    return read + written.error.message + flushed + created.value.close().message
           + u"%1 %2 %3 "_s.arg(written.value).arg(mode(path), mode(QFileInfo(path).path())) + contents(path);
}

// A pipe whose write end takes exactly one page before it would block.
std::pair<LN_File, LN_File> smallPipe()
{
    int fds[2] = {-1, -1};
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0)
        ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
    return {LN_File(fds[0]), LN_File(fds[1])};
}

// Writes more than a small pipe takes: the failure, the count and what arrived.
QString writeToPipe(bool writeAll)
{
    auto [reader, writer] = smallPipe();
    QByteArray data(10000, 'x');
    LN_Result<unsigned long> const written = writer.write(data.constData(), data.size(), writeAll);
    return u"%1%2 written, %3 arrived"_s.arg(written.error.message).arg(written.value)
        .arg(reader.read(data.data(), data.size()).value);
}

// Hands files over by moves: whether each descriptor is still open, and what closing the
// LN_File moved from says.
QString move()
{
    int const first = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    int const second = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    QString told;
    {
        LN_File target(second, u"second"_s);
        LN_File source(first, u"first"_s);
        target = std::move(source);
        LN_File moved(std::move(target));
        told = u"%1 %2, "_s.arg(::fcntl(first, F_GETFD) != -1).arg(::fcntl(second, F_GETFD) != -1)
               + source.close().message;
    }
    return told + u", %1"_s.arg(::fcntl(first, F_GETFD) != -1);
}

} // namespace

class TestFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ::umask(022); }
    void operations_data();
    void operations();
};

void TestFile::operations_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("outcome");

    auto const row = [](char const * name, Operation const & operation, QString const & outcome) {
        QTest::newRow(name) << operation << outcome;
    };
    // Created for writing alone, and with no name kept.
    QString const unreadable = u"Failed to read file: "_s + systemText(EBADF);
    row("created with the default mode", [] { return create(u"new"_s, -1); }, unreadable + u"2 644 700 {}"_s);
    row("created with a mode beyond the umask", [] { return create(u"new"_s, 0666); }, unreadable + u"2 666 700 {}"_s);
    row("created with missing directories", [] { return create(u"one/two/new"_s, 0600); },
        unreadable + u"2 600 700 {}"_s);
    row("existing file is left alone", [] { return create(u"plain"_s, -1); },
        u"Failed to create file {dir}/plain: "_s + systemText(EEXIST) + u", plain old"_s);
    row("parent is a file", [] { return create(u"plain/new"_s, -1); },
        u"Failed to create file {dir}/plain/new: "_s + systemText(ENOTDIR) + u", plain old"_s);
    // The file's directory is missing, yet cannot be made: that error is returned as it stands.
    row("directory that cannot be made", [] { return create(u"link/new"_s, -1); },
        u"Failed to create {dir}/link/: "_s + systemText(EEXIST) + u", plain old"_s);

    // A file knows its name only when it was given one.
    row("close named, never opened", [] { return LN_File(LN_InvalidNativeHandle, u"settings.ini"_s).close().message; },
        u"Failed to close \"settings.ini\": "_s + systemText(EBADF));
    row("flush a pipe", [] { return smallPipe().second.flush().message; },
        u"Failed to flush file: "_s + systemText(EINVAL));
    row("short write, once", [] { return writeToPipe(false); }, u"4096 written, 4096 arrived"_s);
    row("short write, all: counted up to the failure", [] { return writeToPipe(true); },
        u"Failed to write file: "_s + systemText(EAGAIN) + u"4096 written, 4096 arrived"_s);
    // The file moved to last closes the descriptor; taking one over closes the one held before.
    row("moves hand the file over", move, u"1 0, Failed to close file: "_s + systemText(EBADF) + u", 0"_s);

    // The exception file throws its failures, with the file's name and Qt's text.
    QString const mem = u"/proc/self/mem"_s;
    constexpr auto in = QIODevice::ReadOnly;
    row("exception file, open", [] { return LN_ExceptionFile(u"/nonexistent/x"_s, in).filename(); },
        u"Unable to open /nonexistent/x: No such file or directory"_s);
    row("exception file, read", [mem] { return QString::fromLatin1(LN_ExceptionFile(mem, in).read(16)); },
        u"Error reading /proc/self/mem: Input/output error"_s);
    row("exception file, readAll", [mem] { return QString::fromLatin1(LN_ExceptionFile(mem, in).readAll()); },
        u"Error reading /proc/self/mem: Input/output error"_s);
    row("exception file, resize", [] { return QString::number(LN_ExceptionFile(u"/dev/null"_s, in).resize(10)); },
        u"Unable to resize /dev/null: Invalid argument"_s);
    row("exception file, seek", [] { return QString::number(LN_ExceptionFile(u"/dev/null"_s, in).seek(-1)); },
        u"Unable to seek in /dev/null: Unknown error"_s);
    row("exception file, write", [] {
        LN_ExceptionFile full(u"/dev/full"_s, QIODevice::WriteOnly | QIODevice::Unbuffered);
        return QString::number(full.write("x"));
    }, u"Unable to write to /dev/full: No space left on device"_s);
    // readAll takes more than one piece; a read is as long as what it got.
    row("exception file round trip", []() -> QString {
        QTemporaryDir dir;
        QByteArray const data = QByteArray(3000, 'a') + QByteArray(3000, 'b');
        qint64 const written = LN_ExceptionFile(dir.filePath(u"f"_s), QIODevice::WriteOnly).write(data);
        LN_ExceptionFile file(dir.filePath(u"f"_s), QIODevice::ReadOnly);
        QString const told = u"%1 %2 %3 "_s.arg(written).arg(file.readAll() == data).arg(file.read(3).size());
        file.seek(2999);
        return told + QString::fromLatin1(file.read(2));
    }, u"6000 1 0 ab"_s);
}

void TestFile::operations()
{
    QFETCH(Operation, operation);
    QFETCH(QString, outcome);
    QString told;
    try {
        told = operation();
    } catch (LN_Exception const & e) {
        told = QString::fromUtf8(e.what());
    }
    QCOMPARE(told, outcome);
}

QTEST_GUILESS_MAIN(TestFile)
#include "tst_file.moc"
