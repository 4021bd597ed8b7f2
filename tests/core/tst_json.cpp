#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_IODevice.h>

#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Hands out its bytes in pieces of a fixed size, then ends or fails.
class PieceDevice : public LN_IODevice
{
public:
    PieceDevice(QByteArray bytes, qint64 piece, bool failAtEnd)
        : bytes_(std::move(bytes))
        , piece_(piece)
        , failAtEnd_(failAtEnd)
    {
    }

    bool open(std::error_code &, QString &) override { return true; }
    qint64 size() const override { return bytes_.size(); }
    QString filename() const override { return u"piece://overview"_s; }

protected:
    qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) override
    {
        qint64 const count = std::min({piece_, maxSize, bytes_.size() - position_});
        if (count == 0 && failAtEnd_) {
            ec = make_error_code(LN_FileError::ArchiveError);
            message = u"Truncated archive"_s;
            return -1;
        }
        std::copy_n(bytes_.constData() + position_, count, data);
        position_ += count;
        return count;
    }

private:
    QByteArray bytes_;
    qint64 piece_;
    bool failAtEnd_;
    qint64 position_ = 0;
};

using Getter = QJsonValue (*)(QJsonObject const &, QString const &);

template <typename T, T (*get)(QJsonObject const &, QString const &)>
QJsonValue asValue(QJsonObject const & object, QString const & key)
{
    return get(object, key);
}

} // namespace

Q_DECLARE_METATYPE(Getter)

class TestJson : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void getters_data();
    void getters();
    void typeWords();
    void position_data();
    void position();
    void fromBytes_data();
    void fromBytes();
    void fromFile_data();
    void fromFile();
};

void TestJson::getters_data()
{
    QTest::addColumn<Getter>("getter");
    QTest::addColumn<QByteArray>("object");
    QTest::addColumn<QString>("error");

    Getter const number = asValue<double, LN_JsonUtils::getNumber>;
    Getter const string = asValue<QString, LN_JsonUtils::getString>;
    Getter const array = asValue<QJsonArray, LN_JsonUtils::getArray>;
    Getter const object = asValue<QJsonObject, LN_JsonUtils::getObject>;
    QString const missing = uR"(Required key, "k", was missing)"_s;
    QTest::newRow("number fraction") << number << QByteArray(R"({"k": -2.5})") << QString();
    QTest::newRow("number missing") << number << QByteArray(R"({"K": 1})") << missing;
    QTest::newRow("number from string") << number << QByteArray(R"({"k": "1"})")
                                        << u"Incorrect type for key k. Expected number, got string."_s;
    QTest::newRow("string") << string << QByteArray(R"({"k": ""})") << QString();
    QTest::newRow("string from null") << string << QByteArray(R"({"k": null})")
                                      << u"Incorrect type for key k. Expected string, got NULL."_s;
    QTest::newRow("array") << array << QByteArray(R"({"k": [1, "a"]})") << QString();
    QTest::newRow("array from object") << array << QByteArray(R"({"k": {}})")
                                       << u"Incorrect type for key k. Expected array, got object."_s;
    QTest::newRow("object") << object << QByteArray(R"({"k": {"a": 1}})") << QString();
    QTest::newRow("object missing") << object << QByteArray("{}") << missing;
    QTest::newRow("object from array") << object << QByteArray(R"({"k": []})")
                                       << u"Incorrect type for key k. Expected object, got array."_s;
}

void TestJson::getters()
{
    QFETCH(Getter, getter);
    QFETCH(QByteArray, object);
    QFETCH(QString, error);

    QJsonObject const json = QJsonDocument::fromJson(object).object();
    try {
        QJsonValue const value = getter(json, u"k"_s);
        QVERIFY2(error.isEmpty(), "no exception");
        QCOMPARE(value, json.value(u"k"_s));
    } catch (LN_Exception const & e) {
        QCOMPARE(QString::fromUtf8(e.what()), error);
    }
}

void TestJson::typeWords()
{
    // The other words of values appear in the getters' texts.
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonValue(QJsonValue::Undefined)), u"undefined"_s);
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonValue(true)), u"boolean"_s);
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonValue(0)), u"number"_s);
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonDocument(QJsonArray())), u"array"_s);
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonDocument(QJsonObject())), u"object"_s);
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonDocument()), u"empty document"_s);
}

void TestJson::position_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("column");

    QTest::newRow("first line") << QByteArray("abc") << 1 << 0 << 1;
    QTest::newRow("negative offset") << QByteArray("abc") << -1 << -1 << -1;
    QTest::newRow("offset at the end") << QByteArray("abc") << 3 << -1 << -1;
    QTest::newRow("start of second line") << QByteArray("a\nbc") << 2 << 1 << 0;
    QTest::newRow("on a line feed") << QByteArray("ab\ncd") << 2 << 0 << 2;
    QTest::newRow("on the line feed of crlf") << QByteArray("ab\r\ncd") << 3 << 0 << 2;
    QTest::newRow("line feed first") << QByteArray("\nx") << 0 << 0 << 0;
    QTest::newRow("on an empty line") << QByteArray("a\n\nb") << 2 << 1 << 0;
    QTest::newRow("columns count utf-16 units") << QByteArray("\xc3\xa9\xf0\x9f\x98\x80x") << 6 << 0 << 3;
}

