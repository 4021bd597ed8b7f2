#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <support/TestHttpServer.h>

#include <QDir>
#include <QDirIterator>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <filesystem>
#include <memory>

using namespace Qt::StringLiterals;

// Offline installers are made here by xorriso and zip; the site is a local server. Every
// source labels its files, so that the content read tells where it came from.

namespace {

using Files = QList<QPair<QString, QByteArray>>;

QString const unresolved = u"Could not locate a valid offline installer"_s;
QString const platform = u"linux_x86_64_gcc12"_s;

QByteArray catalogue(QString const & version, QString const & featureFiles = u"pdb.files"_s)
{
    return uR"({"format version": 1, "products": [{"name": "Orvanis", "version": "%1",
        "minimum launcher version": "21.0.1", "os name": "linux_x86_64", "compiler": "gcc12",
        "files": "orvanis.files", "sofs_files": "orvanis.sofs",
        "features": [{"name": "PDB Files", "files": "%2"}]}]})"_s.arg(version, featureFiles)
        .toUtf8();
}

// An offline installer of one build whose files all say `label`.
Files installerFiles(QString const & version, QString const & label)
{
    QByteArray const l = label.toUtf8();
    return {{u"data/overview.json"_s, catalogue(version)},
            {u"data/orvanis.files"_s, l},
            {u"data/pdb.files"_s, "pdb " + l},
            {u"data/sofs/x.sofs"_s, "sofs " + l},
            {u"data/install_orvanis_launcher.sh"_s, "not the launcher"},
            {u"data/tools/install_orvanis_launcher.sh"_s, "tools " + l},
            {u"install_orvanis_launcher.sh"_s, "launcher " + l},
            {u"install-orvanis-launcher.exe"_s, "exe " + l},
            {u"packages-extra.zip"_s, "extra " + l}};
}

bool writeTree(QString const & root, Files const & files)
{
    for (auto const & [name, bytes] : files) {
        QFile file(QDir(root).filePath(name));
        if (!QDir(root).mkpath(QFileInfo(name).path()) || !file.open(QIODevice::WriteOnly)
            || file.write(bytes) != bytes.size())
            return false;
    }
    return true;
}

