#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/io/LN_DiskFile.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_JsonFromFile.h>

#include "support/ThrownBy.h"

#include <QFile>
#include <QMap>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

using Category = std::error_category const & (*)();
Q_DECLARE_METATYPE(Category)
using Texts = QMap<int, QString>;

class TestCore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Each category's name is the row's name; its texts include one for a value without a text.
    void categories_data()
    {
        QTest::addColumn<Category>("category");
        QTest::addColumn<Texts>("texts");
        QString const unknown = u"unknown error"_s;
        QTest::newRow("LN_ServiceError") << &LN_ServiceErrorCategory << Texts{{6, unknown}};
        QTest::newRow("LN_FileError") << &LN_FileErrorCategory << Texts{{4, unknown}, {3, u"file not found"_s}};
        QTest::newRow("LN_AvailableInfoError") << &LN_AvailableInfoErrorCategory << Texts{{4, unknown}};
        QTest::newRow("LN_InstallerOptionsParseError") << &LN_InstallerOptionsParseErrorCategory << Texts{{9, unknown}};
        QTest::newRow("LN_InstallerOptionsSeriailzeError") << &LN_InstallerOptionsDeserializeErrorCategory
                                                           << Texts{{5, unknown}, {2, u"a required key was missing"_s}};
        QTest::newRow("QFile") << &QFileErrorCategory << Texts{{15, u"unknown QFile error"_s},
                                                               {7, u"opereation timed out"_s},
                                                               {12, u"could not rename file"_s}};
        QTest::newRow("QNetwork") << &QNetworkFileErrorCategory << Texts{{99, u"unknown QNetworkReply error"_s}};
        QTest::newRow("QJsonParse") << &QJsonParseErrorCategory // 7, IllegalNumber, has no text
                                    << Texts{{7, u"unknown QJsonParseReply error"_s}, {2, u"missing comma"_s}};
        QTest::newRow("QSettings") << &QSettingsErrorCategory << Texts{{3, u"unknown QSettings error"_s}};
    }
    void categories()
    {
        QFETCH(Category, category);
        QFETCH(Texts, texts);
        QCOMPARE(QString::fromLatin1(category().name()), QString::fromLatin1(QTest::currentDataTag()));
        texts.insert(0, u"no error"_s);
        for (auto it = texts.cbegin(); it != texts.cend(); ++it)
            QCOMPARE(QString::fromStdString(category().message(it.key())), it.value());
    }

    void systemErrors_data()
    {
        QTest::addColumn<bool>("posix"); // fromPosixErrno, else fromWindowsError
        QTest::addColumn<ulong>("error");
        QTest::addColumn<QString>("message");
        QTest::newRow("windows form names the number") << false << 13UL << u"x: Permission denied (Error 13)"_s;
        QTest::newRow("windows form, unknown number") << false << 987654UL << u"x: Error number 987654."_s;
        QTest::newRow("windows form, beyond int") << false << 4294967298UL << u"x: Error number 4294967298."_s;
        QTest::newRow("posix form is the text alone") << true << 2UL << u"x: No such file or directory"_s;
    }
    void systemErrors()
    {
        QFETCH(bool, posix);
        QFETCH(ulong, error);
        QFETCH(QString, message);
        LN_ErrorStruct const made = posix ? LN_ErrorStruct::fromPosixErrno(int(error), u"x: "_s)
                                          : LN_ErrorStruct::fromWindowsError(error, u"x: "_s);
        QCOMPARE(made.code, std::error_code(static_cast<int>(error), std::generic_category()));
        QCOMPARE(made.message, message);
        QCOMPARE(LN_ErrorStruct().code, std::error_code(0, std::system_category()));
        QCOMPARE(QString::fromUtf8(LN_Exception(u"héllo"_s).what()), u"héllo"_s);
    }

    // Every getter meets a value of every type, named by the row as the failure texts name it.
    void getters_data()
    {
        QTest::addColumn<QByteArray>("value");
        for (auto const & [word, value] : {std::pair("NULL", "null"), {"boolean", "false"}, {"number", "-2.5"},
                                           {"string", R"("")"}, {"array", R"([1, "a"])"}, {"object", R"({"a": 1})"}})
            QTest::newRow(word) << QByteArray(value);
    }
    void getters()
    {
        QFETCH(QByteArray, value);
        QJsonObject const json = QJsonDocument::fromJson(R"({"k": )" + value + '}').object();
        QString const word = QString::fromLatin1(QTest::currentDataTag());
        auto const check = [&](auto get, QString const & type) {
            QCOMPARE(thrownBy([&] { QCOMPARE(QJsonValue(get(json, u"k"_s)), json.value(u"k"_s)); }),
                     type == word ? QString() : u"Incorrect type for key k. Expected %1, got %2."_s.arg(type, word));
        };
        check(LN_JsonUtils::getNumber, u"number"_s);
        check(LN_JsonUtils::getString, u"string"_s);
        check(LN_JsonUtils::getArray, u"array"_s);
        check(LN_JsonUtils::getObject, u"object"_s);
        QCOMPARE(thrownBy([&] { LN_JsonUtils::getObject(json, u"K"_s); }), uR"(Required key, "K", was missing)"_s);
    }

    void position_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QString>("position"); // line:column
        QTest::newRow("negative offset") << QByteArray("abc") << -1 << u"-1:-1"_s;
        QTest::newRow("on a line feed") << QByteArray("ab\ncd") << 2 << u"0:2"_s;
        QTest::newRow("on the line feed of crlf") << QByteArray("ab\r\ncd") << 3 << u"0:2"_s;
        QTest::newRow("line feed first") << QByteArray("\nx") << 0 << u"0:0"_s;
        QTest::newRow("columns count utf-16 units") << QByteArray("\xc3\xa9\xf0\x9f\x98\x80x") << 6 << u"0:3"_s;
    }
    void position()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, offset);
        QFETCH(QString, position);
        LN_JsonUtils::Position const found = LN_JsonUtils::getPosition(bytes, offset);
        QCOMPARE(u"%1:%2"_s.arg(found.line).arg(found.column), position);
    }

    void parse_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("place"); // where and what, as the failure text ends
        QTest::newRow("failure at the very end") << QByteArray("[1,2") << int(QJsonParseError::TerminationByNumber)
                                                 << u"line 0, column 0: invalid termination by number"_s;
        QTest::newRow("first character of second line") << QByteArray("[1,\nx]") << int(QJsonParseError::IllegalNumber)
                                                        << u"line 2, column 1: illegal number"_s;
        QTest::newRow("crlf third line") << QByteArray("[1,\r\n2,\r\n-\r\n]") << int(QJsonParseError::IllegalNumber)
                                         << u"line 3, column 2: illegal number"_s;
        QTest::newRow("past a chunk") << "[\"" + QByteArray(2000, 'x') + "\",x]" << int(QJsonParseError::IllegalNumber)
                                      << u"line 1, column 2005: illegal number"_s;
    }
    void parse()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, error);
        QFETCH(QString, place);
        QTemporaryDir dir;
        QString const path = dir.filePath(u"overview.json"_s);
        LN_ExceptionFile(path, QIODevice::WriteOnly).write(bytes);
        LN_DiskFile device(path);
        LN_DiskFile unreadable(u"/proc/self/mem"_s); // opens, but fails its first read
        std::error_code ec;
        QString opened;
        QVERIFY(device.open(ec, opened) && unreadable.open(ec, opened));
        LN_JsonUtils::JsonResult const fromBytes = LN_JsonUtils::jsonFromBytes(bytes);
        LN_Result<QJsonDocument> const named = LN_JsonUtils::jsonFromFile(device);
        QCOMPARE(fromBytes.error.code, std::error_code(error, QJsonParseErrorCategory()));
        QCOMPARE(named.error.code, fromBytes.error.code);
        QCOMPARE(fromBytes.error.message, u"JSON Parse error at "_s + place);
        QCOMPARE(named.error.message, uR"(JSON Parse error in "%1" at %2)"_s.arg(path, place));
        QCOMPARE(LN_JsonUtils::jsonFromFile(unreadable).error.code, std::error_code(1, QFileErrorCategory()));
    }
};

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
