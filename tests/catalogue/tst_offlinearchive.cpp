#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_Exception.h>

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// Offline installers are made here by the real archivers, from a tree written for each case.

namespace {

enum class Kind { Iso, Zip, Tar, CompressedTar };

// Paths under the tree's root, with their content.
using Files = QHash<QString, QByteArray>;

QByteArray const catalogue = R"({"format version": 1, "products": [
    {"name": "Orvanis", "version": "21.0.512", "minimum launcher version": "21.0.1", "files": "orvanis.files",
     "sofs_files": "orvanis.sofs", "features": [{"name": "PDB Files", "files": "pdb.files",
        "features": [{"name": "Symbols", "files": "deep/symbols.files",
                      "features": [{"name": "Sources", "files": "sources.files"}]}]}]},
    {"name": "Engine Maya", "version": "4.1", "minimum launcher version": "21.0.1", "files": "maya/maya.files"}]})";

} // namespace

Q_DECLARE_METATYPE(Kind)
Q_DECLARE_METATYPE(Files)

class TestOfflineArchive : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void fromFile_data();
    void fromFile();
    void notInstallers();

private:
    // Writes the files into a fresh tree and archives its "data"; empty on failure.
    QString makeArchive(Kind kind, Files const & files);

    QTemporaryDir work_;
    int archives_ = 0;
};

void TestOfflineArchive::initTestCase()
{
    QVERIFY(work_.isValid());
    for (QString const & tool : {u"xorriso"_s, u"zip"_s, u"bsdtar"_s}) {
        if (QStandardPaths::findExecutable(tool).isEmpty())
            QSKIP(qPrintable(tool + u" is needed to make offline installers"_s));
    }
}

QString TestOfflineArchive::makeArchive(Kind kind, Files const & files)
{
    QDir const tree(work_.filePath(u"tree%1"_s.arg(++archives_)));
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        QFile file(tree.filePath(it.key()));
        if (!tree.mkpath(QFileInfo(it.key()).path()) || !file.open(QIODevice::WriteOnly) || file.write(*it) < 0)
            return {};
    }

    // zip adds ".zip" to a name without it.
    QString const archive = work_.filePath(
        u"installer%1.%2"_s.arg(archives_).arg(kind == Kind::Iso ? u"iso" : kind == Kind::Zip ? u"zip" : u"tar"));
    QStringList const command =
        kind == Kind::Iso ? QStringList{u"xorriso"_s, u"-as"_s, u"mkisofs"_s, u"-quiet"_s, u"-R"_s, u"-J"_s, u"-o"_s,
                                        archive, tree.path()}
        : kind == Kind::Zip ? QStringList{u"zip"_s, u"-q"_s, u"-r"_s, archive, u"data"_s}
                            : QStringList{u"bsdtar"_s, kind == Kind::Tar ? u"-cf"_s : u"-czf"_s, archive, u"data"_s};
    QProcess process;
    process.setWorkingDirectory(tree.path());
    process.start(command.constFirst(), command.mid(1));
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return {};
    return archive;
}

void TestOfflineArchive::fromFile_data()
{
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<Files>("files");
    // The names of the elements found, or the text of the exception.
    QTest::addColumn<QStringList>("names");

    QString const overview = u"data/overview.json"_s;
    Files const complete = {{overview, catalogue}, {u"data/orvanis.files"_s, "bin/orvanis\n"},
                            {u"data/pdb.files"_s, "bin/orvanis.pdb\n"}, {u"data/deep/symbols.files"_s, "symbols\n"},
                            {u"data/maya/maya.files"_s, "plug-ins/maya\n"}};
    auto changed = [&complete](QString const & name, QByteArray const & bytes, QString const & removed = {}) {
        Files files = complete;
        files.remove(removed);
        if (!bytes.isNull())
            files.insert(name, bytes);
        return files;
    };
    auto rows = [](char const * name, Files const & files, QStringList const & names) {
        for (auto const & [kind, kindName] : {std::pair(Kind::Iso, "iso"), {Kind::Zip, "zip"}, {Kind::Tar, "tar"}})
            QTest::addRow("%s: %s", kindName, name) << kind << files << names;
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

    // A feature without a content list needs an entry named "data/": zip and tar write the
    // directory so, ISO 9660 images as "data".
    Files const noList = {{overview, R"({"format version": 1, "products": [{"name": "Optix", "version": "1",
                                        "minimum launcher version": "1"}]})"}};
    QTest::newRow("zip: feature without content list") << Kind::Zip << noList << QStringList{u"Optix"_s};
    QTest::newRow("iso: feature without content list") << Kind::Iso << noList << QStringList();
    QTest::newRow("compressed tar is not read") << Kind::CompressedTar << complete << QStringList();
}

void TestOfflineArchive::fromFile()
{
    QFETCH(Kind, kind);
    QFETCH(Files, files);
    QFETCH(QStringList, names);

    QString const archive = makeArchive(kind, files);
    QVERIFY(!archive.isEmpty());
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

    QFile text(work_.filePath(u"notes.txt"_s));
    QVERIFY(text.open(QIODevice::WriteOnly) && text.write("data/overview.json\n") > 0);
    text.close();
    QVERIFY(!LN_AvailableInfo::isOfflineArchiveFile(text.fileName()));
    QVERIFY(LN_AvailableInfo::fromFile(work_.filePath(u"missing.iso"_s)).isEmpty());
    QVERIFY(LN_AvailableInfo::fromFile(work_.path()).isEmpty());
}

QTEST_GUILESS_MAIN(TestOfflineArchive)
#include "tst_offlinearchive.moc"