// Zip keeps the order of the names it is given, so the archive order is that of `files`.
bool makeArchive(QString const & archive, Files const & files)
{
    QTemporaryDir tree;
    if (!tree.isValid() || !writeTree(tree.path(), files))
        return false;
    bool const iso = archive.endsWith(u".iso"_s);
    QStringList arguments;
    if (iso) {
        arguments = {u"-as"_s, u"mkisofs"_s, u"-quiet"_s, u"-R"_s, u"-J"_s, u"-o"_s, archive, tree.path()};
    } else {
        arguments = {u"-q"_s, u"-D"_s, archive};
        for (auto const & file : files)
            arguments.append(file.first);
    }
    QProcess process;
    process.setWorkingDirectory(tree.path());
    process.start(iso ? u"xorriso"_s : u"zip"_s, arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// What the file says, "error <code>" when it cannot be opened or read, and "none" when the
// source is unresolved (after checking how that is reported).
QString readLabel(LN_FileOpener::TypedResult<LN_IODevice> result)
{
    if (result.message == unresolved) {
        bool const reported = !result.device && result.error == make_error_code(LN_FileError::FileNotFound);
        return reported ? u"none"_s : u"unresolved, badly reported"_s;
    }
    if (result.isError())
        return u"error %1"_s.arg(result.error.value());
    QByteArray bytes;
    if (result.device->readAll(bytes) < 0)
        return u"read error"_s;
    return QString::fromUtf8(bytes);
}

LN_InstallerOptions optionsFor(QString const & source, QString const & version)
{
    LN_InstallerOptions options;
    options.verb = LN_InstallerOptions::Install;
    options.product = Product_Orvanis;
    options.platform = platform;
    options.offlineInstaller = source;
    options.version = QVersionNumber::fromString(version);
    return options;
}

void replaceFile(QString const & from, QString const & to)
{
    std::filesystem::rename(QFile::encodeName(from).toStdString(), QFile::encodeName(to).toStdString());
}

} // namespace

class TestFileOpener : public QObject
{
    Q_OBJECT

public:
    explicit TestFileOpener(TestHttpServer & site)
        : site_(site)
    {
    }

private Q_SLOTS:
    void initTestCase();
    void states_data();
    void states();
    void lastFittingArchiveWins();
    void walksAgainUntilSomethingFits();
    void archiveNames_data();
    void archiveNames();
    void archiveReopens_data();
    void archiveReopens();
    void vanishedArchive();
    void downloadRequest_data();
    void downloadRequest();

private:
    QString path(QString const & key) const;

    TestHttpServer & site_;
    QTemporaryDir work_;
    std::unique_ptr<QNetworkAccessManager> manager_;
};

void TestFileOpener::initTestCase()
{
    for (QString const & tool : {u"xorriso"_s, u"zip"_s}) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is needed to make offline installers"_s));
    }
    QVERIFY(work_.isValid());
    manager_ = std::make_unique<QNetworkAccessManager>();

    site_.on(u"/download/download-installer/"_s, [](TestHttpServer::Request const & request) {
        return TestHttpServer::Response::ok("site " + request.query.queryItemValue(u"version"_s).toUtf8());
    });
    site_.on(u"/download/sofs/x.sofs"_s, TestHttpServer::Response::ok("sofs site"));

    QDir const work(work_.path());
    for (QString const & directory : {u"walk"_s, u"mixed"_s, u"unpacked"_s, u"misfit"_s, u"two"_s})
        QVERIFY(work.mkdir(directory));
    QVERIFY(makeArchive(path(u"isoA"_s), installerFiles(u"21.0.1"_s, u"A"_s)));
    QVERIFY(makeArchive(path(u"zipB"_s), installerFiles(u"21.0.2"_s, u"B"_s)));
    QVERIFY(QFile::copy(path(u"isoA"_s), work.filePath(u"walk/a.iso"_s)));
    QVERIFY(QFile::copy(path(u"zipB"_s), work.filePath(u"walk/b.zip"_s)));
    QVERIFY(writeTree(path(u"walk"_s), {{u"readme.txt"_s, "not an installer"}}));
    QVERIFY(QFile::copy(path(u"zipB"_s), work.filePath(u"misfit/b.zip"_s)));

    // An unpacked installer reads its files from the top and its shared file set from "data/sofs".
    Files const unpacked = {{u"data/overview.json"_s, catalogue(u"21.0.1"_s)},
                            {u"orvanis.files"_s, "unpacked"},
                            {u"data/orvanis.files"_s, "not the top"},
                            {u"data/sofs/x.sofs"_s, "sofs unpacked"},
                            {u"sofs/x.sofs"_s, "not under data"}};
    QVERIFY(writeTree(path(u"unpacked"_s), unpacked));
    QVERIFY(QFile::copy(path(u"isoA"_s), work.filePath(u"mixed/a.iso"_s)));
    QVERIFY(writeTree(path(u"mixed"_s), {{u"data/overview.json"_s, catalogue(u"21.0.1"_s)}, {u"orvanis.files"_s, "mixed"}}));

    QVERIFY(makeArchive(work.filePath(u"two/first.zip"_s), installerFiles(u"21.0.1"_s, u"first"_s)));
    QVERIFY(makeArchive(work.filePath(u"two/second.zip"_s), installerFiles(u"21.0.1"_s, u"second"_s)));
    QVERIFY(writeTree(work_.path(), {{u"text.txt"_s, "plain text"}}));
}

QString TestFileOpener::path(QString const & key) const
{
    if (key == u"site"_s)
        return QString();
    if (key == u"isoA"_s)
        return work_.filePath(u"a.iso"_s);
    if (key == u"zipB"_s)
        return work_.filePath(u"b.zip"_s);
    if (key == u"text"_s)
        return work_.filePath(u"text.txt"_s);
    return work_.filePath(key);
}

