#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_File.h>

#include <support/ThrownBy.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <functional>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// One operation: its outcome, or the text of the LN_Exception it throws.
using Operation = std::function<QString()>;
Q_DECLARE_METATYPE(Operation)

namespace {

QString systemText(int error) { return QString::fromLocal8Bit(strerror(error)) + u" (Error %1)"_s.arg(error); }

// The permission bits of a file and what it holds, "none" for what cannot be had.
QString state(QString const & path)
{
    struct stat status {};
    QFile file(path);
    QString const mode = ::stat(QFile::encodeName(path).constData(), &status) == 0
                             ? QString::number(status.st_mode & 07777, 8) : u"none"_s;
    return mode + u' ' + (file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : u"none"_s);
}

// Creates `name` with `fileMode`, and directories with 0700, beside a file "plain" and a
// dangling link "link", then reads from it and writes to it: the failures, the count written
// and the states of the file and of its directory; or the failure to create and the state of
// "plain".
QString create(QString const & name, int fileMode)
{
    QTemporaryDir dir;
    LN_ExceptionFile(dir.filePath(u"plain"_s), QIODevice::WriteOnly).write("old");
    QFile::link(dir.filePath(u"nowhere/deeper"_s), dir.filePath(u"link"_s));
    LN_SecurityAttributes const attributes{fileMode, static_cast<std::int64_t>(::geteuid())};
    LN_SecurityAttributes const directories{0700};
    QString const path = dir.filePath(name);
    LN_Result<LN_File> created = LN_File::createFileWithOwner(path, &attributes, &directories, true);
    if (created.isError())
        return created.error.message.replace(dir.path(), u"{dir}"_s) + u", plain "_s + state(dir.filePath(u"plain"_s));
    char byte = 0;
    QString const read = created.value.read(&byte, 1).error.message;
    LN_Result<unsigned long> const written = created.value.write("{}", 2, true);
    QString const flushed = created.value.flush().message;
    return read + written.error.message + flushed + created.value.close().message
           + u"%1, %2, %3"_s.arg(written.value).arg(state(path), state(QFileInfo(path).path()));
}

// Writes more than a pipe of one page takes: the failure, the count and what arrived.
QString writeToPipe(bool writeAll)
{
    int fds[2] = {-1, -1};
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0 || ::fcntl(fds[1], F_SETPIPE_SZ, 4096) < 0)
        return u"no pipe"_s;
    LN_File reader(fds[0]);
    QByteArray data(10000, 'x');
    LN_Result<unsigned long> const written = LN_File(fds[1]).write(data.constData(), data.size(), writeAll);
    return u"%1%2 written, %3 arrived"_s.arg(written.error.message).arg(written.value)
        .arg(reader.read(data.data(), data.size()).value);
}

// Hands files over by moves: whether each descriptor is still open, and what closing the
// LN_File moved from says.
QString move()
{
    int const first = ::open("/dev/null", O_RDONLY | O_CLOEXEC), second = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    auto const isOpen = [](int fd) { return ::fcntl(fd, F_GETFD) != -1; };
    LN_File target(second, u"second"_s);
    LN_File source(first, u"first"_s);
    target = std::move(source);
    auto moved = std::make_unique<LN_File>(std::move(target));
    QString const told = u"%1 %2, "_s.arg(isOpen(first)).arg(isOpen(second)) + source.close().message;
    moved.reset();
    return told + u", %1"_s.arg(isOpen(first));
}

} // namespace

class TestFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ::umask(022); }

    void operations_data()
    {
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<QString>("outcome");

        auto const row = [](char const * name, Operation const & operation, QString const & outcome) {
            QTest::newRow(name) << operation << outcome;
        };
        // Created for writing alone, and with no name kept.
        QString const unreadable = u"Failed to read file: "_s + systemText(EBADF);
        row("default mode", [] { return create(u"new"_s, -1); }, unreadable + u"2, 644 {}, 700 none"_s);
        row("created beyond the umask in missing directories", [] { return create(u"one/two/new"_s, 0666); },
            unreadable + u"2, 666 {}, 700 none"_s);
        row("existing file is left alone", [] { return create(u"plain"_s, -1); },
            u"Failed to create file {dir}/plain: "_s + systemText(EEXIST) + u", plain 644 old"_s);
        row("parent is a file", [] { return create(u"plain/new"_s, -1); },
            u"Failed to create file {dir}/plain/new: "_s + systemText(ENOTDIR) + u", plain 644 old"_s);
        // The file's directory is missing, yet cannot be made: that error is returned as it stands.
        row("directory that cannot be made", [] { return create(u"link/new"_s, -1); },
            u"Failed to create {dir}/link/: "_s + systemText(EEXIST) + u", plain 644 old"_s);

        // A file knows its name only when it was given one.
        row("named, never opened", [] { return LN_File(LN_InvalidNativeHandle, u"settings.ini"_s).close().message; },
            u"Failed to close \"settings.ini\": "_s + systemText(EBADF));
        row("flush a device", [] { return LN_File(::open("/dev/null", O_WRONLY | O_CLOEXEC)).flush().message; },
            u"Failed to flush file: "_s + systemText(EINVAL));
        row("short write, once", [] { return writeToPipe(false); }, u"4096 written, 4096 arrived"_s);
        row("short write, all: counted up to the failure", [] { return writeToPipe(true); },
            u"Failed to write file: "_s + systemText(EAGAIN) + u"4096 written, 4096 arrived"_s);
        // The file moved to last closes the descriptor; taking one over closes the one held before.
        row("moves hand the file over", move, u"1 0, Failed to close file: "_s + systemText(EBADF) + u", 0"_s);

        // The exception file throws its failures, with the file's name and Qt's text.
        QString const mem = u"/proc/self/mem"_s;
        QString const null = u"/dev/null"_s;
        constexpr auto in = QIODevice::ReadOnly;
        row("exception file, open", [] { return LN_ExceptionFile(u"/nonexistent/x"_s, in).filename(); },
            u"Unable to open /nonexistent/x: No such file or directory"_s);
        row("exception file, read", [mem] { return QString::fromLatin1(LN_ExceptionFile(mem, in).read(16)); },
            u"Error reading /proc/self/mem: Input/output error"_s);
        row("exception file, readAll", [mem] { return QString::fromLatin1(LN_ExceptionFile(mem, in).readAll()); },
            u"Error reading /proc/self/mem: Input/output error"_s);
        row("exception file, resize", [null] { return QString::number(LN_ExceptionFile(null, in).resize(10)); },
            u"Unable to resize /dev/null: Invalid argument"_s);
        row("exception file, seek", [null] { return QString::number(LN_ExceptionFile(null, in).seek(-1)); },
            u"Unable to seek in /dev/null: Unknown error"_s);
        constexpr auto out = QIODevice::WriteOnly | QIODevice::Unbuffered;
        row("exception file, write", [] { return QString::number(LN_ExceptionFile(u"/dev/full"_s, out).write("x")); },
            u"Unable to write to /dev/full: No space left on device"_s);
        // readAll takes more than one piece; a read is as long as what it got.
        row("exception file round trip", [] {
            QTemporaryDir dir;
            QByteArray const data = QByteArray(3000, 'a') + QByteArray(3000, 'b');
            qint64 const written = LN_ExceptionFile(dir.filePath(u"f"_s), QIODevice::WriteOnly).write(data);
            LN_ExceptionFile file(dir.filePath(u"f"_s), QIODevice::ReadOnly);
            return u"%1 %2 %3 %4"_s.arg(written).arg(file.readAll() == data).arg(file.read(3).size())
                .arg(file.seek(2999) ? QString::fromLatin1(file.read(2)) : QString());
        }, u"6000 1 0 ab"_s);
    }

    void operations()
    {
        QFETCH(Operation, operation);
        QFETCH(QString, outcome);
        QString told;
        QString const thrown = thrownBy([&] { told = operation(); });
        QCOMPARE(thrown.isNull() ? told : thrown, outcome);
    }
};


QTEST_GUILESS_MAIN(TestFile)
#include "tst_file.moc"
