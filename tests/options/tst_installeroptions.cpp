#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

using Options = LN_InstallerOptions;
using Change = std::function<void(Options &)>;
Q_DECLARE_METATYPE(LN_InstallerOptions)

namespace {

Options record(Change const & change)
{
    Options options;
    change(options);
    return options;
}

// Every field set, through the setters where there are any.
Options fullRecord()
{
    return record([](Options & o) {
        o.verb = Options::Modify;
        o.offlineInstaller = u"/srv/orvanis.iso"_s;
        o.setInstallDir(u"/opt/new"_s);
        o.setExistingInstallDir(u"/opt/old"_s);
        o.version = QVersionNumber(18, 5, 1);
        o.platform = u"linux_x86_64_gcc9.3"_s;
        o.product = Product_Oserver;
        o.features = {{u"PDB Files"_s, true}, {u"Docs"_s, false}};
        o.otherOptions = {{u"start-menu"_s, u"no"_s}, {u"only-if-newer"_s, QString()}};
        o.licenses = {LN_LicenseAgreement{QJsonObject{{u"id"_s, u"eula"_s}}}};
        o.setBuildType(u"gold"_s);
    });
}

// The full record's text with one key set to the JSON `value`, or removed when it is empty.
QString fullTextWith(QString const & key, QByteArray const & value)
{
    QJsonObject object = QJsonDocument::fromJson(fullRecord().serialize().toUtf8()).object();
    if (value.isEmpty())
        object.remove(key);
    else
        object.insert(key, QJsonDocument::fromJson("[" + value + "]").array().first());
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

// The text shows which carried field differs; the rest is what the text does not carry.
void compareRecords(Options const & actual, Options const & expected)
{
    QCOMPARE(actual.serialize(), expected.serialize());
    QCOMPARE(int(actual.verb), int(expected.verb));
    QCOMPARE(actual.force, expected.force);
    QCOMPARE(actual.spareFlag, expected.spareFlag);
    QVERIFY(actual == expected);
}

int yesNoOutcome(std::function<bool()> const & read)
{
    try {
        return read() ? 1 : 0;
    } catch (LN_Exception const & error) {
        return QString::fromUtf8(error.what()) == u"Expected \"yes\" or \"no\" for option --start-menu"_s ? -1 : -2;
    }
}

LN_AvailableFeature feature(QString const & name, QList<LN_AvailableFeature> const & children = {})
{
    LN_AvailableFeature result;
    result.name = name;
    result.features = children;
    return result;
}

} // namespace

class TestInstallerOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void verbWords_data();
    void verbWords();
    void yesNo_data();
    void yesNo();
    void isSelected();
    void canonicalInstallPath_data();
    void canonicalInstallPath();
    void couldInstall_data();
    void couldInstall();
    void writtenText();
    void roundTrip_data();
    void roundTrip();
    void reads_data();
    void reads();
    void failures_data();
    void failures();

private:
    QTemporaryDir workDir_;
    QString previousDir_;
};

void TestInstallerOptions::initTestCase()
{
    QVERIFY(workDir_.isValid());
    QVERIFY(QDir(workDir_.path()).mkpath(u"work/real"_s));
    QVERIFY(QFile::link(workDir_.filePath(u"work/real"_s), workDir_.filePath(u"work/link"_s)));
    previousDir_ = QDir::currentPath();
    QVERIFY(QDir::setCurrent(workDir_.filePath(u"work"_s)));
}

void TestInstallerOptions::cleanupTestCase()
{
    QDir::setCurrent(previousDir_);
}

void TestInstallerOptions::verbWords_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<int>("verb");
    QTest::addColumn<QString>("written");

    QTest::newRow("install") << u"install"_s << int(Options::Install) << u"install"_s;
    QTest::newRow("modify mixed case") << u"Modify"_s << int(Options::Modify) << u"modify"_s;
    QTest::newRow("update reads as modify") << u"UPDATE"_s << int(Options::Modify) << u"modify"_s;
    QTest::newRow("move") << u"move"_s << int(Options::Move) << u"move"_s;
    QTest::newRow("repair") << u"REPAIR"_s << int(Options::Repair) << u"repair"_s;
    QTest::newRow("empty") << QString() << int(Options::Invalid) << u"invalid"_s;
    QTest::newRow("invalid is no verb word") << u"invalid"_s << int(Options::Invalid) << u"invalid"_s;
    QTest::newRow("longer word") << u"installer"_s << int(Options::Invalid) << u"invalid"_s;
}

