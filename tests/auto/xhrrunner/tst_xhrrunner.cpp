#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "ClosedPort.h"
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
using VistrelService::RecordedRequest;

namespace {
const QString pollPath = u"/api/in/co"_s;

RegisteredClient client(const QString &id, CommunicationChannel channel, double rate,
                        const QString &payload = {}, const QString &params = {})
{
    RegisteredClient result;
    result.id = id;
    result.channel = channel;
    result.rate = rate;
    result.payload = payload;
    result.additionalParams = params;
    return result;
}

CannedReply replyWith(const QByteArray &body)
{
    CannedReply reply;
    reply.body = body;
    return reply;
}
} // namespace

class tst_XhrRunner : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void pollBody_data();
    void pollBody();
    void followsTheSmallestRate();
    void lastClientGoneStopsPollingUntilTheNext();
    void failures_data();
    void failures();
    void successResetsTheCount();
    void replies_data();
    void replies();

private:
    int polls() const { return int(m_service->requests(pollPath).size()); }
    bool waitForPolls(int count, int timeoutMs = 5000)
    {
        return m_service->waitForRequests(pollPath, count, timeoutMs);
    }

    std::unique_ptr<LocalService> m_service;
    std::unique_ptr<ApplicationConfigWrapper> m_config;
    std::unique_ptr<HttpUtil> m_http;
    std::unique_ptr<OrvaneAPI> m_api;
    std::unique_ptr<Communication> m_communication;
    LogCapture m_log;
};

void tst_XhrRunner::init()
{
    m_service = std::make_unique<LocalService>();
    QVERIFY(m_service->start() != 0);
    TestConfig::use(m_service->hostAndPort());
    m_config = std::make_unique<ApplicationConfigWrapper>();
    m_config->config().tenantId = u"tenant-1"_s;
    m_config->newVisit(std::nullopt);
    m_http = std::make_unique<HttpUtil>(m_config.get());
    m_api = std::make_unique<OrvaneAPI>(m_http.get());
    m_communication = std::make_unique<Communication>(m_api.get(), m_config.get());
    m_log.clear();
}

void tst_XhrRunner::cleanup()
{
    m_communication.reset();
    m_service.reset();
}

void tst_XhrRunner::pollBody_data()
{
    QTest::addColumn<QList<RegisteredClient>>("clients");
    QTest::addColumn<QByteArray>("body");

    const QString joined = u"cId=c9&joinedTimestamp=1700000000000"_s;
    QTest::newRow("no client") << QList<RegisteredClient>()
                               << R"({"channels":[],"messages":[],"additionalProperties":""})"_ba;
    QTest::newRow("co-browsing start only")
        << QList{client(u"SCB"_s, CommunicationChannel::SCB, 0.02)}
        << R"({"channels":["SCB"],"messages":[],"additionalProperties":""})"_ba;
    // Both conference clients carry the same parameters: they go out twice, back to back.
    QTest::newRow("conference and start")
        << QList{client(u"SCB"_s, CommunicationChannel::SCB, 3.0),
                 client(u"co-status"_s, CommunicationChannel::S, 0.02, u"{}"_s, joined),
                 client(u"co-queue-id"_s, CommunicationChannel::COQS, 3000.0, {}, joined)}
        << QByteArray(
               R"({"channels":["SCB","S","COQS"],"messages":[{"channel":"S","payload":"{}"}],)"
               R"("additionalProperties":")" +
               (joined + joined).toUtf8() + R"("})");
    QTest::newRow("same id twice keeps the later")
        << QList{client(u"co-status"_s, CommunicationChannel::S, 0.02, u"first"_s),
                 client(u"co-status"_s, CommunicationChannel::COQS, 0.02, u"second"_s)}
        << R"({"channels":["COQS"],"messages":[{"channel":"COQS","payload":"second"}],"additionalProperties":""})"_ba;
}

void tst_XhrRunner::pollBody()
{
    QFETCH(QList<RegisteredClient>, clients);
    QFETCH(QByteArray, body);

    for (const RegisteredClient &c : clients)
        m_communication->registerClient(c);
    QCOMPARE(m_communication->registry().pollBody().encode(), body);
    if (clients.isEmpty()) {
        QVERIFY(!m_communication->runner()->isRunning());
        return;
    }
    // What crossed the wire.
    QVERIFY(waitForPolls(1));
    const RecordedRequest poll = m_service->requests(pollPath).first();
    QCOMPARE(poll.method, u"POST"_s);
    QCOMPARE(poll.body, body);
    const ApplicationConfig &config = m_config->config();
    QCOMPARE(poll.queryValue(u"tId"_s), u"tenant-1"_s);
    QCOMPARE(poll.queryValue(u"vId"_s), *config.visitConfig.visitorId);
    QCOMPARE(poll.queryValue(u"sId"_s), *config.visitConfig.sessionId);
    const QString query = poll.query.query(QUrl::FullyEncoded);
    QVERIFY2(query.split(u'&').contains(u"cId"_s), qPrintable(query)); // a key without value
}

