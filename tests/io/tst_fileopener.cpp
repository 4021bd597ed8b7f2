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
using Response = TestHttpServer::Response;

QString const unresolved = u"Could not locate a valid offline installer"_s;

// A catalogue names content lists that its installer must hold.
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
    return {{u"data/overview.json"_s, catalogue(version)}, {u"data/orvanis.files"_s, l},
            {u"data/pdb.files"_s, "pdb " + l}, {u"data/sofs/x.sofs"_s, "sofs " + l},
            {u"data/install_orvanis_launcher.sh"_s, "not the launcher"},
            {u"data/tools/install_orvanis_launcher.sh"_s, "tools " + l},
            {u"install_orvanis_launcher.sh"_s, "launcher " + l}, {u"packages-extra.zip"_s, "extra " + l}};
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
    if (!tree.isValid() || !writeTree(tree.path(), files) || !QDir().mkpath(QFileInfo(archive).path()))
        return false;
    bool const iso = archive.endsWith(u".iso"_s);
    QStringList arguments = {u"-as"_s, u"mkisofs"_s, u"-quiet"_s, u"-R"_s, u"-J"_s, u"-o"_s, archive, tree.path()};
    if (!iso) {
        arguments = {u"-q"_s, u"-D"_s, archive};
        for (auto const & file : files)
            arguments.append(file.first);
    }
    QProcess process;
    process.setWorkingDirectory(tree.path());
    process.start(iso ? u"xorriso"_s : u"zip"_s, arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// What the file says; "none" when the source is unresolved and "missing <entry>" for an entry
// an archive lacks, after checking how these are reported; else "error <code>".
QString readLabel(LN_FileOpener::TypedResult<LN_IODevice> result)
{
    bool const notFound = !result.device && result.error == make_error_code(LN_FileError::FileNotFound);
    if (result.message == unresolved)
        return notFound ? u"none"_s : u"unresolved, badly reported"_s;
    QStringList const missing = result.message.split(u" was not found in "_s);
    if (notFound && missing.size() == 2 && QFileInfo(missing.at(1)).isFile())
        return u"missing "_s + missing.at(0);
    QByteArray bytes;
    if (!result.isError() && result.device->readAll(bytes, result.error, result.message) >= 0)
        return QString::fromUtf8(bytes);
    return result.message.isEmpty() ? u"error without a message"_s : u"error %1"_s.arg(result.error.value());
}

LN_InstallerOptions optionsFor(QString const & source, QString const & version)
{
    LN_InstallerOptions options;
    options.product = Product_Orvanis;
    options.platform = u"linux_x86_64_gcc12"_s;
    options.offlineInstaller = source;
    options.version = QVersionNumber::fromString(version);
    return options;
}

} // namespace

class TestFileOpener : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void states_data();
    void states();
    void archiveReopens_data();
    void archiveReopens();
    void downloadRequest_data();
    void downloadRequest();

private:
    QString path(QString const & key) const { return key == u"site"_s ? QString() : work_.filePath(key); }

    TestHttpServer site_;
    QTemporaryDir work_;
    std::unique_ptr<QNetworkAccessManager> manager_;
};

void TestFileOpener::initTestCase()
{
    if (QStandardPaths::findExecutable(u"xorriso"_s).isEmpty() || QStandardPaths::findExecutable(u"zip"_s).isEmpty())
        QSKIP("xorriso and zip are needed to make offline installers");
    QVERIFY(work_.isValid() && site_.listen());
    // Read once, at the library's first use of the site's address.
    qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
    manager_ = std::make_unique<QNetworkAccessManager>();

    // Two versions stand for a missing download and for one that needs a login.
    site_.on(u"/download/download-installer/"_s, [](TestHttpServer::Request const & request) {
        QString const version = request.query.queryItemValue(u"version"_s);
        if (version == u"4.0.4"_s)
            return Response::withStatus(404);
        return version == u"4.0.1"_s ? Response::redirect("/login/?next=%2Fdownload%2F")
                                     : Response::ok("site " + version.toUtf8());
    });
    site_.on(u"/download/sofs/x.sofs"_s, Response::ok("sofs site"));
    site_.on(u"/login/"_s, Response::ok("<form/>", "text/html"));

    QVERIFY(makeArchive(path(u"a.iso"_s), installerFiles(u"21.0.1"_s, u"A"_s)));
    QVERIFY(makeArchive(path(u"b.zip"_s), installerFiles(u"21.0.2"_s, u"B"_s)));
    QVERIFY(makeArchive(path(u"two/first.zip"_s), installerFiles(u"21.0.1"_s, u"first"_s)));
    QVERIFY(makeArchive(path(u"two/second.zip"_s), installerFiles(u"21.0.1"_s, u"second"_s)));
    for (QString const & copy : {u"walk/a.iso"_s, u"walk/b.zip"_s, u"misfit/b.zip"_s, u"mixed/a.iso"_s}) {
        QVERIFY(QDir().mkpath(QFileInfo(path(copy)).path()));
        QVERIFY(QFile::copy(path(copy.section(u'/', 1)), path(copy)));
    }
    // An unpacked installer reads its files from the top and its shared file set from "data/sofs".
    QByteArray const overview = catalogue(u"21.0.1"_s);
    QVERIFY(writeTree(work_.path(),
                      {{u"text.txt"_s, "plain text"}, {u"walk/readme.txt"_s, "not an installer"},
                       {u"mixed/data/overview.json"_s, overview}, {u"mixed/orvanis.files"_s, "mixed"},
                       {u"unpacked/data/overview.json"_s, overview}, {u"unpacked/orvanis.files"_s, "unpacked"},
                       {u"unpacked/data/orvanis.files"_s, "not the top"}, {u"unpacked/sofs/x.sofs"_s, "not under data"},
                       {u"unpacked/data/sofs/x.sofs"_s, "sofs unpacked"}}));
}

