#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Communication/Communication.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "TestConfig.h"

#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;
using VistrelService::LocalService;

namespace {
const QString pollPath = u"/api/in/co"_s;
const QString limitLine = u"[WARNING] XhrRunner: Exceed max retries. Stop"_s;
} // namespace

class tst_XhrRunner : public QObject
{
    Q_OBJECT

    int polls() const { return int(m_service->requests(pollPath).size()); }
    bool waitForPolls(int count) { return m_service->waitForRequests(pollPath, count); }
    XhrRunner *runner() { return m_communication->runner(); }
    void answerPolls(const QByteArray &body, bool drop = false)
    {
        CannedReply reply;
        reply.body = body;
        reply.dropConnection = drop;
        m_service->setCannedReply(u"POST"_s, pollPath, reply);
    }
    void add(const QString &id, CommunicationChannel channel, double rate)
    {
        RegisteredClient client;
        client.id = id;
        client.channel = channel;
        client.rate = rate;
        client.callback = [this, id](const auto &m) { m_received.append(id + u':' + m.payload); };
        m_communication->registerClient(client);
    }

    std::unique_ptr<LocalService> m_service;
    std::unique_ptr<ApplicationConfigWrapper> m_config;
    std::unique_ptr<HttpUtil> m_http;
    std::unique_ptr<OrvaneAPI> m_api;
    std::unique_ptr<Communication> m_communication;
    LogCapture m_log;
    QStringList m_received; // "<client>:<payload>"

private Q_SLOTS:
    void init()
    {
        m_service = std::make_unique<LocalService>();
        QVERIFY(m_service->start() != 0);
        TestConfig::use(m_service->hostAndPort());
        m_config = std::make_unique<ApplicationConfigWrapper>();
        m_config->config().tenantId = u"tenant-1"_s;
        m_config->newVisit(std::nullopt);
        m_http = std::make_unique<HttpUtil>(m_config.get());
        m_api = std::make_unique<OrvaneAPI>(m_http.get(), TestConfig::serviceHost());
        m_communication = std::make_unique<Communication>(m_api.get(), m_config.get());
        m_log.clear();
        m_received.clear();
    }

    void cleanup()
    {
        m_communication.reset();
        m_service.reset();
    }

    void pollBody()
    {
        QCOMPARE(m_communication->registry().pollBody().encode(),
                 R"({"channels":[],"messages":[],"additionalProperties":""})"_ba);
        QVERIFY(!runner()->isRunning());
        add(u"SCB"_s, CommunicationChannel::SCB, 0.02);
        QVERIFY(waitForPolls(1));
        const auto poll = m_service->requests(pollPath).first();
        QCOMPARE(poll.method, u"POST"_s);
        QCOMPARE(poll.body, R"({"channels":["SCB"],"messages":[],"additionalProperties":""})"_ba);
        QCOMPARE(poll.queryValue(u"tId"_s), u"tenant-1"_s);
        QCOMPARE(poll.queryValue(u"vId"_s), *m_config->config().visitConfig.visitorId);
        QCOMPARE(poll.queryValue(u"sId"_s), *m_config->config().visitConfig.sessionId);
        // A bare key, not "cId=".
        const QString query = poll.query.query(QUrl::FullyEncoded);
        QVERIFY2(query.split(u'&').contains(u"cId"_s), qPrintable(query));
    }

    void pollingFollowsTheClients()
    {
        add(u"SCB"_s, CommunicationChannel::SCB, 0.02);
        add(u"slow"_s, CommunicationChannel::COQS, 3000.0);
        QCOMPARE(runner()->currentRate(), 0.02); // the smallest, whatever the order
        QVERIFY(waitForPolls(3));
        m_communication->unregisterClient(u"SCB"_s);
        QCOMPARE(runner()->currentRate(), 3000.0);
        QVERIFY(runner()->isRunning());
        m_communication->unregisterClient(u"slow"_s);
        QVERIFY(!runner()->isRunning());
        // A poll under way when the client left may still land; then nothing more.
        QTest::qWait(100);
        const int settled = polls();
        QTest::qWait(300);
        QCOMPARE(polls(), settled);

        add(u"b"_s, CommunicationChannel::COQS, 0.02);
        QVERIFY(waitForPolls(settled + 3));
        const QByteArray body = m_service->requests(pollPath).last().body;
        QVERIFY2(body.contains(R"("channels":["COQS"])"), body.constData());
    }

