#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/host/LN_Util.h>
#include <draizu/options/LN_CouldInstall.h>
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

// Every field set, through the setters where there are any.
Options fullRecord()
{
    Options o;
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
    return o;
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

// 1 true, 0 false, -1 the exception with its text.
int yesNoOutcome(std::function<bool()> const & read)
{
    try {
        return read() ? 1 : 0;
    } catch (LN_Exception const & error) {
        return QString::fromUtf8(error.what()) == u"Expected \"yes\" or \"no\" for option --start-menu"_s ? -1 : -2;
    }
}

} // namespace

class TestInstallerOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void yesNo_data();
    void yesNo();
    void isSelected();
    void canonicalInstallPath_data();
    void canonicalInstallPath();
    void couldInstall_data();
    void couldInstall();
    void writtenText();
    void deserialize_data();
    void deserialize();

private:
    QTemporaryDir workDir_;
};

void TestInstallerOptions::initTestCase()
{
    QVERIFY(workDir_.isValid());
    QVERIFY(QDir(workDir_.path()).mkpath(u"work/real"_s));
    QVERIFY(QFile::link(workDir_.filePath(u"work/real"_s), workDir_.filePath(u"work/link"_s)));
    // Relative paths are taken from here.
    QVERIFY(QDir::setCurrent(workDir_.filePath(u"work"_s)));
}

void TestInstallerOptions::yesNo_data()
{
    // Null for an absent option; outcomes as yesNoOutcome gives them.
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("reading");
    QTest::addColumn<int>("plain");
    QTest::addColumn<int>("ifSet");

    QTest::newRow("absent") << QString() << int(LN_Util::Empty) << -1 << 0;
    QTest::newRow("yes in capitals") << u"YES"_s << int(LN_Util::Yes) << 1 << 1;
    QTest::newRow("no mixed case") << u"No"_s << int(LN_Util::No) << 0 << 0;
    QTest::newRow("empty value") << u""_s << int(LN_Util::Empty) << -1 << -1;
    QTest::newRow("trailing blank") << u"yes "_s << int(LN_Util::Unrecognised) << -1 << -1;
}

void TestInstallerOptions::yesNo()
{
    QFETCH(QString, value);
    QFETCH(int, reading);
    QFETCH(int, plain);
    QFETCH(int, ifSet);

    QString const key = u"start-menu"_s;
    Options options;
    if (!value.isNull())
        options.otherOptions.insert(key, value);
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
    QTest::newRow("doubled and trailing slashes") << u"//opt//orvanis//"_s << u"/opt/orvanis"_s;
    QTest::newRow("dot and dot-dot segments") << u"/opt/./x/../orvanis/."_s << u"/opt/orvanis"_s;
    QTest::newRow("dot-dot above root") << u"/../../opt/orvanis"_s << u"/opt/orvanis"_s;
    QTest::newRow("only dot-dot above root") << u"/.."_s << u"/"_s;
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

    auto row = [](char const * name, Change const & change, bool fits, QString const & buildName = u"Orvanis"_s,
                  QString const & buildType = QString()) {
        Options options;
        options.product = Product_Orvanis;
        options.version = QVersionNumber(18, 5, 1);
        options.platform = u"linux_x86_64_gcc9.3"_s;
        change(options);
        QTest::newRow(name) << options << buildName << buildType << fits;
    };
    row("same build", [](Options &) {}, true);
    row("no platform asked for", [](Options & o) { o.platform.clear(); }, true);
    row("other compiler", [](Options & o) { o.platform = u"linux_x86_64_gcc11"_s; }, false);
    row("other version", [](Options & o) { o.version = QVersionNumber(18, 5, 2); }, false);
    row("no version asked for", [](Options & o) { o.version = QVersionNumber(); }, false);
    row("typed build, none asked for", [](Options &) {}, false, u"Orvanis"_s, u"debug"_s);
    row("build type case differs", [](Options & o) { o.setBuildType(u"Debug"_s); }, false, u"Orvanis"_s, u"debug"_s);
    row("other product", [](Options & o) { o.product = Product_EngineMaya; }, false);
    row("product by catalogue name", [](Options & o) { o.product = Product_EngineMaya; }, true, u"Maya Plug-In"_s);
    row("direct features chosen", [](Options & o) { o.features = {{u"PDB Files"_s, true}, {u"Docs"_s, true}}; }, true);
    row("missing feature declined", [](Options & o) { o.features[u"Samples"_s] = false; }, true);
    row("missing feature chosen", [](Options & o) { o.features[u"Samples"_s] = true; }, false);
    row("deeper feature chosen", [](Options & o) { o.features[u"Symbols"_s] = true; }, false);
    row("feature case differs", [](Options & o) { o.features[u"pdb files"_s] = true; }, false);
}

void TestInstallerOptions::couldInstall()
{
    QFETCH(LN_InstallerOptions, options);
    QFETCH(QString, buildName);
    QFETCH(QString, buildType);
    QFETCH(bool, fits);

    QString const catalogue = uR"([{"format version": 1, "products": [{"name": "%1", "build type": "%2",
        "version": "18.5.1", "minimum launcher version": "1", "os name": "linux_x86_64", "compiler": "gcc9.3",
        "features": [{"name": "PDB Files", "features": [{"name": "Symbols"}]}, {"name": "Docs"}]}]}])"_s;
    QList<LN_AvailableInfo> const builds =
        LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(catalogue.arg(buildName, buildType).toUtf8()));
    QCOMPARE(LN_Util::couldInstall(options, builds.constFirst()), fits);
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