void TestInstallerOptions::verbWords()
{
    QFETCH(QString, word);
    QFETCH(int, verb);
    QFETCH(QString, written);

    Options options;
    options.verb = Options::verbFromString(word);
    QCOMPARE(int(options.verb), verb);
    QCOMPARE(options.verbString(), written);
    QCOMPARE(Options::verbString(Options::Verb(42)), u"invalid"_s);
}

void TestInstallerOptions::yesNo_data()
{
    // Outcomes: 1 true, 0 false, -1 the exception with its text.
    QTest::addColumn<bool>("present");
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("reading");
    QTest::addColumn<int>("plain");
    QTest::addColumn<int>("ifSet");

    QTest::newRow("absent") << false << QString() << int(LN_Util::Empty) << -1 << 0;
    QTest::newRow("yes in capitals") << true << u"YES"_s << int(LN_Util::Yes) << 1 << 1;
    QTest::newRow("no mixed case") << true << u"No"_s << int(LN_Util::No) << 0 << 0;
    QTest::newRow("empty value") << true << u""_s << int(LN_Util::Empty) << -1 << -1;
    QTest::newRow("other word") << true << u"true"_s << int(LN_Util::Unrecognised) << -1 << -1;
    QTest::newRow("trailing blank") << true << u"yes "_s << int(LN_Util::Unrecognised) << -1 << -1;
}

void TestInstallerOptions::yesNo()
{
    QFETCH(bool, present);
    QFETCH(QString, value);
    QFETCH(int, reading);
    QFETCH(int, plain);
    QFETCH(int, ifSet);

    QString const key = u"start-menu"_s;
    Options options;
    if (present)
        options.otherOptions.insert(key, value);
    QCOMPARE(options.getOption(key).isNull(), !present);
    QCOMPARE(int(LN_Util::getYesNoOption(options.getOption(key))), reading);
    QCOMPARE(yesNoOutcome([&] { return options.getYesNoOption(key); }), plain);
    QCOMPARE(yesNoOutcome([&] { return options.getYesNoOptionIfSet(key); }), ifSet);
}

void TestInstallerOptions::isSelected()
{
    Options options;
    options.product = Product_EngineMaya;
    QVERIFY(options.isSelected(u"engine maya"_s));
    options.features = {{u"Maya Plug-In"_s, false}, {u"Docs"_s, false}, {u"PDB Files"_s, true}};
    QVERIFY(options.isSelected(u"Maya Plug-In"_s));
    QVERIFY(options.isSelected(u"PDB Files"_s));
    QVERIFY(!options.isSelected(u"Docs"_s));
    QVERIFY(!options.isSelected(u"pdb files"_s));
    QVERIFY(!options.isSelected(u"Orvanis"_s));
}

void TestInstallerOptions::canonicalInstallPath_data()
{
    // %1 stands for the working directory, %2 for its parent.
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("canonical");

    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("trailing slash") << u"/opt/orvanis/"_s << u"/opt/orvanis"_s;
    QTest::newRow("doubled slashes") << u"//opt//orvanis//"_s << u"/opt/orvanis"_s;
    QTest::newRow("dot segments") << u"/opt/./orvanis/."_s << u"/opt/orvanis"_s;
    QTest::newRow("dot-dot segment") << u"/opt/x/../orvanis"_s << u"/opt/orvanis"_s;
    QTest::newRow("dot-dot above root") << u"/../../opt/orvanis"_s << u"/opt/orvanis"_s;
    QTest::newRow("only dot-dot above root") << u"/.."_s << u"/"_s;
    QTest::newRow("relative") << u"sub/dir"_s << u"%1/sub/dir"_s;
    QTest::newRow("relative dot-dot") << u"../other"_s << u"%2/other"_s;
    QTest::newRow("backslash is a name character") << u"a\\b\\..\\c"_s << u"%1/a\\b\\..\\c"_s;
    QTest::newRow("link not resolved") << u"link/"_s << u"%1/link"_s;
}

