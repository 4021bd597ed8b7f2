#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <support/TestHttpServer.h>

#include <QDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

// Catalogues are read from offline installers made by xorriso and zip, from installer
// directories, and from a local server playing the site. Each catalogue element is compared
// as "<feature> <version> <os>".

Q_DECLARE_METATYPE(std::error_code)

namespace QTest {
template <>
char * toString(std::error_code const & code)
{
    return qstrdup((std::string(code.category().name()) + ' ' + std::to_string(code.value())).c_str());
}
} // namespace QTest

namespace {

using Response = TestHttpServer::Response;

// Three of the products are for other systems or processors than this one.
QByteArray const mixedCatalogue = R"({"format version": 1, "products": [
    {"name": "Orvanis", "version": "21.0.1", "minimum launcher version": "21.0.1", "os name": "linux_x86_64",
     "compiler": "gcc12", "files": "orvanis.files", "features": [{"name": "PDB Files", "files": "pdb.files"}]},
    {"name": "Engine Maya", "version": "4.1", "minimum launcher version": "21.0.1", "os name": "win64",
     "compiler": "vc143", "files": "maya.files"},
    {"name": "Engine Unity", "version": "4.1", "minimum launcher version": "21.0.1", "os name": "linux_arm64",
     "compiler": "gcc12", "files": "unity.files"},
    {"name": "Engine Unreal", "version": "4.1", "minimum launcher version": "21.0.1", "os name": "macosx_x86_64",
     "compiler": "clang", "files": "unreal.files"}]})";

QByteArray const windowsCatalogue = R"({"format version": 1, "products": [
    {"name": "Orvanis", "version": "20.5.332", "minimum launcher version": "21.0.1", "os name": "win64",
     "compiler": "vc143", "files": "orvanis.files"}]})";

// Format 0, as an unpacked installer carries it; the content lists it names are not there.
QByteArray const directoryCatalogue = R"({"version": "21.0.7", "minimum launcher version": "21.0.1",
    "os name": "linux_x86_64", "compiler": "gcc12", "products": [
        {"name": "Orvanis", "files": "absent.files"}, {"name": "Engine Maya", "files": "absent.files"}]})";

QStringList const linuxBuilds = {u"Orvanis 21.0.1 linux_x86_64"_s, u"PDB Files 21.0.1 linux_x86_64"_s};

bool writeFile(QString const & path, QByteArray const & bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// An archive of a "data" folder holding the catalogue and the content lists it names.
bool makeInstaller(QString const & archive, QByteArray const & catalogue, QStringList const & lists)
{
    QTemporaryDir tree;
    if (!tree.isValid() || !writeFile(tree.filePath(u"data/overview.json"_s), catalogue))
        return false;
    for (QString const & list : lists) {
        if (!writeFile(tree.filePath(u"data/"_s + list), "content\n"))
            return false;
    }
    bool const iso = archive.endsWith(u".iso"_s);
    QProcess process;
    process.setWorkingDirectory(tree.path());
    process.start(iso ? u"xorriso"_s : u"zip"_s,
                  iso ? QStringList{u"-as"_s, u"mkisofs"_s, u"-quiet"_s, u"-R"_s, u"-J"_s, u"-o"_s, archive, tree.path()}
                      : QStringList{u"-q"_s, u"-r"_s, archive, u"data"_s});
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

QStringList describe(QList<LN_AvailableInfo> const & builds)
{
    QStringList lines;
    for (LN_AvailableInfo const & build : builds)
        lines.append(u"%1 %2 %3"_s.arg(build.feature.name, build.version.toString(), build.platform.osString()));
    return lines;
}

std::error_code availableInfo(int code)
{
    return {code, LN_AvailableInfoErrorCategory()};
}

} // namespace

class TestRetrieval : public QObject
{
    Q_OBJECT

public:
    explicit TestRetrieval(TestHttpServer & site)
        : site_(site)
    {
    }

private Q_SLOTS:
    void initTestCase();
    void fromPath_data();
    void fromPath();
    void availableVersions_data();
    void availableVersions();
    void productInfo_data();
    void productInfo();

private:
    QString path(QString const & key) const { return key.isEmpty() ? key : work_.filePath(key); }

    TestHttpServer & site_;
    QTemporaryDir work_;
    std::unique_ptr<QNetworkAccessManager> manager_;
};

void TestRetrieval::initTestCase()
{
    for (QString const & tool : {u"xorriso"_s, u"zip"_s}) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is needed to make offline installers"_s));
    }
    QVERIFY(work_.isValid());
    manager_ = std::make_unique<QNetworkAccessManager>();
    for (QString const & directory : {u"installers"_s, u"windows"_s, u"empty"_s})
        QVERIFY(QDir(work_.path()).mkdir(directory));

    QStringList const mixedLists = {u"orvanis.files"_s, u"pdb.files"_s, u"maya.files"_s, u"unity.files"_s,
                                    u"unreal.files"_s};
    QVERIFY(makeInstaller(path(u"mixed.iso"_s), mixedCatalogue, mixedLists));
    QVERIFY(makeInstaller(path(u"installers/mixed.iso"_s), mixedCatalogue, mixedLists));
    QVERIFY(makeInstaller(path(u"installers/windows.zip"_s), windowsCatalogue, {u"orvanis.files"_s}));
    QVERIFY(writeFile(path(u"installers/readme.txt"_s), "not an installer"));
    QVERIFY(makeInstaller(path(u"windows/windows.zip"_s), windowsCatalogue, {u"orvanis.files"_s}));
    QVERIFY(writeFile(path(u"text.txt"_s), "not an installer"));
    QVERIFY(writeFile(path(u"unpacked/overview.json"_s), directoryCatalogue));
    QVERIFY(writeFile(path(u"unpacked/data/overview.json"_s), directoryCatalogue));
    QVERIFY(writeFile(path(u"array/overview.json"_s), "[" + directoryCatalogue + "]"));
    QVERIFY(writeFile(path(u"newer/overview.json"_s), R"({"format version": 2, "products": []})"));
    QVERIFY(writeFile(path(u"topless/data/overview.json"_s), directoryCatalogue));
    QCOMPARE(mkfifo(QFile::encodeName(path(u"fifo"_s)).constData(), 0600), 0);
}

