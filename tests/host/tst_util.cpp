#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_UserUtil.h>
#include <draizu/host/LN_Util.h>

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstring>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t nobodyId = 65534; // also the gid of nogroup

void writeFile(QString const & path, QByteArray const & contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
    QCOMPARE(file.write(contents), contents.size());
}

QByteArray readFile(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

struct stat lstatOf(QString const & path)
{
    struct stat status {};
    ::lstat(QFile::encodeName(path).constData(), &status);
    return status;
}

// How the library words a system error number.
QString systemText(int error)
{
    return u"%1 (Error %2)"_s.arg(QString::fromLocal8Bit(std::strerror(error))).arg(error);
}

QString thrownText(std::function<void()> const & call)
{
    try {
        call();
    } catch (LN_Exception const & e) {
        return QString::fromUtf8(e.what());
    }
    return u"<nothing thrown>"_s;
}

} // namespace

class TestUtil : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void createDirectories_data();
    void createDirectories();
    void owners();
    void copyFile_data();
    void copyFile();
    void copyTree();
    void removeTreeLeavesLinkTargets();
    void rename_data();
    void rename();
    void checksum_data();
    void checksum();
    void diskSpaceAndOpenHandles();
    void fileVersion_data();
    void fileVersion();
    void helpers_data();
    void helpers();

private:
    QTemporaryDir temp_;
    QString root_;
};

void TestUtil::init()
{
    QVERIFY(temp_.isValid());
    char const * const tag = QTest::currentDataTag();
    root_ = temp_.path() + u'/' + QString::fromLatin1(QTest::currentTestFunction()) + u'/'
          + QString::fromLatin1(tag ? tag : "none").replace(u' ', u'_');
    QVERIFY(QDir().mkpath(root_));
    // The small tree every test starts from; "dir" holds a nested directory, a dot file and
    // links that lead out of it.
    writeFile(root_ + u"/file"_s, "file");
    writeFile(root_ + u"/other"_s, "other");
    writeFile(root_ + u"/dir/inner"_s, "inner");
    writeFile(root_ + u"/dir/sub/.hidden"_s, "hidden");
    writeFile(root_ + u"/outside/kept.txt"_s, "kept");
    QVERIFY(QDir(root_).mkdir(u"empty"_s));
    QVERIFY(QFile::link(root_ + u"/outside"_s, root_ + u"/dir/sub/link-to-folder"_s));
    QVERIFY(QFile::link(root_ + u"/outside/kept.txt"_s, root_ + u"/dir/link-to-file"_s));
    QVERIFY(QFile::link(u"nowhere"_s, root_ + u"/dir/dangling"_s));
}

void TestUtil::cleanup()
{
    LN_Waits::resetForTesting();
}

void TestUtil::createDirectories_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("error");

    QTest::newRow("missing parents, trailing slash") << u"a/b/c/"_s << 0;
    QTest::newRow("existing directory is an error") << u"empty"_s << EEXIST;
    QTest::newRow("a file in the way") << u"file/b/c"_s << ENOTDIR;
}

void TestUtil::createDirectories()
{
    QFETCH(QString, path);
    QFETCH(int, error);

    QString const target = root_ + u'/' + path;
    LN_SecurityAttributes const attributes{0775, -1, -1};
    LN_SecurityAttributes const * const pointer = &attributes;
    LN_ErrorStruct const result = LN_Util::createDirectoriesWithOwner(target, pointer);

    QCOMPARE(result.code.value(), error);
    QCOMPARE(result.message, error ? u"Failed to create %1: %2"_s.arg(target, systemText(error)) : QString());
    // Every directory made gets the mode exactly, although the umask would clear group write.
    for (QString dir = QDir::cleanPath(target); error == 0 && dir != root_; dir = QFileInfo(dir).path())
        QCOMPARE(lstatOf(dir).st_mode & 07777, mode_t(0775));
}

