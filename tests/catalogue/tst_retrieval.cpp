#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <support/TestHttpServer.h>

#include <QDir>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

// Catalogues are read from offline installers made by xorriso and zip, from installer
// directories, and from a local server playing the site.

namespace {

using Response = TestHttpServer::Response;

// Two of the products are for another system or processor than this one.
QByteArray const mixedCatalogue = R"({"format version": 1, "products": [
    {"name": "Orvanis", "version": "21.0.1", "minimum launcher version": "21.0.1", "os name": "linux_x86_64",
     "compiler": "gcc12", "files": "orvanis.files", "features": [{"name": "PDB Files", "files": "pdb.files"}]},
    {"name": "Engine Unity", "version": "4.1", "minimum launcher version": "21.0.1", "os name": "linux_arm64",
     "compiler": "gcc12", "files": "unity.files"},
    {"name": "Engine Unreal", "version": "4.1", "minimum launcher version": "21.0.1", "os name": "macosx_x86_64",
     "compiler": "clang", "files": "unreal.files"}]})";

QByteArray const windowsCatalogue = R"({"version": "20.5.332", "minimum launcher version": "21.0.1", "os name": "win64",
    "compiler": "vc143", "products": [{"name": "Orvanis", "files": "orvanis.files"}]})";

// Format 0, as an unpacked installer carries it; the content lists it names are not there.
QByteArray const directoryCatalogue = R"({"version": "21.0.7", "minimum launcher version": "21.0.1",
    "os name": "linux_x86_64", "compiler": "gcc12", "products": [
        {"name": "Orvanis", "files": "absent.files"}, {"name": "Engine Maya", "files": "absent.files"}]})";

QStringList const linuxBuilds = {u"Orvanis 21.0.1 linux_x86_64"_s, u"PDB Files 21.0.1 linux_x86_64"_s};
QStringList const directoryBuilds = {u"Orvanis 21.0.7 linux_x86_64"_s, u"Maya Plug-In 21.0.7 linux_x86_64"_s};

bool writeFile(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// An archive of a "data" folder holding the catalogue and the content lists it names.
bool makeInstaller(QString const & archive, QByteArray const & catalogue, QStringList const & lists)
{
    QTemporaryDir tree;
    bool written = tree.isValid() && writeFile(tree.filePath(u"data/overview.json"_s), catalogue);
    for (QString const & list : lists)
        written = written && writeFile(tree.filePath(u"data/"_s + list), "content\n");
    if (!written)
        return false;
    bool const iso = archive.endsWith(u".iso"_s);
    QProcess process;
    process.setWorkingDirectory(tree.path());
    process.start(iso ? u"xorriso"_s : u"zip"_s,
                  iso ? QStringList{u"-as"_s, u"mkisofs"_s, u"-quiet"_s, u"-R"_s, u"-J"_s, u"-o"_s, archive, tree.path()}
                      : QStringList{u"-q"_s, u"-r"_s, archive, u"data"_s});
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

} // namespace

class TestRetrieval : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void retrieve_data();
    void retrieve();
    void siteList();

private:
    QString path(QString const & key) const { return key.isEmpty() ? key : work_.filePath(key); }
    // The builds as "<feature> <version> <os>", or the error's category, value and text, in
    // which the work directory reads as <work> and the site's address as <site>.
    QStringList outcome(LN_Result<QList<LN_AvailableInfo>> const & result) const;

    TestHttpServer site_;
    QTemporaryDir work_;
    std::unique_ptr<QNetworkAccessManager> manager_;
};

QStringList TestRetrieval::outcome(LN_Result<QList<LN_AvailableInfo>> const & result) const
{
    QStringList lines;
    if (result.isError()) {
        std::error_code const & code = result.error.code;
        lines = {u"%1 %2"_s.arg(QString::fromLatin1(code.category().name())).arg(code.value()),
                 QString(result.error.message).replace(work_.path(), u"<work>"_s).replace(site_.origin(), u"<site>"_s)};
    }
    for (LN_AvailableInfo const & build : result.value)
        lines.append(u"%1 %2 %3"_s.arg(build.feature.name, build.version.toString(), build.platform.osString()));
    return lines;
}

