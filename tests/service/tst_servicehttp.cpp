#include "LocalService.h"
#include "ServiceTestSupport.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace ServiceTest;
using VistrelService::LocalService;
using VistrelService::Visit;

namespace {
const QString Channel = u"/api/ix/m?id=V1&sId=S1&tId=T1&vId=U1&url=Form&fsTy=l"_s;
// The replies carrying {"a":"c"} and {"x":5,"y":6}, exactly as the device reads them.
const QByteArray CloseReply = "[\"[{\\\"a\\\":\\\"c\\\"}]\"]";
const QByteArray TapReply = "[\"[{\\\"x\\\":5,\\\"y\\\":6}]\"]";
// The channel poll as the device sends it: "cId" without a value, query order free.
const QString Poll = u"/api/in/co?tId=T1&vId=U1&sId=S1&cId"_s;
} // namespace

class TestServiceHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void endpointsAnswer_data();
    void endpointsAnswer();
    void rejectedPostsChangeNothing_data();
    void rejectedPostsChangeNothing();
    void deleteEndsVisitUntilReopened();
    void channelPollRefused_data();
    void channelPollRefused();
    void channelPollDeliversOnceOnListenedChannels();
    void channelPollSurvivesHostileBodies();

private:
    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {});

    std::unique_ptr<LocalService> m_service;
    QNetworkAccessManager m_manager;
};

void TestServiceHttp::init()
{
    m_service = std::make_unique<LocalService>();
    QVERIFY(m_service->start() != 0);
}

void TestServiceHttp::cleanup()
{
    m_service.reset();
}

HttpResult TestServiceHttp::send(const QByteArray &method, const QString &pathAndQuery,
                                 const QByteArray &body)
{
    return sendHttp(m_manager, m_service->hostAndPort(), method, pathAndQuery, body);
}

void TestServiceHttp::endpointsAnswer_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("init") << QByteArray("POST") << u"/api/in/im/c"_s << 200
                          << QByteArray(R"({"shouldStartMonitoring":false})");
    QTest::newRow("strings") << QByteArray("GET") << u"/api/in/i18n?lang=en"_s << 200
                             << QByteArray(R"({"ui":{"a":"b"}})");
    QTest::newRow("channel open") << QByteArray("GET") << Channel << 200 << QByteArray();
    QTest::newRow("unknown path") << QByteArray("GET") << u"/nope"_s << 404 << QByteArray();
    QTest::newRow("channel prefix") << QByteArray("POST") << u"/api/ix"_s << 404 << QByteArray();
    QTest::newRow("channel without id")
        << QByteArray("GET") << u"/api/ix/m?sId=S1"_s << 400 << QByteArray();
    QTest::newRow("channel, other verb") << QByteArray("PUT") << Channel << 405 << QByteArray();
    QTest::newRow("socket path, no upgrade")
        << QByteArray("GET") << u"/api/in/imws?id=V1"_s << 426 << QByteArray();
}

void TestServiceHttp::endpointsAnswer()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    m_service->setMonitoringConfig(QByteArray(R"({"shouldStartMonitoring":false})"));
    m_service->setStrings(QByteArray(R"({"ui":{"a":"b"}})"));

    const HttpResult result = send(method, path);
    QCOMPARE(result.status, status);
    if (status == 200)
        QCOMPARE(result.body, body);
    const auto recorded = m_service->requests();
    QCOMPARE(recorded.size(), 1);
    QCOMPARE(recorded.first().method, QString::fromLatin1(method));
    QCOMPARE(recorded.first().status, status);
}