    void failuresStopAtTheEleventh()
    {
        answerPolls({}, true); // each poll fails with a transport error
        add(u"SCB"_s, CommunicationChannel::SCB, 0.05);
        QVERIFY(m_service->waitFor([this] { return runner()->failedAttempts() >= 5; }));
        answerPolls(R"({"messages":[]})"_ba); // a success in between resets the count
        QVERIFY(m_service->waitFor([this] { return runner()->failedAttempts() == 0; }));
        const int failed = m_log.count(u"Poll failed: "_s);
        answerPolls({}, true);
        QTRY_VERIFY(m_log.contains(limitLine));
        QVERIFY(!runner()->isRunning());
        const int attempts = m_log.count(u"Execute polling"_s);
        QTest::qWait(200);
        QCOMPARE(m_log.count(u"Execute polling"_s), attempts);
        QCOMPARE(m_log.count(u"Poll failed: "_s) - failed, 11);
    }

    void repliesWithoutABodyNeverStop()
    {
        // Such a reply resets the count before counting itself.
        answerPolls({});
        add(u"SCB"_s, CommunicationChannel::SCB, 0.01);
        QVERIFY(waitForPolls(15));
        QVERIFY(m_log.count(u"[ERROR] XhrRunner: Poll failed wil nil response"_s) >= 14);
        QVERIFY(!m_log.contains(limitLine));
        QVERIFY(runner()->isRunning());
    }

    void replies_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QStringList>("delivered");
        QTest::addColumn<QString>("logLine");

        const QString failed = u"[ERROR] XhrRunner: Poll failed: "_s;
        // Each message goes to every client of its channel, in id order; messages in reply order.
        QTest::newRow("two messages, two clients")
            << R"({"messages":[{"channel":"SCB","payload":"1"},{"channel":"COQS","payload":"4"},{"channel":"SCB","payload":"2"}]})"_ba
            << QStringList{u"a:1"_s, u"b:1"_s, u"queue:4"_s, u"a:2"_s, u"b:2"_s} << QString();
        QTest::newRow("unknown channel dropped alone")
            << R"({"messages":[{"channel":"XYZ","payload":""},{"channel":"COQS","payload":"7"}]})"_ba
            << QStringList{u"queue:7"_s}
            << u"[WARNING] XhrRunner: Dropped poll message: StringError(mMsg: \"Unknown channel: XYZ\")"_s;
        QTest::newRow("invalid JSON") << "{\"messages\": ["_ba << QStringList() << failed;
        QTest::newRow("not UTF-8")
            << QByteArray("{\"messages\":[{\"channel\":\"SCB\",\"payload\":\"\xff\xfe\"}]}")
            << QStringList() << failed;
        QTest::newRow("deeply nested") << R"({"messages":[{"channel":"SCB","payload":"","x":)"_ba +
                                              QByteArray(5000, '[') + QByteArray(5000, ']') + "}]}"
                                       << QStringList() << failed;
        QTest::newRow("huge") << "{\"messages\":[{\"channel\":\"SCB\",\"payload\":\""_ba +
                                     QByteArray(XhrRunner::MaxReplyBytes, 'x') + "\"}]}"
                              << QStringList() << failed + u"reply of"_s;
    }

    void replies()
    {
        QFETCH(QByteArray, reply);
        QFETCH(QStringList, delivered);
        QFETCH(QString, logLine);

        answerPolls(reply);
        // The fastest first: a running loop keeps the tick it already armed.
        add(u"a"_s, CommunicationChannel::SCB, 0.02);
        add(u"b"_s, CommunicationChannel::SCB, 3.0);
        add(u"queue"_s, CommunicationChannel::COQS, 3000.0);
        QVERIFY(waitForPolls(1));
        // Polling goes on after whatever came back.
        answerPolls(R"({"messages":[]})"_ba);
        QVERIFY(waitForPolls(polls() + 2));
        QCOMPARE(m_received, delivered);
        if (!logLine.isEmpty())
            QVERIFY2(m_log.contains(logLine), qPrintable(m_log.lines().join(u'\n')));
        QVERIFY(runner()->isRunning());
    }
};

QTEST_GUILESS_MAIN(tst_XhrRunner)
#include "tst_xhrrunner.moc"
