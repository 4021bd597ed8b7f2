#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/host/LN_UserUtil.h>
#include <draizu/host/LN_Util.h>

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t nobodyId = 65534; // also the gid of nogroup

void writeFile(QString const & path, QByteArray const & contents)
{
    QFile file(path);
    QVERIFY(QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) && file.write(contents) >= 0);
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

} // namespace

class TestUtil : public QObject
{
    Q_OBJECT

    QTemporaryDir temp_;
    QString root_;

private Q_SLOTS:
    void cleanup() { LN_Waits::resetForTesting(); }

    // Every test gets a tree of its own; "dir" holds a nested directory, a dot file and links out.
    void init()
    {
        root_ = temp_.filePath(QLatin1StringView(QTest::currentTestFunction())
                               + QLatin1StringView(QTest::currentDataTag()));
        for (QString const & file : {u"/file"_s, u"/other"_s, u"/dir/inner"_s, u"/dir/sub/.hidden"_s, u"/out/kept"_s})
            writeFile(root_ + file, file.section(u'/', -1).toUtf8());
        QVERIFY(QDir(root_).mkdir(u"empty"_s));
        QVERIFY(QFile::link(root_ + u"/out"_s, root_ + u"/dir/sub/link-to-folder"_s));
        QVERIFY(QFile::link(root_ + u"/out/kept"_s, root_ + u"/dir/link-to-file"_s));
        QVERIFY(QFile::link(u"nowhere"_s, root_ + u"/dir/dangling"_s));
    }

    void directoriesAndOwners()
    {
        // Giving files to another user needs root; otherwise the owner stays the system's choice.
        bool const root = ::geteuid() == 0;
        LN_SecurityAttributes const made{0775, root ? std::int64_t(nobodyId) : -1, -1};
        LN_SecurityAttributes const * const attributes = &made;
        QVERIFY(!LN_Util::createDirectoriesWithOwner(root_ + u"/a/b/"_s, attributes).isError());
        // The parent made on the way gets the mode exactly, although the umask would clear group write.
        QCOMPARE(std::pair(lstatOf(root_ + u"/a"_s).st_mode & 07777, lstatOf(root_ + u"/a"_s).st_uid),
                 std::pair(mode_t(0775), root ? nobodyId : ::geteuid()));
        QCOMPARE(LN_Util::createDirectoriesWithOwner(root_, attributes).code.value(), EEXIST);
        if (!root)
            QSKIP("giving files to another user needs root");

        auto const nobody = LN_UserUtil::getUserFromName(u"nobody"_s);
        auto const nogroup = LN_UserUtil::getGroupFromName(u"nogroup"_s);
        QVERIFY(!nobody.isError() && !nogroup.isError());
        QVERIFY(!LN_Util::changeOwnerRecursive(root_ + u"/dir/"_s, LN_Sid::fromBytes(nobody.value.get())).isError());
        for (QString const & entry : {u""_s, u"/sub/.hidden"_s, u"/sub/link-to-folder"_s, u"/dangling"_s})
            QVERIFY2(lstatOf(root_ + u"/dir"_s + entry).st_uid == nobodyId, qPrintable(entry));
        // Links are leaves: what they point to keeps its owner. A group sid changes the group only.
        QCOMPARE(lstatOf(root_ + u"/out/kept"_s).st_uid, ::geteuid());
        QVERIFY(!LN_Util::changeOwner(root_ + u"/dir/inner"_s, LN_Sid::fromBytes(nogroup.value.get())).isError());
        QCOMPARE(std::pair(lstatOf(root_ + u"/dir/inner"_s).st_uid, lstatOf(root_ + u"/dir/inner"_s).st_gid),
                 std::pair(nobodyId, nobodyId));
    }

    void copyMoveRemove()
    {
        LN_Waits::setForTesting(LN_Waits::CopyRetry, 100);
        // How the message starts ("@" being the test directory), its category and the pauses taken.
        auto const copy = [this](QString const & target, bool overwrite, bool makeDirectories) {
            QElapsedTimer timer;
            timer.start();
            LN_ErrorStruct const result =
                LN_Util::copyFile(root_ + u"/file"_s, root_ + target, overwrite, makeDirectories);
            return u"%1 (%2), %3 pauses"_s.arg(result.message.section(u": "_s, 0, 0).replace(root_, u"@"_s),
                                              QLatin1StringView(result.code.category().name()),
                                              QString::number(timer.elapsed() / 100));
        };
        QCOMPARE(copy(u"/other"_s, false, false), u"Unable to copy @/file to @/other (QFile), 5 pauses"_s);
        QCOMPARE(copy(u"/dir"_s, true, false), u"Unable to remove @/dir (QFile), 1 pauses"_s);
        QCOMPARE(copy(u"/other/u"_s, false, true), u"Unable to create directory @/other (QFile), 0 pauses"_s);
        QCOMPARE(readFile(root_ + u"/other"_s), QByteArray("other"));
        QCOMPARE(copy(u"/other"_s, true, false), u" (system), 0 pauses"_s);
        QCOMPARE(copy(u"/d/e/t"_s, false, true), u" (system), 0 pauses"_s);

        QString const tree = root_ + u"-copy"_s;
        writeFile(tree + u"/file"_s, "stale");
        LN_Util::copyTree(root_, tree, true);
        for (QString const & file : {u"/file"_s, u"/dir/sub/.hidden"_s, u"/dir/link-to-file"_s})
            QCOMPARE(readFile(tree + file), readFile(root_ + file));
        QVERIFY(!QFileInfo::exists(tree + u"/empty"_s));

        LN_Util::rename(root_ + u"/file"_s, root_ + u"/dir/moved"_s);
        // Neither a file nor an empty directory is replaced.
        QVERIFY_THROWS_EXCEPTION(LN_Exception, LN_Util::rename(root_ + u"/dir"_s, root_ + u"/other"_s));
        QVERIFY_THROWS_EXCEPTION(LN_Exception, LN_Util::rename(root_ + u"/dir"_s, root_ + u"/empty"_s));
        LN_Util::rename(root_ + u"/dir"_s, root_ + u"/moved"_s);
        QCOMPARE(readFile(root_ + u"/other"_s) + readFile(root_ + u"/d/e/t"_s) + readFile(root_ + u"/moved/moved"_s),
                 QByteArray("filefilefile"));

        QVERIFY_THROWS_EXCEPTION(LN_Exception, LN_Util::removeDir(QDir(root_)));
        LN_Util::removeTree(root_ + u"/moved"_s);
        QVERIFY(!QFileInfo::exists(root_ + u"/moved"_s));
        QCOMPARE(readFile(root_ + u"/out/kept"_s), QByteArray("kept"));
        // Already gone is no error.
        LN_Util::removeFile(root_ + u"/moved/inner"_s);
        LN_Util::removeDir(QDir(root_ + u"/moved"_s));
    }

