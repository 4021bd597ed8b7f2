#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_ErrorCode.h>
#include <draizu/core/LN_ErrorStruct.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Result.h>
#include <draizu/core/LN_Waits.h>

#include <QList>
#include <QMap>
#include <QTest>

#include <cerrno>

using namespace Qt::StringLiterals;

using CategoryFunction = std::error_category const & (*)();
Q_DECLARE_METATYPE(CategoryFunction)
using Texts = QMap<int, QString>;

class TestErrors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void categories_data();
    void categories();
    void fromSystemErrors_data();
    void fromSystemErrors();
    void defaultsResultsAndExceptions();
    void waitsOverrideAndReset();
};

void TestErrors::categories_data()
{
    QTest::addColumn<CategoryFunction>("category");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("unknown"); // a value without a text of its own
    QTest::addColumn<QString>("unknownText");
    QTest::addColumn<Texts>("texts"); // a few known values, the odd ones among them

    auto const row = [](char const * tag, CategoryFunction category, QString const & name, int unknown,
                        QString const & unknownText, Texts const & texts) {
        QTest::newRow(tag) << category << name << unknown << unknownText << texts;
    };
    QString const unknownError = u"unknown error"_s;
    row("service", &LN_ServiceErrorCategory, u"LN_ServiceError"_s, 6, unknownError,
        {{2, u"unable to read the response from the service manager"_s}, {5, u"an unspecified error occurred"_s}});
    row("file", &LN_FileErrorCategory, u"LN_FileError"_s, 4, unknownError,
        {{1, u"you must be logged in to view this content"_s}});
    row("available", &LN_AvailableInfoErrorCategory, u"LN_AvailableInfoError"_s, 4, unknownError,
        {{3, u"version not available"_s}});
    row("parse", &LN_InstallerOptionsParseErrorCategory, u"LN_InstallerOptionsParseError"_s, -1, unknownError,
        {{2, u"invalid options"_s}});
    row("deserialize, name misspelt", &LN_InstallerOptionsDeserializeErrorCategory,
        u"LN_InstallerOptionsSeriailzeError"_s, 5, unknownError, {{4, u"too many keys"_s}});
    row("qfile", &QFileErrorCategory, u"QFile"_s, 15, u"unknown QFile error"_s,
        {{7, u"opereation timed out"_s}, {12, u"could not rename file"_s}});
    row("qnetwork", &QNetworkFileErrorCategory, u"QNetwork"_s, 99, u"unknown QNetworkReply error"_s,
        {{11, u"insecure redirect"_s}});
    row("qjson, 7 has no text", &QJsonParseErrorCategory, u"QJsonParse"_s, 7, u"unknown QJsonParseReply error"_s,
        {{2, u"missing comma"_s}, {4, u"missing colon"_s}, {5, u"illegalvalue"_s},
         {14, u"document contains trailing characters"_s}});
    row("qsettings", &QSettingsErrorCategory, u"QSettings"_s, 3, u"unknown QSettings error"_s,
        {{2, u"format error"_s}});
}

void TestErrors::categories()
{
    QFETCH(CategoryFunction, category);
    QFETCH(QString, name);
    QFETCH(int, unknown);
    QFETCH(QString, unknownText);
    QFETCH(Texts, texts);

    auto const text = [&category](int value) { return QString::fromStdString(category().message(value)); };
    QCOMPARE(QString::fromLatin1(category().name()), name);
    QCOMPARE(&category(), &category());
    QCOMPARE(text(0), u"no error"_s);
    QCOMPARE(text(unknown), unknownText);
    for (auto it = texts.cbegin(); it != texts.cend(); ++it)
        QCOMPARE(text(it.key()), it.value());
}

void TestErrors::fromSystemErrors_data()
{
    QTest::addColumn<bool>("posix"); // fromPosixErrno, else fromWindowsError
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("message");

    QTest::newRow("windows form names the number")
        << false << EACCES << u"x: Permission denied (Error %1)"_s.arg(EACCES);
    QTest::newRow("windows form, unknown number") << false << 987654 << u"x: Error number 987654."_s;
    QTest::newRow("posix form is the text alone") << true << ENOENT << u"x: No such file or directory"_s;
}

void TestErrors::fromSystemErrors()
{
    QFETCH(bool, posix);
    QFETCH(int, error);
    QFETCH(QString, message);

    auto const make = [posix, error](QString const & prefix) {
        return posix ? LN_ErrorStruct::fromPosixErrno(error, prefix) : LN_ErrorStruct::fromWindowsError(error, prefix);
    };
    LN_ErrorStruct const bare = posix ? LN_ErrorStruct::fromPosixErrno(error) : LN_ErrorStruct::fromWindowsError(error);
    QVERIFY(make(u"x: "_s).isError());
    QCOMPARE(make(u"x: "_s).code, std::error_code(error, std::generic_category()));
    QCOMPARE(make(u"x: "_s).message, message);
    QCOMPARE(u"x: "_s + bare.message, message);
}

void TestErrors::defaultsResultsAndExceptions()
{
    LN_ErrorStruct const none;
    QVERIFY(!none.isError());
    QCOMPARE(&none.code.category(), &std::system_category());
    QVERIFY(none.message.isEmpty());

    QVERIFY(!LN_Result<int>(0).isError());
    LN_Result<QList<int>> const error(LN_ErrorStruct{make_error_code(LN_FileError::FileNotFound), u"gone"_s});
    QVERIFY(error.isError());
    QCOMPARE(error.error.code.message(), std::string("file not found"));

    QCOMPARE(QString::fromUtf8(LN_Exception(u"héllo"_s).what()), u"héllo"_s);
}

void TestErrors::waitsOverrideAndReset()
{
    QCOMPARE(LN_Waits::ms(LN_Waits::RequestIdle), 300000);
    LN_Waits::setForTesting(LN_Waits::RequestIdle, 50);
    QCOMPARE(LN_Waits::ms(LN_Waits::RequestIdle), 50);
    QCOMPARE(LN_Waits::defaultMs(LN_Waits::RequestIdle), 300000);
    LN_Waits::resetForTesting();
    QCOMPARE(LN_Waits::ms(LN_Waits::RequestIdle), 300000);
}

QTEST_GUILESS_MAIN(TestErrors)
#include "tst_errors.moc"
