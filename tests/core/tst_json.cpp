#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_IODevice.h>
#include <draizu/io/LN_JsonFromFile.h>

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
        : rest_(std::move(bytes)), piece_(piece), failAtEnd_(failAtEnd) {}

    bool open(std::error_code &, QString &) override { return true; }
    qint64 size() const override { return -1; }
    QString filename() const override { return u"piece://overview"_s; }

protected:
    qint64 readImpl(char * data, qint64 maxSize, std::error_code & ec, QString & message) override
    {
        qint64 const count = std::min({piece_, maxSize, rest_.size()});
        if (count == 0 && failAtEnd_) {
            ec = make_error_code(LN_FileError::ArchiveError);
            message = u"Truncated archive"_s;
            return -1;
        }
        std::copy_n(rest_.constData(), count, data);
        rest_.remove(0, count);
        return count;
    }

private:
    QByteArray rest_;
    qint64 piece_;
    bool failAtEnd_;
};

// What the getter throws for the key; empty when it hands back the key's value.
template <typename T>
QString failure(T (*get)(QJsonObject const &, QString const &), QJsonObject const & object, QString const & key)
{
    try {
        return QJsonValue(get(object, key)) == object.value(key) ? QString() : u"<another value>"_s;
    } catch (LN_Exception const & e) {
        return QString::fromUtf8(e.what());
    }
}

} // namespace

class TestJson : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void getters_data();
    void getters();
    void documentWords();
    void position_data();
    void position();
    void parse_data();
    void parse();
    void readFailure();
};

// Every getter meets a value of every type.
void TestJson::getters_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("word"); // how the failure texts name its type

    QTest::newRow("null") << QByteArray("null") << u"NULL"_s;
    QTest::newRow("boolean") << QByteArray("false") << u"boolean"_s;
    QTest::newRow("number") << QByteArray("-2.5") << u"number"_s;
    QTest::newRow("string") << QByteArray(R"("")") << u"string"_s;
    QTest::newRow("array") << QByteArray(R"([1, "a"])") << u"array"_s;
    QTest::newRow("object") << QByteArray(R"({"a": 1})") << u"object"_s;
}

void TestJson::getters()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, word);

    QJsonObject const json = QJsonDocument::fromJson(R"({"k": )" + value + '}').object();
    auto const expected = [&word](QString const & type) {
        return type == word ? QString() : u"Incorrect type for key k. Expected %1, got %2."_s.arg(type, word);
    };
    QCOMPARE(failure(LN_JsonUtils::getNumber, json, u"k"_s), expected(u"number"_s));
    QCOMPARE(failure(LN_JsonUtils::getString, json, u"k"_s), expected(u"string"_s));
    QCOMPARE(failure(LN_JsonUtils::getArray, json, u"k"_s), expected(u"array"_s));
    QCOMPARE(failure(LN_JsonUtils::getObject, json, u"k"_s), expected(u"object"_s));
    QCOMPARE(failure(LN_JsonUtils::getString, json, u"K"_s), uR"(Required key, "K", was missing)"_s);
}

void TestJson::documentWords()
{
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonValue(QJsonValue::Undefined)), u"undefined"_s);
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonDocument(QJsonArray())), u"array"_s);
    QCOMPARE(LN_JsonUtils::jsonTypeToString(QJsonDocument()), u"empty document"_s);
}

void TestJson::position_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("offset");
    QTest::addColumn<QString>("position"); // line:column

    QTest::newRow("first line") << QByteArray("abc") << 1 << u"0:1"_s;
    QTest::newRow("negative offset") << QByteArray("abc") << -1 << u"-1:-1"_s;
    QTest::newRow("offset at the end") << QByteArray("abc") << 3 << u"-1:-1"_s;
    QTest::newRow("on a line feed") << QByteArray("ab\ncd") << 2 << u"0:2"_s;
    QTest::newRow("on the line feed of crlf") << QByteArray("ab\r\ncd") << 3 << u"0:2"_s;
    QTest::newRow("line feed first") << QByteArray("\nx") << 0 << u"0:0"_s;
    QTest::newRow("on an empty line") << QByteArray("a\n\nb") << 2 << u"1:0"_s;
    QTest::newRow("columns count utf-16 units") << QByteArray("\xc3\xa9\xf0\x9f\x98\x80x") << 6 << u"0:3"_s;
}

