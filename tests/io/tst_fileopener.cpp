#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <support/OfflineInstaller.h>
#include <support/TestHttpServer.h>

#include <QDir>
#include <QDirIterator>
#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using OfflineInstaller::Files;
using Response = TestHttpServer::Response;

// Every source labels its files, so that the content read tells where it came from.

namespace {

// A catalogue names content lists that its installer must hold.
QByteArray catalogue(QString const & version)
{
    return uR"({"format version": 1, "products": [{"name": "Orvanis", "version": "%1", "minimum launcher version":
        "21.0.1", "os name": "linux_x86_64", "compiler": "gcc12", "files": "orvanis.files",
        "features": [{"name": "PDB Files", "files": "pdb.files"}]}]})"_s.arg(version).toUtf8();
}

Files installerFiles(QString const & version, QByteArray const & label)
{
    return {{u"data/overview.json"_s, catalogue(version)}, {u"data/orvanis.files"_s, label},
            {u"data/pdb.files"_s, "pdb " + label}, {u"data/sofs/x.sofs"_s, "sofs " + label},
            {u"data/données/é.txt"_s, "é " + label}, {u"data/install_orvanis_launcher.sh"_s, "not the launcher"},
            {u"data/tools/install_orvanis_launcher.sh"_s, "tools " + label},
            {u"install_orvanis_launcher.sh"_s, "launcher " + label}, {u"packages-extra.zip"_s, "extra " + label}};
}

// What the file says; "none" when the source is unresolved and "missing <entry>" for an entry
// an archive lacks, once their reporting is checked; else "<error category> <code>", with the
// text of a failed read.
QString readLabel(LN_FileOpener::TypedResult<LN_IODevice> result)
{
    bool const notFound = !result.device && result.error == make_error_code(LN_FileError::FileNotFound);
    QStringList const missing = result.message.split(u" was not found in "_s);
    if (result.message == u"Could not locate a valid offline installer"_s
        || (missing.size() == 2 && QFileInfo(missing.at(1)).isFile()))
        return !notFound ? u"badly reported"_s : missing.size() == 2 ? u"missing "_s + missing.at(0) : u"none"_s;
    QByteArray bytes = "stale";  // readAll empties it first
    bool const opened = !result.isError();
    if (opened && result.device->readAll(bytes, result.error, result.message) == result.device->size())
        return QString::fromUtf8(bytes);
    return QString::fromLatin1(result.error.category().name()) + u' ' + QString::number(result.error.value())
           + (result.message.isEmpty() ? u" without a message"_s : opened ? u": "_s + result.message : QString());
}

LN_InstallerOptions optionsFor(QString const & source, QString const & version, QString const & buildType = {})
{
    LN_InstallerOptions options;
    options.product = Product_Orvanis;
    options.platform = u"linux_x86_64_gcc12"_s;
    options.offlineInstaller = source;
    options.version = QVersionNumber::fromString(version);
    options.setBuildType(buildType);
    return options;
}

} // namespace