void TestUtil::owners()
{
    auto const nobody = LN_UserUtil::getUserFromName(u"nobody"_s);
    auto const nogroup = LN_UserUtil::getGroupFromName(u"nogroup"_s);
    QVERIFY(!nobody.isError() && !nogroup.isError());
    LN_Sid * const user = LN_Sid::fromBytes(nobody.value.get());
    LN_Sid * const group = LN_Sid::fromBytes(nogroup.value.get());
    QCOMPARE(std::pair(user->kind, user->id), std::pair(LN_Sid::Sid_User, nobodyId));
    QCOMPARE(std::pair(group->kind, group->id), std::pair(LN_Sid::Sid_Group, nobodyId));
    QCOMPARE(LN_UserUtil::getUserFromName(u"draizu-no-such-user"_s).error.message, u"Error number %1"_s.arg(ENOENT));

    std::wstring const missing = QString(root_ + u"/missing"_s).toStdWString();
    LN_ErrorStruct const failed = LN_Util::changeOwnerRecursive(missing.c_str(), user);
    QCOMPARE(failed.code.value(), ENOENT);
    QCOMPARE(failed.message, u"Failed to set file security information: "_s + systemText(ENOENT));

    if (::geteuid() != 0)
        QSKIP("giving files to another user needs root");
    QCOMPARE(LN_UserUtil::getCurrentUserName(), u"root"_s);
    LN_SecurityAttributes const attributes{-1, nobodyId, -1};
    LN_SecurityAttributes const * const pointer = &attributes;
    QVERIFY(!LN_Util::createDirectoriesWithOwner(root_ + u"/x/y"_s, pointer).isError());
    for (QString const & dir : {u"/x"_s, u"/x/y"_s})
        QCOMPARE(std::pair(lstatOf(root_ + dir).st_uid, lstatOf(root_ + dir).st_gid),
                 std::pair(nobodyId, lstatOf(root_).st_gid));

    LN_ErrorStruct const result = LN_Util::changeOwnerRecursive(root_ + u"/dir/"_s, user);
    QVERIFY2(!result.isError(), qPrintable(result.message));
    for (QString const & entry : {u""_s, u"/inner"_s, u"/sub"_s, u"/sub/.hidden"_s, u"/sub/link-to-folder"_s,
                                  u"/link-to-file"_s, u"/dangling"_s})
        QVERIFY2(lstatOf(root_ + u"/dir"_s + entry).st_uid == nobodyId, qPrintable(entry));
    // Links are leaves: what they point to keeps its owner.
    QCOMPARE(lstatOf(root_ + u"/outside"_s).st_uid, ::geteuid());
    QCOMPARE(lstatOf(root_ + u"/outside/kept.txt"_s).st_uid, ::geteuid());

    // A group sid changes the group and leaves the user.
    QVERIFY(!LN_Util::changeOwner(root_ + u"/dir/inner"_s, group).isError());
    QCOMPARE(std::pair(lstatOf(root_ + u"/dir/inner"_s).st_uid, lstatOf(root_ + u"/dir/inner"_s).st_gid),
             std::pair(nobodyId, nobodyId));
}

void TestUtil::copyFile_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("overwrite");
    QTest::addColumn<bool>("makeDirectories");
    QTest::addColumn<QString>("message"); // how the error starts, "@" being the test directory
    QTest::addColumn<int>("pauses");

    QTest::newRow("replaces when overwriting") << u"other"_s << true << false << QString() << 0;
    QTest::newRow("makes directories") << u"d/e/t"_s << false << true << QString() << 0;
    QTest::newRow("existing target, five attempts")
        << u"other"_s << false << false << u"Unable to copy @/file to @/other: "_s << 5;
    QTest::newRow("unremovable target, one attempt")
        << u"dir"_s << true << false << u"Unable to remove @/dir: "_s << 1;
    QTest::newRow("missing directory not made, one attempt")
        << u"d/t"_s << true << false << u"Unable to copy @/file to @/d/t: "_s << 1;
    QTest::newRow("directory cannot be made")
        << u"other/u"_s << false << true << u"Unable to create directory @/other"_s << 0;
}

