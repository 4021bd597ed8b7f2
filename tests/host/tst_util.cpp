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

constexpr std::uint32_t nobodyId = 65534;

using Values = QHash<QString, QString>;

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

bool entryExists(QString const & path)
{
    QFileInfo const info(path);
    return info.exists() || info.isSymLink();
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

// A tree with a nested directory, a dot file and links that lead out of it.
void makeTreeWithLinks(QString const & root, QString const & outside)
{
    writeFile(root + u"/a.txt"_s, "a");
    writeFile(root + u"/sub/.hidden"_s, "h");
    writeFile(outside + u"/kept.txt"_s, "kept");
    QVERIFY(QFile::link(outside, root + u"/sub/link-to-folder"_s));
    QVERIFY(QFile::link(outside + u"/kept.txt"_s, root + u"/link-to-file"_s));
    QVERIFY(QFile::link(u"nowhere"_s, root + u"/dangling"_s));
}

QByteArray sha256(QByteArray const & data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256);
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
    void ownersAsRoot();
    void changeOwnerOfMissingPath();
    void copyFile_data();
    void copyFile();
    void copyTree();
    void removeTreeLeavesLinkTargets();
    void rename_data();
    void rename();
    void checksum_data();
    void checksum();
    void diskSpaceOfMissingPath();
    void openHandles();
    void fileVersion_data();
    void fileVersion();

    void parentDir_data();
    void parentDir();
    void absolutePath_data();
    void absolutePath();
    void formatNumber_data();
    void formatNumber();
    void numBytesToString_data();
    void numBytesToString();
    void replace_data();
    void replace();
    void versionMMCmp_data();
    void versionMMCmp();
    void httpRequest();
    void accounts();

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
}

void TestUtil::cleanup()
{
    LN_Waits::resetForTesting();
}

void TestUtil::createDirectories_data()
{
    QTest::addColumn<QString>("inTheWay"); // what already stands at root/a
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("error");

    QTest::newRow("one level") << QString() << u"new"_s << 0;
    QTest::newRow("missing parents") << QString() << u"a/b/c"_s << 0;
    QTest::newRow("trailing slash") << QString() << u"a/b/"_s << 0;
    QTest::newRow("existing directory is an error") << u"dir"_s << u"a"_s << EEXIST;
    QTest::newRow("a file in the way") << u"file"_s << u"a/b/c"_s << ENOTDIR;
}

void TestUtil::createDirectories()
{
    QFETCH(QString, inTheWay);
    QFETCH(QString, path);
    QFETCH(int, error);

    if (inTheWay == u"dir"_s)
        QVERIFY(QDir(root_).mkdir(u"a"_s));
    if (inTheWay == u"file"_s)
        writeFile(root_ + u"/a"_s, "x");
    QString const target = root_ + u'/' + path;
    LN_SecurityAttributes const attributes{0775, -1, -1};
    LN_SecurityAttributes const * const pointer = &attributes;
    LN_ErrorStruct const result = LN_Util::createDirectoriesWithOwner(target, pointer);

    QCOMPARE(result.code.value(), error);
    if (error != 0) {
        QVERIFY2(result.message.startsWith(u"Failed to create "_s), qPrintable(result.message));
        return;
    }
    // Every directory made gets the mode exactly, although the umask would clear group write.
    for (QString dir = QDir::cleanPath(target); dir != root_; dir = QFileInfo(dir).path())
        QCOMPARE(lstatOf(dir).st_mode & 07777, mode_t(0775));
}

