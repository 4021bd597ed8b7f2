// draizu-installer's plan, the disk space refusal of install and the import of older
// installations, run end to end on the sample offline installer.

#include "support/InstallerSandbox.h"
#include "support/OfflineInstaller.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

class TestInstallerPlan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(work_.isValid());
        QVERIFY(InstallerSandbox::makeSample(QStringLiteral(DRAIZU_SAMPLE_GENERATOR), work_.path(),
                                             {u"--files"_s, u"60"_s, u"--size"_s, u"300000"_s, u"--versions"_s, u"1"_s}));
    }
    void init() { QVERIFY(QDir(run_).removeRecursively() && QDir().mkpath(run_)); }

    void planMatchesInstall()
    {
        QStringList const line = install_(installer_) + QStringList{u"--pdb-files"_s, u"yes"_s};
        QVariantMap const plan = plan_(line);
        QVERIFY(!QFileInfo::exists(target_));
        QVERIFY(plan[u"installs"_s].toBool() && !plan[u"needs admin"_s].toBool() && plan[u"enough space"_s].toBool());
        QCOMPARE(plan[u"free at"_s].toString(), run_);

        QCOMPARE(sandbox_.run(line).code, 0);
        QStringList const installed = InstallerSandbox::filesBelow(target_);
        QCOMPARE(plan[u"added"_s].toStringList(), installed);
        qint64 bytes = 0, allocated = 0;
        for (QString const & file : installed) {
            struct stat status = {};
            QVERIFY(::stat(QFile::encodeName(target_ + u'/' + file).constData(), &status) == 0);
            bytes += status.st_size;
            allocated += status.st_blocks * 512;
        }
        QCOMPARE(plan[u"space required"_s].toLongLong(), bytes);
        QVERIFY(allocated - bytes <= installed.size() * QStorageInfo(target_).blockSize());

        QVariantMap const again = plan_(line);
        QVERIFY(!again[u"installs"_s].toBool() && again[u"added"_s].toList().isEmpty() && again[u"replaced"_s].toList().isEmpty());
        QCOMPARE(plan_({u"uninstall"_s, target_})[u"removed"_s].toStringList(), installed);
    }

    void installRefusesWhenSpaceIsShort()
    {
        QString const copy = run_ + u"/installer"_s;
        QCOMPARE(QProcess::execute(u"cp"_s, {u"-a"_s, installer_, copy}), 0);
        QFile manifest(copy + u"/orvanis-21.0.512.files"_s);
        QVERIFY(manifest.open(QIODevice::ReadWrite));
        QJsonObject files = QJsonDocument::fromJson(manifest.readAll()).object();
        QJsonArray entry = files.begin()->toArray();
        entry[2] = double(qint64(1) << 52);
        *files.begin() = entry;
        QVERIFY(manifest.resize(0) && manifest.write(QJsonDocument(files).toJson()) > 0 && manifest.flush());
        QString const refused = outcome_(install_(copy));
        QVERIFY2(refused.startsWith(u"1 "_s) && refused.contains(u" free at "_s + run_)
                     && refused.contains(u"Not enough disk space to install into %1: 4096.00 TB needed, "_s.arg(target_)),
                 qPrintable(refused));
        QVERIFY(!QFileInfo::exists(target_));
    }

    void importOlderInstallation()
    {
        QString const old = run_ + u"/orvanis-19.5"_s;
        QByteArray const setup = "ORVANIS_MAJOR_RELEASE=19\nORVANIS_MINOR_RELEASE=5\nORVANIS_BUILD_VERSION=303\n";
        QVERIFY(OfflineInstaller::writeTree(old, {{u"bin/orvanis"_s, "program"}, {u"Uninstall Orvanis"_s, {}},
                                                  {u"engine/maya/"_s, {}}, {u"orvanis_setup_bash"_s, setup}}));
        QCOMPARE(sandbox_.run({u"import"_s, old}).code, 0);
        QVERIFY(sandbox_.run({u"list"_s}).out.contains(u"Orvanis 19.5.303"_s));
        QCOMPARE(sandbox_.run({u"verify"_s, old}).code, 0);
        QCOMPARE(outcome_({u"import"_s, old}), u"1 %1 is recorded already"_s.arg(old));
        QCOMPARE(sandbox_.run({u"uninstall"_s, old}).code, 0);
        QCOMPARE(InstallerSandbox::filesBelow(old), QStringList());
    }

    void refusals_data()
    {
        QTest::addColumn<QString>("words");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plan of nothing") << u"plan"_s << u"2 Incorrect number of arguments"_s;
        QTest::newRow("plan of an unknown verb") << u"plan frobnicate"_s << u"2 Invalid verb \"frobnicate\" specified"_s;
        QTest::newRow("plan of an uninstall of nothing")
            << u"plan uninstall /nowhere"_s << u"3 /nowhere does not contain an installation."_s;
        QTest::newRow("import of nothing") << u"import /nowhere"_s << u"3 /nowhere does not contain an older installation."_s;
    }
    void refusals()
    {
        QFETCH(QString, words);
        QTEST(outcome_(words.split(u' ')), "expected");
    }

private:
    QStringList install_(QString const & installer) const
    {
        return {u"install"_s, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                u"--offline-installer"_s, installer, u"--installdir"_s, target_};
    }

    // The exit code, then what is printed.
    QString outcome_(QStringList const & arguments) const
    {
        InstallerSandbox::Run const run = sandbox_.run(arguments);
        return QString::number(run.code) + u' ' + QString(run.out + run.err).trimmed();
    }

    // The plan --json of one verb line.
    QVariantMap plan_(QStringList const & line) const
    {
        return sandbox_.run(QStringList{u"--json"_s, u"plan"_s, u"--"_s} + line)
            .result()[u"operations"_s][0].toObject().toVariantMap();
    }

    QTemporaryDir work_;
    QString const run_ = work_.filePath(u"run"_s);
    QString const installer_ = work_.filePath(u"sample/data"_s);
    QString const target_ = run_ + u"/target"_s;
    InstallerSandbox const sandbox_{QStringLiteral(DRAIZU_INSTALLER), run_};
};

QTEST_GUILESS_MAIN(TestInstallerPlan)
#include "tst_installer_plan.moc"
