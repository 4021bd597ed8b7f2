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

namespace {

struct Run
{
    int code = -1;
    QString output; ///< standard output, then standard error
    QJsonObject result; ///< the last line read as JSON
};

QStringList filesBelow(QString const & directory)
{
    QStringList files;
    QDirIterator walk(directory, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (walk.hasNext())
        files << QDir(directory).relativeFilePath(walk.next());
    files.sort();
    return files;
}

QStringList texts(QJsonValue const & array)
{
    QStringList list;
    for (QJsonValue const & value : array.toArray())
        list << value.toString();
    return list;
}

} // namespace

class TestInstallerPlan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(work_.isValid());
        QCOMPARE(QProcess::execute(u"python3"_s, {QStringLiteral(DRAIZU_SAMPLE_GENERATOR), work_.path(), u"--files"_s,
                                                  u"60"_s, u"--size"_s, u"300000"_s, u"--versions"_s, u"1"_s}),
                 0);
        installer_ = work_.filePath(u"sample/data"_s);
        target_ = work_.filePath(u"run/target"_s);
    }
    void init() { QVERIFY(QDir(work_.filePath(u"run"_s)).removeRecursively() && QDir().mkpath(work_.filePath(u"run"_s))); }

    void planMatchesInstall()
    {
        QStringList const line{u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                               u"--offline-installer"_s, installer_, u"--installdir"_s, target_, u"--pdb-files"_s, u"yes"_s};
        QJsonObject const plan = run(QStringList{u"--json"_s, u"plan"_s, u"--"_s, u"install"_s} + line).result[u"operations"_s][0].toObject();
        QVERIFY(!QFileInfo::exists(target_));
        QVERIFY(plan[u"installs"_s].toBool() && !plan[u"needs admin"_s].toBool() && plan[u"enough space"_s].toBool());
        QCOMPARE(plan[u"free at"_s].toString(), work_.filePath(u"run"_s));

        QCOMPARE(run(QStringList{u"install"_s} + line).code, 0);
        QStringList const installed = filesBelow(target_);
        QCOMPARE(texts(plan[u"added"_s]), installed);
        qint64 bytes = 0, allocated = 0;
        for (QString const & file : installed) {
            struct stat status = {};
            QVERIFY(::stat(QFile::encodeName(target_ + u'/' + file).constData(), &status) == 0);
            bytes += status.st_size;
            allocated += status.st_blocks * 512;
        }
        QCOMPARE(plan[u"space required"_s].toInteger(), bytes);
        QVERIFY(allocated - bytes <= installed.size() * QStorageInfo(target_).blockSize());

        QJsonObject const again = run(QStringList{u"--json"_s, u"plan"_s, u"--"_s, u"install"_s} + line).result[u"operations"_s][0].toObject();
        QCOMPARE(QStringList(texts(again[u"added"_s]) + texts(again[u"replaced"_s])), QStringList());
        QVERIFY(!again[u"installs"_s].toBool());
        QJsonObject const removal = run({u"--json"_s, u"plan"_s, u"--"_s, u"uninstall"_s, target_}).result[u"operations"_s][0].toObject();
        QCOMPARE(texts(removal[u"removed"_s]), installed);
    }

    void installRefusesWhenSpaceIsShort()
    {
        QString const copy = work_.filePath(u"run/installer"_s);
        QCOMPARE(QProcess::execute(u"cp"_s, {u"-a"_s, installer_, copy}), 0);
        QFile manifest(copy + u"/orvanis-21.0.512.files"_s);
        QVERIFY(manifest.open(QIODevice::ReadWrite));
        QJsonObject files = QJsonDocument::fromJson(manifest.readAll()).object();
        QJsonArray entry = files.begin()->toArray();
        entry[2] = double(qint64(1) << 52);
        *files.begin() = entry;
        manifest.resize(0);
        manifest.write(QJsonDocument(files).toJson());
        manifest.close();
        Run const refused = run({u"install"_s, u"Orvanis"_s, u"21.0.512"_s, u"--platform"_s, u"linux_x86_64_gcc12"_s,
                                 u"--offline-installer"_s, copy, u"--installdir"_s, target_});
        QCOMPARE(refused.code, 1);
        QVERIFY2(refused.output.contains(u"Not enough disk space to install into %1: 4096.00 TB needed, "_s.arg(target_))
                     && refused.output.contains(u" free at "_s + work_.filePath(u"run"_s)),
                 qPrintable(refused.output));
        QVERIFY(!QFileInfo::exists(target_));
    }

    void importOlderInstallation()
    {
        QString const old = work_.filePath(u"run/orvanis-19.5"_s);
        QVERIFY(QDir().mkpath(old + u"/bin"_s) && QDir().mkpath(old + u"/engine/maya"_s));
        for (auto const & [name, content] : {std::pair(u"bin/orvanis"_s, "program"), std::pair(u"Uninstall Orvanis"_s, ""),
                                             std::pair(u"orvanis_setup_bash"_s, "ORVANIS_MAJOR_RELEASE=19\n"
                                                                                "ORVANIS_MINOR_RELEASE=5\nORVANIS_BUILD_VERSION=303\n")}) {
            QFile file(old + u'/' + name);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) >= 0);
        }
        QCOMPARE(run({u"import"_s, old}).code, 0);
        QVERIFY(run({u"list"_s}).output.contains(u"Orvanis 19.5.303"_s));
        QCOMPARE(run({u"verify"_s, old}).code, 0);
        Run const twice = run({u"import"_s, old});
        QVERIFY(twice.code == 1 && twice.output.contains(u"is recorded already"_s));
        QCOMPARE(run({u"uninstall"_s, old}).code, 0);
        QCOMPARE(filesBelow(old), QStringList());
    }

    void usage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("plan of nothing") << QStringList{u"plan"_s} << 2 << u"Incorrect number of arguments"_s;
        QTest::newRow("plan of an unknown verb") << QStringList{u"plan"_s, u"frobnicate"_s} << 2 << u"Invalid verb"_s;
        QTest::newRow("plan of an uninstall of nothing") << QStringList{u"plan"_s, u"uninstall"_s, u"/nowhere"_s} << 3
                                                         << u"/nowhere does not contain an installation."_s;
        QTest::newRow("import of nothing") << QStringList{u"import"_s, u"/nowhere"_s} << 3
                                           << u"/nowhere does not contain an older installation."_s;
    }
    void usage()
    {
        QFETCH(QStringList, arguments);
        Run const result = run(arguments);
        QTEST(result.code, "code");
        QFETCH(QString, message);
        QVERIFY2(result.output.contains(message), qPrintable(result.output));
    }

private:
    Run run(QStringList const & arguments) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"DRAIZU_REPOSITORY"_s, work_.filePath(u"run/repository"_s));
        environment.insert(u"XDG_DATA_HOME"_s, work_.filePath(u"run/data"_s));
        environment.insert(u"XDG_CONFIG_HOME"_s, work_.filePath(u"run/config"_s));
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(DRAIZU_INSTALLER), arguments);
        if (!process.waitForFinished(60000))
            return {};
        QString const out = QString::fromUtf8(process.readAllStandardOutput());
        QStringList const lines = out.split(u'\n', Qt::SkipEmptyParts);
        QString const last = lines.isEmpty() ? QString() : lines.last();
        return {process.exitCode(), out + QString::fromUtf8(process.readAllStandardError()),
                QJsonDocument::fromJson(last.toUtf8()).object()};
    }

    QTemporaryDir work_;
    QString installer_;
    QString target_;
};

QTEST_GUILESS_MAIN(TestInstallerPlan)
#include "tst_installer_plan.moc"