void TestUtil::ownersAsRoot()
{
    if (::geteuid() != 0)
        QSKIP("giving files to another user needs root");
    auto const nobody = LN_UserUtil::getUserFromName(u"nobody"_s);
    auto const nogroup = LN_UserUtil::getGroupFromName(u"nogroup"_s);
    QVERIFY(!nobody.isError() && !nogroup.isError());

    LN_SecurityAttributes const attributes{-1, nobodyId, -1};
    LN_SecurityAttributes const * const pointer = &attributes;
    QVERIFY(!LN_Util::createDirectoriesWithOwner(root_ + u"/x/y"_s, pointer).isError());
    QCOMPARE(lstatOf(root_ + u"/x"_s).st_uid, nobodyId);
    QCOMPARE(lstatOf(root_ + u"/x/y"_s).st_uid, nobodyId);
    QCOMPARE(lstatOf(root_ + u"/x/y"_s).st_gid, lstatOf(root_).st_gid);

    QString const tree = root_ + u"/tree"_s;
    QString const outside = root_ + u"/outside"_s;
    makeTreeWithLinks(tree, outside);
    LN_ErrorStruct const result = LN_Util::changeOwnerRecursive(tree + u'/', LN_Sid::fromBytes(nobody.value.get()));
    QVERIFY2(!result.isError(), qPrintable(result.message));
    for (QString const & entry : {u""_s, u"/a.txt"_s, u"/sub"_s, u"/sub/.hidden"_s, u"/sub/link-to-folder"_s,
                                  u"/link-to-file"_s, u"/dangling"_s})
        QVERIFY2(lstatOf(tree + entry).st_uid == nobodyId, qPrintable(entry));
    // Links are leaves: what they point to keeps its owner.
    QCOMPARE(lstatOf(outside).st_uid, ::geteuid());
    QCOMPARE(lstatOf(outside + u"/kept.txt"_s).st_uid, ::geteuid());

    // A group sid changes the group and leaves the user.
    QVERIFY(!LN_Util::changeOwner(tree + u"/a.txt"_s, LN_Sid::fromBytes(nogroup.value.get())).isError());
    QCOMPARE(lstatOf(tree + u"/a.txt"_s).st_gid, LN_Sid::fromBytes(nogroup.value.get())->id);
    QCOMPARE(lstatOf(tree + u"/a.txt"_s).st_uid, nobodyId);
}

void TestUtil::changeOwnerOfMissingPath()
{
    LN_Sid owner{LN_Sid::Sid_User, ::geteuid()};
    std::wstring const missing = QString(root_ + u"/missing"_s).toStdWString();
    LN_ErrorStruct const result = LN_Util::changeOwnerRecursive(missing.c_str(), &owner);
    QCOMPARE(result.code.value(), ENOENT);
    QCOMPARE(result.message, u"Failed to set file security information: No such file or directory (Error %1)"_s.arg(ENOENT));
}

void TestUtil::copyFile_data()
{
    QTest::addColumn<QString>("existing"); // what stands at the target beforehand
    QTest::addColumn<bool>("overwrite");
    QTest::addColumn<bool>("makeDirectories");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("message"); // prefix; %1 source, %2 target, %3 its directory
    QTest::addColumn<int>("pauses");

    QTest::newRow("new file") << QString() << false << false << u"t"_s << QString() << 0;
    QTest::newRow("replaces when overwriting") << u"file"_s << true << false << u"t"_s << QString() << 0;
    QTest::newRow("makes directories") << QString() << false << true << u"d/e/t"_s << QString() << 0;
    QTest::newRow("existing target, five attempts")
        << u"file"_s << false << false << u"t"_s << u"Unable to copy %1 to %2: "_s << 5;
    QTest::newRow("unremovable target, one attempt")
        << u"dir"_s << true << false << u"t"_s << u"Unable to remove %2: "_s << 1;
    QTest::newRow("missing directory not made")
        << QString() << true << false << u"d/t"_s << u"Unable to copy %1 to %2: "_s << 1;
    QTest::newRow("directory cannot be made")
        << u"file"_s << false << true << u"t/u"_s << u"Unable to create directory %3"_s << 0;
}