void TestFileOpener::states_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("version");  // none: the opener is made for the directory alone
    // "open" and "sofs" read a file and note its label ("open N": N, not "orvanis.files"), "licence"
    // the message of a licence; "version V" calls setVersion; "options S V" setInstallerOptions with
    // source S at version V; "add" copies a.iso into the source.
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("labels");

    QString last;
    for (QDirIterator files(path(u"two"_s), QDir::Files); files.hasNext();)
        last = QFileInfo(files.next()).baseName();
    auto const row = [](char const * name, QString const & source, QString const & version, QString const & steps,
                        QString const & labels) {
        QTest::newRow(name) << source << version << steps.split(u", "_s) << labels.split(u", "_s);
    };
    // The same source keeps the site and takes the new version.
    row("site downloads the version asked for", u"site"_s, u"21.0.1"_s,
        u"open, version 21.0.2, open, sofs, options site 21.0.3, open"_s,
        u"site 21.0.1, site 21.0.2, sofs site, site 21.0.3"_s);
    // 203 is a reply's "content not found", 1 the lacking login.
    row("site failures end with the version", u"site"_s, u"4.0.4"_s,
        u"open, version 4.0.1, open, version 21.0.1, open"_s, u"error 203, error 1, site 21.0.1"_s);
    row("a named archive is trusted whatever the version, until the options name another source", u"a.iso"_s,
        u"9.9"_s, u"open, sofs, version 21.0.2, open, options site 21.0.1, open, options b.zip 21.0.2, open"_s,
        u"A, sofs A, A, site 21.0.1, B"_s);
    // After the walk the source is the archive found, so a new version is looked for there alone,
    // while the options naming the directory again mean a new walk.
    row("walk finds the fitting archive", u"walk"_s, u"9.9"_s,
        u"open, version 21.0.1, open, version 21.0.2, open, options walk 21.0.2, open"_s, u"none, A, A, B"_s);
    // Names other than the launcher's installers and those beginning with "packages" are under
    // "data/", even those that begin with it.
    row("names inside an archive", u"a.iso"_s, u"21.0.1"_s,
        u"open Packages/packages.json, open pdb.files, open install_orvanis_launcher.sh, "
        u"open tools/install_orvanis_launcher.sh, open packages-extra.zip, open data/orvanis.files"_s,
        u"missing data/Packages/packages.json, pdb A, launcher A, tools A, extra A, missing data/data/orvanis.files"_s);
    row("absent names one after the other", u"a.iso"_s, u"21.0.1"_s, u"open nope-1, open nope-2, open"_s,
        u"missing data/nope-1, missing data/nope-2, A"_s);
    row("last fitting archive in directory order", u"two"_s, u"21.0.1"_s, u"open"_s, last);
    row("walk looks again until something fits", u"misfit"_s, u"21.0.1"_s, u"open, sofs, open, add, open"_s,
        u"none, none, none, A"_s);
    row("unpacked directory", u"unpacked"_s, QString(), u"open, sofs, licence, options a.iso 21.0.1, open"_s,
        u"unpacked, sofs unpacked, eula.txt was not found, A"_s);
    row("fitting archive before unpacked files", u"mixed"_s, u"21.0.1"_s, u"open, options mixed 21.0.2, open"_s,
        u"A, mixed"_s);
    row("same directory keeps the unpacked files", u"mixed"_s, u"21.0.2"_s,
        u"open, options mixed 21.0.1, open, version 21.0.1, open"_s, u"mixed, mixed, A"_s);
    row("file that is no archive", u"text.txt"_s, u"21.0.1"_s, u"open, sofs"_s, u"none, none"_s);
    row("missing path resolved later", u"missing"_s, u"21.0.1"_s, u"open, options a.iso 21.0.1, open"_s, u"none, A"_s);
}