void TestFileOpener::states_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("version");
    // "open" and "sofs" read a file and note its label; "version V" calls setVersion;
    // "options S V" calls setInstallerOptions with source S at version V.
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("labels");

    QTest::newRow("site downloads the version asked for")
        << u"site"_s << u"21.0.1"_s << QStringList{u"open"_s, u"version 21.0.2"_s, u"open"_s, u"sofs"_s}
        << QStringList{u"site 21.0.1"_s, u"site 21.0.2"_s, u"sofs site"_s};
    QTest::newRow("same source keeps the site and takes the new version")
        << u"site"_s << u"21.0.1"_s << QStringList{u"open"_s, u"options site 21.0.3"_s, u"open"_s}
        << QStringList{u"site 21.0.1"_s, u"site 21.0.3"_s};
    QTest::newRow("a named archive is trusted whatever the version")
        << u"isoA"_s << u"9.9"_s << QStringList{u"open"_s, u"sofs"_s, u"version 21.0.2"_s, u"open"_s}
        << QStringList{u"A"_s, u"sofs A"_s, u"A"_s};
    QTest::newRow("from archive to site and back to another archive")
        << u"isoA"_s << u"21.0.1"_s
        << QStringList{u"open"_s, u"options site 21.0.1"_s, u"open"_s, u"options zipB 21.0.2"_s, u"open"_s}
        << QStringList{u"A"_s, u"site 21.0.1"_s, u"B"_s};
    // After the walk the source is the archive found, so a new version is looked for there alone,
    // while the options naming the directory again mean a new walk.
    QTest::newRow("walk finds the fitting archive")
        << u"walk"_s << u"21.0.1"_s
        << QStringList{u"open"_s, u"version 21.0.2"_s, u"open"_s, u"options walk 21.0.2"_s, u"open"_s}
        << QStringList{u"A"_s, u"A"_s, u"B"_s};
    QTest::newRow("walk without a fit") << u"walk"_s << u"9.9"_s << QStringList{u"open"_s, u"sofs"_s, u"open"_s}
                                        << QStringList{u"none"_s, u"none"_s, u"none"_s};
    QTest::newRow("unpacked directory") << u"unpacked"_s << u"9.9"_s << QStringList{u"open"_s, u"sofs"_s}
                                        << QStringList{u"unpacked"_s, u"sofs unpacked"_s};
    QTest::newRow("fitting archive before unpacked files")
        << u"mixed"_s << u"21.0.1"_s << QStringList{u"open"_s, u"options mixed 21.0.2"_s, u"open"_s}
        << QStringList{u"A"_s, u"mixed"_s};
    QTest::newRow("same directory keeps the unpacked files")
        << u"mixed"_s << u"21.0.2"_s
        << QStringList{u"open"_s, u"options mixed 21.0.1"_s, u"open"_s, u"version 21.0.1"_s, u"open"_s}
        << QStringList{u"mixed"_s, u"mixed"_s, u"A"_s};
    QTest::newRow("file that is no archive") << u"text"_s << u"21.0.1"_s << QStringList{u"open"_s, u"sofs"_s}
                                             << QStringList{u"none"_s, u"none"_s};
    QTest::newRow("missing path resolved later")
        << u"missing"_s << u"21.0.1"_s << QStringList{u"open"_s, u"options isoA 21.0.1"_s, u"open"_s}
        << QStringList{u"none"_s, u"A"_s};
}

void TestFileOpener::states()
{
    QFETCH(QString, source);
    QFETCH(QString, version);
    QFETCH(QStringList, steps);
    QFETCH(QStringList, labels);

    LN_FileOpener opener(manager_.get(), optionsFor(path(source), version));
    QStringList read;
    for (QString const & step : std::as_const(steps)) {
        QStringList const words = step.split(u' ');
        if (words.first() == u"open"_s)
            read.append(readLabel(opener.openFile(u"orvanis.files"_s)));
        else if (words.first() == u"sofs"_s)
            read.append(readLabel(opener.openSofsFile(u"x.sofs"_s)));
        else if (words.first() == u"version"_s)
            opener.setVersion(QVersionNumber::fromString(words.at(1)));
        else
            opener.setInstallerOptions(optionsFor(path(words.at(1)), words.at(2)));
    }
    QCOMPARE(read, labels);
}

void TestFileOpener::lastFittingArchiveWins()
{
    QString last;
    QDirIterator files(path(u"two"_s), QDir::Files);
    while (files.hasNext())
        last = files.next();

    LN_FileOpener opener(manager_.get(), QDir(path(u"two"_s)));
    opener.setInstallerOptions(optionsFor(path(u"two"_s), u"21.0.1"_s));
    QCOMPARE(readLabel(opener.openFile(u"orvanis.files"_s)), QFileInfo(last).baseName());
    LN_FileOpener::TypedResult<LN_IODevice> const absent = opener.openFile(u"absent.files"_s);
    QCOMPARE(absent.error, make_error_code(LN_FileError::FileNotFound));
    QCOMPARE(absent.message, u"data/absent.files was not found in %1"_s.arg(last));
}

