#include <draizu/catalogue/LN_InfoUpdates.h>
#include <draizu/core/LN_Waits.h>

#include <support/TestHttpServer.h>
#include <support/ThrownBy.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Response = TestHttpServer::Response;
Q_DECLARE_METATYPE(Response)

// Update information fetched from a local server playing the site, and written where a
// roaming profile keeps it.

namespace {

QString const listPath = u"/download/download-installer/versions/linux/"_s;

// Format 0 and format 1: one build listed in both with other tags, and a build of another type.
QByteArray const bothFormats = R"([{"version": "21.0.4", "tags": ["Beta"], "release date": "2024-02-01",
    "minimum launcher version": "21", "os name": "linux_x86_64", "compiler": "gcc12", "products": [{"name": "Orvanis"}]},
    {"format version": 1, "release_type": "gold", "products": [
    {"name": "Orvanis", "version": "21.0.4", "oapi version": "7.1", "minimum launcher version": "21",
     "os name": "linux_x86_64", "compiler": "gcc12", "features": [{"name": "PDB Files"}]},
    {"name": "Orvanis", "version": "21.0.4", "build type": "debug", "tags": ["Alpha"], "release date": "2024-01-02",
     "minimum launcher version": "21", "os name": "linux_x86_64", "compiler": "gcc12"}]}])";
QStringList const bothFormatsUpdates = {u"21.0.4  linux_x86_64_gcc12 debug Alpha,Production 2024-01-02"_s,
                                        u"21.0.4 7.1 linux_x86_64_gcc12  Production "_s};

QStringList describe(LN_InfoUpdates const & updates)
{
    QStringList lines;
    for (LN_InfoUpdate const & u : updates)
        lines.append(u"%1 %2 %3 %4 %5 %6"_s.arg(u.version.toString(), u.oapiVersion.toString(), u.platform.toString(),
                                               u.buildType, u.tags.join(u','), u.releaseDate.toString(Qt::ISODate)));
    lines.sort();
    return lines;
}

void add(LN_InfoUpdates & updates, QString const & version, QStringList const & tags)
{
    LN_InfoUpdate const u{QVersionNumber::fromString(version), QVersionNumber(7),
                          LN_PlatformInfo::fromStrings(u"linux_x86_64"_s, u"gcc12"_s), {}, tags, {}};
    updates.updates.insert({u.version, u.platform, u.buildType}, u);
}

} // namespace

class TestInfoUpdates : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(site_.listen());
        // Read once, at the library's first use of the site's address.
        qputenv("ORVANIS_LAUNCHER_SERVER_URL", site_.origin().toUtf8());
        LN_Waits::setForTesting(LN_Waits::NetworkStall, 200);
    }
    void init() { site_.clearRequests(); }
    void fetch_data();
    void fetch();
    void newRequestSilencesTheFirst();
    void mergeAndSave();

private:
    // Every signal of the object as a line: "ready", or "error <category> <value> <text>".
    QStringList record_(LN_InfoUpdates & updates);

    TestHttpServer site_;
    QNetworkAccessManager manager_;
    QStringList signals_;
};

QStringList TestInfoUpdates::record_(LN_InfoUpdates & updates)
{
    signals_.clear();
    connect(&updates, &LN_InfoUpdates::resultReady, this, [this] { signals_.append(u"ready"_s); });
    connect(&updates, &LN_InfoUpdates::error, this, [this](std::error_code code, QString const & message) {
        signals_.append(u"error %1 %2 "_s.arg(QString::fromLatin1(code.category().name())).arg(code.value()) + message);
    });
    updates.getUpdates({}, &manager_);
    if (!QTest::qWaitFor([this] { return !signals_.isEmpty(); }))
        return {u"no signal"_s};
    QTest::qWait(50);
    return signals_;
}