void tst_XhrRunner::followsTheSmallestRate()
{
    XhrRunner *runner = m_communication->runner();
    QVERIFY(runner->currentRate() > 1e300); // no rate before the first client
    m_communication->registerClient(client(u"slow"_s, CommunicationChannel::COQS, 3000.0));
    QCOMPARE(runner->currentRate(), 3000.0);
    m_communication->registerClient(client(u"SCB"_s, CommunicationChannel::SCB, 3.0));
    QCOMPARE(runner->currentRate(), 3.0);
    m_communication->unregisterClient(u"SCB"_s);
    QCOMPARE(runner->currentRate(), 3000.0);
    QVERIFY(runner->isRunning());
    // The faster client's tick was already armed; a fresh registration polls at its own rate.
    m_communication->registerClient(client(u"fast"_s, CommunicationChannel::S, 0.05));
    QCOMPARE(runner->currentRate(), 0.05);
}

void tst_XhrRunner::lastClientGoneStopsPollingUntilTheNext()
{
    XhrRunner *runner = m_communication->runner();
    m_communication->registerClient(client(u"a"_s, CommunicationChannel::SCB, 0.02));
    QVERIFY(waitForPolls(3));
    m_communication->unregisterClient(u"a"_s);
    m_communication->unregisterClient(u"absent"_s); // no effect
    QVERIFY(!runner->isRunning());
    // A poll under way when the client left may still land; then nothing more.
    QTest::qWait(100);
    const int settled = polls();
    QTest::qWait(300);
    QCOMPARE(polls(), settled);
    QVERIFY(runner->isScheduled()); // the loop idles rather than ending

    m_communication->registerClient(client(u"b"_s, CommunicationChannel::COQS, 0.02));
    QVERIFY(runner->isRunning());
    QVERIFY(waitForPolls(settled + 3));
    const QByteArray body = m_service->requests(pollPath).last().body;
    QVERIFY2(body.contains(R"("channels":["COQS"])"), body.constData());
}

void tst_XhrRunner::failures_data()
{
    QTest::addColumn<bool>("unreachable");
    QTest::addColumn<QByteArray>("replyBody"); // with a reachable service
    QTest::addColumn<QString>("failureLine");
    QTest::addColumn<bool>("stops");

    QTest::newRow("unreachable service")
        << true << QByteArray() << u"[ERROR] XhrRunner: Poll failed: "_s << true;
    // A bodiless reply resets the count before counting itself: it never reaches the limit.
    QTest::newRow("replies without a body")
        << false << QByteArray() << u"[ERROR] XhrRunner: Poll failed wil nil response"_s << false;
    QTest::newRow("undecodable replies")
        << false << "{"_ba << u"[ERROR] XhrRunner: Poll failed: "_s << false;
}

void tst_XhrRunner::failures()
{
    QFETCH(bool, unreachable);
    QFETCH(QByteArray, replyBody);
    QFETCH(QString, failureLine);
    QFETCH(bool, stops);

    if (unreachable)
        TestConfig::use(u"127.0.0.1:%1"_s.arg(closedPort()));
    else
        m_service->setCannedReply(u"POST"_s, pollPath, replyWith(replyBody));
    XhrRunner *runner = m_communication->runner();
    m_communication->registerClient(client(u"SCB"_s, CommunicationChannel::SCB, 0.01));

    const QString limit = u"[WARNING] XhrRunner: Exceed max retries. Stop"_s;
    if (stops) {
        QTRY_VERIFY(m_log.contains(limit));
        // Ten failures kept it polling; the eleventh stopped it.
        const QStringList lines = m_log.lines();
        const qsizetype at = lines.indexOf(limit);
        QCOMPARE(lines.mid(0, at).filter(failureLine).size(), 11);
        QCOMPARE(runner->failedAttempts(), 11);
        QVERIFY(!runner->isRunning());
        const int attempts = int(m_log.matching(u"Execute polling"_s).size());
        QTest::qWait(200);
        QCOMPARE(m_log.matching(u"Execute polling"_s).size(), attempts);
        QVERIFY(runner->isScheduled());
    } else {
        QVERIFY(waitForPolls(15));
        QCOMPARE(m_log.matching(failureLine).size() >= 14, true);
        QVERIFY(!m_log.contains(limit));
        QVERIFY(runner->isRunning());
        QCOMPARE(runner->failedAttempts(), 1);
    }
}