void TestRetrieval::initTestCase()
{
    for (QString const & tool : {u"xorriso"_s, u"zip"_s}) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is needed to make offline installers"_s));
    }
    QVERIFY(work_.isValid() && site_.listen());
    // Read once, at the library's first use of the site's address.
    qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
    manager_ = std::make_unique<QNetworkAccessManager>();
    for (QString const & directory : {u"installers"_s, u"windows"_s, u"empty"_s})
        QVERIFY(QDir(work_.path()).mkdir(directory));

    QStringList const mixedLists = {u"orvanis.files"_s, u"pdb.files"_s, u"unity.files"_s, u"unreal.files"_s};
    QVERIFY(makeInstaller(path(u"mixed.iso"_s), mixedCatalogue, mixedLists));
    QVERIFY(makeInstaller(path(u"installers/mixed.iso"_s), mixedCatalogue, mixedLists));
    QVERIFY(makeInstaller(path(u"installers/windows.zip"_s), windowsCatalogue, {u"orvanis.files"_s}));
    QVERIFY(makeInstaller(path(u"windows/windows.zip"_s), windowsCatalogue, {u"orvanis.files"_s}));
    QVERIFY(writeFile(path(u"text.txt"_s), "not an installer"));
    QVERIFY(QFile::copy(path(u"text.txt"_s), path(u"installers/readme.txt"_s)));
    QVERIFY(writeFile(path(u"unpacked/overview.json"_s), directoryCatalogue));
    QVERIFY(writeFile(path(u"array/overview.json"_s), "[" + directoryCatalogue + "]"));
    QVERIFY(writeFile(path(u"topless/data/overview.json"_s), directoryCatalogue));
    QCOMPARE(mkfifo(QFile::encodeName(path(u"fifo"_s)).constData(), 0600), 0);

    site_.on(u"/login/"_s, Response::ok("<html>log in</html>", "text/html"));
    // Failures are answered without a body: with one, Qt may hand the body over before it sets
    // the reply's error.
    site_.on(u"/download/download-installer/"_s, [](TestHttpServer::Request const & request) {
        QString const version = request.query.queryItemValue(u"version"_s);
        if (request.query.queryItemValue(u"file"_s) != u"overview.json"_s || version == u"9.9"_s)
            return Response::withStatus(404);
        return version == u"21.0.9"_s ? Response::redirect("/login/?next=%2Fdownload%2F")
                                      : Response::ok(directoryCatalogue, "application/json");
    });
}