void TestServiceHttp::rejectedPostsChangeNothing_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("log");

    const int noLimit = 16 * 1024 * 1024;
    const QByteArray valid = listBytes({pageChange(u"Form"_s)});
    // Field 1 announcing 16 bytes of which only 2 follow.
    QTest::newRow("truncated field")
        << Channel << QByteArray::fromHex("0a106162") << noLimit << 400 << u"undecodable"_s;
    QTest::newRow("invalid wire type")
        << Channel << QByteArray("\x0f") << noLimit << 400 << u"undecodable"_s;
    QTest::newRow("JSON body") << Channel << QByteArray(R"({"x":1})") << noLimit << 400
                               << u"undecodable"_s;
    QTest::newRow("no id") << u"/api/ix/m?sId=S1"_s << valid << noLimit << 400
                           << u"without a visit id"_s;
    QTest::newRow("never opened") << u"/api/ix/m?id=V2"_s << valid << noLimit << 404
                                  << u"unknown visit"_s;
    QTest::newRow("too large") << Channel << listBytes({screenshot(QByteArray(2048, 'j'))}) << 1024
                               << 413 << u"Refused a body"_s;
    // Two bytes per empty message: a small body that would decode into a huge list.
    QTest::newRow("too many reports") << Channel << QByteArray::fromHex("0a00").repeated(100001)
                                      << noLimit << 413 << u"too many reports"_s;
}

void TestServiceHttp::rejectedPostsChangeNothing()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, limit);
    QFETCH(int, status);
    QFETCH(QString, log);
    m_service->setMaxBodySize(limit);
    QCOMPARE(send("GET", Channel).status, 200);
    QVERIFY(m_service->queueCommand(u"V1"_s, QByteArray(R"({"a":"c"})")));

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(log));
    QCOMPARE(send("POST", path, body).status, status);
    QCOMPARE(m_service->requests(u"/api/ix/m"_s).last().status, status);
    QVERIFY(m_service->visit(u"V1"_s)->reports().isEmpty());
    QVERIFY(!m_service->visit(u"V2"_s));

    // Still serving, and the rejected post took no command.
    const HttpResult next = send("POST", Channel, listBytes({pageChange(u"Form"_s)}));
    QCOMPARE(next.status, 200);
    QCOMPARE(next.body, CloseReply);
    QCOMPARE(m_service->visit(u"V1"_s)->reports().size(), 1);
}

void TestServiceHttp::deleteEndsVisitUntilReopened()
{
    QSignalSpy ended(m_service.get(), &LocalService::visitEnded);
    QCOMPARE(send("GET", Channel).status, 200);
    QVERIFY(m_service->queueCommand(u"V1"_s, QJsonObject{{u"x"_s, 5}, {u"y"_s, 6}}));

    // The visit id is "id"; "vId" is the visitor, which must not be taken for the visit.
    QCOMPARE(send("DELETE", u"/api/ix/m?id=V1&sId=S1&tId=T1&vId=U1&url=Form&fsTy=l"_s).status, 200);
    const Visit *visit = m_service->visit(u"V1"_s);
    QCOMPARE(visit->state(), Visit::State::Ended);
    QVERIFY(visit->endedAt().isValid());
    QCOMPARE(ended.size(), 1);
    QVERIFY(!m_service->visit(u"U1"_s));

    // The device flushes once more after deleting: recorded, but no command goes to it.
    const HttpResult last = send("POST", Channel, listBytes({pageChange(u"Form"_s)}));
    QCOMPARE(last.status, 200);
    QCOMPARE(last.body, QByteArray("[]"));
    QCOMPARE(visit->reports().size(), 1);

    QCOMPARE(send("GET", Channel).status, 200);
    QVERIFY(visit->isOpen());
    QCOMPARE(send("POST", Channel, listBytes({ping(1000)})).body, TapReply);

    // A device without a visit still deletes; that is answered and creates nothing.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Delete of unknown visit"_s));
    QCOMPARE(send("DELETE", u"/api/ix/m?id=&sId=&tId=&vId=&url=&fsTy="_s).status, 200);
    QCOMPARE(m_service->visits().size(), 1);
    QCOMPARE(ended.size(), 1);
}