void TestUtil::copyFile()
{
    QFETCH(QString, existing);
    QFETCH(bool, overwrite);
    QFETCH(bool, makeDirectories);
    QFETCH(QString, target);
    QFETCH(QString, message);
    QFETCH(int, pauses);

    constexpr int pause = 100;
    LN_Waits::setForTesting(LN_Waits::CopyRetry, pause);
    QString const source = root_ + u"/source"_s;
    QString const destination = root_ + u'/' + target;
    writeFile(source, "new contents");
    if (existing == u"file"_s)
        writeFile(root_ + u"/t"_s, "old");
    if (existing == u"dir"_s)
        writeFile(destination + u"/inside"_s, "keeps the directory from being removed");

    QElapsedTimer timer;
    timer.start();
    LN_ErrorStruct const result = LN_Util::copyFile(source, destination, overwrite, makeDirectories);
    qint64 const elapsed = timer.elapsed();

    QVERIFY2(elapsed >= pauses * pause && elapsed < (pauses + 1) * pause, qPrintable(u"%1 ms"_s.arg(elapsed)));
    if (message.isEmpty()) {
        QVERIFY2(!result.isError(), qPrintable(result.message));
        QCOMPARE(readFile(destination), QByteArray("new contents"));
        return;
    }
    QCOMPARE(&result.code.category(), &QFileErrorCategory());
    QVERIFY(result.isError());
    QString const expected = QString(message).replace(u"%1"_s, source).replace(u"%2"_s, destination)
                                 .replace(u"%3"_s, QFileInfo(destination).path());
    QVERIFY2(result.message.startsWith(expected), qPrintable(result.message));
    if (existing == u"file"_s)
        QCOMPARE(readFile(root_ + u"/t"_s), QByteArray("old"));
}

void TestUtil::copyTree()
{
    QString const source = root_ + u"/source"_s;
    writeFile(source + u"/top"_s, "top");
    writeFile(source + u"/deep/er/file"_s, "deep");
    writeFile(source + u"/.dotfile"_s, "dot");
    QVERIFY(QDir().mkpath(source + u"/empty"_s));
    QString const target = root_ + u"/target"_s;
    writeFile(target + u"/top"_s, "stale");

    LN_Util::copyTree(source, target, true);
    QCOMPARE(readFile(target + u"/top"_s), QByteArray("top"));
    QCOMPARE(readFile(target + u"/deep/er/file"_s), QByteArray("deep"));
    QCOMPARE(readFile(target + u"/.dotfile"_s), QByteArray("dot"));
    QVERIFY(!QFileInfo::exists(target + u"/empty"_s));

    LN_Waits::setForTesting(LN_Waits::CopyRetry, 0);
    QVERIFY(thrownText([&] { LN_Util::copyTree(QDir(source), target, false); }).startsWith(u"Unable to copy "_s));
    QCOMPARE(thrownText([&] { LN_Util::copyTree(root_ + u"/x/../missing"_s, QDir(target), true); }),
             u"Unable to copy from %1/missing: Directory does not exist"_s.arg(root_));
}

void TestUtil::removeTreeLeavesLinkTargets()
{
    QString const tree = root_ + u"/tree"_s;
    QString const outside = root_ + u"/outside"_s;
    makeTreeWithLinks(tree, outside);

    QVERIFY(thrownText([&] { LN_Util::removeFile(tree + u"/sub"_s); })
                .startsWith(u"Could not remove \"%1/sub\": "_s.arg(tree)));
    QCOMPARE(thrownText([&] { LN_Util::removeDir(QDir(tree)); }), u"Could not remove \"%1\""_s.arg(tree));

    LN_Util::removeTree(tree);
    QVERIFY(!entryExists(tree));
    QCOMPARE(readFile(outside + u"/kept.txt"_s), QByteArray("kept"));
    // Already gone is no error.
    LN_Util::removeFile(tree + u"/a.txt"_s);
    LN_Util::removeDir(QDir(tree));
}

void TestUtil::rename_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<int>("error");

    QTest::newRow("file") << u"file"_s << u"moved"_s << 0;
    QTest::newRow("directory") << u"dir"_s << u"moved"_s << 0;
    QTest::newRow("into another directory") << u"file"_s << u"dir/moved"_s << 0;
    QTest::newRow("onto a file") << u"file"_s << u"other"_s << EEXIST;
    QTest::newRow("onto an empty directory") << u"dir"_s << u"empty"_s << EEXIST;
    QTest::newRow("missing source") << u"missing"_s << u"moved"_s << ENOENT;
}

