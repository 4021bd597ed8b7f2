#include <draizu/catalogue/LN_AvailableFeature.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_JsonFiles.h>

#include "support/ThrownBy.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QJsonArray>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <functional>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

using Change = std::function<void(LN_InstallMetadata &)>;
using Edit = std::function<void(LN_ComponentMetadata &)>;
Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(Edit)

namespace {

QByteArray const digest(32, 'd');

// A body with every key set, as the repository writes it.
QJsonObject const sampleBody = QJsonDocument::fromJson(
    R"({"build type": "gold", "compiler": "gcc12", "failedUninstall": true, "features": {"Docs": "/r/Docs_1.json"},
        "forOrvanis": "20.1", "hasUninstaller": true, "imported": false, "label": "Release", "oapi version": "3.2",
        "os name": "linux_x86_64", "other options": {"service-name": "svc"}, "product": "Engine Maya",
        "product_files": "", "ready": true, "release date": "2024-02-29", "sofs_files": {}, "tags": ["stable", "lts"],
        "version": "20.1.4"})").object();

LN_ComponentMetadata fromBody(QString const & key, QJsonObject const & body)
{
    QJsonObject const table{{key, body}};
    return LN_ComponentMetadata(table.constBegin());
}

// The sample body in `dir`, its product owning `files` and its feature "Docs" owning "docs/r".
LN_ComponentMetadata record(QString const & dir, QStringList const & files = {})
{
    LN_ComponentMetadata r = fromBody(dir, sampleBody);
    QList<LN_FileMetadata> list;
    for (QString const & file : files)
        list.append({file, QString(), digest, 7});
    r.setFiles(u"Maya Plug-In"_s, list);
    r.setFiles(u"Docs"_s, {{u"docs/r"_s, QString(), digest, 7}});
    return r;
}

// Every file that the records name, by absolute path.
QSet<QString> namedFiles(LN_InstallMetadata const & repo)
{
    QSet<QString> named;
    for (LN_ComponentMetadata const & r : repo.installations)
        for (LN_FileMetadata const & file : r.allFiles())
            named.insert(QDir(r.installDir).absoluteFilePath(file.path));
    return named;
}

bool writeFile(QString const & path, QByteArray const & bytes = "x")
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.write(bytes) == bytes.size();
}

QByteArray readAll(QString const & path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Run with "--change", this program applies one change to a repository in the order that recovery
// relies on, and stops itself where the test kills it: after the n-th file that the repository
// writes, with half the files of the change on disk ("disk"), or not at all ("none").
bool counting = false;
int stopAfter = 0;
int written = 0;

void stopHere()
{
    if (::write(STDOUT_FILENO, "stopped\n", 8) == 8)
        std::raise(SIGSTOP);
    std::_Exit(4); // a stopped helper is only ever killed
}

int changeAndStop(QDir const & repository, QString const & root, QString const & scenario, QString const & stop)
{
    auto const [removed, added] = QHash<QString, std::pair<QString, QString>>{{u"modify"_s, {{}, u"a"_s}},
                                                                              {u"add"_s, {{}, u"e"_s}},
                                                                              {u"remove"_s, {u"b"_s, {}}},
                                                                              {u"move"_s, {u"c"_s, u"c2"_s}}}
                                          .value(scenario);
    LN_InstallMetadata repo(repository);
    QSet<QString> const before = namedFiles(repo);
    QString const changed = QDir(root).filePath(added);
    repo.remove(QDir(root).filePath(removed));
    if (!added.isEmpty()) {
        // Ready once its files are on disk; its shared optional files give saveFinal a manifest to write.
        repo.insert(record(changed, {u"bin/tool"_s, u"bin/"_s + scenario}));
        repo.installations[changed].ready = false;
        repo.installations[changed].setSofsFiles(u"Docs"_s, {{u"sofs/base.dat"_s, true}});
    }
    QSet<QString> const after = namedFiles(repo);
    QStringList const steps = (after - before).values() + (before - after).values();
    stopAfter = stop.toInt();
    counting = true;
    repo.save(u"new.json"_s);
    counting = false;
    for (qsizetype i = 0; i < steps.size(); ++i) {
        if (i == steps.size() / 2 && stop == u"disk"_s)
            stopHere();
        if (after.contains(steps[i]) ? !writeFile(steps[i]) : !QFile::remove(steps[i]))
            return 101;
    }
    if (!added.isEmpty())
        repo.installations[changed].ready = true;
    counting = true;
    repo.saveFinal();
    return 0;
}

} // namespace