void TestJson::position()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, offset);
    QFETCH(int, line);
    QFETCH(int, column);

    LN_JsonUtils::Position const found = LN_JsonUtils::getPosition(bytes, offset);
    QCOMPARE(found.line, line);
    QCOMPARE(found.column, column);
}

void TestJson::fromBytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("place");

    QTest::newRow("object") << QByteArray(R"({"a": [1, 2]})") << 0 << QString();
    QTest::newRow("empty text") << QByteArray() << int(QJsonParseError::IllegalValue) << u"line 0, column 0"_s;
    QTest::newRow("failure at the very end") << QByteArray("[1,2") << int(QJsonParseError::TerminationByNumber)
                                             << u"line 0, column 0"_s;
    QTest::newRow("first character of second line") << QByteArray("[1,\nx]") << int(QJsonParseError::IllegalNumber)
                                                    << u"line 2, column 1"_s;
    QTest::newRow("end of line lf") << QByteArray("[1e\n]") << int(QJsonParseError::IllegalNumber)
                                    << u"line 1, column 4"_s;
    QTest::newRow("end of line crlf") << QByteArray("[1e\r\n]") << int(QJsonParseError::IllegalNumber)
                                      << u"line 1, column 4"_s;
}

void TestJson::fromBytes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, error);
    QFETCH(QString, place);

    LN_JsonUtils::JsonResult const result = LN_JsonUtils::jsonFromBytes(bytes);
    QCOMPARE(int(result.parseError.error), error);
    QCOMPARE(result.error.code.value(), error);
    if (error == 0) {
        QCOMPARE(result.value, QJsonDocument::fromJson(bytes));
        return;
    }
    QCOMPARE(&result.error.code.category(), &QJsonParseErrorCategory());
    QCOMPARE(result.error.message,
             u"JSON Parse error at %1: %2"_s.arg(place, result.parseError.errorString()));
    QCOMPARE(u"line %1, column %2"_s.arg(result.position.line).arg(result.position.column), place);
    QVERIFY(result.value.isEmpty());
}

void TestJson::fromFile_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qint64>("piece");
    QTest::addColumn<bool>("failAtEnd");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("message");

    QByteArray const large = "[\"" + QByteArray(5000, 'x') + "\"]";
    QString const parseError = uR"(JSON Parse error in "%1" at %2)"_s;
    QTest::newRow("short pieces") << large << qint64(7) << false << 0 << QString();
    QTest::newRow("pieces above the chunk size") << large << qint64(1 << 20) << false << 0 << QString();
    QTest::newRow("empty is a parse failure") << QByteArray() << qint64(1024) << false
                                              << int(QJsonParseError::IllegalValue)
                                              << parseError.arg(u"%1"_s, u"line 0, column 0: illegal value"_s);
    QTest::newRow("crlf third line") << QByteArray("[1,\r\n2,\r\n-\r\n]") << qint64(3) << false
                                     << int(QJsonParseError::IllegalNumber)
                                     << parseError.arg(u"%1"_s, u"line 3, column 2: illegal number"_s);
    QTest::newRow("read failure") << large << qint64(1024) << true << int(LN_FileError::ArchiveError)
                                  << u"Truncated archive"_s;
}

void TestJson::fromFile()
{
    QFETCH(QByteArray, bytes);
    QFETCH(qint64, piece);
    QFETCH(bool, failAtEnd);
    QFETCH(int, error);
    QFETCH(QString, message);

    auto const named = [&message](QString const & name) {
        return message.contains(u"%1"_s) ? message.arg(name) : message;
    };
    PieceDevice device(bytes, piece, failAtEnd);
    LN_Result<QJsonDocument> const fromDevice = LN_JsonUtils::jsonFromFile(device);
    QCOMPARE(fromDevice.error.code.value(), error);
    QCOMPARE(fromDevice.error.message, named(device.filename()));
    QCOMPARE(fromDevice.value, error == 0 ? QJsonDocument::fromJson(bytes) : QJsonDocument());
    if (failAtEnd) {
        QCOMPARE(&fromDevice.error.code.category(), &LN_FileErrorCategory());
        return;
    }

    QTemporaryDir dir;
    QString const path = dir.filePath(u"overview.json"_s);
    LN_ExceptionFile(path, QIODevice::WriteOnly).write(bytes);
    LN_ExceptionFile file(path, QIODevice::ReadOnly);
    LN_Result<QJsonDocument> const fromDisk = LN_JsonUtils::jsonFromFile(file);
    QCOMPARE(fromDisk.error.code, fromDevice.error.code);
    QCOMPARE(fromDisk.error.message, named(path));
    QCOMPARE(fromDisk.value, fromDevice.value);

    LN_ExceptionFile writeOnly(path, QIODevice::WriteOnly);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"WriteOnly device"_s));
    QVERIFY_THROWS_EXCEPTION(LN_Exception, LN_JsonUtils::jsonFromFile(writeOnly));
}

QTEST_GUILESS_MAIN(TestJson)
#include "tst_json.moc"
