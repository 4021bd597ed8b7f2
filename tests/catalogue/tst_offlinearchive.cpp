#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_Exception.h>

#include <support/OfflineInstaller.h>

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using OfflineInstaller::Files;

namespace {

QByteArray const catalogue = R"({"format version": 1, "products": [
    {"name": "Orvanis", "version": "21.0.512", "minimum launcher version": "21.0.1", "files": "orvanis.files",
     "sofs_files": "orvanis.sofs", "features": [{"name": "PDB Files", "files": "pdb.files",
        "features": [{"name": "Symbols", "files": "deep/symbols.files",
                      "features": [{"name": "Sources", "files": "sources.files"}]}]}]},
    {"name": "Engine Maya", "version": "4.1", "minimum launcher version": "21.0.1", "files": "maya/maya.files"}]})";

} // namespace

class TestOfflineArchive : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void fromFile_data();
    void fromFile();
    void notInstallers();

private:
    QTemporaryDir work_;
    int archives_ = 0;
};

void TestOfflineArchive::initTestCase()
{
    QVERIFY(work_.isValid());
    if (QString const missing = OfflineInstaller::missingTools({u"iso"_s, u"zip"_s, u"tar"_s}); !missing.isEmpty())
        QSKIP(qPrintable(missing));
}

void TestOfflineArchive::fromFile_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<Files>("files");
    QTest::addColumn<QStringList>("names");  // of the elements found, or the text of the exception

    QString const overview = u"data/overview.json"_s;
    Files const complete = {{overview, catalogue}, {u"data/orvanis.files"_s, "bin/orvanis\n"},
                            {u"data/pdb.files"_s, "bin/orvanis.pdb\n"}, {u"data/deep/symbols.files"_s, "symbols\n"},
                            {u"data/maya/maya.files"_s, "plug-ins/maya\n"}};
    auto changed = [&complete](QString const & name, QByteArray const & bytes, QString const & removed = {}) {
        Files files;
        for (auto const & file : complete) {
            if (file.first != name && file.first != removed)
                files.append(file);
        }
        if (!bytes.isNull())
            files.append({name, bytes});
        return files;
    };
    auto rows = [](char const * name, Files const & files, QStringList const & names) {
        for (char const * kind : {"iso", "zip", "tar"})
            QTest::addRow("%s: %s", kind, name) << QString::fromLatin1(kind) << files << names;
    };
    rows("complete but for third-level lists and shared file sets", complete,
         {u"Orvanis"_s, u"PDB Files"_s, u"Maya Plug-In"_s});
    // Required by the element of "PDB Files", whose direct sub-feature it is.
    rows("missing list of a second-level feature", changed({}, {}, u"data/deep/symbols.files"_s), {});
    rows("missing list in a sub-directory", changed({}, {}, u"data/maya/maya.files"_s), {});
    rows("catalogue outside data", changed(u"overview.json"_s, catalogue, overview), {});
    rows("catalogue that does not parse", changed(overview, "{\"format version\": 1,"), {});
    rows("catalogue of a newer format", changed(overview, R"({"format version": 2})"), {});
    rows("format 0 catalogue", changed(overview, R"({"version": "20.5", "minimum launcher version": "21",
                                                     "products": [{"name": "Orvanis", "files": "orvanis.files"}]})"),
         {u"Orvanis"_s});
    // Both functions let the fault through rather than call the file no installer.
    rows("catalogue at fault", changed(overview, R"({"format version": 1, "products": [{"name": "a"}]})"),
         {u"thrown: Invalid product version number"_s});

    // A feature without a content list needs an entry named "data/": zip writes the directory
    // so, ISO 9660 images as "data".
    Files const noList = {{u"data/"_s, {}}, {overview, R"({"format version": 1, "products": [{"name": "Optix",
                                                          "version": "1", "minimum launcher version": "1"}]})"}};
    QTest::newRow("zip: feature without content list") << u"zip"_s << noList << QStringList{u"Optix"_s};
    QTest::newRow("iso: feature without content list") << u"iso"_s << noList << QStringList();
    QTest::newRow("compressed tar is not read") << u"tar.gz"_s << complete << QStringList();
}

void TestOfflineArchive::fromFile()
{
    QFETCH(QString, kind);
    QFETCH(Files, files);
    QFETCH(QStringList, names);

    QString const archive = work_.filePath(u"installer%1.%2"_s.arg(++archives_).arg(kind));
    QVERIFY(OfflineInstaller::make(archive, files));
    QStringList found;
    try {
        for (LN_AvailableInfo const & info : LN_AvailableInfo::fromFile(archive))
            found.append(info.feature.name);
        QCOMPARE(LN_AvailableInfo::isOfflineArchiveFile(archive), !found.isEmpty());
    } catch (LN_Exception const & e) {
        found = {u"thrown: "_s + QString::fromUtf8(e.what())};
        QVERIFY_THROWS_EXCEPTION(LN_Exception, LN_AvailableInfo::isOfflineArchiveFile(archive));
    }
    QCOMPARE(found, names);
}

void TestOfflineArchive::notInstallers()
{
    // Sparse in the tree and in the archive, so the 1 GiB limit costs no disk.
    QDir const tree(work_.filePath(u"oversized"_s));
    QVERIFY(tree.mkpath(u"data"_s));
    QFile overview(tree.filePath(u"data/overview.json"_s));
    QVERIFY(overview.open(QIODevice::WriteOnly) && overview.resize(0x40000000 + 1));
    overview.close();
    QString const archive = work_.filePath(u"oversized.tar"_s);
    QCOMPARE(QProcess::execute(u"bsdtar"_s, {u"-cf"_s, archive, u"-C"_s, tree.path(), u"data"_s}), 0);
    QVERIFY2(QFileInfo(archive).size() < 1024 * 1024, "the archiver wrote the holes");
    QVERIFY(LN_AvailableInfo::fromFile(archive).isEmpty());

    QVERIFY(LN_AvailableInfo::fromFile(work_.filePath(u"missing.iso"_s)).isEmpty());
    QVERIFY(LN_AvailableInfo::fromFile(work_.path()).isEmpty());
}

QTEST_GUILESS_MAIN(TestOfflineArchive)
#include "tst_offlinearchive.moc"