void TestUtil::rename()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(int, error);

    writeFile(root_ + u"/file"_s, "file");
    writeFile(root_ + u"/other"_s, "other");
    writeFile(root_ + u"/dir/inner"_s, "inner");
    QVERIFY(QDir(root_).mkdir(u"empty"_s));
    QString const source = root_ + u'/' + from;
    QString const target = root_ + u'/' + to;
    QString const probe = QFileInfo(source).isDir() ? u"/inner"_s : QString();
    QByteArray const moving = readFile(source + probe);
    QByteArray const standing = readFile(target + probe);

    QString const thrown = thrownText([&] { LN_Util::rename(source, target); });
    if (error == 0) {
        QCOMPARE(thrown, u"<nothing thrown>"_s);
        QVERIFY(!entryExists(source));
        QCOMPARE(readFile(target + probe), moving);
        return;
    }
    QCOMPARE(thrown, u"Failed to rename %1 to %2: %3 (Error %4)"_s.arg(source, target,
                                                                      QString::fromLocal8Bit(std::strerror(error)),
                                                                      QString::number(error)));
    QCOMPARE(readFile(target + probe), standing);
}

void TestUtil::checksum_data()
{
    QTest::addColumn<QString>("kind"); // "file", "link" or "none"
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("data"); // contents, or the link's target ("@" is the test directory)
    QTest::addColumn<QByteArray>("expected");

    QByteArray large(3 * 1024 * 1024 + 7, Qt::Uninitialized);
    for (qsizetype i = 0; i < large.size(); ++i)
        large[i] = static_cast<char>((i * 131) ^ (i >> 9));

    QTest::newRow("empty file") << u"file"_s << u"empty"_s << QByteArray()
                                << QByteArray::fromHex("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    QTest::newRow("abc") << u"file"_s << u"abc"_s << QByteArray("abc")
                         << QByteArray::fromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    QTest::newRow("larger than the buffer") << u"file"_s << u"large"_s << large << sha256(large);
    QTest::newRow("link target cleaned") << u"link"_s << u"link"_s << QByteArray("sub/../sub/target")
                                         << sha256("sub/target");
    QTest::newRow("link out of its directory") << u"link"_s << u"sub/link"_s << QByteArray("../abc") << sha256("../abc");
    QTest::newRow("absolute link made relative") << u"link"_s << u"sub/abs"_s << QByteArray("@/abc") << sha256("../abc");
    QTest::newRow("dangling link") << u"link"_s << u"gone"_s << QByteArray("nowhere") << sha256("nowhere");
    QTest::newRow("missing file") << u"none"_s << u"missing"_s << QByteArray() << QByteArray();
    QTest::newRow("directory") << u"none"_s << u"sub"_s << QByteArray() << QByteArray();
}

void TestUtil::checksum()
{
    QFETCH(QString, kind);
    QFETCH(QString, name);
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, expected);

    writeFile(root_ + u"/abc"_s, "abc");
    writeFile(root_ + u"/sub/target"_s, "the link must not be followed");
    QString const path = root_ + u'/' + name;
    if (kind == u"file"_s)
        writeFile(path, data);
    if (kind == u"link"_s) {
        QByteArray const target = data.startsWith('@') ? QFile::encodeName(root_) + data.mid(1) : data;
        QCOMPARE(::symlink(target.constData(), QFile::encodeName(path).constData()), 0);
    }
    QCOMPARE(LN_Util::checksum(path).toHex(), expected.toHex());
}

void TestUtil::diskSpaceOfMissingPath()
{
    // Other processes write meanwhile; the figure only has to come from the same file system.
    constexpr qint64 slack = 256 * 1024 * 1024;
    qint64 const expected = QStorageInfo(root_).bytesFree();
    QVERIFY(expected > 0);
    QVERIFY(qAbs(LN_Util::diskSpaceAvailable(root_ + u"/not/yet/there"_s) - expected) < slack);
}

void TestUtil::openHandles()
{
    QString const path = root_ + u"/held"_s;
    writeFile(path, "x");
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
    QTest::addColumn<QString>("version");     // "throws" for an exception

    QTest::newRow("first line") << true << u"21.0.512\nbuilt somewhere\n"_s << u"21.0.512"_s;
    QTest::newRow("blanks trimmed") << true << u"  4.3.2.1  \r\n"_s << u"4.3.2.1"_s;
    QTest::newRow("no VERSION file") << true << QString() << QString();
    QTest::newRow("missing binary") << false << u"1.2.3"_s << QString();
    QTest::newRow("unreadable VERSION") << true << u"<dir>"_s << u"throws"_s;
}