void TestInstallerOptions::canonicalInstallPath()
{
    QFETCH(QString, path);
    QFETCH(QString, canonical);

    QString const expected = canonical.replace(u"%1"_s, QDir::currentPath())
                                 .replace(u"%2"_s, QFileInfo(QDir::currentPath()).path());
    QCOMPARE(Options::canonicalInstallPath(path), expected);
    Options options;
    options.setInstallDir(path);
    options.setExistingInstallDir(path);
    QCOMPARE(options.installDir(), expected);
    QCOMPARE(options.existingInstallDir(), expected);
}

void TestInstallerOptions::couldInstall_data()
{
    QTest::addColumn<LN_InstallerOptions>("options");
    QTest::addColumn<QString>("buildName");
    QTest::addColumn<QString>("buildType");
    QTest::addColumn<bool>("fits");

    Options const wanted = record([](Options & o) {
        o.product = Product_Orvanis;
        o.version = QVersionNumber(18, 5, 1);
        o.platform = u"linux_x86_64_gcc9.3"_s;
    });
    auto row = [&wanted](char const * name, Change const & change, bool fits, QString const & buildName = u"Orvanis"_s,
                         QString const & buildType = QString()) {
        Options options = wanted;
        change(options);
        QTest::newRow(name) << options << buildName << buildType << fits;
    };
    row("same build", [](Options &) {}, true);
    row("no platform asked for", [](Options & o) { o.platform.clear(); }, true);
    row("other compiler", [](Options & o) { o.platform = u"linux_x86_64_gcc11"_s; }, false);
    row("unreadable platform", [](Options & o) { o.platform = u"linux"_s; }, false);
    row("other version", [](Options & o) { o.version = QVersionNumber(18, 5, 2); }, false);
    row("no version asked for", [](Options & o) { o.version = QVersionNumber(); }, false);
    row("build type wanted, plain build", [](Options & o) { o.setBuildType(u"debug"_s); }, false);
    row("plain build type given", [](Options & o) { o.setBuildType(QString()); }, true);
    row("typed build, none asked for", [](Options &) {}, false, u"Orvanis"_s, u"debug"_s);
    row("build type case differs", [](Options & o) { o.setBuildType(u"Debug"_s); }, false, u"Orvanis"_s, u"debug"_s);
    row("other product", [](Options & o) { o.product = Product_EngineMaya; }, false);
    row("product by catalogue name", [](Options & o) { o.product = Product_EngineMaya; }, true, u"Maya Plug-In"_s);
    row("direct features chosen", [](Options & o) { o.features = {{u"PDB Files"_s, true}, {u"Docs"_s, true}}; }, true);
    row("missing feature declined", [](Options & o) { o.features[u"Samples"_s] = false; }, true);
    row("missing feature chosen", [](Options & o) { o.features[u"Samples"_s] = true; }, false);
    row("deeper feature chosen", [](Options & o) { o.features[u"Symbols"_s] = true; }, false);
    row("own name as feature", [](Options & o) { o.features[u"Orvanis"_s] = true; }, false);
    row("feature case differs", [](Options & o) { o.features[u"pdb files"_s] = true; }, false);
}

void TestInstallerOptions::couldInstall()
{
    QFETCH(LN_InstallerOptions, options);
    QFETCH(QString, buildName);
    QFETCH(QString, buildType);
    QFETCH(bool, fits);

    LN_AvailableInfo build;
    build.version = QVersionNumber(18, 5, 1);
    build.buildType = buildType;
    build.platform = LN_PlatformInfo::fromString(u"linux_x86_64_gcc9.3"_s);
    build.feature = feature(buildName, {feature(u"PDB Files"_s, {feature(u"Symbols"_s)}), feature(u"Docs"_s)});
    QCOMPARE(LN_Util::couldInstall(options, build), fits);
}