void TestFileOpener::walksAgainUntilSomethingFits()
{
    LN_FileOpener opener(manager_.get(), optionsFor(path(u"misfit"_s), u"21.0.1"_s));
    QCOMPARE(readLabel(opener.openFile(u"orvanis.files"_s)), u"none"_s);
    QCOMPARE(readLabel(opener.openFile(u"orvanis.files"_s)), u"none"_s);
    QVERIFY(QFile::copy(path(u"isoA"_s), QDir(path(u"misfit"_s)).filePath(u"a.iso"_s)));
    QCOMPARE(readLabel(opener.openFile(u"orvanis.files"_s)), u"A"_s);
}

void TestFileOpener::archiveNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("label");

    QTest::newRow("files of the build are under data") << u"pdb.files"_s << u"data/pdb.files"_s << u"pdb A"_s;
    QTest::newRow("shell launcher installer at the top")
        << u"install_orvanis_launcher.sh"_s << u"install_orvanis_launcher.sh"_s << u"launcher A"_s;
    QTest::newRow("exe launcher installer at the top")
        << u"install-orvanis-launcher.exe"_s << u"install-orvanis-launcher.exe"_s << u"exe A"_s;
    QTest::newRow("launcher name in a folder is under data") << u"tools/install_orvanis_launcher.sh"_s
                                                             << u"data/tools/install_orvanis_launcher.sh"_s
                                                             << u"tools A"_s;
    QTest::newRow("any name beginning with packages") << u"packages-extra.zip"_s << u"packages-extra.zip"_s
                                                      << u"extra A"_s;
    QTest::newRow("packages is case-sensitive") << u"Packages/packages.json"_s
                                                << u"data/Packages/packages.json"_s << u"error 3"_s;
    QTest::newRow("data is prefixed again") << u"data/orvanis.files"_s << u"data/data/orvanis.files"_s
                                            << u"error 3"_s;
}

void TestFileOpener::archiveNames()
{
    QFETCH(QString, name);
    QFETCH(QString, entry);
    QFETCH(QString, label);

    LN_FileOpener opener(manager_.get(), optionsFor(path(u"isoA"_s), u"21.0.1"_s));
    LN_FileOpener::TypedResult<LN_IODevice> result = opener.openFile(name);
    if (result.isError()) {
        QVERIFY(!result.device);
        QCOMPARE(result.message, u"%1 was not found in %2"_s.arg(entry, path(u"isoA"_s)));
    } else {
        QCOMPARE(result.device->filename(), entry);
    }
    QCOMPARE(readLabel(std::move(result)), label);
}

void TestFileOpener::archiveReopens_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("labels");

    // Before each request but the first, the archive on disk is replaced by the next generation;
    // an archive still open reads the old one, so the generation read tells a reopen.
    QTest::newRow("archive order is one pass") << QStringList{u"one"_s, u"two"_s, u"three"_s}
                                               << QStringList{u"one 0"_s, u"two 0"_s, u"three 0"_s};
    QTest::newRow("reverse order reopens each time") << QStringList{u"three"_s, u"two"_s, u"one"_s}
                                                     << QStringList{u"three 0"_s, u"two 1"_s, u"one 2"_s};
    QTest::newRow("the entry returned counts as passed") << QStringList{u"two"_s, u"two"_s}
                                                         << QStringList{u"two 0"_s, u"two 1"_s};
    QTest::newRow("back once, then forward again") << QStringList{u"two"_s, u"one"_s, u"three"_s}
                                                   << QStringList{u"two 0"_s, u"one 1"_s, u"three 1"_s};
    QTest::newRow("an absent entry passes everything")
        << QStringList{u"one"_s, u"absent"_s, u"three"_s} << QStringList{u"one 0"_s, u"error 3"_s, u"three 2"_s};
}