void TestUtil::fileVersion()
{
    QFETCH(bool, binary);
    QFETCH(QString, versionFile);
    QFETCH(QString, version);

    QString const path = root_ + u"/bin/orvanis"_s;
    QVERIFY(QDir().mkpath(root_ + u"/bin"_s));
    if (binary)
        writeFile(path, "\x7f" "ELF");
    if (versionFile == u"<dir>"_s)
        QVERIFY(QDir().mkpath(root_ + u"/bin/VERSION"_s));
    else if (!versionFile.isNull())
        writeFile(root_ + u"/bin/VERSION"_s, versionFile.toUtf8());

    std::wstring const wide = path.toStdWString();
    if (version == u"throws"_s)
        QVERIFY(thrownText([&] { LN_Util::getFileVersion(wide.c_str()); })
                    .startsWith(u"Unable to read version info from "_s + path));
    else
        QCOMPARE(LN_Util::getFileVersion(wide.c_str()), QVersionNumber::fromString(version));
}

void TestUtil::parentDir_data()
{
    QTest::addColumn<QString>("parent");
    QTest::addColumn<QString>("child");
    QTest::addColumn<bool>("isParent");

    QTest::newRow("direct child") << u"a/b"_s << u"a/b/c"_s << true;
    QTest::newRow("sibling with common prefix") << u"a/b"_s << u"a/bc"_s << false;
    QTest::newRow("same path") << u"a/b"_s << u"a/b"_s << false;
    QTest::newRow("empty parent") << QString() << u"/a"_s << false;
    QTest::newRow("backslash does not separate") << u"a\\b"_s << u"a\\b\\c"_s << false;
}

void TestUtil::parentDir()
{
    QFETCH(QString, parent);
    QFETCH(QString, child);
    QFETCH(bool, isParent);
    QCOMPARE(LN_Util::isParentDir(parent, child), isParent);
    QVERIFY(!LN_Util::isParentDir(child, parent));
    QCOMPARE(LN_Util::isParentOrChildDir(child, parent), isParent);
}

void TestUtil::absolutePath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isAbsolute");

    QTest::newRow("rooted") << u"/opt/orvanis"_s << true;
    QTest::newRow("plain name") << u"orvanis"_s << false;
    QTest::newRow("parent") << u"../orvanis"_s << false;
    QTest::newRow("drive letter is a name here") << u"C:/Program Files"_s << false;
}

void TestUtil::absolutePath()
{
    QFETCH(QString, path);
    QFETCH(bool, isAbsolute);
    QCOMPARE(LN_Util::isAbsolutePath(path), isAbsolute);
    QCOMPARE(LN_Util::isRelativePath(path), !isAbsolute);
}

void TestUtil::formatNumber_data()
{
    QTest::addColumn<qint64>("value");
    QTest::addColumn<int>("base");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QString>("text");

    int const decimal = LN_Util::Decimal;
    int const binary = LN_Util::Binary;
    QTest::newRow("decimal at the step stays plain") << qint64(1000) << decimal << QString() << u"1000"_s;
    QTest::newRow("negative stays plain") << qint64(-5000) << decimal << u"x"_s << u"-5000x"_s;
    QTest::newRow("suffix before the letter") << qint64(1500) << decimal << u" "_s << u"1.50 k"_s;
    QTest::newRow("decimal rounds up") << qint64(1235) << decimal << QString() << u"1.24k"_s;
    QTest::newRow("decimal carries into whole") << qint64(1996) << decimal << QString() << u"2.00k"_s;
    QTest::newRow("decimal leading zero") << qint64(1050) << decimal << QString() << u"1.05k"_s;
    QTest::newRow("exact power stays a step lower") << qint64(1000000) << decimal << QString() << u"1000.00k"_s;
    QTest::newRow("decimal stops at T") << qint64(5000000000000000) << decimal << QString() << u"5000.00T"_s;
    QTest::newRow("binary at the step stays plain") << qint64(1024) << binary << QString() << u"1024"_s;
    QTest::newRow("binary M") << qint64(5632 * 1024) << binary << QString() << u"5.50M"_s;
    QTest::newRow("binary stops at T") << (qint64(3) << 50) << binary << QString() << u"3072.00T"_s;
}