void TestJson::position()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, offset);
    QFETCH(QString, position);

    LN_JsonUtils::Position const found = LN_JsonUtils::getPosition(bytes, offset);
    QCOMPARE(u"%1:%2"_s.arg(found.line).arg(found.column), position);
}

// The same bytes from memory, from a device in short pieces and from a file on disk.
void TestJson::parse_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("place"); // where and what, as the failure text ends

    QTest::newRow("longer than a chunk") << "[\"" + QByteArray(5000, 'x') + "\"]" << 0 << QString();
    QTest::newRow("failure at the very end") << QByteArray("[1,2") << int(QJsonParseError::TerminationByNumber)
                                             << u"line 0, column 0: invalid termination by number"_s;
    QTest::newRow("first character of second line") << QByteArray("[1,\nx]") << int(QJsonParseError::IllegalNumber)
                                                    << u"line 2, column 1: illegal number"_s;
    QTest::newRow("crlf third line") << QByteArray("[1,\r\n2,\r\n-\r\n]") << int(QJsonParseError::IllegalNumber)
                                     << u"line 3, column 2: illegal number"_s;
}

void TestJson::parse()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, error);
    QFETCH(QString, place);

    QJsonDocument const expected = error ? QJsonDocument() : QJsonDocument::fromJson(bytes);
    LN_JsonUtils::JsonResult const fromBytes = LN_JsonUtils::jsonFromBytes(bytes);
    QCOMPARE(fromBytes.error.code, std::error_code(error, error ? QJsonParseErrorCategory() : std::system_category()));
    QCOMPARE(fromBytes.error.message, error ? u"JSON Parse error at "_s + place : QString());
    QCOMPARE(fromBytes.value, expected);
    if (error)
        QCOMPARE(u"line %1, column %2: "_s.arg(fromBytes.position.line).arg(fromBytes.position.column)
                     + fromBytes.parseError.errorString(), place);

    PieceDevice device(bytes, 7, false);
    QTemporaryDir dir;
    QString const path = dir.filePath(u"overview.json"_s);
    LN_ExceptionFile(path, QIODevice::WriteOnly).write(bytes);
    LN_ExceptionFile file(path, QIODevice::ReadOnly);
    for (auto const & [name, result] : {std::pair(device.filename(), LN_JsonUtils::jsonFromFile(device)),
                                        std::pair(path, LN_JsonUtils::jsonFromFile(file))}) {
        QCOMPARE(result.error.code, fromBytes.error.code);
        QCOMPARE(result.error.message, error ? uR"(JSON Parse error in "%1" at %2)"_s.arg(name, place) : QString());
        QCOMPARE(result.value, expected);
    }
}

void TestJson::readFailure()
{
    PieceDevice device(QByteArray("[1, 2]"), 4, true);
    LN_Result<QJsonDocument> const result = LN_JsonUtils::jsonFromFile(device);
    QCOMPARE(result.error.code, make_error_code(LN_FileError::ArchiveError));
    QCOMPARE(result.error.message, u"Truncated archive"_s);
    QVERIFY(result.value.isEmpty());

    QTemporaryDir dir;
    LN_ExceptionFile writeOnly(dir.filePath(u"overview.json"_s), QIODevice::WriteOnly);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"WriteOnly device"_s));
    QVERIFY_THROWS_EXCEPTION(LN_Exception, LN_JsonUtils::jsonFromFile(writeOnly));
}

QTEST_GUILESS_MAIN(TestJson)
#include "tst_json.moc"