void tst_XhrRunner::successResetsTheCount()
{
    m_service->setCannedReply(u"POST"_s, pollPath, CannedReply::dropped());
    XhrRunner *runner = m_communication->runner();
    m_communication->registerClient(client(u"SCB"_s, CommunicationChannel::SCB, 0.01));
    QTRY_VERIFY(runner->failedAttempts() >= 8);
    QVERIFY(runner->failedAttempts() <= 10);
    m_service->setCannedReply(u"POST"_s, pollPath,
                              replyWith(R"({"channels":[],"messages":[]})"_ba));
    QTRY_COMPARE(runner->failedAttempts(), 0);
    m_service->setCannedReply(u"POST"_s, pollPath, CannedReply::dropped());
    QTRY_VERIFY(!runner->isRunning());
    QCOMPARE(runner->failedAttempts(), 11);
}

void tst_XhrRunner::replies_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QStringList>("delivered"); // "<client>:<payload>" in order
    QTest::addColumn<QString>("logLine");

    const QString failed = u"[ERROR] XhrRunner: Poll failed: "_s;
    const QString dropped = u"[WARNING] XhrRunner: Dropped poll message: "_s;
    // Each message goes to every client of its channel, in id order; messages in reply order.
    QTest::newRow("two messages, two clients")
        << R"({"channels":["SCB"],"messages":[{"channel":"SCB","payload":"1"},{"channel":"COQS","payload":"4"},{"channel":"SCB","payload":"2"}],"additionalProperties":""})"_ba
        << QStringList{u"a:1"_s, u"b:1"_s, u"queue:4"_s, u"a:2"_s, u"b:2"_s} << QString();
    QTest::newRow("empty messages") << R"({"messages":[]})"_ba << QStringList() << QString();
    QTest::newRow("unknown channel dropped alone")
        << R"({"messages":[{"channel":"XYZ","payload":""},{"channel":"COQS","payload":"7"}]})"_ba
        << QStringList{u"queue:7"_s} << dropped + u"StringError(mMsg: \"Unknown channel: XYZ\")"_s;
    QTest::newRow("payload not a string")
        << R"({"messages":[{"channel":"SCB","payload":4}]})"_ba << QStringList() << dropped;
    QTest::newRow("message not an object")
        << R"({"messages":["SCB"]})"_ba << QStringList() << dropped;
    QTest::newRow("no client on the channel")
        << R"({"messages":[{"channel":"V","payload":""}]})"_ba << QStringList()
        << u"[WARNING] Communication: No client listens on channel V; message dropped"_s;
    QTest::newRow("invalid JSON") << "{\"messages\": ["_ba << QStringList() << failed;
    QTest::newRow("array") << "[]"_ba << QStringList() << failed;
    QTest::newRow("messages not an array")
        << R"({"messages":{"channel":"SCB"}})"_ba << QStringList() << failed;
    QTest::newRow("not UTF-8")
        << QByteArray("{\"messages\":[{\"channel\":\"SCB\",\"payload\":\"\xff\xfe\"}]}")
        << QStringList() << failed;
    QTest::newRow("deeply nested")
        << QByteArray(R"({"messages":[{"channel":"SCB","payload":"","x":)") +
               QByteArray(5000, '[') + QByteArray(5000, ']') + "}]}"
        << QStringList() << failed;
    QTest::newRow("huge") << QByteArray(R"({"messages":[{"channel":"SCB","payload":")") +
                                 QByteArray(XhrRunner::MaxReplyBytes, 'x') + "\"}]}"
                          << QStringList() << failed + u"reply of"_s;
}

void tst_XhrRunner::replies()
{
    QFETCH(QByteArray, reply);
    QFETCH(QStringList, delivered);
    QFETCH(QString, logLine);

    QStringList received;
    const auto recordAs = [&received](const QString &name) {
        return [&received, name](const CommunicationMessage &m) {
            received.append(name + u':' + m.payload);
        };
    };
    RegisteredClient a = client(u"a"_s, CommunicationChannel::SCB, 0.02);
    a.callback = recordAs(u"a"_s);
    RegisteredClient b = client(u"b"_s, CommunicationChannel::SCB, 3.0);
    b.callback = recordAs(u"b"_s);
    RegisteredClient queue = client(u"queue"_s, CommunicationChannel::COQS, 3000.0);
    queue.callback = recordAs(u"queue"_s);

    m_service->setCannedReply(u"POST"_s, pollPath, replyWith(reply));
    // The fastest first: a running loop keeps the tick it already armed.
    m_communication->registerClient(a);
    m_communication->registerClient(b);
    m_communication->registerClient(queue);
    QVERIFY(waitForPolls(1));
    // Polling goes on after whatever came back.
    m_service->setCannedReply(u"POST"_s, pollPath, replyWith(R"({"messages":[]})"_ba));
    QVERIFY(waitForPolls(polls() + 2));
    QCOMPARE(received, delivered);
    if (!logLine.isEmpty())
        QVERIFY2(!m_log.matching(logLine).isEmpty(), qPrintable(m_log.lines().join(u'\n')));
    QVERIFY(m_communication->runner()->isRunning());
}

QTEST_GUILESS_MAIN(tst_XhrRunner)
#include "tst_xhrrunner.moc"