void TestFileOpener::states()
{
    QFETCH(QString, source);
    QFETCH(QString, version);
    QFETCH(QStringList, steps);
    QFETCH(QStringList, labels);

    auto const opener = version.isEmpty()
                            ? std::make_unique<LN_FileOpener>(manager_.get(), QDir(path(source)))
                            : std::make_unique<LN_FileOpener>(manager_.get(), optionsFor(path(source), version));
    QStringList read;
    for (QString const & step : std::as_const(steps)) {
        QStringList const words = step.split(u' ');
        if (words.first() == u"open"_s)
            read.append(readLabel(opener->openFile(words.value(1, u"orvanis.files"_s))));
        else if (words.first() == u"sofs"_s)
            read.append(readLabel(opener->openSofsFile(u"x.sofs"_s)));
        else if (words.first() == u"version"_s)
            opener->setVersion(QVersionNumber::fromString(words.at(1)));
        else if (words.first() == u"licence"_s)
            read.append(opener->openLicenseFile(u"eula.txt"_s).message);
        else if (words.first() == u"add"_s)
            QVERIFY(QFile::copy(path(u"a.iso"_s), QDir(path(source)).filePath(u"a.iso"_s)));
        else
            opener->setInstallerOptions(optionsFor(path(words.at(1)), words.at(2)));
    }
    QCOMPARE(read, labels);
}

void TestFileOpener::archiveReopens_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("labels");

    // Before each request but the first, the archive on disk is replaced by the next generation,
    // or removed for a name marked "!"; an archive still open reads the old one, so the
    // generation read tells a reopen.
    auto const row = [](char const * name, QString const & names, QString const & labels) {
        QTest::newRow(name) << names.split(u", "_s) << labels.split(u", "_s);
    };
    row("archive order is one pass", u"one, two, three"_s, u"one 0, two 0, three 0"_s);
    row("reverse order reopens each time", u"three, two, one"_s, u"three 0, two 1, one 2"_s);
    row("the entry returned counts as passed", u"two, two"_s, u"two 0, two 1"_s);
    row("a reopen forgets the old pass", u"two, one, two"_s, u"two 0, one 1, two 1"_s);
    row("an absent entry passes everything", u"one, absent, three"_s, u"one 0, missing data/absent.files, three 2"_s);
    row("a vanished archive fails every time", u"two, !one, !one"_s, u"two 0, error 2, error 2"_s);
}

void TestFileOpener::archiveReopens()
{
    QFETCH(QStringList, names);
    QFETCH(QStringList, labels);

    QTemporaryDir generations;
    for (qsizetype g = 0; g < names.size(); ++g) {
        QByteArray const n = ' ' + QByteArray::number(g);
        QVERIFY(makeArchive(generations.filePath(u"%1.zip"_s.arg(g)),
                            {{u"data/overview.json"_s, catalogue(u"21.0.1"_s, u"three.files"_s)},
                             {u"data/orvanis.files"_s, "list"}, {u"data/one.files"_s, "one" + n},
                             {u"data/two.files"_s, "two" + n}, {u"data/three.files"_s, "three" + n}}));
    }
    QString const installer = generations.filePath(u"installer.zip"_s);
    QVERIFY(QFile::copy(generations.filePath(u"0.zip"_s), installer));
    LN_FileOpener opener(manager_.get(), optionsFor(installer, u"21.0.1"_s));
    QStringList read;
    for (qsizetype i = 0; i < names.size(); ++i) {
        QString name = names.at(i);
        if (name.startsWith(u'!'))
            QFile::remove(installer);
        else if (i > 0)
            std::filesystem::rename(QFile::encodeName(generations.filePath(u"%1.zip"_s.arg(i))).toStdString(),
                                    QFile::encodeName(installer).toStdString());
        read.append(readLabel(opener.openFile(name.remove(u'!') + u".files"_s)));
    }
    QCOMPARE(read, labels);
}

void TestFileOpener::downloadRequest_data()
{
    QTest::addColumn<QString>("buildType");
    QTest::addColumn<QByteArray>("token");
    QTest::addColumn<QString>("query");
    QTest::addColumn<QByteArray>("authorization");

    // An empty value goes without "=".
    QString const plain = u"file=overview.json&platform=linux_x86_64_gcc12&version=21.0.1&cdn="_s;
    QTest::newRow("empty build type and no token add nothing") << u""_s << QByteArray() << plain << QByteArray();
    QTest::newRow("build type names the product, token as bearer")
        << u"debug"_s << QByteArray("s3cret") << plain + u"&product=orvanis-debug"_s << QByteArray("Bearer s3cret");
}

void TestFileOpener::downloadRequest()
{
    QFETCH(QString, buildType);
    QFETCH(QByteArray, token);
    QFETCH(QString, query);
    QFETCH(QByteArray, authorization);

    LN_InstallerOptions options = optionsFor(QString(), u"21.0.1"_s);
    options.setBuildType(buildType);
    LN_FileOpener opener(manager_.get(), options, token);
    site_.clearRequests();
    QCOMPARE(readLabel(opener.openFile(u"overview.json"_s)), u"site 21.0.1"_s);

    QCOMPARE(site_.requests().size(), 1);
    TestHttpServer::Request const request = site_.requests().constFirst();
    QCOMPARE(request.path, u"/download/download-installer/"_s);
    QCOMPARE(request.query.toString(), query);
    QCOMPARE(request.header("authorization"), authorization);
}

QTEST_GUILESS_MAIN(TestFileOpener)
#include "tst_fileopener.moc"