void TestInstallerOptions::writtenText()
{
    QCOMPARE(Options().serialize(),
             uR"({"build-type":null,"existing-install-dir":"","features":{},"install-dir":"","licenses":[],)"
             uR"("offline-installer":"","other-options":{},"platform":"","product":"Invalid","verb":"invalid",)"
             uR"("version":""})"_s);
    QCOMPARE(fullRecord().serialize(),
             uR"({"build-type":"gold","existing-install-dir":"/opt/old","features":{"Docs":false,"PDB Files":true},)"
             uR"("install-dir":"/opt/new","licenses":[{"id":"eula"}],"offline-installer":"/srv/orvanis.iso",)"
             uR"("other-options":{"only-if-newer":"","start-menu":"no"},"platform":"linux_x86_64_gcc9.3",)"
             uR"("product":"oserver","verb":"modify","version":"18.5.1"})"_s);
}

void TestInstallerOptions::roundTrip_data()
{
    QTest::addColumn<LN_InstallerOptions>("options");
    QTest::addColumn<LN_InstallerOptions>("expected");

    auto row = [](QString const & name, Change const & change, Change const & onReading = [](Options &) {}) {
        Options const options = record(change);
        Options expected = options;
        onReading(expected);
        QTest::newRow(qPrintable(name)) << options << expected;
    };
    row(u"default record"_s, [](Options &) {});
    row(u"every field"_s, [](Options & o) { o = fullRecord(); });
    for (int verb = Options::Install; verb <= Options::Invalid; ++verb)
        row(u"verb "_s + Options::verbString(Options::Verb(verb)),
            [verb](Options & o) { o.verb = Options::Verb(verb); });
    for (int product = Product_Orvanis; product <= LN_ProductID::Invalid; ++product) {
        row(u"product "_s + QString::fromLatin1(productName(LN_ProductID(product))),
            [product](Options & o) { o.product = LN_ProductID(product); });
    }
    row(u"relative install dir"_s, [](Options & o) { o.setInstallDir(u"orvanis"_s); });
    row(u"four part version"_s, [](Options & o) { o.version = QVersionNumber({18, 5, 1, 7}); });
    row(u"non-ASCII option"_s,
        [](Options & o) { o.otherOptions = {{u"start-menu-folder"_s, u"Marlux \u00e9\u6e2c"_s}}; });
    row(u"empty licence"_s, [](Options & o) { o.licenses = {LN_LicenseAgreement{}}; });
    row(u"empty build type stays set"_s, [](Options & o) { o.setBuildType(QString()); });
    row(u"build type unset again"_s, [](Options & o) {
        o.setBuildType(u"gold"_s);
        o.unsetBuildType();
    });
    row(u"verb out of range"_s, [](Options & o) { o.verb = Options::Verb(42); },
        [](Options & o) { o.verb = Options::Invalid; });
    row(u"product out of range"_s, [](Options & o) { o.product = LN_ProductID(99); },
        [](Options & o) { o.product = LN_ProductID::Invalid; });
    row(u"forced uninstall is not forced"_s, [](Options & o) { o.verb = Options::Uninstall; o.force = true; },
        [](Options & o) { o.force = false; });
    row(u"spare flag"_s, [](Options & o) { o.spareFlag = true; }, [](Options & o) { o.spareFlag = false; });
}

void TestInstallerOptions::roundTrip()
{
    QFETCH(LN_InstallerOptions, options);
    QFETCH(LN_InstallerOptions, expected);

    LN_Result<LN_InstallerOptions> const result = Options::deserialize(options.serialize());
    QVERIFY2(!result.isError(), qPrintable(result.error.message));
    compareRecords(result.value, expected);
}