void TestServiceHttp::channelPollRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("reason");

    const QByteArray valid = R"({"channels":["SCB"],"messages":[],"additionalProperties":""})";
    QTest::newRow("not JSON") << Poll << QByteArray("{\"channels\":") << u"not JSON"_s;
    QTest::newRow("empty body") << Poll << QByteArray() << u"not JSON"_s;
    QTest::newRow("array") << Poll << QByteArray(R"(["SCB"])") << u"not a JSON object"_s;
    QTest::newRow("no channels") << Poll << QByteArray(R"({"messages":[]})") << u"missing"_s;
    QTest::newRow("channels a string")
        << Poll << QByteArray(R"({"channels":"SCB"})") << u"not an array"_s;
    QTest::newRow("unknown channel")
        << Poll << QByteArray(R"({"channels":["SCB","XYZ"]})") << u"not a channel name"_s;
    QTest::newRow("lower-case channel")
        << Poll << QByteArray(R"({"channels":["scb"]})") << u"not a channel name"_s;
    QTest::newRow("channel a number")
        << Poll << QByteArray(R"({"channels":[4]})") << u"not a channel name"_s;
    QTest::newRow("messages an object")
        << Poll << QByteArray(R"({"channels":[],"messages":{}})") << u"not an array"_s;
    QTest::newRow("message a string")
        << Poll << QByteArray(R"({"channels":[],"messages":["S"]})") << u"not an object"_s;
    QTest::newRow("message on unknown channel")
        << Poll << QByteArray(R"({"channels":[],"messages":[{"channel":"X","payload":""}]})")
        << u"channel"_s;
    QTest::newRow("message without payload")
        << Poll << QByteArray(R"({"channels":[],"messages":[{"channel":"S"}]})") << u"payload"_s;
    QTest::newRow("payload an object")
        << Poll << QByteArray(R"({"channels":[],"messages":[{"channel":"S","payload":{}}]})")
        << u"payload"_s;
    QTest::newRow("additionalProperties a number")
        << Poll << QByteArray(R"({"channels":[],"additionalProperties":1})")
        << u"additionalProperties"_s;
    QTest::newRow("no vId") << u"/api/in/co?tId=T1&sId=S1&cId"_s << valid << u"vId"_s;
    QTest::newRow("empty vId") << u"/api/in/co?tId=T1&vId=&sId=S1&cId"_s << valid << u"vId"_s;
}

void TestServiceHttp::channelPollRefused()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(QString, reason);
    QVERIFY(m_service->queueChannelMessage(u"U1"_s, u"SCB"_s, QString()));
    QSignalSpy polled(m_service.get(), &LocalService::channelPolled);

    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(u"Channel poll without|Refused a channel"_s));
    const HttpResult result = send("POST", path, body);
    QCOMPARE(result.status, 400);
    QVERIFY(result.contentType.startsWith("text/plain"));
    QVERIFY2(QString::fromUtf8(result.body).contains(reason), result.body.constData());
    QVERIFY(!result.body.contains('\n'));
    QCOMPARE(m_service->requests(u"/api/in/co"_s).size(), 1);
    QCOMPARE(m_service->requests(u"/api/in/co"_s).first().status, 400);
    QVERIFY(m_service->channelPollers().isEmpty());
    QCOMPARE(polled.size(), 0);
    QCOMPARE(m_service->queuedChannelMessages(u"U1"_s).size(), 1);
}

