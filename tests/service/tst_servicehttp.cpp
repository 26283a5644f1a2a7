#include "LocalService.h"
#include "ServiceTestSupport.h"

#include <QNetworkAccessManager>
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
// The channel poll as the device sends it: "cId" without a value.
const QString Poll = u"/api/in/co?tId=T1&vId=U1&sId=S1&cId"_s;
const int MaxBody = 2 * 1024 * 1024;
} // namespace

class TestServiceHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void endpointsAnswerAndRecord_data();
    void endpointsAnswerAndRecord();
    void rejectedRequestsChangeNothing_data();
    void rejectedRequestsChangeNothing();
    void deleteEndsVisitUntilReopened();
    void channelPollDeliversOnceOnListenedChannels();

private:
    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {})
    {
        return sendHttp(m_manager, m_service->hostAndPort(), method, pathAndQuery, body);
    }

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

void TestServiceHttp::endpointsAnswerAndRecord_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reply");

    QTest::newRow("init") << "POST"_ba << u"/api/in/im/c"_s << 200
                          << R"({"shouldStartMonitoring":false})"_ba;
    QTest::newRow("strings") << "GET"_ba << u"/api/in/i18n?lang=en"_s << 200 << R"({"ui":{}})"_ba;
    QTest::newRow("channel open") << "GET"_ba << Channel << 200 << QByteArray();
    QTest::newRow("delete") << "DELETE"_ba << Channel << 200 << QByteArray();
    QTest::newRow("unknown path") << "POST"_ba << u"/nope?id=V1"_s << 404 << QByteArray();
    QTest::newRow("channel prefix") << "POST"_ba << u"/api/ix"_s << 404 << QByteArray();
    QTest::newRow("channel without id") << "GET"_ba << u"/api/ix/m?sId=S1"_s << 400 << QByteArray();
    QTest::newRow("channel, other verb") << "PUT"_ba << Channel << 405 << QByteArray();
    QTest::newRow("poll, other verb") << "GET"_ba << Poll << 405 << QByteArray();
    QTest::newRow("socket path, no upgrade")
        << "GET"_ba << u"/api/in/imws?id=V1"_s << 426 << QByteArray();
}

void TestServiceHttp::endpointsAnswerAndRecord()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QByteArray, reply);
    m_service->setMonitoringConfig(R"({"shouldStartMonitoring":false})"_ba);
    m_service->setStrings(R"({"ui":{}})"_ba);
    const QByteArray body = method == "GET" ? QByteArray() : R"({"k":1})"_ba;

    const QDateTime before = QDateTime::currentDateTimeUtc();
    const HttpResult result = send(method, path, body);
    QCOMPARE(result.status, status);
    if (status == 200)
        QCOMPARE(result.body, reply);
    const auto recorded = m_service->requests();
    QCOMPARE(recorded.size(), 1);
    const auto &request = recorded.first();
    QCOMPARE(request.method, QString::fromLatin1(method));
    QCOMPARE(request.path + (request.query.isEmpty() ? u""_s : u"?"_s + request.query.query()),
             path);
    QCOMPARE(request.header("Content-Type"), "application/json"_ba);
    QCOMPARE(request.body, body);
    QVERIFY(request.time >= before && request.time <= QDateTime::currentDateTimeUtc());
    QCOMPARE(request.status, status);
}

