#include "RepositoryFixture.h"

#include <draizu/records/LN_InstallMetadata.h>

#include <QDirIterator>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <exception>

using namespace Qt::StringLiterals;
using namespace RepositoryFixture;

// A process that changes the repository is killed at each point of its change; the next
// process must find every committed record and every file that may lie on disk.
class TestRepositoryCrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killedDuringChange_data();
    void killedDuringChange();
};

namespace {

// Absolute paths of every file that some record of the table names.
QSet<QString> namedFiles(LN_InstallMetadata const & repo)
{
    QSet<QString> named;
    for (LN_ComponentMetadata const & record : repo.installations) {
        QDir const root(record.installDir);
        for (LN_FileMetadata const & file : record.allFiles())
            named.insert(root.absoluteFilePath(file.path));
    }
    return named;
}

QStringList filesBelow(QString const & root)
{
    QStringList files;
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(it.next());
    return files;
}

} // namespace

void TestRepositoryCrash::killedDuringChange_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<QString>("stop");
    QTest::addColumn<bool>("recovers");
    QTest::addColumn<QStringList>("untouched");

    struct Scenario
    {
        char const * name;
        QStringList untouched;
        // The change holds no record whose ready flag is set only at the commit.
        bool removal;
    };
    Scenario const scenarios[] = {
        {"modify", {u"b"_s, u"c"_s, u"d"_s}, false},
        {"add", {u"a"_s, u"b"_s, u"c"_s, u"d"_s}, false},
        {"remove", {u"a"_s, u"c"_s, u"d"_s}, true},
        {"move", {u"a"_s, u"b"_s, u"d"_s}, false},
    };
    for (Scenario const & s : scenarios) {
        auto const row = [&s](char const * stop, bool recovers) {
            QTest::addRow("%s, %s", s.name, stop)
                << QString::fromLatin1(s.name) << QString::fromLatin1(stop) << recovers << s.untouched;
        };
        // A removal writes no manifests of its own.
        if (!s.removal)
            row("new-manifest", false);
        row("new", true);
        row("disk", true);
        if (!s.removal)
            row("final-manifest", true);
        // "new.json" still holds the changed record as not ready.
        row("overview", !s.removal);
        row("none", false);
    }
}

void TestRepositoryCrash::killedDuringChange()
{
    QFETCH(QString, scenario);
    QFETCH(QString, stop);
    QFETCH(bool, recovers);
    QFETCH(QStringList, untouched);

    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    QString const root = temp.filePath(u"installed"_s);
    QDir const repoDir(temp.filePath(u"repository"_s));
    QVERIFY(QDir().mkpath(repoDir.path()));

    LN_InstallMetadata committed(repoDir);
    for (QString const & name : names) {
        QString const dir = QDir(root).filePath(name);
        for (Content const & file : productContents(name) + docsContents())
            QVERIFY(writeContent(dir, file));
        committed.insert(record(dir, productContents(name), docsContents()));
    }
    committed.saveFinal();

    QProcess helper;
    helper.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    helper.start(QStringLiteral(DRAIZU_CRASH_HELPER), {repoDir.path(), root, scenario, stop});
    QVERIFY(helper.waitForStarted());
    if (stop == u"none"_s) {
        QVERIFY(helper.waitForFinished(30000));
        QCOMPARE(helper.exitCode(), 0);
    } else {
        while (!helper.canReadLine())
            QVERIFY2(helper.waitForReadyRead(30000), "the helper ended without reaching its stop");
        QCOMPARE(helper.readLine(), "stopped\n");
        helper.kill();
        QVERIFY(helper.waitForFinished(30000));
        QCOMPARE(helper.exitStatus(), QProcess::CrashExit);
    }

    auto const checkUntouched = [&](LN_InstallMetadata const & repo) {
        for (QString const & name : untouched) {
            QString const dir = QDir(root).filePath(name);
            LN_ComponentMetadata const before = committed.get(dir);
            LN_ComponentMetadata const after = repo.get(dir);
            QVERIFY2(after == before, qPrintable(dir));
            QVERIFY(after.ready);
            QCOMPARE(after.allFiles(), before.allFiles());
        }
    };

    LN_InstallMetadata repo(repoDir);
    checkUntouched(repo);
    bool const recovered = !repo.interruptedNew.installDir.isEmpty() || !repo.interruptedOld.installDir.isEmpty();
    QCOMPARE(recovered, recovers);

    QSet<QString> const named = namedFiles(repo);
    QStringList const onDisk = filesBelow(root);
    for (QString const & file : onDisk)
        QVERIFY2(named.contains(file), qPrintable(file + u" is not named by any record"_s));

    // The caller deals with the merged record, which cannot be committed as it is, and the
    // next commit leaves only what the table names.
    if (recovered) {
        try {
            repo.saveFinal();
            QFAIL("a merged record was committed");
        } catch (std::exception const & e) {
            QVERIFY2(QString::fromUtf8(e.what()).startsWith(u"The launcher's internal state is corrupted ("_s),
                     e.what());
        }
        repo.remove(repo.interruptedNew.installDir);
    }
    repo.saveFinal();

    LN_InstallMetadata const reloaded(repoDir);
    QVERIFY(reloaded.interruptedNew.installDir.isEmpty() && reloaded.interruptedOld.installDir.isEmpty());
    checkUntouched(reloaded);
    QSet<QString> expected{repoDir.absoluteFilePath(u"overview.json"_s)};
    for (LN_ComponentMetadata const & record : reloaded.installations) {
        expected.insert(record.productFiles);
        for (QString const & path : record.features)
            expected.insert(path);
        for (QString const & path : record.sofsFiles)
            expected.insert(path);
    }
    QSet<QString> left;
    for (QString const & name : repoDir.entryList(QDir::Files))
        left.insert(repoDir.absoluteFilePath(name));
    QCOMPARE(left, expected);
}

QTEST_GUILESS_MAIN(TestRepositoryCrash)
#include "tst_repositorycrash.moc"
