#include "Core/JsonUtils.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using Message = BidirectionalMessage;
using Click = BidirectionalMessage::Click;

Q_DECLARE_METATYPE(BidirectionalMessage)

// Rows name only the fields they expect; every other field is meant to be absent.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

class tst_BidirectionalMessageParser : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parse_data();
    void parse();
};

void tst_BidirectionalMessageParser::parse_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<Message>("expected");

    QTest::newRow("unknown keys ignored") << R"({"zz": 1, "q": {"s": true}})"_ba << Message();
    QTest::newRow("close") << R"({"a": "c"})"_ba << Message{.stop = true};
    QTest::newRow("other action is no stop") << R"({"a": "x"})"_ba << Message{.stop = false};
    QTest::newRow("configuration") << R"({"co": {"s": true, "b": false, "opt": true}})"_ba
                                   << Message{.start = true, .bidirectional = false, .optIn = true};
    QTest::newRow("configuration non-boolean")
        << R"({"co": {"s": "yes", "b": 1, "opt": null}})"_ba << Message();
    QTest::newRow("configuration not an object") << R"({"co": [true]})"_ba << Message();

    QTest::newRow("click") << R"({"x": 300, "y": 600})"_ba << Message{.click = Click{300, 600}};
    QTest::newRow("fractions truncated toward zero")
        << R"({"x": 12.7, "y": -0.5})"_ba << Message{.click = Click{12, 0}};
    QTest::newRow("only x") << R"({"x": 5})"_ba << Message();
    QTest::newRow("x beyond 64 bits") << R"({"x": 1e300, "y": 5})"_ba << Message();
    QTest::newRow("unsigned beyond 64 bits signed")
        << R"({"x": 18446744073709551615, "y": 5})"_ba << Message();
    QTest::newRow("largest signed") << R"({"x": 9223372036854775807, "y": -9223372036854775808})"_ba
                                    << Message{.click = Click{std::numeric_limits<qint64>::max(),
                                                              std::numeric_limits<qint64>::min()}};

    QTest::newRow("prefix removed wherever it occurs")
        << R"({"d": {"u": "aGVsdata:image/png;base64,bG8=data:image/png;base64,"}})"_ba
        << Message{.drawing = "hello"_ba};
    QTest::newRow("empty drawing") << R"({"d": {"u": ""}})"_ba << Message{.drawing = ""_ba};
    // Base64 is strict: every flaw leaves the drawing out.
    QTest::newRow("missing padding") << R"({"d": {"u": "aGVsbG8"}})"_ba << Message();
    QTest::newRow("pad in the middle") << R"({"d": {"u": "aA==aGk="}})"_ba << Message();
    QTest::newRow("url-safe alphabet") << R"({"d": {"u": "a-_A"}})"_ba << Message();
    QTest::newRow("url not a string") << R"({"d": {"u": 12}})"_ba << Message();

    QTest::newRow("click and stop")
        << R"({"x": 10, "y": 20, "a": "c"})"_ba << Message{.stop = true, .click = Click{10, 20}};
}

void tst_BidirectionalMessageParser::parse()
{
    QFETCH(QByteArray, json);
    QFETCH(Message, expected);
    const auto object = JsonUtils::parse(json);
    QVERIFY(object);

    QList<Message> received;
    BidirectionalMessageParser parser;
    connect(&parser, &BidirectionalMessageParser::messageReceived,
            [&received](const Message &m) { received.append(m); });
    parser.parse(*object);
    QCOMPARE(received.size(), 1);
    const Message &actual = received.first();
    QCOMPARE(actual.toString(), expected.toString());
    QVERIFY(actual == expected); // the drawing's bytes too
}

QTEST_GUILESS_MAIN(tst_BidirectionalMessageParser)
#include "tst_bidirectionalmessageparser.moc"