void TestRetrieval::fromPath_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<std::error_code>("error");
    // With "%1" for the path; empty when not compared.
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("builds");

    std::error_code const none;
    QString const noResults = u"available versions from directory \"%1\" found no results"_s;
    QTest::newRow("installer keeps this system's builds") << u"mixed.iso"_s << none << QString() << linuxBuilds;
    QTest::newRow("file that is no installer")
        << u"text.txt"_s << availableInfo(1) << u"\"%1\" is not a valid offline installer file"_s << QStringList();
    QTest::newRow("directory overview taken at its word")
        << u"unpacked"_s << none << QString()
        << QStringList{u"Orvanis 21.0.7 linux_x86_64"_s, u"Maya Plug-In 21.0.7 linux_x86_64"_s};
    QTest::newRow("directory overview that is an array")
        << u"array"_s << availableInfo(1) << u"%1/overview.json is not valid. Expected object."_s << QStringList();
    QTest::newRow("directory overview of a newer format") << u"newer"_s << availableInfo(2) << noResults
                                                          << QStringList();
    QTest::newRow("directory of installers") << u"installers"_s << none << QString() << linuxBuilds;
    // The system filter comes after the test for emptiness.
    QTest::newRow("installers of other systems only") << u"windows"_s << none << QString() << QStringList();
    QTest::newRow("directory without installers") << u"empty"_s << availableInfo(2) << noResults << QStringList();
    QTest::newRow("neither file nor directory") << u"fifo"_s << availableInfo(2) << u"available versions is empty"_s
                                                << QStringList();
    QTest::newRow("missing path") << u"missing"_s << availableInfo(2)
                                  << u"Unable to read available versions from \"%1\": Path does not exist"_s
                                  << QStringList();
}

void TestRetrieval::fromPath()
{
    QFETCH(QString, source);
    QFETCH(std::error_code, error);
    QFETCH(QString, message);
    QFETCH(QStringList, builds);

    LN_Result<QList<LN_AvailableInfo>> const result = LN_AvailableInfo::availableOrvanisVersionsFromPath(path(source));
    QCOMPARE(result.error.code, error);
    if (!message.isEmpty())
        QCOMPARE(result.error.message, message.contains(u"%1"_s) ? message.arg(path(source)) : message);
    if (!result.isError())
        QCOMPARE(describe(result.value), builds);
}

void TestRetrieval::availableVersions_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<int>("siteStatus");
    QTest::addColumn<std::error_code>("error");
    QTest::addColumn<QStringList>("builds");

    std::error_code const none;
    // The site's list is of this system's builds already: nothing is filtered.
    QTest::newRow("site list, unfiltered")
        << QString() << 200 << none
        << QStringList{u"Orvanis 21.0.7 linux_x86_64"_s, u"Maya Plug-In 21.0.7 linux_x86_64"_s,
                       u"Orvanis 20.5.332 win64"_s};
    QTest::newRow("site list missing") << QString() << 404
                                       << std::error_code(QNetworkReply::ContentNotFoundError, QNetworkFileErrorCategory())
                                       << QStringList();
    QTest::newRow("a path is read from disk") << u"mixed.iso"_s << 200 << none << linuxBuilds;
}