void TestInstallerOptions::reads_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<LN_InstallerOptions>("expected");

    auto row = [](char const * name, QString const & key, QByteArray const & value, Change const & change) {
        Options expected = fullRecord();
        change(expected);
        QTest::newRow(name) << fullTextWith(key, value) << expected;
    };
    row("install dir null", u"install-dir"_s, "null", [](Options & o) { o.setInstallDir(QString()); });
    row("existing install dir null", u"existing-install-dir"_s, "null",
        [](Options & o) { o.setExistingInstallDir(QString()); });
    row("build type null", u"build-type"_s, "null", [](Options & o) { o.unsetBuildType(); });
    row("install dir cleaned", u"install-dir"_s, R"("//opt//x/../new/")", [](Options &) {});
    row("existing install dir cleaned", u"existing-install-dir"_s, R"("/opt/./old//")", [](Options &) {});
    row("install dir relative", u"install-dir"_s, R"("new")",
        [](Options & o) { o.setInstallDir(QDir::current().filePath(u"new"_s)); });
    row("verb absent", u"verb"_s, "", [](Options & o) { o.verb = Options::Invalid; });
    row("verb a number", u"verb"_s, "2", [](Options & o) { o.verb = Options::Invalid; });
    row("verb update", u"verb"_s, R"("Update")", [](Options &) {});
    row("product by another name", u"product"_s, R"("Orvanis Server")", [](Options &) {});
    row("product unknown", u"product"_s, R"("Orvanis 2")", [](Options & o) { o.product = LN_ProductID::Invalid; });
    row("version empty", u"version"_s, R"("")", [](Options & o) { o.version = QVersionNumber(); });
    row("feature not a boolean", u"features"_s, R"({"PDB Files":"yes"})",
        [](Options & o) { o.features = {{u"PDB Files"_s, false}}; });
    row("option not a string", u"other-options"_s, R"({"port":5000})",
        [](Options & o) { o.otherOptions = {{u"port"_s, QString()}}; });
    row("licence not an object", u"licenses"_s, R"(["eula"])",
        [](Options & o) { o.licenses = {LN_LicenseAgreement{}}; });
    row("unknown key ignored", u"force"_s, "true", [](Options &) {});
}

void TestInstallerOptions::reads()
{
    QFETCH(QString, text);
    QFETCH(LN_InstallerOptions, expected);

    LN_Result<LN_InstallerOptions> const result = Options::deserialize(text);
    QVERIFY2(!result.isError(), qPrintable(result.error.message));
    compareRecords(result.value, expected);
}

void TestInstallerOptions::failures_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    QString const full = fullRecord().serialize();
    QTest::newRow("empty text") << QString() << 1 << u"data is not valid JSON"_s;
    QTest::newRow("truncated object") << full.chopped(1) << 1 << u"data is not valid JSON"_s;
    QTest::newRow("array") << u"[%1]"_s.arg(full) << 3 << u"data was not a JSON object"_s;

    struct Row
    {
        char const * key;
        QByteArray value;
        char const * message;
    };
    Row const rows[] = {
        {"offline-installer", "null", "offline-installer was incorrect type"},
        {"install-dir", "", "install-dir was incorrect type"},
        {"existing-install-dir", "false", "existing-install-dir was incorrect type"},
        {"version", "", "version was incorrect type"},
        {"version", R"("18.5.1-gold")", "version was a string, but not a valid version number"},
        {"version", R"("latest")", "version was a string, but not a valid version number"},
        {"platform", "", "platform was incorrect type"},
        {"product", "0", "product was incorrect type"},
        {"features", R"(["PDB Files"])", "features was incorrect type"},
        {"other-options", R"("start-menu=no")", "other-options was incorrect type"},
        {"licenses", "", "licenses was incorrect type"},
        {"build-type", "false", "build-type was incorrect type"},
    };
    for (Row const & row : rows) {
        QString const key = QString::fromLatin1(row.key);
        QString const name = key + u' ' + (row.value.isEmpty() ? u"absent"_s : QString::fromUtf8(row.value));
        QTest::newRow(qPrintable(name)) << fullTextWith(key, row.value) << 3 << QString::fromUtf8(row.message);
    }
}

void TestInstallerOptions::failures()
{
    QFETCH(QString, text);
    QFETCH(int, code);
    QFETCH(QString, message);

    LN_Result<LN_InstallerOptions> const result = Options::deserialize(text);
    QCOMPARE(&result.error.code.category(), &LN_InstallerOptionsDeserializeErrorCategory());
    QCOMPARE(result.error.code.value(), code);
    QCOMPARE(result.error.message, message);
    compareRecords(result.value, Options());
}

QTEST_GUILESS_MAIN(TestInstallerOptions)
#include "tst_installeroptions.moc"
