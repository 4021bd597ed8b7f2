#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/options/LN_CouldInstall.h>
#include <draizu/options/LN_InstallerOptions.h>

#include "support/ThrownBy.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

using Options = LN_InstallerOptions;

// Every key with a value other than its default, exactly as serialize writes it.
QString const fullText =
    uR"({"build-type":"gold","existing-install-dir":"/opt/old","features":{"Docs":false,"PDB Files":true},)"
    uR"("install-dir":"/opt/new","licenses":[{"id":"eula"}],"offline-installer":"/srv/orvanis.iso",)"
    uR"("other-options":{"desktop":"YES","only-if-newer":"","start-menu":"No"},"platform":"linux_x86_64_gcc9.3",)"
    uR"("product":"oserver","verb":"modify","version":"18.5.1"})"_s;

// The full text with one key set to a JSON value, or removed when the value is empty.
QString fullTextWith(QString const & key, QByteArray const & value)
{
    QJsonObject object = QJsonDocument::fromJson(fullText.toUtf8()).object();
    object.remove(key);
    if (!value.isEmpty())
        object.insert(key, QJsonDocument::fromJson("[" + value + "]").array().first());
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

class TestInstallerOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void accessors()
    {
        Options full = Options::deserialize(fullText).value;
        full.force = full.spareFlag = true; // neither travels
        QCOMPARE(full.serialize(), fullText);
        QVERIFY(full.getYesNoOption(u"desktop"_s) && !full.getYesNoOption(u"start-menu"_s));
        QVERIFY(!full.getYesNoOptionIfSet(u"x"_s) && full.isSelected(u"OSERVER"_s) && full.isSelected(u"PDB Files"_s));
        QString const thrown = u"Expected \"yes\" or \"no\" for option --"_s;
        QCOMPARE(thrownBy([&] { full.getYesNoOption(u"absent"_s); }), thrown + u"absent"_s);
        QCOMPARE(thrownBy([&] { full.getYesNoOptionIfSet(u"only-if-newer"_s); }), thrown + u"only-if-newer"_s);
        QVERIFY(!full.isSelected(u"Docs"_s) && !full.isSelected(u"pdb files"_s) && !full.isSelected(u"Samples"_s));
        QStringList words;
        for (QString const & word : u"install EXTRACT Modify uninstall move repair Update invalid  x"_s.split(u' '))
            words << Options::verbString(Options::verbFromString(word));
        QCOMPARE(words.join(u' '), u"install extract modify uninstall move repair modify invalid invalid invalid"_s);
    }

    void canonicalInstallPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("canonical"); // %1 the working directory
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("doubled, dot and trailing") << u"//opt/./x/..//orvanis//."_s << u"/opt/orvanis"_s;
        QTest::newRow("dot-dot above root") << u"/../../opt/orvanis"_s << u"/opt/orvanis"_s;
        QTest::newRow("only dot-dot above root") << u"/.."_s << u"/"_s;
        QTest::newRow("relative, backslash a name character") << u"a\\b\\..\\c"_s << u"%1/a\\b\\..\\c"_s;
    }
    void canonicalInstallPath()
    {
        QFETCH(QString, path);
        QFETCH(QString, canonical);
        QCOMPARE(Options::canonicalInstallPath(path), canonical.replace(u"%1"_s, QDir::currentPath()));
    }

    // The full record with one key changed, against the build that the full record fits.
    void couldInstall_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("fits");
        auto const row = [](QString const & key, QByteArray const & value, bool fits) {
            QTest::addRow("%s %s", qPrintable(key), value.constData()) << fullTextWith(key, value) << fits;
        };
        row(u"platform"_s, R"("")", true);
        row(u"platform"_s, R"("linux_x86_64_gcc11")", false);
        row(u"version"_s, R"("18.5.2")", false);
        row(u"build-type"_s, "null", false);
        row(u"product"_s, R"("Orvanis")", false);
        row(u"features"_s, R"({"Docs": true, "Samples": false})", true);
        row(u"features"_s, R"({"Samples": true})", false);
        row(u"features"_s, R"({"Symbols": true})", false);
    }
    void couldInstall()
    {
        QFETCH(QString, text);
        QByteArray const catalogue = R"([{"format version": 1, "products": [{"name": "oserver", "build type": "gold",
            "version": "18.5.1", "minimum launcher version": "1", "os name": "linux_x86_64", "compiler": "gcc9.3",
            "features": [{"name": "PDB Files", "features": [{"name": "Symbols"}]}, {"name": "Docs"}]}]}])";
        QList<LN_AvailableInfo> const builds = LN_AvailableInfo::fromJsonDocument(QJsonDocument::fromJson(catalogue));
        QTEST(LN_Util::couldInstall(Options::deserialize(text).value, builds.constFirst()), "fits");
    }

    // The full text with one key changed: the record read, as written again, or the failure.
    void deserialize_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("written");
        QTest::addColumn<QString>("message");
        auto const row = [](QString const & key, QByteArray const & value, QByteArray const & back, QString why = {}) {
            QTest::addRow("%s %s", qPrintable(key), value.isEmpty() ? "absent" : value.constData())
                << fullTextWith(key, value) << (why.isEmpty() ? fullTextWith(key, back) : Options().serialize())
                << (why.isEmpty() ? QString() : key + u" was "_s + why);
        };
        QTest::newRow("truncated") << fullText.chopped(1) << Options().serialize() << u"data is not valid JSON"_s;
        QTest::newRow("array") << u"[%1]"_s.arg(fullText) << Options().serialize() << u"data was not a JSON object"_s;
        row(u"force"_s, "true", ""); // an unknown key; force itself never travels
        row(u"verb"_s, "", R"("invalid")");
        row(u"install-dir"_s, "null", R"("")");
        row(u"install-dir"_s, "\"//opt//x/../new/\"", R"("/opt/new")");
        row(u"existing-install-dir"_s, R"("/opt/./old/")", R"("/opt/old")");
        row(u"build-type"_s, "null", "null");
        row(u"build-type"_s, R"("")", R"("")");
        row(u"product"_s, R"("Orvanis 2")", R"("Invalid")");
        row(u"version"_s, R"("")", R"("")");
        row(u"features"_s, R"({"a":"yes"})", R"({"a":false})");
        row(u"other-options"_s, R"({"a":1})", R"({"a":""})");
        for (QString const & key : {u"offline-installer"_s, u"install-dir"_s, u"existing-install-dir"_s, u"version"_s,
                                    u"platform"_s, u"product"_s, u"features"_s, u"other-options"_s, u"licenses"_s,
                                    u"build-type"_s}) // every key but the verb is required
            row(key, "", {}, u"incorrect type"_s);
        row(u"version"_s, R"("18.5.1-gold")", {}, u"a string, but not a valid version number"_s);
    }
    void deserialize()
    {
        QFETCH(QString, text);
        QFETCH(QString, message);
        LN_Result<Options> const result = Options::deserialize(text);
        QCOMPARE(result.error.message, message);
        QCOMPARE(result.error.code.value(), message.isEmpty() ? 0 : message == u"data is not valid JSON"_s ? 1 : 3);
        QVERIFY(message.isEmpty() || result.error.code.category() == LN_InstallerOptionsDeserializeErrorCategory());
        QTEST(result.value.serialize(), "written");
    }
};

QTEST_GUILESS_MAIN(TestInstallerOptions)
#include "tst_installeroptions.moc"
