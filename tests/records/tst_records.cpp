#include <draizu/catalogue/LN_AvailableFeature.h>
#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/catalogue/LN_InfoUpdates.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/records/LN_InstallMetadata.h>
#include <draizu/records/LN_JsonFiles.h>
#include <draizu/records/LN_Metadata.h>

#include "support/ThrownBy.h"

#include <QCoreApplication>
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
using Query = std::function<QString(LN_InstallMetadata const &)>;
Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(Query)

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
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QFile::WriteOnly) && file.write(bytes) == bytes.size();
}

template <typename List, typename Text>
QString sorted(List const & items, Text const & text)
{
    QStringList lines;
    for (auto const & item : items)
        lines.append(text(item));
    lines.sort();
    return lines.join(u' ');
}

// Run with "--change": one change in the order that recovery relies on, stopped where the test kills it:
// after the n-th file that the repository writes, with half its files on disk ("disk"), or never ("none").
bool counting = false;
int stopAfter = 0;
int written = 0;

void stopHere()
{
    if (::write(STDOUT_FILENO, "stopped\n", 8) == 8)
        std::raise(SIGSTOP);
    std::_Exit(4); // a stopped helper is only ever killed
}

int changeAndStop(QDir const & repository, QString const & root, QString const & removed, QString const & added,
                  QString const & stop)
{
    LN_InstallMetadata repo(repository);
    QSet<QString> const before = namedFiles(repo);
    QString const changed = QDir(root).filePath(added);
    repo.remove(QDir(root).filePath(removed));
    if (!added.isEmpty()) {
        // Ready once its files are on disk; its shared optional files give saveFinal a manifest to write.
        repo.insert(record(changed, {u"bin/tool"_s, u"bin/new"_s}));
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

    QTemporaryDir installed_;
    LN_InstallMetadata queried_;

private Q_SLOTS:
    // The records that the queries ask: label, product, version, engine API, ready, and a directory that
    // holds a file, only a dot file, nothing, or is gone; "-" for a null engine API or no directory.
    void initTestCase()
    {
        QStringList const entries = uR"(o20 Orvanis 20.0 6.0 1 file; o21a Orvanis 21.0 7.1 1 file;
            o21b Orvanis 21.0 7.1 1 file; dot Orvanis 22.5 - 1 dot; self Orvanis 23.0 - 1 file;
            empty Orvanis 23.2 - 1 empty; gone Orvanis 23.5 - 1 gone; unready Orvanis 23.7 - 0 file;
            unready-gone Orvanis 19.0 - 0 gone; nowhere Orvanis 24.0 - 1 -; m1 Maya 21.2 8.0 1 file;
            m2 Maya 21.2 8.0 1 file; m-gone Maya 30.0 - 1 gone)"_s.split(u';');
        QDir const root(installed_.path());
        for (QString const & entry : entries) {
            QStringList const f = entry.simplified().split(u' ');
            QString const dir = f[5] == u"-"_s ? QString() : root.filePath(f[0]);
            QString const content = f[5] == u"file"_s ? u"/bin"_s : f[5] == u"dot"_s ? u"/.keep"_s : QString();
            QVERIFY(dir.isEmpty() || (content.isEmpty() ? root.mkpath(f[0]) : writeFile(dir + content)));
            QVERIFY(f[5] != u"gone"_s || root.rmdir(f[0]));
            queried_.insert(fromBody(dir, {{u"label"_s, f[0]}, {u"product"_s, f[1]}, {u"version"_s, f[2]},
                                           {u"oapi version"_s, f[3]}, {u"ready"_s, f[4] == u"1"_s}}));
        }
    }

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
        QFETCH(QString, expected);
        QTemporaryDir source; // an offline installer, by its "data/overview.json"
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
        QString const outcome = !thrown.isNull() ? u"throws: "_s + thrown
                                : error.isError() ? u"failure: "_s + error.message : read.join(u", "_s);
        QVERIFY2(expected.endsWith(u' ') ? outcome.startsWith(expected) : outcome == expected, qPrintable(outcome));
        feature = LN_AvailableFeature(); // with no location, the SOFS reader asks nothing and the other one fails
        QVERIFY(LN_SofsFileMetadata::sofsMetadataForInstall(feature, opener).value.isEmpty() && thrownBy([&] {
            (void)LN_FileMetadata::fileMetadataForInstall(feature, opener); }).startsWith(u"Failed to open : "_s));
    }

    // A body keeps every field through a save; job-queue records are brought up to date from their directory.
    void body()
    {
        QTemporaryDir dir;
        QCOMPARE(fromBody(u"/x"_s, sampleBody).save(QDir(dir.path())), sampleBody);
        QVERIFY(writeFile(dir.filePath(u"VERSION"_s), "2.0.1\n") && writeFile(dir.filePath(u"oqservicename"_s), "q"));
        QVERIFY(writeFile(dir.filePath(u"oqnode.ini"_s), "[main]\nserver=f\nport=6\n"));
        auto const job = [&](QString const & product) {
            return fromBody(dir.path(), {{u"product"_s, product}, {u"version"_s, u"1.0.0"_s},
                                         {u"other options"_s, QJsonObject{{u"server"_s, u"o"_s}}}});
        };
        LN_ComponentMetadata const client = job(u"oqclient"_s), server = job(u"oqserver"_s);
        QVERIFY(client.version == QVersionNumber(2, 0, 1) && client.imported && !server.imported);
        QCOMPARE(client.otherOptions, (QHash<QString, QString>{{u"server"_s, u"f"_s}, {u"port"_s, u"6"_s}}));
        QCOMPARE(server.otherOptions, (QHash<QString, QString>{{u"server"_s, u"o"_s}, {u"service-name"_s, u"q"_s}}));
    }

    // Lists are written to new numbered manifests and read back; one of a feature that the record lacks
    // is dropped. An unreadable manifest is a failure naming it or an empty list, a malformed one throws.
    void fileLists()
    {
        QTemporaryDir dir;
        QDir const repo(dir.path());
        auto const names = u"%1_1.json Docs_1.json Docs_sofs_1.json Docs_sofs_2.json Maya_Plug-In_1.json"_s.split(u' ');
        QString const torn = repo.filePath(names[0]);
        QVERIFY(writeFile(torn, R"({"a": [)"));
        LN_ErrorStruct const failed = LN_FileMetadata::fileMetadataFromJson(torn).error;
        QVERIFY(failed.code == std::error_code(1, QFileErrorCategory()) && failed.message.contains(torn));
        QVERIFY(thrownBy([&] { writeJsonFile({}, torn + u"/below-a-file.json"_s); }).startsWith(u"Unable to open "_s));
        // The number goes in only where the name pattern ends.
        QCOMPARE(uniqueManifestPath(u"%1_%1.json"_s, repo), repo.filePath(u"%1_2.json"_s));
        LN_FileMetadata const tool(u"bin/tool"_s, u"s"_s, digest, 10), guide(u"docs/Guide.txt"_s, {}, QByteArray(), 5);
        LN_ComponentMetadata r = record(u"/x"_s);
        r.setFiles(u"Maya Plug-In"_s, {tool});
        r.setFiles(u"Docs"_s, {guide});
        r.setFiles(u"Unknown"_s, {tool});
        r.setSofsFiles(u"Docs"_s, {{u"sofs/a.dat"_s, true}});
        r.save(repo);
        r.save(repo); // SOFS lists stay pending and are written again
        QVERIFY(repo.entryList(QDir::Files) == names && r.sofsFiles.value(u"Docs"_s) == repo.filePath(names[3]));
        QVERIFY(r.allFiles() == (QList<LN_FileMetadata>{tool, guide}) && r.containsFile(u"docs/Guide.txt"_s));
        QVERIFY(r.installedSize() == 15 && r.installedSize(u"Docs"_s) == 5 && r.installedSize(u"Unknown"_s) == 0);
        r.pendingSofsFiles.clear();
        QCOMPARE(r.allSofsFiles(), (QList<LN_SofsFileMetadata>{{u"sofs/a.dat"_s, true}}));
        r.features[u"Docs"_s] = torn;
        r.sofsFiles[u"Docs"_s] = repo.filePath(names[4]);
        QVERIFY(r.getFiles(u"Docs"_s).isEmpty() && r.getSofsFiles(u"Docs"_s).isEmpty());
        r.productFiles = repo.filePath(names[2]);
        QCOMPARE(thrownBy([&] { r.getFiles(u"Maya Plug-In"_s); }), u"Expected an array"_s);
    }

    void installerOptions()
    {
        LN_ComponentMetadata r = record(u"/opt/orvanis"_s);
        r.buildType.clear();
        LN_InstallerOptions const again = r.installOptions();
        QVERIFY(again.isBuildTypeSet() && again.existingInstallDir() == r.installDir && again.otherOptions == r.otherOptions);
        QCOMPARE(again.features, (QHash<QString, bool>{{u"Docs"_s, true}}));
        r.otherOptions = {{u"on"_s, u"YES"_s}, {u"blank"_s, QString()}, {u"odd"_s, u"y"_s}};
        QVERIFY(r.getYesNoOption(u"on"_s) && !r.getYesNoOption(u"blank"_s));
        QCOMPARE(thrownBy([&] { r.getYesNoOption(u"odd"_s); }), u"Expected \"yes\" or \"no\" for option odd"_s);
        r.installDir.clear();
        QCOMPARE(thrownBy([&] { r.installOptions(); }), u"Does not refer to an existing installation"_s);
        r.product = Product_Orvanis; // which takes add-on packages only after 17.5.134
        QVERIFY((r.version = {17, 5, 134}, !r.supportsPackages()) && (r.version = {17, 5, 135}, r.supportsPackages()));
    }

    // Recovery of an interrupted change relies on which fields equality compares and which it ignores.
    void equality_data()
    {
        QTest::addColumn<QJsonObject>("changed"); // one key of the sample body
        QTest::addColumn<bool>("equal");
        QJsonObject const changes = QJsonDocument::fromJson(R"({"version": "20.1.5", "oapi version": "3.3",
            "forOrvanis": "", "release date": "", "tags": [], "build type": "beta", "product": "Orvanis",
            "features": {}, "other options": {}, "imported": true, "hasUninstaller": false, "label": "x", "os name": "",
            "product_files": "x", "sofs_files": {"Docs": "x"}, "ready": false, "failedUninstall": false})").object();
        QStringList const ignored = u"label,os name,product_files,sofs_files,ready,failedUninstall"_s.split(u',');
        for (auto it = changes.constBegin(); it != changes.constEnd(); ++it)
            QTest::newRow(qPrintable(it.key())) << QJsonObject{{it.key(), *it}} << ignored.contains(it.key());
    }
    void equality()
    {
        QFETCH(QJsonObject, changed);
        QJsonObject body = sampleBody;
        body.insert(changed.constBegin().key(), changed.constBegin().value());
        QTEST(fromBody(u"/x"_s, body) == fromBody(u"/x"_s, sampleBody), "equal");
    }

    // "overview.json" as another version or a crash may leave it, rewritten in place.
    void loadDamaged_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("error"); // ending in ": ", how the text begins
        auto const row = [](char const * name, QByteArray const & content, QString const & error) {
            QTest::newRow(name) << content << error;
        };
        QString const corrupt = u"\nIt is likely the JSON file is corrupt."_s;
        QByteArray const table = R"("installations": {"/opt/x": {}}})";
        row("version -1 passes", "{\"format version\": -1, " + table, {});
        row("version absent", "{" + table, u"overview.json is missing a \"format version\" member."_s + corrupt);
        row("version 2", "{\"format version\": 2, " + table,
            u"overview.json is too new to be read by this version of the Launcher.\nUpdate the Orvanis Launcher."_s);
        row("array", "[1]", u"overview.json not an object."_s + corrupt);
        QJsonObject const saved{{u"format version"_s, 1}, {u"installations"_s, QJsonObject{{u"/opt/x"_s, sampleBody}}}};
        QByteArray const whole = QJsonDocument(saved).toJson(QJsonDocument::Compact);
        for (qsizetype length : {qsizetype(0), qsizetype(1), whole.size() / 2, whole.size() - 1})
            QTest::addRow("torn at %lld of %lld", qlonglong(length), qlonglong(whole.size()))
                << whole.first(length) << u"Failed to read JSON file overview.json: "_s;
    }
    void loadDamaged()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, error);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath(u"overview.json"_s), content));
        qsizetype loaded = -1;
        QString const thrown = thrownBy([&] { loaded = LN_InstallMetadata(QDir(dir.path())).installations.size(); });
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{u"overview.json"_s}); // loading writes nothing
        QVERIFY2(error.endsWith(u": "_s) ? thrown.startsWith(error) : thrown == error, qPrintable(thrown));
        QCOMPARE(loaded, qsizetype(error.isEmpty() ? 1 : -1));
    }

    // A commit after one change to the record of "/opt/y": refused with the table in "crash.json", or done.
    void commit_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("reason"); // empty: committed
        auto const row = [](char const * name, auto const & edit, QString const & reason) {
            QTest::newRow(name) << Change([edit](auto & repo) { edit(repo.installations[u"/opt/y"_s]); }) << reason;
        };
        row("empty checksum, size 0", [](auto & r) { r.setFiles(u"Docs"_s, {{u"f"_s, {}, QByteArray(), 0}}); }, {});
        row("31-byte checksum", [](auto & r) { r.setFiles(u"Docs"_s, {{u"f"_s, {}, digest.first(31), 1}}); }, u"invalid checksum"_s);
        row("invalid product", [](auto & r) { r.product = LN_ProductID::Invalid; }, u"invalid product"_s);
        row("invalid platform", [](auto & r) { r.platformInfo = {}; }, u"invalid platform info"_s);
        row("imported, any platform", [](auto & r) { r.platformInfo = {}; r.imported = true; }, {});
        row("key not the directory", [](auto & r) { r.installDir = u"/opt/y/"_s; }, u"Key did not match installation directory"_s);
        QTest::newRow("empty key") << Change([](auto & repo) { repo.insert(record({})); }) << u"Key was empty"_s;
    }
    void commit()
    {
        QFETCH(Change, change);
        QFETCH(QString, reason);
        QTemporaryDir temp;
        LN_InstallMetadata repo(QDir(temp.path()));
        repo.insert(record(u"/opt/y"_s, {u"bin/y"_s}));
        repo.saveFinal();
        QString const overview = temp.filePath(u"overview.json"_s), crash = temp.filePath(u"crash.json"_s);
        QJsonDocument const before = readJsonFile(overview).value;
        change(repo);
        QString const refusal = u"The launcher's internal state is corrupted (%1). Submit %2 for debugging."_s;
        QCOMPARE(thrownBy([&] { repo.saveFinal(); }), reason.isEmpty() ? QString() : refusal.arg(reason, crash));
        QCOMPARE(readJsonFile(overview).value == before, !reason.isEmpty());
        if (!reason.isEmpty()) // the table as it was refused, for diagnosis
            QCOMPARE(readJsonFile(crash).value[u"installations"_s].toObject().size(), repo.installations.size());
    }

    void queries_data()
    {
        QTest::addColumn<Query>("query");
        QTest::addColumn<QString>("expected"); // a label, empty for a default record; "a|b": whichever comes first
        auto const row = [](char const * tag, Query const & query, QString const & expected) {
            QTest::newRow(tag) << query << expected;
        };
        auto const update = [](char const * text, bool older) {
            return [=, version = QVersionNumber::fromString(QLatin1String(text))](LN_InstallMetadata const & r) {
                QString const self = r.getInstallDirectory(Product_Orvanis, u"23.0"_s);
                return LN_Metadata::getUpdateVersion(r, self, version, older).label;
            };
        };
        auto const yes = [](bool value) { return value ? u"y"_s : u"n"_s; };

        row("versions, duplicates and all", [](auto const & r) {
            return sorted(r.getInstalledOrvanisVersions(), [](QString const & v) { return v; });
        }, u"19.0 20.0 21.0 21.0 22.5 23.0 23.2 23.5 23.7 24.0"_s);
        row("API versions, null included", [](auto const & r) {
            auto const text = [](QVersionNumber const & v) { return v.isNull() ? u"-"_s : v.toString(); };
            return sorted(r.getInstalledProductOapiVersions(Product_Orvanis), text);
        }, u"- 6.0 7.1"_s);
        row("product: first record", [](auto const & r) { return r.getProduct(Product_EngineMaya).label; },
            u"m1|m2|m-gone"_s);
        row("latest skips unready, empty, gone, nowhere",
            [](auto const & r) { return r.getLatestAvailableInstallation(Product_Orvanis).label; }, u"self"_s);
        row("latest of equal versions: first",
            [](auto const & r) { return r.getLatestAvailableInstallation(Product_EngineMaya).label; }, u"m1|m2"_s);
        row("nonexistent: empty, gone, nowhere, ready or not", [](auto const & r) {
            return sorted(r.getNonexistentOrvanisInstallations(), [](auto const & record) { return record.label; });
        }, u"empty gone nowhere unready-gone"_s);
        row("directory of a version with a suffix: first", [](auto const & r) {
            return QFileInfo(r.getInstallDirectory(Product_Orvanis, u"21.0-beta"_s)).fileName();
        }, u"o21a|o21b"_s);
        row("directory of a version not installed",
            [](auto const & r) { return r.getInstallDirectory(Product_EngineMaya, QVersionNumber(21, 0)); }, QString());
        row("has product: any version, that version, another, none", [yes](auto const & r) -> QString {
            return yes(r.hasProduct(Product_Orvanis, {})) + yes(r.hasProduct(Product_EngineMaya, QVersionNumber(30, 0)))
                   + yes(r.hasProduct(Product_EngineMaya, QVersionNumber(23))) + yes(r.hasProduct(Product_Optix, {}));
        }, u"yynn"_s);
        row("compatible by engine API, version, null API; not by a plug-in's API", [yes](auto const & r) {
            QString answers; // of a catalogue's build and of an installed plug-in
            for (auto const & [version, oapi] : {std::pair(u"99"_s, u"7.1"_s), {u"23.0"_s, u"9"_s}, {u"99"_s, u""_s},
                                                 {u"21.2"_s, u"8.0"_s}}) {
                LN_ComponentMetadata const plugin = fromBody({}, {{u"version"_s, version}, {u"oapi version"_s, oapi}});
                LN_AvailableInfo info;
                std::tie(info.version, info.oapiVersion) = std::tie(plugin.version, plugin.oapiVersion);
                answers += yes(r.hasCompatibleOrvanis(info)) + yes(r.hasCompatibleOrvanis(plugin));
            }
            return answers;
        }, u"yyyyyynn"_s);
        row("update: lowest at or above, of equal versions first", update("21.0", false), u"o21a|o21b"_s);
        row("update: a plug-in is no reference", update("21.1", false), u"dot"_s);
        row("update: the version itself qualifies", update("22.5", false), u"dot"_s);
        row("update: never the directory itself", update("23.0", false), u"empty"_s);
        row("older: highest below, of equal versions first", update("22.0", true), u"o21a|o21b"_s);
        row("older: an unready one is no reference, none below", update("20.0", true), QString());
    }
    void queries()
    {
        QFETCH(Query, query);
        QFETCH(QString, expected);
        // Ties go by the table's order, which the hash's seed sets anew in every process.
        QStringList const tied = expected.split(u'|');
        QList<LN_ComponentMetadata> const all = queried_.getAll();
        auto const first = std::find_if(all.begin(), all.end(), [&](auto const & r) { return tied.contains(r.label); });
        QCOMPARE(query(queried_), tied.size() > 1 ? first->label : expected);
    }

    // Records of an updated build take its tags and date whatever their product; one that differs
    // in build type or in the platform, even where the identity's long form does not, stays.
    void merge()
    {
        LN_PlatformInfo const windows = LN_PlatformInfo::fromStrings(u"win64"_s, u"gcc12"_s);
        LN_InstallMetadata repository;
        for (QString const & label : {u"Orvanis"_s, u"Maya"_s, u"debug"_s, u"arm"_s}) {
            LN_ComponentMetadata r = fromBody(label, {{u"label"_s, label}, {u"version"_s, u"21.0"_s}, {u"tags"_s, QJsonArray{u"Beta"_s}},
                {u"product"_s, label == u"Maya"_s ? label : u"Orvanis"_s}, {u"build type"_s, label == u"debug"_s ? label : QString()}});
            r.platformInfo = windows;
            r.platformInfo.cpu = label == u"arm"_s ? LN_PlatformInfo::Cpu_Arm : windows.cpu;
            repository.insert(r);
        }
        LN_InfoUpdates updates;
        LN_InfoUpdate const u{{21, 0}, {9}, windows, {}, {u"Production"_s}, QDate(2024, 5, 6)};
        updates.updates.insert({u.version, u.platform, u.buildType}, u);
        repository.merge(updates);
        QCOMPARE(sorted(repository.getAll(), [](LN_ComponentMetadata const & r) -> QString {
            return r.label + u':' + r.tags.join(u',') + u':' + r.releaseDate.toString(Qt::ISODate) + u':'
                   + r.oapiVersion.toString();
        }), u"Maya:Production:2024-05-06: Orvanis:Production:2024-05-06: arm:Beta:: debug:Beta::"_s);
    }

    // A process that changes the repository is killed at each point of its change; the next one must
    // find every committed record, and every file on disk named by a record.
    void killedDuringChange_data()
    {
        QTest::addColumn<QString>("removed"); // of the installations "a" to "d"
        QTest::addColumn<QString>("added");   // or replaced
        QTest::addColumn<QString>("stop");
        QTest::addColumn<bool>("recovers");
        auto const rows = [](char const * change, QString const & removed, QString const & added, QString const & stops,
                             QString const & recovering) {
            for (QString const & stop : stops.split(u' '))
                QTest::addRow("%s, %s", change, qPrintable(stop)) << removed << added << stop
                                                                  << recovering.split(u' ').contains(stop);
        };
        // Three manifests, "new.json", the files, a manifest and "overview.json", of which a removal has
        // only the two tables. A record that is not ready in "new.json" is recovered until that goes.
        rows("modify a", {}, u"a"_s, u"1 2 3 4 5 6 disk none"_s, u"4 5 6 disk"_s);
        rows("add e", {}, u"e"_s, u"1 2 3 4 5 6 disk none"_s, u"4 5 6 disk"_s);
        rows("move c to c2", u"c"_s, u"c2"_s, u"1 2 3 4 5 6 disk none"_s, u"4 5 6 disk"_s);
        rows("remove b", u"b"_s, {}, u"1 2 disk none"_s, u"1 disk"_s);
    }
    void killedDuringChange()
    {
        QFETCH(QString, removed);
        QFETCH(QString, added);
        QFETCH(QString, stop);
        QTemporaryDir temp;
        QString const root = temp.filePath(u"installed"_s);
        QDir const repoDir(temp.filePath(u"repository"_s));
        LN_InstallMetadata committed(repoDir);
        for (QString const & name : {u"a"_s, u"b"_s, u"c"_s, u"d"_s})
            committed.insert(record(QDir(root).filePath(name), {u"bin/tool"_s, u"bin/"_s + name}));
        committed.saveFinal(); // which makes the repository's directory
        for (QString const & file : namedFiles(committed) + QSet{repoDir.filePath(u"notes.txt"_s)})
            QVERIFY(writeFile(file));

        QProcess helper;
        helper.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        helper.start(qApp->applicationFilePath(), {u"--change"_s, repoDir.path(), root, removed, added, stop});
        while (stop != u"none"_s && !helper.canReadLine())
            QVERIFY2(helper.waitForReadyRead(30000), "the helper ended before its stop");
        if (stop != u"none"_s)
            helper.kill();
        QVERIFY(helper.waitForFinished(30000));
        QCOMPARE(helper.exitStatus() == QProcess::NormalExit && helper.exitCode() == 0, stop == u"none"_s);

        LN_InstallMetadata repo(repoDir);
        committed.remove(QDir(root).filePath(removed.isEmpty() ? added : removed));
        for (LN_ComponentMetadata const & old : std::as_const(committed.installations)) {
            LN_ComponentMetadata const now = repo.get(old.installDir);
            QVERIFY2(now == old && now.ready && now.allFiles() == old.allFiles(), qPrintable(old.installDir));
        }
        bool const recovered = !repo.interruptedNew.installDir.isEmpty() || !repo.interruptedOld.installDir.isEmpty();
        QTEST(recovered, "recovers");
        QSet<QString> const named = namedFiles(repo);
        for (QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            QVERIFY2(named.contains(it.next()), qPrintable(it.filePath() + u" is not named by any record"_s));

        // The merged record cannot be committed; once it is removed, the commit deletes the JSON files
        // that the table does not name, and only those.
        if (recovered) {
            QVERIFY(thrownBy([&] { repo.saveFinal(); }).startsWith(u"The launcher's internal state is corrupted ("_s));
            repo.remove(repo.interruptedNew.installDir);
        }
        repo.saveFinal();
        QSet<QString> expected{u"overview.json"_s, u"notes.txt"_s};
        for (LN_ComponentMetadata const & r : LN_InstallMetadata(repoDir).installations)
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
    if (args.size() == 7 && args[1] == u"--change"_s)
        return changeAndStop(QDir(args[2]), args[3], args[4], args[5], args[6]);
    TestRecords test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_records.moc"