    void checksum()
    {
        auto const sha256 = [](QByteArray d) { return QCryptographicHash::hash(d, QCryptographicHash::Sha256); };
        auto const hashOf = [this](QString const & name) { return LN_Util::checksum(root_ + name); };
        QByteArray const large(600 * 1024 + 7, 'x'); // a few buffers' worth, and not a whole number of them
        writeFile(root_ + u"/large"_s, large);

        // What sha256sum prints for the contents "file".
        QCOMPARE(hashOf(u"/file"_s).toHex(), "3b9c358f36f0a31b6ad3e14f309c7cf198ac9246e8316f9ce543d5b19ac02b80");
        QCOMPARE(hashOf(u"/large"_s), sha256(large));
        // A link is hashed by its target relative to its directory, and never followed.
        QCOMPARE(hashOf(u"/dir/link-to-file"_s), sha256("../out/kept"));
        QCOMPARE(hashOf(u"/dir/dangling"_s), sha256("nowhere"));
        QCOMPARE(hashOf(u"/missing"_s) + hashOf(u"/dir"_s), QByteArray());
    }

    void systemQueries()
    {
        // Other processes write meanwhile; the figure only has to come from the same file system.
        qint64 const free = QStorageInfo(root_).bytesFree();
        QVERIFY(free > 0 && qAbs(LN_Util::diskSpaceAvailable(root_ + u"/not/yet/there"_s) - free) < (256 << 20));

        // Two handles of this process, listed once, and what the list held before is gone.
        QList<LN_ProcessInfo> processes{LN_ProcessInfo{-1, u"stale"_s}};
        QFile held(root_ + u"/file"_s), again(root_ + u"/file"_s);
        QVERIFY(held.open(QIODevice::ReadOnly) && again.open(QIODevice::ReadOnly));
        LN_Util::openHandlesToFile(root_ + u"/file"_s, processes);
        QCOMPARE(processes.size(), 1);
        QCOMPARE(std::pair(processes.first().pid, processes.first().name),
                 std::pair(std::int64_t(::getpid()), QString::fromLocal8Bit(readFile(u"/proc/self/comm"_s)).trimmed()));

        writeFile(root_ + u"/VERSION"_s, "  21.0.512 \r\nbuilt somewhere\n");
        QCOMPARE(LN_Util::getFileVersion(root_ + u"/file"_s), QVersionNumber(21, 0, 512));
    }

    // The pure helpers, one table; each row holds a helper's answer beside the one expected.
    void helpers_data()
    {
        QTest::addColumn<QVariant>("answer");
        QTest::addColumn<QVariant>("expected");

        auto const row = [](char const * tag, QVariant const & answer, QVariant const & expected) {
            QTest::newRow(tag) << answer << expected;
        };
        row("decimal at the step stays plain", LN_Util::formatNumber(1000, LN_Util::Decimal, {}), u"1000"_s);
        row("decimal rounds up and carries", LN_Util::formatNumber(1995, LN_Util::Decimal, u" "_s), u"2.00 k"_s);
        row("decimal leading zero", LN_Util::formatNumber(1050, LN_Util::Decimal, {}), u"1.05k"_s);
        row("exact power stays a step lower", LN_Util::formatNumber(1000000, LN_Util::Decimal, {}), u"1000.00k"_s);
        row("bytes: capital K", LN_Util::numBytesToString(2048), u"2.00 KB"_s);
        row("sibling with common prefix", LN_Util::isParentDir(u"a/b"_s, u"a/bc"_s), false);
        row("empty parent", LN_Util::isParentDir(QString(), u"/a"_s), false);
        QHash<QString, QString> const paths{{u"$ROOT"_s, u"/o"_s}, {u"$BIN"_s, u"$ROOT/bin"_s}, {u"a.b"_s, u"X"_s}};
        row("one pass, literal keys", LN_Util::replace(u"$ROOT $BIN a.b axb"_s, paths), u"/o $ROOT/bin X axb"_s);
    }

    void helpers()
    {
        QFETCH(QVariant, answer);
        QFETCH(QVariant, expected);
        QCOMPARE(answer, expected);
    }
};

QTEST_GUILESS_MAIN(TestUtil)
#include "tst_util.moc"