void TestUtil::copyFile()
{
    QFETCH(QString, target);
    QFETCH(bool, overwrite);
    QFETCH(bool, makeDirectories);
    QFETCH(QString, message);
    QFETCH(int, pauses);

    constexpr int pause = 100;
    LN_Waits::setForTesting(LN_Waits::CopyRetry, pause);
    QElapsedTimer timer;
    timer.start();
    LN_ErrorStruct const result =
        LN_Util::copyFile(root_ + u"/file"_s, root_ + u'/' + target, overwrite, makeDirectories);
    qint64 const elapsed = timer.elapsed();

    QVERIFY2(elapsed >= pauses * pause && elapsed < (pauses + 1) * pause, qPrintable(u"%1 ms"_s.arg(elapsed)));
    if (message.isEmpty()) {
        QVERIFY2(!result.isError(), qPrintable(result.message));
        QCOMPARE(readFile(root_ + u'/' + target), QByteArray("file"));
        return;
    }
    QVERIFY(result.isError());
    QCOMPARE(&result.code.category(), &QFileErrorCategory());
    QVERIFY2(result.message.startsWith(message.replace(u'@', root_)), qPrintable(result.message));
    QCOMPARE(readFile(root_ + u"/other"_s), QByteArray("other"));
}

void TestUtil::copyTree()
{
    QString const target = root_ + u"-copy"_s;
    writeFile(target + u"/file"_s, "stale");

    LN_Util::copyTree(root_, target, true);
    for (QString const & file : {u"/file"_s, u"/other"_s, u"/dir/inner"_s, u"/dir/sub/.hidden"_s})
        QCOMPARE(readFile(target + file), readFile(root_ + file));
    QVERIFY(!QFileInfo::exists(target + u"/empty"_s));

    LN_Waits::setForTesting(LN_Waits::CopyRetry, 0);
    QVERIFY(thrownText([&] { LN_Util::copyTree(QDir(root_), target, false); }).startsWith(u"Unable to copy "_s));
    QCOMPARE(thrownText([&] { LN_Util::copyTree(root_ + u"/x/../missing"_s, QDir(target), true); }),
             u"Unable to copy from %1/missing: Directory does not exist"_s.arg(root_));
}

void TestUtil::removeTreeLeavesLinkTargets()
{
    QString const tree = root_ + u"/dir"_s;
    QVERIFY(thrownText([&] { LN_Util::removeFile(tree + u"/sub"_s); })
                .startsWith(u"Could not remove \"%1/sub\": "_s.arg(tree)));
    QCOMPARE(thrownText([&] { LN_Util::removeDir(QDir(tree)); }), u"Could not remove \"%1\""_s.arg(tree));

    LN_Util::removeTree(tree);
    QVERIFY(!QFileInfo::exists(tree));
    QCOMPARE(readFile(root_ + u"/outside/kept.txt"_s), QByteArray("kept"));
    // Already gone is no error.
    LN_Util::removeFile(tree + u"/inner"_s);
    LN_Util::removeDir(QDir(tree));
}

void TestUtil::rename_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<int>("error");

    QTest::newRow("file into another directory") << u"file"_s << u"dir/moved"_s << 0;
    QTest::newRow("directory") << u"dir"_s << u"moved"_s << 0;
    QTest::newRow("onto a file") << u"file"_s << u"other"_s << EEXIST;
    QTest::newRow("onto an empty directory") << u"dir"_s << u"empty"_s << EEXIST;
    QTest::newRow("missing source") << u"missing"_s << u"moved"_s << ENOENT;
}

void TestUtil::rename()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(int, error);

    QString const source = root_ + u'/' + from;
    QString const target = root_ + u'/' + to;
    QString const probe = QFileInfo(source).isDir() ? u"/inner"_s : QString();
    QByteArray const expected = readFile((error ? target : source) + probe);

    QCOMPARE(thrownText([&] { LN_Util::rename(source, target); }),
             error ? u"Failed to rename %1 to %2: %3"_s.arg(source, target, systemText(error)) : u"<nothing thrown>"_s);
    QCOMPARE(readFile(target + probe), expected);
    QCOMPARE(QFileInfo::exists(source), error == EEXIST);
}