void TestServiceHttp::rejectedRequestsChangeNothing_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("log");

    const QByteArray valid = listBytes({pageChange(u"Form"_s)});
    // Field 1 announcing 16 bytes of which only 2 follow.
    QTest::newRow("truncated field")
        << Channel << QByteArray::fromHex("0a106162") << 400 << u"undecodable"_s;
    QTest::newRow("JSON body") << Channel << R"({"x":1})"_ba << 400 << u"undecodable"_s;
    QTest::newRow("no id") << u"/api/ix/m?sId=S1"_s << valid << 400 << u"without a visit id"_s;
    QTest::newRow("never opened") << u"/api/ix/m?id=V2"_s << valid << 404 << u"unknown visit"_s;
    QTest::newRow("too large") << Channel << listBytes({screenshot(QByteArray(MaxBody, 'j'))})
                               << 413 << u"Refused a body"_s;
    // Two bytes per empty message: a small body that would decode into a huge list.
    QTest::newRow("too many reports")
        << Channel << QByteArray::fromHex("0a00").repeated(100001) << 413 << u"too many reports"_s;

    const auto poll = [&](const char *name, const QByteArray &body, const QString &reason) {
        QTest::newRow(name) << Poll << body << 400 << u"Refused a channel poll .* as .*"_s + reason;
    };
    poll("poll not JSON", R"({"channels":)"_ba, u"is not JSON"_s);
    poll("poll deeply nested", QByteArray(1024 * 1024, '['), u"is not JSON"_s);
    poll("poll not UTF-8", "{\"channels\":[\"SCB\xff\xfe\"]}"_ba, u"is not JSON"_s);
    poll("poll an array", R"(["SCB"])"_ba, u"not a JSON object"_s);
    poll("poll, lower-case channel", R"({"channels":["SCB","scb"]})"_ba, u"not a channel name"_s);
    poll("poll, message on an unknown channel",
         R"({"channels":[],"messages":[{"channel":"X","payload":""}]})"_ba, u"no known"_s);
    poll("poll, payload an object",
         R"({"channels":[],"messages":[{"channel":"S","payload":{}}]})"_ba, u"no string"_s);
    QTest::newRow("poll without visitor")
        << u"/api/in/co?tId=T1&vId=&sId=S1&cId"_s << R"({"channels":["SCB"]})"_ba << 400
        << u"without a visitor id"_s;
}

void TestServiceHttp::rejectedRequestsChangeNothing()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, log);
    m_service->setMaxBodySize(MaxBody);
    QCOMPARE(send("GET", Channel).status, 200);
    QVERIFY(m_service->queueCommand(u"V1"_s, R"({"a":"c"})"_ba));
    QVERIFY(m_service->queueChannelMessage(u"U1"_s, u"SCB"_s, QString()));

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(log));
    const HttpResult result = send("POST", path, body);
    QCOMPARE(result.status, status);
    QVERIFY(!result.body.contains('\n'));
    QCOMPARE(m_service->requests().last().status, status);
    QVERIFY(m_service->visit(u"V1"_s)->reports().isEmpty());
    QVERIFY(!m_service->visit(u"V2"_s));
    QVERIFY(m_service->channelPollers().isEmpty());
    QCOMPARE(m_service->queuedChannelMessages(u"U1"_s).size(), 1);

    // Still serving, and the rejected request took no command.
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
    QCOMPARE(send("DELETE", Channel).status, 200);
    const Visit *visit = m_service->visit(u"V1"_s);
    QCOMPARE(visit->state(), Visit::State::Ended);
    QVERIFY(visit->endedAt().isValid());
    QCOMPARE(ended.size(), 1);
    QVERIFY(!m_service->visit(u"U1"_s));

    // The device flushes once more after deleting: recorded, but no command goes to it.
    const HttpResult last = send("POST", Channel, listBytes({pageChange(u"Form"_s)}));
    QCOMPARE(last.status, 200);
    QCOMPARE(last.body, "[]"_ba);
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

void TestServiceHttp::channelPollDeliversOnceOnListenedChannels()
{
    QVERIFY(m_service->queueChannelMessage(u"U1"_s, u"COQS"_s, u"4"_s));
    QVERIFY(m_service->queueChannelMessage(u"U1"_s, u"SCB"_s, u"é"_s));
    QVERIFY(m_service->queueChannelMessage(u"U2"_s, u"SCB"_s, QString()));
    const QByteArray body = R"({"channels":["S","SCB"],"additionalProperties":"cId=c9"})";
    const HttpResult result = send("POST", Poll, body);
    QCOMPARE(result.contentType, "application/json"_ba);
    // The poll's channels come back; of the visitor's messages only those it listens on.
    QCOMPARE(result.body, R"({"channels":["S","SCB"],"messages":[{"channel":"SCB","payload":"é"}],)"
                          R"("additionalProperties":""})"_ba);
    QCOMPARE(send("POST", Poll, body).body,
             R"({"channels":["S","SCB"],"messages":[],"additionalProperties":""})"_ba);
    QCOMPARE(m_service->queuedChannelMessages(u"U1"_s).size(), 1);
    QCOMPARE(m_service->queuedChannelMessages(u"U2"_s).size(), 1);
    const auto poller = m_service->channelPoller(u"U1"_s);
    QVERIFY(poller);
    QCOMPARE(poller->sessionId, u"S1"_s);
    QCOMPARE(poller->pollCount, 2);
}

QTEST_GUILESS_MAIN(TestServiceHttp)
#include "tst_servicehttp.moc"
