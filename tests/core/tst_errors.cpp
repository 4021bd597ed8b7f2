#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_ErrorCode.h>
#include <draizu/core/LN_ErrorStruct.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Result.h>
#include <draizu/core/LN_Waits.h>

#include <QList>
#include <QTest>

#include <cerrno>
#include <functional>

using namespace Qt::StringLiterals;

using CategoryFunction = std::error_category const & (*)();
Q_DECLARE_METATYPE(CategoryFunction)

class TestErrors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void categoryTexts_data();
    void categoryTexts();
    void categoryNames_data();
    void categoryNames();
    void fromSystemErrors();
    void unknownSystemNumber();
    void defaultIsSuccessInSystemCategory();
    void resultCarriesValueOrError();
    void exceptionKeepsUtf8();
    void waitsOverrideAndReset();
};

void TestErrors::categoryTexts_data()
{
    QTest::addColumn<CategoryFunction>("category");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("text");

    struct Row
    {
        char const * name;
        CategoryFunction category;
        int value;
        char const * text;
    };
    Row const rows[] = {
        {"service 0", &LN_ServiceErrorCategory, 0, "no error"},
        {"service 2", &LN_ServiceErrorCategory, 2, "unable to read the response from the service manager"},
        {"service 5", &LN_ServiceErrorCategory, 5, "an unspecified error occurred"},
        {"service unknown", &LN_ServiceErrorCategory, 6, "unknown error"},
        {"file 0", &LN_FileErrorCategory, 0, "no error"},
        {"file 1", &LN_FileErrorCategory, 1, "you must be logged in to view this content"},
        {"file 4", &LN_FileErrorCategory, 4, "unknown error"},
        {"available 0", &LN_AvailableInfoErrorCategory, 0, "no error"},
        {"available 3", &LN_AvailableInfoErrorCategory, 3, "version not available"},
        {"parse 0", &LN_InstallerOptionsParseErrorCategory, 0, "no error"},
        {"parse 2", &LN_InstallerOptionsParseErrorCategory, 2, "invalid options"},
        {"parse -1", &LN_InstallerOptionsParseErrorCategory, -1, "unknown error"},
        {"deserialize 0", &LN_InstallerOptionsDeserializeErrorCategory, 0, "no error"},
        {"deserialize 4", &LN_InstallerOptionsDeserializeErrorCategory, 4, "too many keys"},
        {"qfile 0", &QFileErrorCategory, 0, "no error"},
        {"qfile 7 misspelt", &QFileErrorCategory, 7, "opereation timed out"},
        {"qfile 12 speaks of renaming", &QFileErrorCategory, 12, "could not rename file"},
        {"qfile 15", &QFileErrorCategory, 15, "unknown QFile error"},
        {"qnetwork 0", &QNetworkFileErrorCategory, 0, "no error"},
        {"qnetwork 11", &QNetworkFileErrorCategory, 11, "insecure redirect"},
        {"qnetwork 99", &QNetworkFileErrorCategory, 99, "unknown QNetworkReply error"},
        {"qjson 0", &QJsonParseErrorCategory, 0, "no error"},
        {"qjson 2 name separator", &QJsonParseErrorCategory, 2, "missing comma"},
        {"qjson 4 value separator", &QJsonParseErrorCategory, 4, "missing colon"},
        {"qjson 5 misspelt", &QJsonParseErrorCategory, 5, "illegalvalue"},
        {"qjson 7 has no row", &QJsonParseErrorCategory, 7, "unknown QJsonParseReply error"},
        {"qjson 14", &QJsonParseErrorCategory, 14, "document contains trailing characters"},
        {"qsettings 0", &QSettingsErrorCategory, 0, "no error"},
        {"qsettings 2", &QSettingsErrorCategory, 2, "format error"},
        {"qsettings 3", &QSettingsErrorCategory, 3, "unknown QSettings error"},
    };
    for (Row const & row : rows)
        QTest::newRow(row.name) << row.category << row.value << QString::fromUtf8(row.text);
}

void TestErrors::categoryTexts()
{
    QFETCH(CategoryFunction, category);
    QFETCH(int, value);
    QFETCH(QString, text);
    QCOMPARE(QString::fromStdString(category().message(value)), text);
}