void TestUtil::checksum_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("data"); // contents; "->" makes a link to the rest, "@" being the test directory
    QTest::addColumn<QByteArray>("expected");

    auto const sha256 = [](QByteArray const & bytes) {
        return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
    };
    QByteArray large; // a few buffers' worth, and not a whole number of them
    for (int i = 0; large.size() < 600 * 1024; ++i)
        large += QByteArray::number(i) + ' ';

    // The digest sha256sum prints for "abc".
    QTest::newRow("file") << u"abc"_s << QByteArray("abc")
                          << QByteArray::fromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    QTest::newRow("empty file") << u"nothing"_s << QByteArray("") << sha256({});
    QTest::newRow("larger than the buffer") << u"large"_s << large << sha256(large);
    QTest::newRow("link target cleaned") << u"link"_s << QByteArray("->dir/../dir/inner") << sha256("dir/inner");
    QTest::newRow("absolute link made relative") << u"dir/abs"_s << QByteArray("->@/file") << sha256("../file");
    QTest::newRow("dangling link") << u"gone"_s << QByteArray("->nowhere") << sha256("nowhere");
    QTest::newRow("missing file") << u"missing"_s << QByteArray() << QByteArray();
    QTest::newRow("directory") << u"dir"_s << QByteArray() << QByteArray();
}

void TestUtil::checksum()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, expected);

    QString const path = root_ + u'/' + name;
    if (data.startsWith("->"))
        QCOMPARE(::symlink(data.mid(2).replace('@', QFile::encodeName(root_)).constData(),
                           QFile::encodeName(path).constData()), 0);
    else if (!data.isNull())
        writeFile(path, data);
    QCOMPARE(LN_Util::checksum(path).toHex(), expected.toHex());
}

void TestUtil::diskSpaceAndOpenHandles()
{
    // Other processes write meanwhile; the figure only has to come from the same file system.
    constexpr qint64 slack = 256 * 1024 * 1024;
    qint64 const free = QStorageInfo(root_).bytesFree();
    QVERIFY(free > 0);
    QVERIFY(qAbs(LN_Util::diskSpaceAvailable(root_ + u"/not/yet/there"_s) - free) < slack);

    QString const path = root_ + u"/file"_s;
    QList<LN_ProcessInfo> processes{LN_ProcessInfo{-1, u"stale"_s}};
    LN_Util::openHandlesToFile(path, processes);
    QVERIFY(processes.isEmpty());
    QFile held(path);
    QFile again(path);
    QVERIFY(held.open(QIODevice::ReadOnly) && again.open(QIODevice::ReadOnly));
    LN_Util::openHandlesToFile(path, processes);
    QCOMPARE(processes.size(), 1);
    QCOMPARE(processes.first().pid, std::int64_t(::getpid()));
    QCOMPARE(processes.first().name, QString::fromLocal8Bit(readFile(u"/proc/self/comm"_s)).trimmed());
}

void TestUtil::fileVersion_data()
{
    QTest::addColumn<bool>("binary");
    QTest::addColumn<QString>("versionFile"); // "<dir>" makes it a directory
    QTest::addColumn<QString>("expected");    // the version, or the text thrown ("@" is the test directory)

    QTest::newRow("first line, blanks trimmed") << true << u"  21.0.512 \r\nbuilt somewhere\n"_s << u"21.0.512"_s;
    QTest::newRow("no VERSION file") << true << QString() << QString();
    QTest::newRow("missing binary") << false << u"1.2.3"_s << QString();
    QTest::newRow("unreadable VERSION")
        << true << u"<dir>"_s << u"Unable to read version info from @/orvanis: "_s + systemText(EISDIR);
}

void TestUtil::fileVersion()
{
    QFETCH(bool, binary);
    QFETCH(QString, versionFile);
    QFETCH(QString, expected);

    if (binary)
        writeFile(root_ + u"/orvanis"_s, "\x7f" "ELF");
    if (versionFile == u"<dir>"_s)
        QVERIFY(QDir().mkpath(root_ + u"/VERSION"_s));
    else if (!versionFile.isNull())
        writeFile(root_ + u"/VERSION"_s, versionFile.toUtf8());

    std::wstring const path = QString(root_ + u"/orvanis"_s).toStdWString();
    QString version;
    QString const thrown = thrownText([&] { version = LN_Util::getFileVersion(path.c_str()).toString(); });
    QCOMPARE(thrown == u"<nothing thrown>"_s ? version : thrown, expected.replace(u'@', root_));
}