void TestFileOpener::archiveReopens()
{
    QFETCH(QStringList, names);
    QFETCH(QStringList, labels);

    QTemporaryDir generations;
    QVERIFY(generations.isValid());
    for (qsizetype g = 0; g < names.size(); ++g) {
        QByteArray const suffix = ' ' + QByteArray::number(g);
        Files const files = {{u"data/overview.json"_s, catalogue(u"21.0.1"_s, u"three.files"_s)},
                             {u"data/orvanis.files"_s, "list"},
                             {u"data/one.files"_s, "one" + suffix},
                             {u"data/two.files"_s, "two" + suffix},
                             {u"data/three.files"_s, "three" + suffix}};
        QVERIFY(makeArchive(generations.filePath(u"%1.zip"_s.arg(g)), files));
    }

    QString const installer = generations.filePath(u"installer.zip"_s);
    QVERIFY(QFile::copy(generations.filePath(u"0.zip"_s), installer));
    LN_FileOpener opener(manager_.get(), optionsFor(installer, u"21.0.1"_s));
    QStringList read;
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (i > 0)
            replaceFile(generations.filePath(u"%1.zip"_s.arg(i)), installer);
        read.append(readLabel(opener.openFile(names.at(i) + u".files"_s)));
    }
    QCOMPARE(read, labels);
}

void TestFileOpener::vanishedArchive()
{
    QTemporaryDir directory;
    QString const installer = directory.filePath(u"installer.zip"_s);
    QVERIFY(QFile::copy(path(u"zipB"_s), installer));
    LN_FileOpener opener(manager_.get(), optionsFor(installer, u"21.0.2"_s));
    QCOMPARE(readLabel(opener.openFile(u"orvanis.files"_s)), u"B"_s);
    QVERIFY(QFile::remove(installer));

    // Going back needs the file again; without it every request fails, and none crashes.
    for (int attempt = 0; attempt < 2; ++attempt) {
        LN_FileOpener::TypedResult<LN_IODevice> const result = opener.openFile(u"orvanis.files"_s);
        QVERIFY(!result.device);
        QCOMPARE(result.error, make_error_code(LN_FileError::ArchiveError));
        QVERIFY(!result.message.isEmpty());
    }
}

void TestFileOpener::downloadRequest_data()
{
    QTest::addColumn<QString>("buildType");
    QTest::addColumn<QByteArray>("token");
    QTest::addColumn<QStringList>("query");
    QTest::addColumn<QByteArray>("authorization");

    QStringList const plain = {u"file=overview.json"_s, u"platform="_s + platform, u"version=21.0.1"_s, u"cdn="_s};
    QTest::newRow("plain") << QString() << QByteArray() << plain << QByteArray();
    QTest::newRow("build type names the product")
        << u"debug"_s << QByteArray() << plain + QStringList{u"product=orvanis-debug"_s} << QByteArray();
    QTest::newRow("empty build type adds nothing") << u""_s << QByteArray() << plain << QByteArray();
    QTest::newRow("token as bearer") << QString() << QByteArray("s3cret") << plain << QByteArray("Bearer s3cret");
}

void TestFileOpener::downloadRequest()
{
    QFETCH(QString, buildType);
    QFETCH(QByteArray, token);
    QFETCH(QStringList, query);
    QFETCH(QByteArray, authorization);

    LN_InstallerOptions options = optionsFor(QString(), u"21.0.1"_s);
    if (!buildType.isNull())
        options.setBuildType(buildType);
    LN_FileOpener opener(manager_.get(), options, token);
    site_.clearRequests();
    QCOMPARE(readLabel(opener.openFile(u"overview.json"_s)), u"site 21.0.1"_s);

    QCOMPARE(site_.requests().size(), 1);
    TestHttpServer::Request const request = site_.requests().constFirst();
    QCOMPARE(request.path, u"/download/download-installer/"_s);
    QStringList items;
    for (auto const & [key, value] : request.query.queryItems())
        items.append(key + u'=' + value);
    QCOMPARE(items, query);
    QCOMPARE(request.header("authorization"), authorization);
}

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    TestHttpServer site;
    if (!site.listen())
        return 1;
    // Read once, at the library's first use of the site's address.
    qputenv("ORVANIS_LAUNCHER_SERVER_URL", site.origin().toUtf8());
    TestFileOpener test(site);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_fileopener.moc"