void TestInstallerOptions::deserialize_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<LN_InstallerOptions>("expected");
    // Of LN_InstallerOptionsDeserializeErrorCategory; 0 for success.
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    // What serialize writes; `onReading` makes the differences that the text does not carry.
    auto written = [](QString const & name, Change const & change, Change const & onReading = [](Options &) {}) {
        Options options;
        change(options);
        Options expected = options;
        onReading(expected);
        QTest::newRow(qPrintable(u"written: "_s + name)) << options.serialize() << expected << 0 << QString();
    };
    written(u"every field"_s, [](Options & o) { o = fullRecord(); });
    for (int verb = Options::Install; verb <= Options::Invalid; ++verb) {
        written(u"verb "_s + Options::verbString(Options::Verb(verb)),
                [verb](Options & o) { o.verb = Options::Verb(verb); });
    }
    written(u"non-ASCII option"_s, [](Options & o) { o.otherOptions = {{u"folder"_s, u"Marlux \u00e9\u6e2c"_s}}; });
    written(u"empty build type stays set"_s, [](Options & o) { o.setBuildType(QString()); });
    written(u"build type unset again"_s, [](Options & o) { o.setBuildType(u"gold"_s); o.unsetBuildType(); });
    written(u"verb and product out of range"_s,
            [](Options & o) { o.verb = Options::Verb(42); o.product = LN_ProductID(99); },
            [](Options & o) { o.verb = Options::Invalid; o.product = LN_ProductID::Invalid; });
    written(u"force and spare flag are not carried"_s,
            [](Options & o) { o.verb = Options::Uninstall; o.force = o.spareFlag = true; },
            [](Options & o) { o.force = o.spareFlag = false; });

    // The full record's text with one key changed, and what that changes in the record read.
    auto read = [](char const * name, QString const & key, QByteArray const & value, Change const & change) {
        Options expected = fullRecord();
        change(expected);
        QTest::newRow(name) << fullTextWith(key, value) << expected << 0 << QString();
    };
    read("install dir null", u"install-dir"_s, "null", [](Options & o) { o.setInstallDir(QString()); });
    read("existing dir null", u"existing-install-dir"_s, "null", [](Options & o) { o.setExistingInstallDir({}); });
    read("build type null", u"build-type"_s, "null", [](Options & o) { o.unsetBuildType(); });
    read("install dir cleaned", u"install-dir"_s, R"("//opt//x/../new/")", [](Options &) {});
    read("existing install dir relative", u"existing-install-dir"_s, R"("old")",
         [](Options & o) { o.setExistingInstallDir(QDir::current().filePath(u"old"_s)); });
    read("verb absent", u"verb"_s, "", [](Options & o) { o.verb = Options::Invalid; });
    read("verb update", u"verb"_s, R"("Update")", [](Options &) {});
    read("product by another name", u"product"_s, R"("Orvanis Server")", [](Options &) {});
    read("product unknown", u"product"_s, R"("Orvanis 2")", [](Options & o) { o.product = LN_ProductID::Invalid; });
    read("version empty", u"version"_s, R"("")", [](Options & o) { o.version = QVersionNumber(); });
    read("feature not a boolean", u"features"_s, R"({"a":"yes"})", [](Options & o) { o.features = {{u"a"_s, false}}; });
    read("option not a string", u"other-options"_s, R"({"a":1})", [](Options & o) { o.otherOptions = {{u"a"_s, {}}}; });
    read("licence not an object", u"licenses"_s, R"([1])", [](Options & o) { o.licenses = {LN_LicenseAgreement{}}; });
    read("unknown key ignored", u"force"_s, "true", [](Options &) {});

    QString const full = fullRecord().serialize();
    QTest::newRow("truncated object") << full.chopped(1) << Options() << 1 << u"data is not valid JSON"_s;
    QTest::newRow("array") << u"[%1]"_s.arg(full) << Options() << 3 << u"data was not a JSON object"_s;
    auto fails = [](QString const & key, QByteArray const & value, QString const & message) {
        QString const name = key + u' ' + (value.isEmpty() ? u"absent"_s : QString::fromUtf8(value));
        QTest::newRow(qPrintable(name)) << fullTextWith(key, value) << Options() << 3 << message;
    };
    fails(u"offline-installer"_s, "null", u"offline-installer was incorrect type"_s);
    fails(u"install-dir"_s, "", u"install-dir was incorrect type"_s);
    fails(u"existing-install-dir"_s, "false", u"existing-install-dir was incorrect type"_s);
    fails(u"version"_s, "", u"version was incorrect type"_s);
    fails(u"version"_s, R"("18.5.1-gold")", u"version was a string, but not a valid version number"_s);
    fails(u"platform"_s, "", u"platform was incorrect type"_s);
    fails(u"product"_s, "0", u"product was incorrect type"_s);
    fails(u"features"_s, R"(["PDB Files"])", u"features was incorrect type"_s);
    fails(u"other-options"_s, R"("start-menu=no")", u"other-options was incorrect type"_s);
    fails(u"licenses"_s, "", u"licenses was incorrect type"_s);
    fails(u"build-type"_s, "false", u"build-type was incorrect type"_s);
}

void TestInstallerOptions::deserialize()
{
    QFETCH(QString, text);
    QFETCH(LN_InstallerOptions, expected);
    QFETCH(int, code);
    QFETCH(QString, message);

    LN_Result<LN_InstallerOptions> const result = Options::deserialize(text);
    QCOMPARE(result.error.message, message);
    QCOMPARE(result.error.code.value(), code);
    if (code != 0)
        QCOMPARE(&result.error.code.category(), &LN_InstallerOptionsDeserializeErrorCategory());
    // The text shows which carried field differs; equality covers the rest.
    QCOMPARE(result.value.serialize(), expected.serialize());
    QVERIFY(result.value == expected);
}

QTEST_GUILESS_MAIN(TestInstallerOptions)
#include "tst_installeroptions.moc"
