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

void TestRepositoryCrash::killedDuringChange_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<QString>("stop");
    QTest::addColumn<bool>("recovers");
    QTest::addColumn<QStringList>("untouched");

    QHash<QString, QString> const changed{{u"modify"_s, u"a"_s}, {u"remove"_s, u"b"_s}, {u"move"_s, u"c"_s}};
    for (QString const & scenario : {u"modify"_s, u"add"_s, u"remove"_s, u"move"_s}) {
        QStringList untouched{u"a"_s, u"b"_s, u"c"_s, u"d"_s};
        untouched.removeOne(changed.value(scenario));
        // A removal writes no manifests of its own, and "new.json" holds no record of it that
        // is not ready, so after the commit there is nothing left to recover.
        bool const removal = scenario == u"remove"_s;
        auto const row = [&](char const * stop, bool recovers) {
            QTest::addRow("%s, %s", qPrintable(scenario), stop) << scenario << QString::fromLatin1(stop) << recovers
                                                                << untouched;
        };
        if (!removal)
            row("new-manifest", false);
        row("new", true);
        row("disk", true);
        if (!removal)
            row("final-manifest", true);
        row("overview", !removal);
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
    for (QString const & name : {u"a"_s, u"b"_s, u"c"_s, u"d"_s}) {
        QString const dir = QDir(root).filePath(name);
        for (Content const & file : productContents(name) + docsContents)
            QVERIFY(writeContent(dir, file));
        committed.insert(record(dir, productContents(name), docsContents));
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
            QVERIFY2(repo.get(dir) == committed.get(dir) && repo.get(dir).ready, qPrintable(dir));
            QCOMPARE(repo.get(dir).allFiles(), committed.get(dir).allFiles());
        }
    };
    LN_InstallMetadata repo(repoDir);
    checkUntouched(repo);
    bool const recovered = !repo.interruptedNew.installDir.isEmpty() || !repo.interruptedOld.installDir.isEmpty();
    QCOMPARE(recovered, recovers);
    QSet<QString> named;
    for (LN_ComponentMetadata const & record : std::as_const(repo.installations))
        for (LN_FileMetadata const & file : record.allFiles())
            named.insert(QDir(record.installDir).absoluteFilePath(file.path));
    for (QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        QString const file = it.next();
        QVERIFY2(named.contains(file), qPrintable(file + u" is not named by any record"_s));
    }

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
    for (LN_ComponentMetadata const & r : reloaded.installations)
        expected += QSet<QString>{r.productFiles} + QSet(r.features.cbegin(), r.features.cend())
            + QSet(r.sofsFiles.cbegin(), r.sofsFiles.cend());
    QSet<QString> left;
    for (QString const & name : repoDir.entryList(QDir::Files))
        left.insert(repoDir.absoluteFilePath(name));
    QCOMPARE(left, expected);
}

QTEST_GUILESS_MAIN(TestRepositoryCrash)
#include "tst_repositorycrash.moc"