void TestUtil::formatNumber()
{
    QFETCH(qint64, value);
    QFETCH(int, base);
    QFETCH(QString, suffix);
    QFETCH(QString, text);
    QCOMPARE(LN_Util::formatNumber(value, LN_Util::Base(base), suffix), text);
}

void TestUtil::numBytesToString_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("text");

    QTest::newRow("negative") << qint64(-1) << u"Unknown"_s;
    QTest::newRow("plain") << qint64(512) << u"512 B"_s;
    QTest::newRow("capital K") << qint64(2048) << u"2.00 KB"_s;
    QTest::newRow("GB") << (qint64(3) << 30) + 1 << u"3.00 GB"_s;
}

void TestUtil::numBytesToString()
{
    QFETCH(qint64, bytes);
    QFETCH(QString, text);
    QCOMPARE(LN_Util::numBytesToString(bytes), text);
}

void TestUtil::replace_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Values>("values");
    QTest::addColumn<QString>("result");

    Values const paths{{u"$ROOT"_s, u"/opt/o"_s}, {u"$BIN"_s, u"$ROOT/bin"_s}};
    QTest::newRow("one pass, no rescan") << u"$ROOT and $BIN$BIN"_s << paths << u"/opt/o and $ROOT/bin$ROOT/bin"_s;
    QTest::newRow("keys are literal") << u"a.b axb"_s << Values{{u"a.b"_s, u"X"_s}} << u"X axb"_s;
    QTest::newRow("no values") << u"a.b"_s << Values() << u"a.b"_s;
}

void TestUtil::replace()
{
    QFETCH(QString, text);
    QFETCH(Values, values);
    QFETCH(QString, result);
    QCOMPARE(LN_Util::replace(text, values), result);
}

void TestUtil::versionMMCmp_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("result");

    QTest::newRow("later segments ignored") << u"20.5.1"_s << u"20.5.9"_s << 0;
    QTest::newRow("minor decides") << u"20.9"_s << u"20.10.0"_s << -1;
    QTest::newRow("major decides") << u"21.0"_s << u"20.9"_s << 1;
    QTest::newRow("missing minor is 0") << u"20"_s << u"20.0.3"_s << 0;
}

void TestUtil::versionMMCmp()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, result);
    QCOMPARE(LN_Util::versionMMCmp(QVersionNumber::fromString(a), QVersionNumber::fromString(b)), result);
    QCOMPARE(LN_Util::versionMMCmp(QVersionNumber::fromString(b), QVersionNumber::fromString(a)), -result);
}

void TestUtil::httpRequest()
{
    QUrl const url(u"https://127.0.0.1:8443/download?x=1"_s);
    QNetworkRequest const request = LN_Util::createHttpRequest(url);
    QCOMPARE(request.url(), url);
    QCOMPARE(request.attribute(QNetworkRequest::RedirectPolicyAttribute), QVariant(true));
    QCOMPARE(request.attribute(QNetworkRequest::Http2AllowedAttribute), QVariant(true));
}

void TestUtil::accounts()
{
    if (::geteuid() == 0)
        QCOMPARE(LN_UserUtil::getCurrentUserName(), u"root"_s);
    auto const user = LN_UserUtil::getUserFromName(u"nobody"_s);
    QVERIFY(!user.isError());
    QCOMPARE(LN_Sid::fromBytes(user.value.get())->kind, LN_Sid::Sid_User);
    QCOMPARE(LN_Sid::fromBytes(user.value.get())->id, nobodyId);
    auto const group = LN_UserUtil::getGroupFromName(u"root"_s);
    QVERIFY(!group.isError());
    QCOMPARE(LN_Sid::fromBytes(group.value.get())->kind, LN_Sid::Sid_Group);
    QCOMPARE(LN_Sid::fromBytes(group.value.get())->id, 0u);

    auto const missing = LN_UserUtil::getUserFromName(u"draizu-no-such-user"_s);
    QVERIFY(missing.isError());
    QCOMPARE(missing.error.message, u"Error number %1"_s.arg(ENOENT));
}

QTEST_GUILESS_MAIN(TestUtil)
#include "tst_util.moc"
