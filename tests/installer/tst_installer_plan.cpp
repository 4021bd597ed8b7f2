// draizu-installer's plan, the disk space refusal of install and the import of older
// installations, run end to end on the sample offline installer.

#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

static QStringList filesBelow(QString const & directory)
{
    QStringList files;
    QDirIterator walk(directory, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (walk.hasNext())
        files << QDir(directory).relativeFilePath(walk.next());
    files.sort();
    return files;
}

class TestInstallerPlan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(work_.isValid());
        QCOMPARE(QProcess::execute(u"python3"_s, {QStringLiteral(DRAIZU_SAMPLE_GENERATOR), work_.path(), u"--files"_s, u"60"_s,
                                                  u"--size"_s, u"300000"_s, u"--versions"_s, u"1"_s}),
                 0);
    }
    void init() { QVERIFY(QDir(run_).removeRecursively() && QDir().mkpath(run_)); }

    void planMatchesInstall()
    {
        QStringList const line{u"install"_s, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                               u"--offline-installer"_s, installer_, u"--installdir"_s, target_, u"--pdb-files"_s, u"yes"_s};
        QVariantMap const plan = this->plan(line);
        QVERIFY(!QFileInfo::exists(target_));
        QVERIFY(plan[u"installs"_s].toBool() && !plan[u"needs admin"_s].toBool() && plan[u"enough space"_s].toBool());
        QCOMPARE(plan[u"free at"_s].toString(), run_);

        QCOMPARE(run(line).first, 0);
        QStringList const installed = filesBelow(target_);
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

        QVariantMap const again = this->plan(line);
        QVERIFY(!again[u"installs"_s].toBool() && again[u"added"_s].toList().isEmpty() && again[u"replaced"_s].toList().isEmpty());
        QCOMPARE(this->plan({u"uninstall"_s, target_})[u"removed"_s].toStringList(), installed);
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
        QVERIFY(manifest.resize(0) && manifest.write(QJsonDocument(files).toJson()) > 0);
        manifest.close();
        auto const [code, output] = run({u"install"_s, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                                         u"--offline-installer"_s, copy, u"--installdir"_s, target_});
        QCOMPARE(code, 1);
        QVERIFY2(output.contains(u"Not enough disk space to install into %1: 4096.00 TB needed, "_s.arg(target_))
                     && output.contains(u" free at "_s + run_),
                 qPrintable(output));
        QVERIFY(!QFileInfo::exists(target_));
    }

    void importOlderInstallation()
    {
        QString const old = run_ + u"/orvanis-19.5"_s;
        QVERIFY(QDir().mkpath(old + u"/bin"_s) && QDir().mkpath(old + u"/engine/maya"_s));
        for (auto const & [name, content] : {std::pair(u"bin/orvanis"_s, "program"), std::pair(u"Uninstall Orvanis"_s, ""),
                                             std::pair(u"orvanis_setup_bash"_s, "ORVANIS_MAJOR_RELEASE=19\n"
                                                                                "ORVANIS_MINOR_RELEASE=5\nORVANIS_BUILD_VERSION=303\n")}) {
            QFile file(old + u'/' + name);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) >= 0);
        }
        QCOMPARE(run({u"import"_s, old}).first, 0);
        QVERIFY(run({u"list"_s}).second.contains(u"Orvanis 19.5.303"_s));
        QCOMPARE(run({u"verify"_s, old}).first, 0);
        QCOMPARE(run({u"import"_s, old}), std::pair(1, u"%1 is recorded already\n"_s.arg(old)));
        QCOMPARE(run({u"uninstall"_s, old}).first, 0);
        QCOMPARE(filesBelow(old), QStringList());
    }

    // The exit code, then what is printed.
    void refusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plan of nothing") << QStringList{u"plan"_s} << u"2 Incorrect number of arguments"_s;
        QTest::newRow("plan of an unknown verb") << QStringList{u"plan"_s, u"frobnicate"_s} << u"2 Invalid verb \"frobnicate\" specified"_s;
        QTest::newRow("plan of an uninstall of nothing") << QStringList{u"plan"_s, u"uninstall"_s, u"/nowhere"_s}
                                                         << u"3 /nowhere does not contain an installation."_s;
        QTest::newRow("import of nothing") << QStringList{u"import"_s, u"/nowhere"_s}
                                           << u"3 /nowhere does not contain an older installation."_s;
    }
    void refusals()
    {
        QFETCH(QStringList, arguments);
        auto const [code, output] = run(arguments);
        QTEST(QString(QString::number(code) + u' ' + output.trimmed()), "expected");
    }

private:
    // The exit code, and standard output followed by standard error.
    std::pair<int, QString> run(QStringList const & arguments) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (QString const & variable : {u"DRAIZU_REPOSITORY"_s, u"XDG_DATA_HOME"_s, u"XDG_CONFIG_HOME"_s})
            environment.insert(variable, run_ + u'/' + variable);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(DRAIZU_INSTALLER), arguments);
        if (!process.waitForFinished(60000))
            return {-1, {}};
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError())};
    }

    // The plan --json of one verb line.
    QVariantMap plan(QStringList const & line) const
    {
        QString const output = run(QStringList{u"--json"_s, u"plan"_s, u"--"_s} + line).second.trimmed();
        return QJsonDocument::fromJson(output.section(u'\n', -1).toUtf8())[u"operations"_s][0].toObject().toVariantMap();
    }

    QTemporaryDir work_;
    QString const run_ = work_.filePath(u"run"_s);
    QString const installer_ = work_.filePath(u"sample/data"_s);
    QString const target_ = run_ + u"/target"_s;
};

QTEST_GUILESS_MAIN(TestInstallerPlan)
#include "tst_installer_plan.moc"