void TestErrors::categoryNames_data()
{
    QTest::addColumn<CategoryFunction>("category");
    QTest::addColumn<QString>("name");
    QTest::newRow("service") << CategoryFunction(&LN_ServiceErrorCategory) << u"LN_ServiceError"_s;
    QTest::newRow("file") << CategoryFunction(&LN_FileErrorCategory) << u"LN_FileError"_s;
    QTest::newRow("available") << CategoryFunction(&LN_AvailableInfoErrorCategory) << u"LN_AvailableInfoError"_s;
    QTest::newRow("parse") << CategoryFunction(&LN_InstallerOptionsParseErrorCategory)
                           << u"LN_InstallerOptionsParseError"_s;
    QTest::newRow("deserialize misspelt") << CategoryFunction(&LN_InstallerOptionsDeserializeErrorCategory)
                                          << u"LN_InstallerOptionsSeriailzeError"_s;
    QTest::newRow("qfile") << CategoryFunction(&QFileErrorCategory) << u"QFile"_s;
    QTest::newRow("qnetwork") << CategoryFunction(&QNetworkFileErrorCategory) << u"QNetwork"_s;
    QTest::newRow("qjson") << CategoryFunction(&QJsonParseErrorCategory) << u"QJsonParse"_s;
    QTest::newRow("qsettings") << CategoryFunction(&QSettingsErrorCategory) << u"QSettings"_s;
}

void TestErrors::categoryNames()
{
    QFETCH(CategoryFunction, category);
    QFETCH(QString, name);
    QCOMPARE(QString::fromLatin1(category().name()), name);
    QCOMPARE(&category(), &category());
}

void TestErrors::fromSystemErrors()
{
    QString const prefix = u"Failed to open file: "_s;
    LN_ErrorStruct const windows = LN_ErrorStruct::fromWindowsError(EACCES, prefix);
    QCOMPARE(&windows.code.category(), &std::generic_category());
    QCOMPARE(windows.code.value(), EACCES);
    QCOMPARE(windows.message, prefix + u"Permission denied (Error %1)"_s.arg(EACCES));
    QVERIFY(windows.isError());

    LN_ErrorStruct const posix = LN_ErrorStruct::fromPosixErrno(ENOENT, prefix);
    QCOMPARE(&posix.code.category(), &std::generic_category());
    QCOMPARE(posix.message, prefix + u"No such file or directory"_s);
    QCOMPARE(LN_ErrorStruct::fromPosixErrno(ENOENT).message, u"No such file or directory"_s);
}

void TestErrors::unknownSystemNumber()
{
    QCOMPARE(LN_ErrorCode::errcodeToString(987654), u"Error number 987654."_s);
    QCOMPARE(LN_ErrorStruct::fromWindowsError(987654, u"x: "_s).message, u"x: Error number 987654."_s);
    QCOMPARE(LN_ErrorCode::errcodeToString(ENOENT), u"No such file or directory (Error %1)"_s.arg(ENOENT));
}

void TestErrors::defaultIsSuccessInSystemCategory()
{
    LN_ErrorStruct const none;
    QVERIFY(!none.isError());
    QCOMPARE(&none.code.category(), &std::system_category());
    QVERIFY(none.message.isEmpty());
}

void TestErrors::resultCarriesValueOrError()
{
    LN_Result<int> const value(42);
    QVERIFY(!value.isError());
    QCOMPARE(value.value, 42);

    LN_Result<QList<int>> const error(LN_ErrorStruct{make_error_code(LN_FileError::FileNotFound), u"gone"_s});
    QVERIFY(error.isError());
    QVERIFY(error.value.isEmpty());
    QCOMPARE(error.error.code.message(), std::string("file not found"));
}

void TestErrors::exceptionKeepsUtf8()
{
    LN_Exception const e(u"héllo"_s);
    QCOMPARE(QString::fromUtf8(e.what()), u"héllo"_s);
    bool caughtAsRuntimeError = false;
    try {
        throw LN_Exception("plain");
    } catch (std::runtime_error const & caught) {
        caughtAsRuntimeError = QByteArray(caught.what()) == "plain";
    }
    QVERIFY(caughtAsRuntimeError);
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
