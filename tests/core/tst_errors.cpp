#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_ErrorStruct.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Result.h>

#include <QMap>
#include <QTest>

#include <cerrno>
#include <limits>

using namespace Qt::StringLiterals;

using CategoryFunction = std::error_category const & (*)();
Q_DECLARE_METATYPE(CategoryFunction)
using Texts = QMap<int, QString>; // value to text; -1 stands for a value without a text of its own

class TestErrors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void categories_data();
    void categories();
    void systemErrors_data();
    void systemErrors();
    void defaultsAndExceptions();
};

void TestErrors::categories_data()
{
    QTest::addColumn<CategoryFunction>("category");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("unknown");
    QTest::addColumn<Texts>("texts");

    QString const unknownError = u"unknown error"_s;
    QTest::newRow("service") << &LN_ServiceErrorCategory << u"LN_ServiceError"_s << 6
                             << Texts{{-1, unknownError}, {2, u"unable to read the response from the service manager"_s}};
    QTest::newRow("file") << &LN_FileErrorCategory << u"LN_FileError"_s << 4
                          << Texts{{-1, unknownError}, {1, u"you must be logged in to view this content"_s}};
    QTest::newRow("available") << &LN_AvailableInfoErrorCategory << u"LN_AvailableInfoError"_s << 4
                               << Texts{{-1, unknownError}, {3, u"version not available"_s}};
    QTest::newRow("parse") << &LN_InstallerOptionsParseErrorCategory << u"LN_InstallerOptionsParseError"_s << -7
                           << Texts{{-1, unknownError}, {2, u"invalid options"_s}};
    QTest::newRow("deserialize, name misspelt") << &LN_InstallerOptionsDeserializeErrorCategory
                                                << u"LN_InstallerOptionsSeriailzeError"_s << 5
                                                << Texts{{-1, unknownError}, {4, u"too many keys"_s}};
    QTest::newRow("qfile") << &QFileErrorCategory << u"QFile"_s << 15
                           << Texts{{-1, u"unknown QFile error"_s}, {7, u"opereation timed out"_s},
                                    {12, u"could not rename file"_s}};
    QTest::newRow("qnetwork") << &QNetworkFileErrorCategory << u"QNetwork"_s << 99
                              << Texts{{-1, u"unknown QNetworkReply error"_s}, {11, u"insecure redirect"_s}};
    QTest::newRow("qjson, 7 has no text") << &QJsonParseErrorCategory << u"QJsonParse"_s << 7
                                          << Texts{{-1, u"unknown QJsonParseReply error"_s}, {2, u"missing comma"_s},
                                                   {4, u"missing colon"_s}, {5, u"illegalvalue"_s}};
    QTest::newRow("qsettings") << &QSettingsErrorCategory << u"QSettings"_s << 3
                               << Texts{{-1, u"unknown QSettings error"_s}, {2, u"format error"_s}};
}

void TestErrors::categories()
{
    QFETCH(CategoryFunction, category);
    QFETCH(QString, name);
    QFETCH(int, unknown);
    QFETCH(Texts, texts);

    QCOMPARE(QString::fromLatin1(category().name()), name);
    texts.insert(0, u"no error"_s);
    for (auto it = texts.cbegin(); it != texts.cend(); ++it)
        QCOMPARE(QString::fromStdString(category().message(it.key() == -1 ? unknown : it.key())), it.value());
}

void TestErrors::systemErrors_data()
{
    QTest::addColumn<bool>("posix"); // fromPosixErrno, else fromWindowsError
    QTest::addColumn<qulonglong>("error");
    QTest::addColumn<QString>("message");

    QTest::newRow("windows form names the number") << false << qulonglong(EACCES)
                                                   << u"x: Permission denied (Error %1)"_s.arg(EACCES);
    QTest::newRow("windows form, unknown number") << false << 987654ULL << u"x: Error number 987654."_s;
    QTest::newRow("windows form, number beyond int") << false << 4294967298ULL << u"x: Error number 4294967298."_s;
    QTest::newRow("posix form is the text alone") << true << qulonglong(ENOENT) << u"x: No such file or directory"_s;
}

void TestErrors::systemErrors()
{
    QFETCH(bool, posix);
    QFETCH(qulonglong, error);
    QFETCH(QString, message);

    auto const ulongError = static_cast<unsigned long>(error);
    LN_ErrorStruct const made = posix ? LN_ErrorStruct::fromPosixErrno(int(error), u"x: "_s)
                                      : LN_ErrorStruct::fromWindowsError(ulongError, u"x: "_s);
    LN_ErrorStruct const bare = posix ? LN_ErrorStruct::fromPosixErrno(int(error))
                                      : LN_ErrorStruct::fromWindowsError(ulongError);
    QVERIFY(made.isError());
    QCOMPARE(&made.code.category(), &std::generic_category());
    if (error <= qulonglong(std::numeric_limits<int>::max()))
        QCOMPARE(made.code.value(), int(error));
    QCOMPARE(made.message, message);
    QCOMPARE(u"x: "_s + bare.message, message);
}

void TestErrors::defaultsAndExceptions()
{
    LN_ErrorStruct const none;
    QVERIFY(!none.isError());
    QCOMPARE(&none.code.category(), &std::system_category());
    QVERIFY(LN_Result<int>(LN_ErrorStruct{make_error_code(LN_FileError::FileNotFound), u"gone"_s}).isError());
    QCOMPARE(QString::fromUtf8(LN_Exception(u"héllo"_s).what()), u"héllo"_s);
}

QTEST_GUILESS_MAIN(TestErrors)
#include "tst_errors.moc"