// The pure helpers, one table; each row holds a helper's answer beside the one expected.
void TestUtil::helpers_data()
{
    QTest::addColumn<QVariant>("answer");
    QTest::addColumn<QVariant>("expected");

    auto const row = [](char const * tag, QVariant const & answer, QVariant const & expected) {
        QTest::newRow(tag) << answer << expected;
    };
    auto const compared = [](QString const & a, QString const & b) {
        return LN_Util::versionMMCmp(QVersionNumber::fromString(a), QVersionNumber::fromString(b));
    };
    using LN_Util::Binary;
    using LN_Util::Decimal;

    row("decimal at the step stays plain", LN_Util::formatNumber(1000, Decimal, {}), u"1000"_s);
    row("negative stays plain", LN_Util::formatNumber(-5000, Decimal, u"x"_s), u"-5000x"_s);
    row("suffix before the letter", LN_Util::formatNumber(1500, Decimal, u" "_s), u"1.50 k"_s);
    row("decimal rounds up", LN_Util::formatNumber(1235, Decimal, {}), u"1.24k"_s);
    row("decimal carries into whole", LN_Util::formatNumber(1996, Decimal, {}), u"2.00k"_s);
    row("decimal leading zero", LN_Util::formatNumber(1050, Decimal, {}), u"1.05k"_s);
    row("exact power stays a step lower", LN_Util::formatNumber(1000000, Decimal, {}), u"1000.00k"_s);
    row("decimal stops at T", LN_Util::formatNumber(5000000000000000, Decimal, {}), u"5000.00T"_s);
    row("binary M", LN_Util::formatNumber(5632 * 1024, Binary, {}), u"5.50M"_s);
    row("bytes: negative", LN_Util::numBytesToString(-1), u"Unknown"_s);
    row("bytes: plain", LN_Util::numBytesToString(512), u"512 B"_s);
    row("bytes: capital K", LN_Util::numBytesToString(2048), u"2.00 KB"_s);

    row("direct child", LN_Util::isParentDir(u"a/b"_s, u"a/b/c"_s), true);
    row("sibling with common prefix", LN_Util::isParentDir(u"a/b"_s, u"a/bc"_s), false);
    row("same path", LN_Util::isParentOrChildDir(u"a/b"_s, u"a/b"_s), false);
    row("empty parent", LN_Util::isParentDir(QString(), u"/a"_s), false);
    row("backslash does not separate", LN_Util::isParentDir(u"a\\b"_s, u"a\\b\\c"_s), false);
    row("child or parent", LN_Util::isParentOrChildDir(u"a/b/c"_s, u"a/b"_s), true);
    row("rooted", LN_Util::isAbsolutePath(u"/opt/orvanis"_s), true);
    row("drive letter is a name here", LN_Util::isRelativePath(u"C:/Program Files"_s), true);

    QHash<QString, QString> const paths{{u"$ROOT"_s, u"/opt/o"_s}, {u"$BIN"_s, u"$ROOT/bin"_s}};
    row("one pass, no rescan", LN_Util::replace(u"$ROOT and $BIN$BIN"_s, paths), u"/opt/o and $ROOT/bin$ROOT/bin"_s);
    row("keys are literal", LN_Util::replace(u"a.b axb"_s, {{u"a.b"_s, u"X"_s}}), u"X axb"_s);
    row("no values", LN_Util::replace(u"a.b"_s, {}), u"a.b"_s);

    row("later segments ignored", compared(u"20.5.1"_s, u"20.5.9"_s), 0);
    row("minor decides", compared(u"20.9"_s, u"20.10.0"_s), -1);
    row("major decides", compared(u"21.0"_s, u"20.9"_s), 1);
    row("missing minor is 0", compared(u"20"_s, u"20.0.3"_s), 0);
}

void TestUtil::helpers()
{
    QFETCH(QVariant, answer);
    QFETCH(QVariant, expected);
    QCOMPARE(answer, expected);
}

QTEST_GUILESS_MAIN(TestUtil)
#include "tst_util.moc"