void TestRetrieval::retrieve_data()
{
    QTest::addColumn<QString>("source");
    // Null to read the source as a path; otherwise the version that an opener on it is set to.
    QTest::addColumn<QString>("version");
    QTest::addColumn<QStringList>("expected");

    QString const asPath;
    auto info = [](int code, QString const & message) {
        return QStringList{u"LN_AvailableInfoError "_s + QString::number(code), message};
    };
    QTest::newRow("installer keeps this system's builds") << u"mixed.iso"_s << asPath << linuxBuilds;
    QTest::newRow("file that is no installer")
        << u"text.txt"_s << asPath << info(1, u"\"<work>/text.txt\" is not a valid offline installer file"_s);
    QTest::newRow("directory overview taken at its word") << u"unpacked"_s << asPath << directoryBuilds;
    QTest::newRow("directory overview that is an array")
        << u"array"_s << asPath << info(1, u"<work>/array/overview.json is not valid. Expected object."_s);
    QTest::newRow("directory of installers") << u"installers"_s << asPath << linuxBuilds;
    // The system filter comes after the test for emptiness.
    QTest::newRow("installers of other systems only") << u"windows"_s << asPath << QStringList();
    QTest::newRow("directory without installers")
        << u"empty"_s << asPath << info(2, u"available versions from directory \"<work>/empty\" found no results"_s);
    QTest::newRow("neither file nor directory") << u"fifo"_s << asPath << info(2, u"available versions is empty"_s);
    QTest::newRow("missing path")
        << u"missing"_s << asPath
        << info(2, u"Unable to read available versions from \"<work>/missing\": Path does not exist"_s);

    QTest::newRow("site overview") << QString() << u"21.0.7"_s << directoryBuilds;
    QTest::newRow("version the site does not have")
        << QString() << u"9.9"_s << info(3, u"The selected version is not available"_s);
    QTest::newRow("protected download without a login")
        << QString() << u"21.0.9"_s
        << QStringList{u"LN_FileError 1"_s, u"You need to be logged in to view <site>/download/download-installer/"
                                          u"?file=overview.json&platform=linux_x86_64_gcc12&version=21.0.9&cdn="_s};
    // Nothing is filtered: the opener is set to one build.
    QTest::newRow("archive")
        << u"mixed.iso"_s << u"21.0.1"_s
        << linuxBuilds + QStringList{u"Unity Plug-In 4.1 linux_arm64"_s, u"Unreal Plug-In 4.1 macosx_x86_64"_s};
    QTest::newRow("unpacked directory without an overview at the top")
        << u"topless"_s << u"21.0.7"_s << QStringList{u"QFile 5"_s, u"No such file or directory"_s};
    QTest::newRow("no installer") << u"text.txt"_s << u"21.0.7"_s
                                  << QStringList{u"LN_FileError 3"_s, u"Could not locate a valid offline installer"_s};
}

void TestRetrieval::retrieve()
{
    QFETCH(QString, source);
    QFETCH(QString, version);
    QFETCH(QStringList, expected);

    if (version.isNull()) {
        QCOMPARE(outcome(LN_AvailableInfo::availableOrvanisVersionsFromPath(path(source))), expected);
        return;
    }
    LN_InstallerOptions options;
    options.product = Product_Orvanis;
    options.platform = u"linux_x86_64_gcc12"_s;
    options.version = QVersionNumber::fromString(version);
    options.offlineInstaller = path(source);
    LN_FileOpener opener(manager_.get(), options);
    QCOMPARE(outcome(LN_AvailableInfo::getProductInfo(opener)), expected);
}

void TestRetrieval::siteList()
{
    // The site's list is of this system's builds already: nothing is filtered. The opener's own
    // source does not matter for it, and a path given is read from disk instead.
    QString const list = u"/download/download-installer/versions/linux/"_s;
    site_.on(list, Response::ok("[" + directoryCatalogue + "," + windowsCatalogue + "]"));
    LN_InstallerOptions options;
    options.offlineInstaller = path(u"text.txt"_s);
    LN_FileOpener opener(manager_.get(), options, "t0ken");
    QCOMPARE(outcome(LN_AvailableInfo::availableOrvanisVersions(opener, path(u"mixed.iso"_s))), linuxBuilds);
    QCOMPARE(site_.requestCount(list), 0);
    QCOMPARE(outcome(LN_AvailableInfo::availableOrvanisVersions(opener, QString())),
             directoryBuilds + QStringList{u"Orvanis 20.5.332 win64"_s});
    QCOMPARE(site_.requests().constLast().header("authorization"), QByteArray("Bearer t0ken"));

    site_.on(list, Response::withStatus(404));
    QCOMPARE(outcome(LN_AvailableInfo::availableOrvanisVersions(opener, QString())),
             (QStringList{u"QNetwork 203"_s, u"Error transferring <site>/download/download-installer/versions/linux/ - "
                                             u"server replied: Not Found"_s}));
}

QTEST_GUILESS_MAIN(TestRetrieval)
#include "tst_retrieval.moc"