void TestInfoUpdates::fetch_data()
{
    QTest::addColumn<Response>("answer");
    QTest::addColumn<QStringList>("expected"); // the records afterwards, or the signals

    auto const error = [](QString const & text) { return QStringList{u"error "_s + text}; };
    QTest::newRow("both formats, one build twice: last one kept") << Response::ok(bothFormats) << bothFormatsUpdates;
    QTest::newRow("empty list, slower in all than the stall time")
        << Response::ok({}).addChunk(150, "[").addChunk(150, "]") << QStringList();
    // Failures are answered without a body: with one, Qt may hand the body over first.
    QTest::newRow("not found") << Response::withStatus(404)
                               << error(u"QNetwork 203 Error transferring <site>"_s + listPath
                                        + u" - server replied: Not Found"_s);
    QTest::newRow("stall") << Response::stall() << error(u"QNetwork 4 Network connection timed out"_s);
    QTest::newRow("not JSON") << Response::ok("[1, 2, three]")
                              << error(u"QJsonParse 5 JSON Parse error at line 1, column 10: illegal value"_s);
    QTest::newRow("object, not a list") << Response::ok(R"({"format version": 1})")
                                        << error(u"LN_AvailableInfoError 1 Expected JSON array."_s);
    QTest::newRow("products not a list") << Response::ok(R"([{"format version": 1, "products": {}}])")
                                         << error(u"LN_AvailableInfoError 1 Error: Expected array"_s);
}

// One signal per request; an answer replaces every earlier record, a failure keeps them.
void TestInfoUpdates::fetch()
{
    QFETCH(Response, answer);
    QFETCH(QStringList, expected);
    site_.on(listPath, answer);
    LN_InfoUpdates updates;
    add(updates, u"1.0"_s, {u"earlier"_s});

    QStringList const signalled = record_(updates);
    QCOMPARE(site_.requestCount(listPath), 1);
    if (signalled == QStringList{u"ready"_s}) {
        QCOMPARE(describe(updates), expected);
    } else {
        QCOMPARE(signalled, expected.replaceInStrings(u"<site>"_s, site_.origin()));
        QCOMPARE(describe(updates), QStringList{u"1.0 7 linux_x86_64_gcc12  earlier "_s});
    }
}

void TestInfoUpdates::newRequestSilencesTheFirst()
{
    site_.on(listPath, [this](TestHttpServer::Request const &) {
        return site_.requestCount(listPath) == 1 ? Response::ok({}).addChunk(150, "[]") : Response::ok(bothFormats);
    });
    LN_InfoUpdates updates;
    updates.getUpdates({}, &manager_);
    QTRY_COMPARE(site_.requestCount(listPath), 1);
    QCOMPARE(record_(updates), QStringList{u"ready"_s});
    // Past the first answer's end and the stall time.
    QTest::qWait(300);
    QCOMPARE(signals_, QStringList{u"ready"_s});
    QCOMPARE(describe(updates), bothFormatsUpdates);
}

// The site's records and merged ones, read back from the file as its users read them: compact
// JSON, one object per record.
void TestInfoUpdates::mergeAndSave()
{
    QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", home.filePath(u"config"_s).toUtf8());
    QString const path = home.filePath(u"config/marlux/updates.json"_s);

    site_.on(listPath, Response::ok(bothFormats));
    LN_InfoUpdates updates, other;
    QCOMPARE(record_(updates), QStringList{u"ready"_s});
    add(other, u"21.0.4"_s, {u"replaced"_s});
    add(other, u"1.0"_s, {u"added"_s});
    updates.merge(other);
    QCOMPARE(thrownBy([&] { updates.save(); }), u"Unable to open "_s + path + u": No such file or directory"_s);

    QVERIFY(QDir(home.path()).mkpath(u"config/marlux"_s));
    updates.save();
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QByteArray const bytes = file.readAll();
    QJsonArray const array = QJsonDocument::fromJson(bytes).array();
    QCOMPARE(QJsonDocument(array).toJson(QJsonDocument::Compact), bytes);
    QStringList objects;
    for (QJsonValue const & value : array)
        objects.append(QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact)));
    objects.sort();
    QString const merged = uR"({"build type":"","compiler":"gcc12","oapiVersion":"7","os":"linux_x86_64",)"
                           uR"("release date":"","tags":["%1"],"version":"%2"})"_s;
    QCOMPARE(objects, (QStringList{merged.arg(u"added"_s, u"1.0"_s), merged.arg(u"replaced"_s, u"21.0.4"_s),
        uR"({"build type":"debug","compiler":"gcc12","oapiVersion":"","os":"linux_x86_64","release date":)"
        uR"("2024-01-02","tags":["Alpha","Production"],"version":"21.0.4"})"_s}));
}

QTEST_GUILESS_MAIN(TestInfoUpdates)
#include "tst_infoupdates.moc"
