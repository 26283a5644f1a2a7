#include "Communication/Communication.h"
#include "LogCapture.h"
#include "TransportFixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;

namespace {
const QString pollPath = u"/api/in/co"_s;

/// The channel poll of a fresh visit against the local service.
struct Fixture : TransportFixture
{
    int polls() const { return int(service.requests(pollPath).size()); }
    bool waitForPolls(int count) { return service.waitForRequests(pollPath, count); }
    XhrRunner *runner() { return communication.runner(); }
    void answerPolls(const QByteArray &body, bool drop = false)
    {
        service.setCannedReply(u"POST"_s, pollPath, CannedReply{{200, body}, drop});
    }
    void add(const QString &id, CommunicationChannel channel, double rate,
             const QString &payload = {}, const QString &params = {})
    {
        communication.registerClient(
            {id, channel, rate,
             [this, id](const CommunicationMessage &m) { received.append(id + u':' + m.payload); },
             payload, params});
    }

    Communication communication{api.get(), config.get()};
    LogCapture log;
    QStringList received; // "<client>:<payload>"
};
} // namespace

class tst_Communication : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void pollFollowsTheClients()
    {
        Fixture f;
        // The fastest first: a running loop keeps the tick it already armed.
        f.add(u"b"_s, CommunicationChannel::SCB, 0.02);
        f.add(u"c"_s, CommunicationChannel::SCB, 3000.0, u"q"_s, u"&c=3"_s);
        f.add(u"a"_s, CommunicationChannel::COQS, 3000.0, u"p"_s, u"&a=1"_s);
        QVERIFY(f.waitForPolls(3));
        // Channels once each in declaration order; payloads and parameters in client id order.
        const auto poll = f.service.requests(pollPath).first();
        QCOMPARE(
            poll.body,
            R"({"channels":["SCB","COQS"],"messages":[{"channel":"COQS","payload":"p"},{"channel":"SCB","payload":"q"}],"additionalProperties":"&a=1&c=3"})"_ba);
        // "cId" is a bare key, not "cId=".
        const VisitConfig &visit = f.config->config().visitConfig;
        QCOMPARE(poll.query.query(QUrl::FullyEncoded),
                 u"tId=tenant-1&vId=%1&sId=%2&cId"_s.arg(*visit.visitorId, *visit.sessionId));

        f.communication.unregisterClient(u"b"_s);
        QCOMPARE(f.runner()->currentRate(), 3000.0);
        QVERIFY(f.runner()->isRunning());
        f.communication.unregisterClient(u"a"_s);
        f.communication.unregisterClient(u"c"_s);
        QVERIFY(!f.runner()->isRunning());
        // A poll under way when the client left may still land; then nothing more.
        QTest::qWait(100);
        const int settled = f.polls();
        QTest::qWait(300);
        QCOMPARE(f.polls(), settled);
        f.add(u"d"_s, CommunicationChannel::S, 0.02);
        QVERIFY(f.waitForPolls(settled + 3));
        QCOMPARE(f.service.requests(pollPath).last().body,
                 R"({"channels":["S"],"messages":[],"additionalProperties":""})"_ba);
    }

    void failuresStopAtTheEleventh()
    {
        Fixture f;
        // A reply without a body resets the count before counting itself: it never stops.
        f.answerPolls({});
        f.add(u"SCB"_s, CommunicationChannel::SCB, 0.01);
        QVERIFY(f.waitForPolls(15));
        QCOMPARE(f.runner()->failedAttempts(), 1);
        f.answerPolls({}, true); // each poll fails with a transport error
        QVERIFY(f.service.waitFor([&f] { return f.runner()->failedAttempts() >= 5; }));
        f.answerPolls(R"({"messages":[]})"_ba); // a success in between resets the count
        QVERIFY(f.service.waitFor([&f] { return f.runner()->failedAttempts() == 0; }));
        const int failed = f.log.count(u"Poll failed: "_s);
        f.answerPolls({}, true);
        QTRY_VERIFY(f.log.contains(u"[WARNING] XhrRunner: Exceed max retries. Stop"_s));
        const int attempts = f.log.count(u"Execute polling"_s);
        QTest::qWait(200);
        QCOMPARE(f.log.count(u"Execute polling"_s), attempts);
        QCOMPARE(f.log.count(u"Poll failed: "_s) - failed, 11);
    }

    void replies_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QStringList>("delivered");
        QTest::addColumn<QString>("logLine");

        const QString failed = u"[ERROR] XhrRunner: Poll failed: "_s;
        // Each message goes to every client of its channel, in id order; messages in reply order.
        QTest::newRow("two messages, two clients")
            << R"({"messages":[{"channel":"SCB","payload":"1"},{"channel":"C","payload":"9"},{"channel":"COQS","payload":"4"},{"channel":"SCB","payload":"2"}]})"_ba
            << QStringList{u"a:1"_s, u"b:1"_s, u"queue:4"_s, u"a:2"_s, u"b:2"_s}
            << u"[WARNING] Communication: No client listens on channel C; message dropped"_s;
        QTest::newRow("unknown channel dropped alone")
            << R"({"messages":[{"channel":"XYZ","payload":""},{"channel":"COQS","payload":"7"}]})"_ba
            << QStringList{u"queue:7"_s}
            << u"[WARNING] XhrRunner: Dropped poll message: StringError(mMsg: \"Unknown channel: XYZ\")"_s;
        QTest::newRow("not JSON") << "{\"messages\": ["_ba << QStringList() << failed;
        QTest::newRow("no messages array")
            << R"({"messages":{"channel":"SCB","payload":"1"}})"_ba << QStringList()
            << failed + u"StringError(mMsg: \"Poll reply has no \"messages\" array"_s;
        QTest::newRow("over the size bound")
            << "{\"messages\":[{\"channel\":\"SCB\",\"payload\":\""_ba +
                   QByteArray(XhrRunner::MaxReplyBytes, 'x') + "\"}]}"
            << QStringList() << failed + u"reply of"_s;
    }

    void replies()
    {
        QFETCH(QByteArray, reply);
        QFETCH(QStringList, delivered);
        QFETCH(QString, logLine);
        Fixture f;
        f.answerPolls(reply);
        // The fastest first: a running loop keeps the tick it already armed.
        f.add(u"a"_s, CommunicationChannel::SCB, 0.02);
        f.add(u"b"_s, CommunicationChannel::SCB, 3.0);
        f.add(u"queue"_s, CommunicationChannel::COQS, 3000.0);
        QVERIFY(f.waitForPolls(1));
        // Polling goes on after whatever came back.
        f.answerPolls(R"({"messages":[]})"_ba);
        QVERIFY(f.waitForPolls(f.polls() + 2));
        QCOMPARE(f.received, delivered);
        QVERIFY2(f.log.contains(logLine), qPrintable(f.log.lines().join(u'\n')));
    }
};

QTEST_MAIN(tst_Communication)
#include "tst_communication.moc"
