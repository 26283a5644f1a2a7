#include "Core/JsonUtils.h"
#include "LogCapture.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "RecordingHandler.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

Q_DECLARE_METATYPE(BidirectionalMessage)

namespace {
BidirectionalMessage click(qint64 x, qint64 y)
{
    BidirectionalMessage message;
    message.click = BidirectionalMessage::Click{x, y};
    return message;
}

BidirectionalMessage drawing(const QByteArray &bytes)
{
    BidirectionalMessage message;
    message.drawing = bytes;
    return message;
}

BidirectionalMessage configuration(std::optional<bool> start, std::optional<bool> bidirectional,
                                   std::optional<bool> optIn)
{
    BidirectionalMessage message;
    message.start = start;
    message.bidirectional = bidirectional;
    message.optIn = optIn;
    return message;
}

BidirectionalMessage stop(bool value)
{
    BidirectionalMessage message;
    message.stop = value;
    return message;
}
} // namespace

class tst_BidirectionalMessageParser : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parse_data();
    void parse();
    void strictBase64_data();
    void strictBase64();
};

void tst_BidirectionalMessageParser::parse_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<BidirectionalMessage>("expected");

    QTest::newRow("empty object") << R"({})"_ba << BidirectionalMessage();
    QTest::newRow("unknown keys ignored")
        << R"({"zz": 1, "q": {"s": true}})"_ba << BidirectionalMessage();

    QTest::newRow("close") << R"({"a": "c"})"_ba << stop(true);
    QTest::newRow("other action is no stop") << R"({"a": "x"})"_ba << stop(false);
    QTest::newRow("action not a string") << R"({"a": 1})"_ba << BidirectionalMessage();

    QTest::newRow("all configuration")
        << R"({"co": {"s": true, "b": false, "opt": true}})"_ba << configuration(true, false, true);
    QTest::newRow("configuration non-boolean")
        << R"({"co": {"s": "yes", "b": 1, "opt": null}})"_ba
        << configuration(std::nullopt, std::nullopt, std::nullopt);
    QTest::newRow("configuration partly boolean")
        << R"({"co": {"s": "yes", "b": true}})"_ba
        << configuration(std::nullopt, true, std::nullopt);
    QTest::newRow("configuration not an object")
        << R"({"co": [true]})"_ba << BidirectionalMessage();

    QTest::newRow("integer click") << R"({"x": 300, "y": 600})"_ba << click(300, 600);
    QTest::newRow("fraction truncated") << R"({"x": 12.7, "y": 3})"_ba << click(12, 3);
    QTest::newRow("negative fraction toward zero")
        << R"({"x": -12.7, "y": -0.5})"_ba << click(-12, 0);
    QTest::newRow("only x") << R"({"x": 5})"_ba << BidirectionalMessage();
    QTest::newRow("only y") << R"({"y": 5})"_ba << BidirectionalMessage();
    QTest::newRow("x is text") << R"({"x": "5", "y": 5})"_ba << BidirectionalMessage();
    QTest::newRow("x is boolean") << R"({"x": true, "y": 5})"_ba << BidirectionalMessage();
    QTest::newRow("x beyond 64 bits") << R"({"x": 1e300, "y": 5})"_ba << BidirectionalMessage();
    QTest::newRow("unsigned beyond 64 bits signed")
        << R"({"x": 18446744073709551615, "y": 5})"_ba << BidirectionalMessage();
    QTest::newRow("largest signed")
        << R"({"x": 9223372036854775807, "y": -9223372036854775808})"_ba
        << click(std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min());

    QTest::newRow("drawing with prefix")
        << R"({"d": {"u": "data:image/png;base64,aGVsbG8="}})"_ba << drawing("hello"_ba);
    QTest::newRow("drawing without prefix")
        << R"({"d": {"u": "aGVsbG8="}})"_ba << drawing("hello"_ba);
    QTest::newRow("prefix removed wherever it occurs")
        << R"({"d": {"u": "aGVsdata:image/png;base64,bG8=data:image/png;base64,"}})"_ba
        << drawing("hello"_ba);
    QTest::newRow("missing padding") << R"({"d": {"u": "aGVsbG8"}})"_ba << BidirectionalMessage();
    QTest::newRow("line break") << R"({"d": {"u": "aGVs\nbG8="}})"_ba << BidirectionalMessage();
    QTest::newRow("invalid character")
        << R"({"d": {"u": "aGVs*G8="}})"_ba << BidirectionalMessage();
    QTest::newRow("url not a string") << R"({"d": {"u": 12}})"_ba << BidirectionalMessage();
    QTest::newRow("drawing not an object") << R"({"d": "aGVsbG8="})"_ba << BidirectionalMessage();

    BidirectionalMessage clickAndStop = click(10, 20);
    clickAndStop.stop = true;
    QTest::newRow("click and stop") << R"({"x": 10, "y": 20, "a": "c"})"_ba << clickAndStop;
}

void tst_BidirectionalMessageParser::parse()
{
    QFETCH(QByteArray, json);
    QFETCH(BidirectionalMessage, expected);
    const auto object = JsonUtils::parse(json);
    QVERIFY(object);

    RecordingHandler handler;
    BidirectionalMessageParser parser(&handler);
    parser.parse(*object);
    QCOMPARE(handler.messages.size(), 1);
    const BidirectionalMessage &actual = handler.messages.first();
    QCOMPARE(actual.toString(), expected.toString());
    QCOMPARE(actual.drawing, expected.drawing);
    QVERIFY(actual == expected);
}

void tst_BidirectionalMessageParser::strictBase64_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("valid");
    QTest::newRow("empty") << ""_ba << true;
    QTest::newRow("one pad") << "aGk="_ba << true;
    QTest::newRow("two pads") << "aA=="_ba << true;
    QTest::newRow("three pads") << "a==="_ba << false;
    QTest::newRow("pad in the middle") << "aA==aGk="_ba << false;
    QTest::newRow("url-safe alphabet") << "a-_A"_ba << false;
    QTest::newRow("length not a multiple of four") << "aGk"_ba << false;
    QTest::newRow("trailing space") << "aGk= "_ba << false;
}

void tst_BidirectionalMessageParser::strictBase64()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, valid);
    const auto decoded = BidirectionalMessageParser::decodeStrictBase64(text);
    QCOMPARE(decoded.has_value(), valid);
    if (valid)
        QCOMPARE(decoded->toBase64(), text);
}

QTEST_GUILESS_MAIN(tst_BidirectionalMessageParser)
#include "tst_bidirectionalmessageparser.moc"
