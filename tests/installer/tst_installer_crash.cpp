// draizu-installer killed with SIGKILL all along its operations, and stopped by a full disk:
// the repository still loads and tells the truth, and the same command finishes the job.

#include "support/InstallerSandbox.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <sys/resource.h>

using namespace Qt::StringLiterals;

class TestInstallerCrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(work_.isValid());
        QVERIFY(InstallerSandbox::makeSample(QStringLiteral(DRAIZU_SAMPLE_GENERATOR), work_.path(),
                                             {u"--files"_s, u"40"_s, u"--size"_s, u"200000"_s}));
        keep_(u"empty"_s);
        QCOMPARE(sandbox_.run(command_(u"install"_s)).code, 0);
        keep_(u"installed"_s);
        QStringList const installed = InstallerSandbox::filesBelow(target_());
        for (int i = 0; i < 40; i += 4) {
            QString const path = target_() + u'/' + installed.at(i);
            QVERIFY(i % 8 == 0 ? QFile::remove(path) : QFile::resize(path, 1));
        }
        keep_(u"damaged"_s);
    }

    void killed_data()
    {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("steps"); // files written, renamed and removed
        QTest::addColumn<bool>("readyIsIntact");
        QTest::newRow("install") << u"empty"_s << command_(u"install"_s) << 80 << true;
        QTest::newRow("modify to another version with a feature") << u"installed"_s << command_(u"modify"_s) << 82
                                                                  << true;
        // A repair leaves the record alone: ready, it names what is still broken.
        QTest::newRow("repair") << u"damaged"_s << command_(u"repair"_s) << 20 << false;
        QTest::newRow("uninstall") << u"installed"_s << command_(u"uninstall"_s) << 40 << true;
    }
    void killed()
    {
        QFETCH(QString, start);
        QFETCH(QStringList, arguments);
        QFETCH(int, steps);
        QFETCH(bool, readyIsIntact);
        bool const uninstalling = arguments.first() == u"uninstall"_s;
        for (int point = 1; point <= steps; point += std::max(1, steps / 20)) {
            QString const where = u"killed after file step %1"_s.arg(point);
            restore_(start);
            QProcessEnvironment environment = sandbox_.environment();
            environment.insert(u"DRAIZU_INSTALLER_TEST_KILL_AFTER"_s, QString::number(point));
            QVERIFY2(sandbox_.run(arguments, environment).code == -1, qPrintable(where));

            InstallerSandbox::Run const listed = sandbox_.run({u"list"_s, u"--json"_s});
            QVERIFY2(listed.code == 0, qPrintable(where + listed.err));
            QJsonArray const installations = listed.result()[u"installations"_s].toArray();
            int const verified = sandbox_.run({u"verify"_s, target_()}).code;
            bool const ready = installations.at(0)[u"ready"_s].toBool();
            if (installations.isEmpty())
                QVERIFY2(verified == 3 && !QFileInfo::exists(target_()), qPrintable(where));
            else
                QVERIFY2(verified == (ready && readyIsIntact ? 0 : 4) || (ready && verified == 0), qPrintable(where));

            // An interrupted installation does not hold up the others.
            if (point == 1 + steps / 2) {
                QStringList other = command_(u"install"_s);
                other[other.indexOf(target_())] = sandbox_.root() + u"/other"_s;
                QVERIFY2(sandbox_.run(other).code == 0, qPrintable(where));
                QVERIFY2(sandbox_.run({u"uninstall"_s, sandbox_.root() + u"/other"_s}).code == 0, qPrintable(where));
            }
            InstallerSandbox::Run const again = sandbox_.run(arguments);
            QVERIFY2(again.code == 0, qPrintable(where + again.err));
            if (uninstalling)
                QVERIFY2(!QFileInfo::exists(target_()) && sandbox_.run({u"list"_s}).out.contains(u"Nothing is installed."_s),
                         qPrintable(where));
            else
                QVERIFY2(sandbox_.run({u"verify"_s, target_()}).code == 0, qPrintable(where));
            QVERIFY2(InstallerSandbox::filesBelow(sandbox_.root()).filter(u".draizu-part"_s).isEmpty(), qPrintable(where));
        }
    }

    void fullDisk_data()
    {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("install") << u"empty"_s << command_(u"install"_s);
        QTest::newRow("modify to another version") << u"installed"_s << command_(u"modify"_s);
    }
    void fullDisk()
    {
        QFETCH(QString, start);
        QFETCH(QStringList, arguments);
        restore_(start);
        QStringList const files = InstallerSandbox::filesBelow(target_());
        QJsonArray const installations = sandbox_.run({u"list"_s, u"--json"_s}).result()[u"installations"_s].toArray();
        // The largest files of the sample pass the limit, the repository's files do not.
        InstallerSandbox::Run const result = sandbox_.run(arguments, {}, [] {
            rlimit const limit{16384, 16384};
            setrlimit(RLIMIT_FSIZE, &limit);
            std::signal(SIGXFSZ, SIG_IGN);
        });
        QCOMPARE(result.code, 1);
        QVERIFY2(result.err.contains(u"File too large"_s), qPrintable(result.err));
        QCOMPARE(InstallerSandbox::filesBelow(target_()), files);
        QCOMPARE(sandbox_.run({u"list"_s, u"--json"_s}).result()[u"installations"_s].toArray(), installations);
    }

private:
    QString target_() const { return sandbox_.root() + u"/target"_s; }

    QStringList command_(QString const & verb) const
    {
        QStringList const source{u"--offline-installer"_s, work_.filePath(u"sample/data"_s)};
        if (verb == u"install"_s)
            return QStringList{verb, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                               u"--installdir"_s, target_()}
                   + source;
        if (verb == u"modify"_s)
            return QStringList{verb, target_(), u"--version"_s, u"21.0.600"_s, u"--pdb-files"_s, u"yes"_s} + source;
        return verb == u"repair"_s ? QStringList{verb, target_()} + source : QStringList{verb, target_()};
    }

    void keep_(QString const & state) const { QVERIFY(sandbox_.keep(work_.filePath(state))); }
    void restore_(QString const & state) const { QVERIFY(sandbox_.restore(work_.filePath(state))); }

    QTemporaryDir work_;
    InstallerSandbox const sandbox_{QStringLiteral(DRAIZU_INSTALLER), work_.filePath(u"run"_s)};
};

QTEST_GUILESS_MAIN(TestInstallerCrash)
#include "tst_installer_crash.moc"