void TestRetrieval::availableVersions()
{
    QFETCH(QString, source);
    QFETCH(int, siteStatus);
    QFETCH(std::error_code, error);
    QFETCH(QStringList, builds);

    QString const list = u"/download/download-installer/versions/linux/"_s;
    site_.on(list, siteStatus == 200 ? Response::ok("[" + directoryCatalogue + "," + windowsCatalogue + "]")
                                     : Response::withStatus(siteStatus));
    site_.clearRequests();
    // The opener's own source does not matter for the site's list.
    LN_InstallerOptions options;
    options.offlineInstaller = path(u"text.txt"_s);
    LN_FileOpener opener(manager_.get(), options, "t0ken");

    LN_Result<QList<LN_AvailableInfo>> const result = LN_AvailableInfo::availableOrvanisVersions(opener, path(source));
    QCOMPARE(result.error.code, error);
    if (!result.isError())
        QCOMPARE(describe(result.value), builds);
    QCOMPARE(site_.requestCount(list), source.isEmpty() ? 1 : 0);
    if (source.isEmpty())
        QCOMPARE(site_.requests().constFirst().header("authorization"), QByteArray("Bearer t0ken"));
}

void TestRetrieval::productInfo_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("version");
    QTest::addColumn<std::error_code>("error");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("builds");

    std::error_code const none;
    QString const notObject = u" is not valid\\. Expected object\\.$"_s;
    QStringList const siteBuilds = {u"Orvanis 21.0.7 linux_x86_64"_s, u"Maya Plug-In 21.0.7 linux_x86_64"_s};
    QTest::newRow("site overview") << QString() << u"21.0.7"_s << none << QString() << siteBuilds;
    QTest::newRow("site overview that is an array")
        << QString() << u"21.0.8"_s << availableInfo(1)
        << u"^http://127\\.0\\.0\\.1:\\d+/download/download-installer/\\?file=overview\\.json&.*version=21\\.0\\.8.*"_s
               + notObject
        << QStringList();
    QTest::newRow("version the site does not have")
        << QString() << u"9.9"_s << availableInfo(3) << u"^The selected version is not available$"_s << QStringList();
    QTest::newRow("protected download without a login")
        << QString() << u"21.0.9"_s << make_error_code(LN_FileError::NotLoggedIn)
        << u"^You need to be logged in to view http://127\\.0\\.0\\.1:\\d+/download/download-installer/\\?"_s
        << QStringList();
    // Nothing is filtered: the opener is set to one build.
    QTest::newRow("archive")
        << u"mixed.iso"_s << u"21.0.1"_s << none << QString()
        << QStringList{u"Orvanis 21.0.1 linux_x86_64"_s, u"PDB Files 21.0.1 linux_x86_64"_s,
                       u"Maya Plug-In 4.1 win64"_s, u"Unity Plug-In 4.1 linux_arm64"_s,
                       u"Unreal Plug-In 4.1 macosx_x86_64"_s};
    QTest::newRow("unpacked directory without an overview at the top")
        << u"topless"_s << u"21.0.7"_s << std::error_code(QFileDevice::OpenError, QFileErrorCategory())
        << QString() << QStringList();
    QTest::newRow("no installer") << u"text.txt"_s << u"21.0.7"_s << make_error_code(LN_FileError::FileNotFound)
                                  << u"^Could not locate a valid offline installer$"_s << QStringList();
}

void TestRetrieval::productInfo()
{
    QFETCH(QString, source);
    QFETCH(QString, version);
    QFETCH(std::error_code, error);
    QFETCH(QString, message);
    QFETCH(QStringList, builds);

    site_.on(u"/login/"_s, Response::ok("<html>log in</html>", "text/html"));
    // Failures are answered without a body: with one, Qt may hand the body over before it sets
    // the reply's error.
    site_.on(u"/download/download-installer/"_s, [](TestHttpServer::Request const & request) {
        if (request.query.queryItemValue(u"file"_s) != u"overview.json"_s)
            return Response::withStatus(404);
        QString const wanted = request.query.queryItemValue(u"version"_s);
        if (wanted == u"21.0.7"_s)
            return Response::ok(directoryCatalogue, "application/json");
        if (wanted == u"21.0.8"_s)
            return Response::ok("[" + directoryCatalogue + "]", "application/json");
        if (wanted == u"21.0.9"_s)
            return Response::redirect("/login/?next=%2Fdownload%2F");
        return Response::withStatus(404);
    });

    LN_InstallerOptions options;
    options.product = Product_Orvanis;
    options.platform = u"linux_x86_64_gcc12"_s;
    options.version = QVersionNumber::fromString(version);
    options.offlineInstaller = path(source);
    LN_FileOpener opener(manager_.get(), options);

    LN_Result<QList<LN_AvailableInfo>> const result = LN_AvailableInfo::getProductInfo(opener);
    QCOMPARE(result.error.code, error);
    if (!message.isEmpty())
        QVERIFY2(QRegularExpression(message).match(result.error.message).hasMatch(), qPrintable(result.error.message));
    if (!result.isError())
        QCOMPARE(describe(result.value), builds);
}

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    TestHttpServer site;
    if (!site.listen())
        return 1;
    // Read once, at the library's first use of the site's address.
    qputenv("ORVANIS_LAUNCHER_SERVER_URL", site.origin().toUtf8());
    TestRetrieval test(site);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_retrieval.moc"