class TestFileOpener : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (QString const missing = OfflineInstaller::missingTools({u"iso"_s, u"zip"_s}); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QVERIFY(work_.isValid() && site_.listen());
        // Read once, at the library's first use of the site's address.
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
        site_.on(u"/download/download-installer/"_s, [](TestHttpServer::Request const & request) {
            return Response::ok("site " + request.query.queryItemValue(u"version"_s).toUtf8());
        });
        site_.on(u"/download/sofs/x.sofs"_s, Response::ok("sofs site"));

        for (QString const & archive : {u"a.iso"_s, u"walk/a.iso"_s, u"mixed/a.iso"_s})
            QVERIFY(OfflineInstaller::make(path_(archive), installerFiles(u"21.0.1"_s, "A")));
        for (QString const & archive : {u"b.zip"_s, u"walk/b.zip"_s, u"misfit/b.zip"_s})
            QVERIFY(OfflineInstaller::make(path_(archive), installerFiles(u"21.0.2"_s, "B")));
        QVERIFY(OfflineInstaller::make(path_(u"two/first.zip"_s), installerFiles(u"21.0.1"_s, "first")));
        QVERIFY(OfflineInstaller::make(path_(u"two/second.zip"_s), installerFiles(u"21.0.1"_s, "second")));
        // Numbers that deflate does not squeeze into a few bytes, overwritten inside the deflated data.
        QByteArray numbers;
        for (int i = 0; numbers.size() < 100000; ++i)
            numbers += QByteArray::number(i * 7919 % 100003) + ',';
        QFile damaged(path_(u"d.zip"_s));
        Files const big = {{u"data/big.bin"_s, numbers}};
        QVERIFY(OfflineInstaller::make(damaged.fileName(), big + installerFiles(u"1"_s, "")));
        QVERIFY(damaged.open(QIODevice::ReadWrite) && damaged.seek(400) && damaged.write(QByteArray(16, '\xff')) == 16);
        // An unpacked installer reads its files from the top and its shared file set from "data/sofs".
        QVERIFY(OfflineInstaller::writeTree(
            work_.path(), {{u"text.txt"_s, "plain text"}, {u"walk/readme.txt"_s, "not an installer"},
                           {u"mixed/data/overview.json"_s, catalogue(u"21.0.1"_s)}, {u"mixed/orvanis.files"_s, "mixed"},
                           {u"unpacked/data/overview.json"_s, catalogue(u"21.0.1"_s)},
                           {u"unpacked/orvanis.files"_s, "unpacked"}, {u"unpacked/data/orvanis.files"_s, "not the top"},
                           {u"unpacked/sofs/x.sofs"_s, "not under data"},
                           {u"unpacked/data/sofs/x.sofs"_s, "sofs unpacked"}}));
    }

    void states_data()
    {
        QTest::addColumn<QString>("source");  // "copy": a copy of b.zip, whose entries are in the order written
        QTest::addColumn<QString>("version");  // none: the opener is made for the directory alone
        // "open" and "sofs" read a file and note its label ("open N": N, not "orvanis.files");
        // "version V" calls setVersion; "options S V" setInstallerOptions with source S at version V;
        // "add" copies a.iso into the source; "rm" removes it, so that only a reopen notices.
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("labels");

        QString last;
        for (QDirIterator files(path_(u"two"_s), QDir::Files); files.hasNext();)
            last = QFileInfo(files.next()).baseName();
        auto const row = [](char const * name, QString const & source, QString const & version, QString const & steps,
                            QString const & labels) {
            QTest::newRow(name) << source << version << steps.split(u", "_s) << labels.split(u", "_s);
        };
        // The same source keeps the site and takes the new version.
        row("site downloads the version asked for", u"site"_s, u"21.0.1"_s,
            u"open, version 21.0.2, open, sofs, options site 21.0.3, open"_s,
            u"site 21.0.1, site 21.0.2, sofs site, site 21.0.3"_s);
        row("a named archive is trusted whatever the version, until the options name another source", u"a.iso"_s,
            u"9.9"_s, u"open, sofs, version 21.0.2, open, options site 21.0.1, open, options b.zip 21.0.2, open"_s,
            u"A, sofs A, A, site 21.0.1, B"_s);
        // After the walk the source is the archive found, so a new version is looked for there alone,
        // while the options naming the directory again mean a new walk.
        row("walk finds the fitting archive", u"walk"_s, u"9.9"_s,
            u"open, version 21.0.1, open, version 21.0.2, open, options walk 21.0.2, open"_s, u"none, A, A, B"_s);
        row("last fitting archive in directory order", u"two"_s, u"21.0.1"_s, u"open"_s, last);
        row("walk looks again until something fits", u"misfit"_s, u"21.0.1"_s, u"open, sofs, open, add, open"_s,
            u"none, none, none, A"_s);
        // Names other than the launcher's installers and those beginning with "packages" are under
        // "data/", even those that begin with it.
        row("names inside an archive", u"a.iso"_s, u"21.0.1"_s,
            u"open Packages/packages.json, open install_orvanis_launcher.sh, open données/é.txt, "
            u"open tools/install_orvanis_launcher.sh, open packages-extra.zip, open data/orvanis.files"_s,
            u"missing data/Packages/packages.json, launcher A, é A, tools A, extra A, "
            u"missing data/data/orvanis.files"_s);
        row("archive order is one pass", u"copy"_s, u"21.0.2"_s, u"open, open pdb.files, rm, open données/é.txt"_s,
            u"B, pdb B, é B"_s);
        // The entry returned counts as passed.
        row("a passed entry reopens, forgetting the old pass", u"copy"_s, u"21.0.2"_s,
            u"open pdb.files, open, rm, open pdb.files, open"_s, u"pdb B, B, pdb B, LN_FileError 2"_s);
        row("absent entries, then another name", u"copy"_s, u"21.0.2"_s,
            u"open nope-1, open nope-2, open, rm, open pdb.files"_s,
            u"missing data/nope-1, missing data/nope-2, B, pdb B"_s);
        row("damaged entry", u"d.zip"_s, u"1"_s, u"open big.bin"_s, u"LN_FileError 2: ZIP decompression failed (-3)"_s);
        // Relative names are looked for in the directory, and its own files are disk files.
        row("unpacked directory", u"unpacked"_s, QString(),
            u"open, sofs, open data, open /proc/self/mem, open absent, options a.iso 21.0.1, open"_s,
            u"unpacked, sofs unpacked, QFile 5, QFile 1: Input/output error, QFile 5, A"_s);
        // The options naming the same directory keep the unpacked files; a new version looks again.
        row("fitting archive before unpacked files", u"mixed"_s, u"21.0.2"_s,
            u"open, options mixed 21.0.1, open, version 21.0.1, open, options mixed 21.0.2, open"_s,
            u"mixed, mixed, A, mixed"_s);
        row("file that is no archive", u"text.txt"_s, u"21.0.1"_s, u"open, sofs"_s, u"none, none"_s);
    }

    void states()
    {
        QFETCH(QString, source);
        QFETCH(QString, version);
        QFETCH(QStringList, steps);
        QFETCH(QStringList, labels);

        QFile::remove(path_(u"copy"_s));
        QVERIFY(source != u"copy"_s || QFile::copy(path_(u"b.zip"_s), path_(source)));
        auto const opener = version.isEmpty()
                                ? std::make_unique<LN_FileOpener>(&manager_, QDir(path_(source)))
                                : std::make_unique<LN_FileOpener>(&manager_, optionsFor(path_(source), version));
        QStringList read;
        for (QString const & step : std::as_const(steps)) {
            QStringList const words = step.split(u' ');
            if (words.first() == u"open"_s)
                read.append(readLabel(opener->openFile(words.value(1, u"orvanis.files"_s))));
            else if (words.first() == u"sofs"_s)
                read.append(readLabel(opener->openSofsFile(u"x.sofs"_s)));
            else if (words.first() == u"version"_s)
                opener->setVersion(QVersionNumber::fromString(words.at(1)));
            else if (words.first() == u"add"_s)
                QVERIFY(QFile::copy(path_(u"a.iso"_s), QDir(path_(source)).filePath(u"a.iso"_s)));
            else if (words.first() == u"rm"_s)
                QVERIFY(QFile::remove(path_(source)));
            else
                opener->setInstallerOptions(optionsFor(path_(words.at(1)), words.at(2)));
        }
        QCOMPARE(read, labels);
    }

    // Query items in this order, an empty value without "="; an empty build type and no token add nothing.
    void downloadRequest()
    {
        QStringList sent;
        for (auto const & [buildType, token] : {std::pair(QString(), ""_ba), std::pair(u"debug"_s, "s3cret"_ba)}) {
            site_.clearRequests();
            LN_FileOpener opener(&manager_, optionsFor(QString(), u"21.0.1"_s, buildType), token);
            QCOMPARE(readLabel(opener.openFile(u"overview.json"_s)), u"site 21.0.1"_s);
            for (TestHttpServer::Request const & request : site_.requests())
                sent.append(request.path + u'?' + request.query.toString() + u' '
                            + QString::fromUtf8(request.header("authorization")));
        }
        QString const plain =
            u"/download/download-installer/?file=overview.json&platform=linux_x86_64_gcc12&version=21.0.1&cdn="_s;
        QCOMPARE(sent, (QStringList{plain + u" "_s, plain + u"&product=orvanis-debug Bearer s3cret"_s}));
    }

private:
    QString path_(QString const & key) const { return key == u"site"_s ? QString() : work_.filePath(key); }

    TestHttpServer site_;
    QTemporaryDir work_;
    QNetworkAccessManager manager_;
};


QTEST_GUILESS_MAIN(TestFileOpener)
#include "tst_fileopener.moc"
