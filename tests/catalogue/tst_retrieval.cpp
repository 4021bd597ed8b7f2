#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <support/OfflineInstaller.h>
#include <support/TestHttpServer.h>

#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using Response = TestHttpServer::Response;

// Catalogues are read from offline installers, from installer directories, and from a local
// server playing the site.

namespace {

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

OfflineInstaller::Files const mixedInstaller = {
    {u"data/overview.json"_s, mixedCatalogue}, {u"data/orvanis.files"_s, "list"}, {u"data/pdb.files"_s, "list"},
    {u"data/unity.files"_s, "list"}, {u"data/unreal.files"_s, "list"}};
OfflineInstaller::Files const windowsInstaller = {{u"data/overview.json"_s, windowsCatalogue},
                                                  {u"data/orvanis.files"_s, "list"}};

} // namespace

class TestRetrieval : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void retrieve_data();
    void retrieve();

private:
    TestHttpServer site_;
    QTemporaryDir work_;
    std::unique_ptr<QNetworkAccessManager> manager_;
};

void TestRetrieval::initTestCase()
{
    if (QString const missing = OfflineInstaller::missingTools({u"iso"_s, u"zip"_s}); !missing.isEmpty())
        QSKIP(qPrintable(missing));
    QVERIFY(work_.isValid() && site_.listen());
    // Read once, at the library's first use of the site's address.
    qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
    manager_ = std::make_unique<QNetworkAccessManager>();

    QVERIFY(OfflineInstaller::make(work_.filePath(u"mixed.iso"_s), mixedInstaller));
    QVERIFY(OfflineInstaller::make(work_.filePath(u"installers/mixed.iso"_s), mixedInstaller));
    QVERIFY(OfflineInstaller::make(work_.filePath(u"installers/windows.zip"_s), windowsInstaller));
    QVERIFY(OfflineInstaller::make(work_.filePath(u"windows/windows.zip"_s), windowsInstaller));
    QVERIFY(OfflineInstaller::writeTree(
        work_.path(), {{u"text.txt"_s, "not an installer"}, {u"installers/readme.txt"_s, "not an installer"},
                       {u"empty/"_s, {}}, {u"unpacked/overview.json"_s, directoryCatalogue},
                       {u"array/overview.json"_s, "[" + directoryCatalogue + "]"},
                       {u"topless/data/overview.json"_s, directoryCatalogue}}));
    QCOMPARE(mkfifo(QFile::encodeName(work_.filePath(u"fifo"_s)).constData(), 0600), 0);

    // Failures are answered without a body: with one, Qt may hand the body over before it sets
    // the reply's error. The site's list is given to the bearer of the token alone.
    site_.on(u"/download/download-installer/versions/linux/"_s, [](TestHttpServer::Request const & request) {
        return request.header("authorization") == "Bearer t0ken"
                   ? Response::ok("[" + directoryCatalogue + "," + windowsCatalogue + "]")
                   : Response::withStatus(404);
    });
    site_.on(u"/login/"_s, Response::ok("<html>log in</html>", "text/html"));
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
    // "path" reads the source as a path; "list" and "anonymous list" ask for the versions with
    // an opener on no source, with and without a token; else the version an opener on it is set to.
    QTest::addColumn<QString>("how");
    // The builds as "<feature> <version> <os>", or the error's category, value and text, in
    // which the work directory reads as <work> and the site's address as <site>.
    QTest::addColumn<QStringList>("expected");

    auto info = [](int code, QString const & message) {
        return QStringList{u"LN_AvailableInfoError "_s + QString::number(code), message};
    };
    QTest::newRow("installer keeps this system's builds") << u"mixed.iso"_s << u"path"_s << linuxBuilds;
    QTest::newRow("file that is no installer")
        << u"text.txt"_s << u"path"_s << info(1, u"\"<work>/text.txt\" is not a valid offline installer file"_s);
    QTest::newRow("directory overview taken at its word") << u"unpacked"_s << u"path"_s << directoryBuilds;
    QTest::newRow("directory overview that is an array")
        << u"array"_s << u"path"_s << info(1, u"<work>/array/overview.json is not valid. Expected object."_s);
    QTest::newRow("directory of installers") << u"installers"_s << u"path"_s << linuxBuilds;
    // The system filter comes after the test for emptiness.
    QTest::newRow("installers of other systems only") << u"windows"_s << u"path"_s << QStringList();
    QTest::newRow("directory without installers")
        << u"empty"_s << u"path"_s << info(2, u"available versions from directory \"<work>/empty\" found no results"_s);
    QTest::newRow("neither file nor directory") << u"fifo"_s << u"path"_s << info(2, u"available versions is empty"_s);
    QTest::newRow("missing path")
        << u"missing"_s << u"path"_s
        << info(2, u"Unable to read available versions from \"<work>/missing\": Path does not exist"_s);

    // The site's list is of this system's builds already: nothing is filtered. A path given is
    // read from disk instead.
    QTest::newRow("site list") << QString() << u"list"_s << directoryBuilds + QStringList{u"Orvanis 20.5.332 win64"_s};
    QTest::newRow("path instead of the site list") << u"mixed.iso"_s << u"list"_s << linuxBuilds;
    QTest::newRow("site list refused")
        << QString() << u"anonymous list"_s
        << QStringList{u"QNetwork 203"_s, u"Error transferring <site>/download/download-installer/versions/linux/ - "
                                          u"server replied: Not Found"_s};

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
    QFETCH(QString, how);
    QFETCH(QStringList, expected);

    QString const path = source.isEmpty() ? source : work_.filePath(source);
    LN_InstallerOptions options;
    options.product = Product_Orvanis;
    options.platform = u"linux_x86_64_gcc12"_s;
    options.version = QVersionNumber::fromString(how);
    // The list does not depend on the opener's source.
    options.offlineInstaller = how.endsWith(u"list"_s) ? work_.filePath(u"text.txt"_s) : path;
    LN_FileOpener opener(manager_.get(), options, how == u"anonymous list"_s ? QByteArray() : "t0ken");
    LN_Result<QList<LN_AvailableInfo>> const result =
        how == u"path"_s       ? LN_AvailableInfo::availableOrvanisVersionsFromPath(path)
        : how.endsWith(u"list"_s) ? LN_AvailableInfo::availableOrvanisVersions(opener, path)
                                 : LN_AvailableInfo::getProductInfo(opener);
    QStringList lines;
    if (result.isError()) {
        std::error_code const & code = result.error.code;
        lines = {u"%1 %2"_s.arg(QString::fromLatin1(code.category().name())).arg(code.value()),
                 QString(result.error.message).replace(work_.path(), u"<work>"_s).replace(site_.origin(), u"<site>"_s)};
    }
    for (LN_AvailableInfo const & build : result.value)
        lines.append(u"%1 %2 %3"_s.arg(build.feature.name, build.version.toString(), build.platform.osString()));
    QCOMPARE(lines, expected);
}

QTEST_GUILESS_MAIN(TestRetrieval)
#include "tst_retrieval.moc"