// The library writes every repository file through QFile, whose close ends up here: the one place
// that sees the repository between two of its files. The library must bind to this one.
extern "C" __attribute__((visibility("default"))) int close(int fd)
{
    int const flags = counting ? ::fcntl(fd, F_GETFL) : O_RDONLY;
    int const result = static_cast<int>(::syscall(SYS_close, fd));
    if ((flags & O_ACCMODE) != O_RDONLY && ++written == stopAfter)
        stopHere();
    return result;
}

class TestRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A manifest of a build, read through the opener: the entries read, the failure returned, or
    // what is thrown, where an expected text that ends in a blank is how the thrown one begins.
    void manifests_data()
    {
        QTest::addColumn<bool>("sofs");
        QTest::addColumn<QByteArray>("content"); // of "lists/a.json"; null for no file
        QTest::addColumn<QString>("expected");
        auto const row = [](char const * name, bool sofs, QByteArray const & content, QString const & expected) {
            QTest::newRow(name) << sofs << content << expected;
        };
        QString const invalid = u"throws: File lists/a.json is not a valid sofs data file. Expected "_s;
        row("backslash in a key", false, R"({"b\\t": ["s", "ZGRk", 4]})", u"b/t|s|4|ZGRk"_s);
        row("key order, size cut", false, R"({"b": ["", "", 12.9], "a": [1, true, "7"]})", u"a||0|, b||12|"_s);
        row("size beyond range", false, R"({"a": ["", "", 1e300]})", u"a||9223372036854775807|"_s);
        row("string value", false, R"({"a": "x"})", u"throws: Expected an array"_s);
        row("two elements", false, R"({"a": [1, 2]})", u"throws: Expected an array with 3 values"_s);
        row("missing", false, {}, u"throws: Failed to open lists/a.json: "_s);
        row("not an object", false, "[1]", u"throws: lists/a.json is not a valid json file."_s);
        row("unparsable", false, R"({"x": )", u"throws: JSON Parse error in "_s);
        row("sofs {}", true, "{}", QString());
        row("sofs other keys ignored", true, R"({"files": {"x": {"required": true, "n": 3}}})", u"x|1"_s);
        row("sofs array", true, "[]", invalid + u"the file to contain a JSON object."_s);
        row("sofs files an array", true, R"({"files": []})", invalid + u"\"files\" key to contain an object."_s);
        row("sofs entry no object", true, R"({"files": {"x": 1}})", u"failure: JSON data is not an object"_s);
        row("sofs required missing", true, R"({"files": {"x": {}}})", u"failure: key \"required\" was missing"_s);
        row("sofs required a number", true, R"({"files": {"a": {"required": true}, "x": {"required": 1}}})",
            u"failure: key \"required\" must have a boolean value"_s);
    }
    void manifests()
    {
        QFETCH(bool, sofs);
        QFETCH(QByteArray, content);
        QTemporaryDir source;
        QVERIFY(writeFile(source.filePath(u"data/overview.json"_s), "{}"));
        QVERIFY(content.isNull() || writeFile(source.filePath(u"lists/a.json"_s), content));
        LN_FileOpener opener(nullptr, QDir(source.path()));
        LN_AvailableFeature feature;
        (sofs ? feature.sofsFiles : feature.files) = u"lists/a.json"_s;
        LN_ErrorStruct error;
        QStringList read;
        QString const thrown = thrownBy([&] {
            if (sofs) {
                auto const result = LN_SofsFileMetadata::sofsMetadataForInstall(feature, opener);
                error = result.error;
                for (LN_SofsFileMetadata const & f : result.value)
                    read << u"%1|%2"_s.arg(f.path).arg(int(f.required));
            }
            for (LN_FileMetadata const & f : sofs ? QList<LN_FileMetadata>()
                                                  : LN_FileMetadata::fileMetadataForInstall(feature, opener).value)
                read << u"%1|%2|%3|"_s.arg(f.path, f.source).arg(f.size) + QLatin1String(f.checksum.toBase64());
        });
        QVERIFY(!error.isError() || error.code == std::error_code(1, LN_AvailableInfoErrorCategory()));
        QString const outcome = !thrown.isNull()  ? u"throws: "_s + thrown
                                : error.isError() ? u"failure: "_s + error.message
                                                  : read.join(u", "_s);
        QFETCH(QString, expected);
        QVERIFY2(expected.endsWith(u' ') ? outcome.startsWith(expected) : outcome == expected, qPrintable(outcome));
        // Without a location the SOFS reader asks nothing; the file reader asks the opener and fails.
        feature = LN_AvailableFeature();
        QVERIFY(LN_SofsFileMetadata::sofsMetadataForInstall(feature, opener).value.isEmpty());
        QString const none = thrownBy([&] { (void)LN_FileMetadata::fileMetadataForInstall(feature, opener); });
        QVERIFY(none.startsWith(u"Failed to open : "_s));
    }

    // Read failures are returned with the file named, write failures thrown; names are never reused.
    void jsonFiles()
    {
        QTemporaryDir dir;
        QVERIFY(!readJsonFile(QString()).isError() && readJsonFile(QString()).value.isEmpty());
        QString const torn = dir.filePath(u"torn.json"_s);
        QVERIFY(writeFile(torn, R"({"a": [)"));
        for (QString const & path : {dir.filePath(u"missing.json"_s), torn}) {
            LN_ErrorStruct const failed = LN_FileMetadata::fileMetadataFromJson(path).error;
            QVERIFY2(failed.code == std::error_code(1, QFileErrorCategory()) && failed.message.contains(path),
                     qPrintable(failed.message));
        }
        QString const path = dir.filePath(u"deep/er/list.json"_s); // the parent is made
        writeJsonFile(QJsonDocument::fromJson(R"({"long": ["0123456789", "", 1]})"), path);
        writeJsonFile(QJsonDocument::fromJson(R"({ "a" : [ "", "", 1 ] })"), path);
        QCOMPARE(readAll(path), R"({"a":["","",1]})");
        QVERIFY(thrownBy([&] { writeJsonFile({}, torn + u"/below-a-file.json"_s); }).startsWith(u"Unable to open "_s));
        QVERIFY(writeFile(dir.filePath(u"a%1_1.json"_s)));
        QCOMPARE(uniqueManifestPath(u"a%1_%1.json"_s, QDir(dir.path())), dir.filePath(u"a%1_2.json"_s));
    }

    // Written and read again, a body keeps every field; wrong types read as empty values.
    void body()
    {
        QTemporaryDir dir;
        QCOMPARE(fromBody(u"/x"_s, sampleBody).save(QDir(dir.path())), sampleBody);
        QJsonObject const bare = LN_ComponentMetadata().save(QDir(dir.path()));
        QCOMPARE(bare.value(u"version"_s).toString() + bare.value(u"release date"_s).toString(), QString());
        LN_ComponentMetadata const odd = fromBody(u"/x"_s, {{u"version"_s, u"1.2.3abc"_s}, {u"ready"_s, u"true"_s},
                                                             {u"features"_s, QJsonArray{u"Docs"_s}}});
        QVERIFY(fromBody({}, bare) == LN_ComponentMetadata() && odd.version == QVersionNumber(1, 2, 3));
        QVERIFY(odd.product == LN_ProductID::Invalid && !odd.ready && odd.features.isEmpty());
    }

    // Records of the job-queue products are brought up to date from files in their directory.
    void jobQueueFiles_data()
    {
        QTest::addColumn<int>("product");
        QTest::addColumn<QString>("read"); // version, imported, options
        QTest::newRow("client") << int(Product_OQueueClient) << u"2.0.1 1 port=6 server=f"_s;
        QTest::newRow("server") << int(Product_OQueueServer) << u"1.0.0 0 server=o service-name=q"_s;
    }
    void jobQueueFiles()
    {
        QFETCH(int, product);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath(u"VERSION"_s), "2.0.1\n") && writeFile(dir.filePath(u"oqservicename"_s), "q"));
        QVERIFY(writeFile(dir.filePath(u"oqnode.ini"_s), "[main]\nserver=f\nport=6\n"));
        LN_ComponentMetadata r;
        r.product = LN_ProductID(product);
        r.version = QVersionNumber(1, 0, 0);
        r.otherOptions = {{u"server"_s, u"o"_s}};
        LN_ComponentMetadata const read = fromBody(dir.path(), r.save(QDir(dir.path())));
        QStringList options{read.version.toString(), QString::number(read.imported)};
        for (auto it = read.otherOptions.cbegin(); it != read.otherOptions.cend(); ++it)
            options << it.key() + u'=' + it.value();
        std::sort(options.begin() + 2, options.end());
        QTEST(options.join(u' '), "read");
    }

    void fileLists()
    {
        QTemporaryDir dir;
        QDir const repo(dir.path());
        LN_FileMetadata const tool(u"bin/tool"_s, u"s"_s, digest, 10);
        LN_FileMetadata const guide(u"docs/Guide.txt"_s, QString(), QByteArray(), 5);
        LN_ComponentMetadata r = record(u"/x"_s);
        r.setFiles(u"Maya Plug-In"_s, {tool});
        r.setFiles(u"Docs"_s, {guide});
        r.setFiles(u"Unknown"_s, {tool});
        r.setSofsFiles(u"Docs"_s, {{u"sofs/a.dat"_s, true}});
        r.save(repo);
        // A list of a feature that the record lacks is dropped; the others are read back from disk.
        QStringList const names{u"Docs_1.json"_s, u"Docs_sofs_1.json"_s, u"Maya_Plug-In_1.json"_s};
        QVERIFY(repo.entryList(QDir::Files) == names && r.allFiles() == (QList<LN_FileMetadata>{tool, guide}));
        QVERIFY(r.installedSize() == 15 && r.installedSize(u"Docs"_s) == 5 && r.installedSize(u"Unknown"_s) == 0);
        QVERIFY(r.containsFile(u"docs/Guide.txt"_s) && !r.containsFile(u"docs/guide.txt"_s));
        // SOFS lists stay pending and are written again; a pending empty list hides the manifest.
        r.save(repo);
        QCOMPARE(r.sofsFiles.value(u"Docs"_s), repo.filePath(u"Docs_sofs_2.json"_s));
        r.pendingSofsFiles.clear();
        QCOMPARE(r.allSofsFiles(), (QList<LN_SofsFileMetadata>{{u"sofs/a.dat"_s, true}}));
        r.setFiles(u"Docs"_s, {});
        QVERIFY(r.getFiles(u"Docs"_s).isEmpty());
        // An unreadable manifest is an empty list, a malformed one throws.
        r.pendingFiles.clear();
        r.features[u"Docs"_s] = repo.filePath(u"missing.json"_s);
        r.sofsFiles[u"Docs"_s] = repo.filePath(u"Maya_Plug-In_1.json"_s);
        QVERIFY(r.getFiles(u"Docs"_s).isEmpty() && r.getSofsFiles(u"Docs"_s).isEmpty());
        r.productFiles = repo.filePath(u"Docs_sofs_1.json"_s);
        QCOMPARE(thrownBy([&] { r.getFiles(u"Maya Plug-In"_s); }), u"Expected an array"_s);
    }

    void optionsAndTexts()
    {
        LN_ComponentMetadata r = record(u"/opt/./orvanis//"_s);
        r.buildType.clear();
        LN_InstallerOptions const options = r.installOptions();
        QVERIFY(options.verb == LN_InstallerOptions::Invalid && options.isBuildTypeSet());
        QCOMPARE(options.features, (QHash<QString, bool>{{u"Docs"_s, true}}));
        QVERIFY(options.existingInstallDir() == u"/opt/orvanis"_s && options.otherOptions == r.otherOptions);
        LN_InstallerOptions const uninstall = LN_InstallerOptions::uninstall(r, true);
        QVERIFY(uninstall.verb == LN_InstallerOptions::Uninstall && uninstall.force && uninstall.features.isEmpty());
        r.otherOptions = {{u"on"_s, u"YES"_s}, {u"blank"_s, QString()}, {u"odd"_s, u"y"_s}};
        QVERIFY(r.getYesNoOption(u"on"_s) && !r.getYesNoOption(u"blank"_s) && !r.getYesNoOption(u"absent"_s));
        QCOMPARE(thrownBy([&] { r.getYesNoOption(u"odd"_s); }), u"Expected \"yes\" or \"no\" for option odd"_s);
        r.installDir.clear();
        QCOMPARE(thrownBy([&] { r.installOptions(); }), u"Does not refer to an existing installation"_s);
        r.product = Product_Orvanis; // which takes add-on packages only after 17.5.134
        r.version = QVersionNumber(17, 5, 134);
        QVERIFY(!r.supportsPackages() && (r.version = QVersionNumber(17, 5, 135), r.supportsPackages()));
    }

    // Recovery of an interrupted change relies on which fields equality compares and which it ignores.
    void equality_data()
    {
        QTest::addColumn<Edit>("edit");
        QTest::addColumn<bool>("equal");
        QTest::newRow("version") << Edit([](auto & r) { r.version = QVersionNumber(20, 1, 5); }) << false;
        QTest::newRow("directory case") << Edit([](auto & r) { r.installDir = u"/X"_s; }) << false;
        QTest::newRow("build type") << Edit([](auto & r) { r.buildType = u"beta"_s; }) << false;
        QTest::newRow("product") << Edit([](auto & r) { r.product = Product_Orvanis; }) << false;
        QTest::newRow("feature manifest") << Edit([](auto & r) { r.features[u"Docs"_s] = u"x"_s; }) << false;
        QTest::newRow("options") << Edit([](auto & r) { r.otherOptions.clear(); }) << false;
        QTest::newRow("all the others at once") << Edit([](auto & r) {
            r.label = r.productFiles = r.sofsFiles[u"Docs"_s] = u"x"_s;
            r.platformInfo = {};
            r.ready = r.failedUninstall = false;
            r.setFiles(u"Docs"_s, {});
        }) << true;
    }
    void equality()
    {
        QFETCH(Edit, edit);
        LN_ComponentMetadata changed = record(u"/x"_s);
        edit(changed);
        QTEST(changed == record(u"/x"_s), "equal");
    }

    // "overview.json" as another version or a crash may leave it, rewritten in place.
    void loadDamaged_data()
    {
        QTest::addColumn<QByteArray>("content"); // null for no file
        QTest::addColumn<QString>("error");      // ending in ": ", how the text begins
        auto const row = [](char const * name, QByteArray const & content, QString const & error) {
            QTest::newRow(name) << content << error;
        };
        QString const corrupt = u"\nIt is likely the JSON file is corrupt."_s;
        QByteArray const table = R"("installations": {"/opt/x": {}}})";
        row("current", "{\"format version\": 1, " + table, {});
        row("version -1 passes", "{\"format version\": -1, " + table, {});
        row("version absent", "{" + table, u"overview.json is missing a \"format version\" member."_s + corrupt);
        row("version 2", "{\"format version\": 2, " + table,
            u"overview.json is too new to be read by this version of the Launcher.\nUpdate the Orvanis Launcher."_s);
        row("no file", {}, {});
        row("array", "[1]", u"overview.json not an object."_s + corrupt);
        QJsonObject const written{{u"format version"_s, 1},
                                  {u"installations"_s, QJsonObject{{u"/opt/x"_s, sampleBody}}}};
        QByteArray const whole = QJsonDocument(written).toJson(QJsonDocument::Compact);
        for (qsizetype length : {qsizetype(0), qsizetype(1), whole.size() / 2, whole.size() - 1})
            QTest::addRow("torn at %lld of %lld", qlonglong(length), qlonglong(whole.size()))
                << whole.first(length) << u"Failed to read JSON file overview.json: "_s;
    }
    void loadDamaged()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, error);
        QTemporaryDir dir;
        QVERIFY(content.isNull() || writeFile(dir.filePath(u"overview.json"_s), content));
        qsizetype loaded = -1;
        QString const thrown = thrownBy([&] { loaded = LN_InstallMetadata(QDir(dir.path())).installations.size(); });
        QCOMPARE(QDir(dir.path()).isEmpty(), content.isNull()); // loading writes nothing
        QVERIFY2(error.endsWith(u": "_s) ? thrown.startsWith(error) : thrown == error, qPrintable(thrown));
        QCOMPARE(loaded, qsizetype(!error.isEmpty() ? -1 : content.isNull() ? 0 : 1));
    }

    // A commit after one change to the record of "/opt/y": refused with the reason, with the table
    // in "crash.json", or done.
    void commit_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("reason"); // empty: committed
        auto const row = [](char const * name, Edit const & edit, QString const & reason) {
            QTest::newRow(name) << Change([edit](auto & repo) { edit(repo.installations[u"/opt/y"_s]); }) << reason;
        };
        auto const files = [](QByteArray const & checksum, qint64 size) {
            return Edit([=](auto & r) { r.setFiles(u"Maya Plug-In"_s, {{u"f"_s, {}, checksum, size}}); });
        };
        row("empty checksum, size 0", files({}, 0), {});
        row("31-byte checksum", files(digest.first(31), 1), u"invalid checksum"_s);
        row("negative size", files(digest, -1), u"invalid filesize"_s);
        row("invalid product", [](auto & r) { r.product = LN_ProductID::Invalid; }, u"invalid product"_s);
        row("invalid platform", [](auto & r) { r.platformInfo = {}; }, u"invalid platform info"_s);
        row("imported, any platform", [](auto & r) { r.platformInfo = {}; r.imported = true; }, {});
        row("key not the directory", [](auto & r) { r.installDir = u"/opt/y/"_s; },
            u"Key did not match installation directory"_s);
        QTest::newRow("empty key") << Change([](auto & repo) { repo.insert(record({})); }) << u"Key was empty"_s;
    }
    void commit()
    {
        QFETCH(Change, change);
        QFETCH(QString, reason);
        QTemporaryDir temp;
        QDir const dir(temp.path());
        LN_InstallMetadata repo(dir);
        repo.insert(record(u"/opt/y"_s, {u"bin/y"_s}));
        repo.saveFinal();
        QByteArray const overview = readAll(dir.filePath(u"overview.json"_s));
        change(repo);
        QString const crash = dir.absoluteFilePath(u"crash.json"_s);
        QString const refusal = u"The launcher's internal state is corrupted (%1). Submit %2 for debugging."_s;
        QCOMPARE(thrownBy([&] { repo.saveFinal(); }), reason.isEmpty() ? QString() : refusal.arg(reason, crash));
        QCOMPARE(readAll(dir.filePath(u"overview.json"_s)) == overview, !reason.isEmpty());
        QCOMPARE(QFile::exists(crash), !reason.isEmpty());
        if (!reason.isEmpty()) // the table as it was refused, for diagnosis
            QCOMPARE(LN_InstallMetadata(dir, u"crash.json"_s).installations.size(), repo.installations.size());
    }

    // A process that changes the repository is killed at each point of its change; the next one must
    // find every committed record, and every file on disk named by a record.
    void killedDuringChange_data()
    {
        QTest::addColumn<QString>("scenario"); // modify "a", add "e", remove "b", move "c" to "c2"
        QTest::addColumn<QString>("stop");
        QTest::addColumn<bool>("recovers");
        auto const row = [](QString const & scenario, QString const & stop, bool recovers) {
            QTest::addRow("%s, %s", qPrintable(scenario), qPrintable(stop)) << scenario << stop << recovers;
        };
        // Three manifests, "new.json", the files, a manifest and "overview.json", of which a removal has
        // only the two tables. A record that is not ready in "new.json" is recovered until that goes.
        for (QString const & scenario : {u"modify"_s, u"add"_s, u"move"_s}) {
            for (int written = 1; written <= 6; ++written)
                row(scenario, QString::number(written), written >= 4);
            row(scenario, u"disk"_s, true);
            row(scenario, u"none"_s, false);
        }
        for (auto const & [stop, recovers] : {std::pair(u"1"_s, true), {u"disk"_s, true}, {u"2"_s, false}})
            row(u"remove"_s, stop, recovers);
        row(u"remove"_s, u"none"_s, false);
    }
    void killedDuringChange()
    {
        QFETCH(QString, scenario);
        QFETCH(QString, stop);
        QTemporaryDir temp;
        QString const root = temp.filePath(u"installed"_s);
        QDir const repoDir(temp.filePath(u"repository"_s));
        LN_InstallMetadata committed(repoDir);
        for (QString const & name : {u"a"_s, u"b"_s, u"c"_s, u"d"_s})
            committed.insert(record(QDir(root).filePath(name), {u"bin/tool"_s, u"bin/"_s + name}));
        for (QString const & file : namedFiles(committed) + QSet{repoDir.filePath(u"notes.txt"_s)})
            QVERIFY(writeFile(file));
        committed.saveFinal();

        QProcess helper;
        helper.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        helper.start(QCoreApplication::applicationFilePath(), {u"--change"_s, repoDir.path(), root, scenario, stop});
        while (stop != u"none"_s && !helper.canReadLine())
            QVERIFY2(helper.waitForReadyRead(30000), "the helper ended before its stop");
        if (stop != u"none"_s)
            helper.kill();
        QVERIFY(helper.waitForFinished(30000));
        QCOMPARE(helper.exitStatus() == QProcess::NormalExit && helper.exitCode() == 0, stop == u"none"_s);

        QHash<QString, QString> const touchedBy{{u"modify"_s, u"a"_s}, {u"remove"_s, u"b"_s}, {u"move"_s, u"c"_s}};
        auto const checkUntouched = [&](LN_InstallMetadata const & repo) {
            for (LN_ComponentMetadata const & old : std::as_const(committed.installations)) {
                LN_ComponentMetadata const now = repo.get(old.installDir);
                bool const touched = QFileInfo(old.installDir).fileName() == touchedBy.value(scenario);
                QVERIFY2(touched || (now == old && now.ready && now.allFiles() == old.allFiles()),
                         qPrintable(old.installDir));
            }
        };
        LN_InstallMetadata repo(repoDir);
        checkUntouched(repo);
        bool const recovered = !repo.interruptedNew.installDir.isEmpty() || !repo.interruptedOld.installDir.isEmpty();
        QTEST(recovered, "recovers");
        QSet<QString> const named = namedFiles(repo);
        for (QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            QVERIFY2(named.contains(it.next()), qPrintable(it.filePath() + u" is not named by any record"_s));

        // The merged record cannot be committed as it is; once the caller has removed it, the commit
        // removes every JSON file that the table does not name, and only those.
        if (recovered) {
            QVERIFY(thrownBy([&] { repo.saveFinal(); }).startsWith(u"The launcher's internal state is corrupted ("_s));
            repo.remove(repo.interruptedNew.installDir);
        }
        repo.saveFinal();
        LN_InstallMetadata const reloaded(repoDir);
        QVERIFY(reloaded.interruptedNew.installDir.isEmpty() && reloaded.interruptedOld.installDir.isEmpty());
        checkUntouched(reloaded);
        QSet<QString> expected{u"overview.json"_s, u"notes.txt"_s};
        for (LN_ComponentMetadata const & r : reloaded.installations)
            for (QString const & path : r.features.values() + r.sofsFiles.values() + QStringList{r.productFiles})
                expected.insert(QFileInfo(path).fileName());
        QStringList const left = repoDir.entryList(QDir::Files);
        QCOMPARE(QSet(left.cbegin(), left.cend()), expected);
    }
};

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    QStringList const args = app.arguments();
    if (args.size() == 6 && args[1] == u"--change"_s)
        return changeAndStop(QDir(args[2]), args[3], args[4], args[5]);
    TestRecords test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_records.moc"