void TestServiceHttp::channelPollDeliversOnceOnListenedChannels()
{
    QSignalSpy polled(m_service.get(), &LocalService::channelPolled);
    QSignalSpy delivered(m_service.get(), &LocalService::channelMessageDelivered);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"unknown channel"_s));
    QVERIFY(!m_service->queueChannelMessage(u"U1"_s, u"scb"_s, u"x"_s));
    QVERIFY(m_service->queueChannelMessage(u"U1"_s, u"SCB"_s, QString()));
    QVERIFY(m_service->queueChannelMessage(u"U1"_s, u"COQS"_s, u"4"_s));
    QVERIFY(m_service->queueChannelMessage(u"U1"_s, u"S"_s, u"{\"a\":\"é\"}"_s));
    QVERIFY(m_service->queueChannelMessage(u"U2"_s, u"SCB"_s, u"other"_s));

    const QByteArray body =
        R"({"channels":["S","SCB"],"messages":[{"channel":"S","payload":"{}"}],)"
        R"("additionalProperties":"cId=c9&joinedTimestamp=1"})";
    HttpResult result = send("POST", Poll, body);
    QCOMPARE(result.status, 200);
    QCOMPARE(result.contentType, QByteArray("application/json"));
    // The poll's channels in its order; the listened-on messages in queue order.
    QCOMPARE(result.body, QByteArray(R"({"channels":["S","SCB"],"messages":[)"
                                     R"({"channel":"SCB","payload":""},)"
                                     R"({"channel":"S","payload":"{\"a\":\"é\"}"}],)"
                                     R"("additionalProperties":""})"));
    QCOMPARE(delivered.size(), 2);
    QCOMPARE(delivered.at(1), (QVariantList{u"U1"_s, u"S"_s, u"{\"a\":\"é\"}"_s}));
    QCOMPARE(polled.size(), 1);

    // Delivered once; the COQS message waits for a poll that listens on COQS.
    result = send("POST", u"/api/in/co?cId&sId=S2&vId=U1&tId=T1"_s, body);
    QCOMPARE(result.body,
             QByteArray(R"({"channels":["S","SCB"],"messages":[],"additionalProperties":""})"));
    QCOMPARE(m_service->queuedChannelMessages(u"U1"_s),
             (QList<VistrelService::ChannelMessage>{{u"COQS"_s, u"4"_s}}));
    result = send("POST", Poll, R"({"channels":["COQS"]})");
    QCOMPARE(result.body, QByteArray(R"({"channels":["COQS"],"messages":[)"
                                     R"({"channel":"COQS","payload":"4"}],)"
                                     R"("additionalProperties":""})"));
    QVERIFY(m_service->queuedChannelMessages(u"U1"_s).isEmpty());
    QCOMPARE(delivered.size(), 3);

    const auto poller = m_service->channelPoller(u"U1"_s);
    QVERIFY(poller);
    QCOMPARE(poller->tenantId, u"T1"_s);
    QCOMPARE(poller->sessionId, u"S1"_s);
    QCOMPARE(poller->channels, QStringList{u"COQS"_s});
    QCOMPARE(poller->pollCount, 3);
    QVERIFY(poller->lastPollAt.isValid());
    QCOMPARE(m_service->channelPollers().size(), 1);

    // Another visitor's messages stayed theirs; an empty poll gets the full empty record.
    QCOMPARE(m_service->queuedChannelMessages(u"U2"_s).size(), 1);
    m_service->clearChannelMessages();
    result = send("POST", u"/api/in/co?tId=&vId=U2&sId=&cId"_s,
                  R"({"channels":["SCB"],"messages":[],"additionalProperties":""})");
    QCOMPARE(result.body,
             QByteArray(R"({"channels":["SCB"],"messages":[],"additionalProperties":""})"));
    result = send("POST", u"/api/in/co?vId=U2"_s, R"({"channels":[]})");
    QCOMPARE(result.body, QByteArray(R"({"channels":[],"messages":[],"additionalProperties":""})"));
    QCOMPARE(m_service->channelPollers().size(), 2);
    QCOMPARE(polled.size(), 5);
}

void TestServiceHttp::channelPollSurvivesHostileBodies()
{
    m_service->setMaxBodySize(4 * 1024 * 1024);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Refused a body"_s));
    QCOMPARE(send("POST", Poll, QByteArray(4 * 1024 * 1024 + 1, '[')).status, 413);

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"nested deeper"_s));
    QCOMPARE(send("POST", Poll, QByteArray(1024 * 1024, '[')).status, 400);
    // Deep, but inside what must be a string.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"payload"_s));
    QCOMPARE(send("POST", Poll,
                  R"({"channels":[],"messages":[{"channel":"S","payload":)" + QByteArray(100, '[') +
                      QByteArray(100, ']') + "}]}")
                 .status,
             400);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"not JSON"_s));
    QCOMPARE(send("POST", Poll, "{\"channels\":[\"SCB\xff\xfe\"]}").status, 400);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"not JSON"_s));
    QCOMPARE(send("POST", Poll, QByteArray::fromHex("00ff10c3287b7d")).status, 400);

    // Huge but well-formed: answered.
    const QByteArray bigPayload(3 * 1024 * 1024, 'p');
    const HttpResult big = send("POST", Poll,
                                R"({"channels":["S"],"messages":[{"channel":"S","payload":")" +
                                    bigPayload + R"("}],"additionalProperties":""})");
    QCOMPARE(big.status, 200);
    QCOMPARE(m_service->channelPoller(u"U1"_s)->messages.first().payload.size(), bigPayload.size());
    QCOMPARE(send("GET", Poll).status, 405);
}

QTEST_GUILESS_MAIN(TestServiceHttp)
#include "tst_servicehttp.moc"
