#include "LogCapture.h"
#include "Network/MessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Network/Xhr/XhrSender.h"
#include "TransportFixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;
using VistrelService::Report;

namespace {
const QString messagePath = u"/api/ix/m"_s;

QList<VistrelService::RecordedRequest> posts(const VistrelService::LocalService &service)
{
    QList<VistrelService::RecordedRequest> result;
    for (const auto &request : service.requests(messagePath)) {
        if (request.method == u"POST"_s)
            result.append(request);
    }
    return result;
}

QStringList tags(const QList<Report> &reports)
{
    QStringList result;
    for (const Report &report : reports) {
        if (report.message.has_tag())
            result.append(QString::fromStdString(report.message.tag()));
    }
    return result;
}

ProtoMessage tag(const QString &text)
{
    return MessageSender::tagReport(text, 0);
}
} // namespace

class tst_XhrMessageSender : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void urlCarriesTheVisit();
    void queuedReportsGoAsOneListInOrder();
    void emptyQueueSendsNothing();
    void reportAppendedDuringPostIsLost();
    void failedPostEndsTheLoop();
    void failedGetStartsNoLoop();
    void stopFlushesOnceMoreAndDeletesTheVisit();
    void replies_data();
    void replies();
    void fasterPollingShortensTheInterval();

private:
    std::unique_ptr<TransportFixture> f;
    std::unique_ptr<XhrMessageSender> sender;
};

void tst_XhrMessageSender::init()
{
    f = std::make_unique<TransportFixture>();
    sender = std::make_unique<XhrMessageSender>(f->config.get(), f->initSender.get(), f->api.get(),
                                                f->http.get(), f->parser.get());
}

void tst_XhrMessageSender::cleanup()
{
    sender.reset();
    f.reset();
}

void tst_XhrMessageSender::urlCarriesTheVisit()
{
    const VisitConfig &visit = f->config->config().visitConfig;
    const QString url = XhrSender::buildUrl(f->config->config(), u"Main Page&x"_s);
    // Values go in unescaped, the screen name included.
    QCOMPARE(url,
             u"http://%1/api/ix/m?id=%2&sId=%3&tId=tenant-1&vId=%4&url=Main Page&x&fsTy=l"_s.arg(
                 f->service.hostAndPort(), *visit.visitId, *visit.sessionId, *visit.visitorId));

    sender->start(u"Main"_s, nullptr, nullptr);
    QVERIFY(f->service.waitForRequests(messagePath, 1));
    const auto get = f->service.requests(messagePath).first();
    QCOMPARE(get.method, u"GET"_s);
    QCOMPARE(get.queryValue(u"id"_s), *visit.visitId);
    QCOMPARE(get.queryValue(u"vId"_s), *visit.visitorId);
    QCOMPARE(get.queryValue(u"url"_s), u"Main"_s);
    QCOMPARE(get.header("X-OV-SSID"), visit.sessionId->toUtf8());
}

void tst_XhrMessageSender::queuedReportsGoAsOneListInOrder()
{
    // Queued before the channel opens, so the first flush carries all three.
    for (const QString &text : {u"first"_s, u"second"_s, u"third"_s})
        sender->sendTag(text, f->startTime(),
                        [](const std::optional<Error> &error) { QVERIFY(!error); });
    QTRY_COMPARE(sender->queueSize(), 3);
    sender->start(u"Main"_s, nullptr, nullptr);

    QVERIFY(f->service.waitForReports(f->visitId(), 3));
    const auto reports = f->service.visit(f->visitId())->reports();
    QCOMPARE(tags(reports), (QStringList{u"first"_s, u"second"_s, u"third"_s}));
    QCOMPARE(posts(f->service).size(), 1);
    // Each report carries the screen shown when it was sent, and the visit's identifiers.
    QCOMPARE(reports.first().url, u"Main"_s);
    QCOMPARE(reports.first().tenantId, u"tenant-1"_s);
    // The body is protocol buffer bytes under a JSON label, as the service expects.
    QCOMPARE(posts(f->service).first().header("Content-Type"), "application/json"_ba);
    QCOMPARE(sender->queueSize(), 0);
}

void tst_XhrMessageSender::emptyQueueSendsNothing()
{
    sender->start(u"Main"_s, nullptr, nullptr);
    QVERIFY(f->service.waitForRequests(messagePath, 1));
    QTRY_COMPARE(sender->currentInterval(), 0.1);
    QTest::qWait(600); // several flush cycles
    QCOMPARE(posts(f->service).size(), 0);
    QVERIFY(!sender->isStopped());

    // The loop is alive: a report still goes out.
    sender->send(u"Main"_s, tag(u"late"_s), [](const std::optional<Error> &) {});
    QVERIFY(f->service.waitForReports(f->visitId(), 1));
}

void tst_XhrMessageSender::reportAppendedDuringPostIsLost()
{
    LogCapture capture;
    bool appended = false;
    // The POST line is logged while the POST is being issued: queue a report right then.
    Log::setListener([&](const QString &line) {
        if (!appended && line.startsWith(u"[DEBUG] HttpUtil: POST "_s)) {
            appended = true;
            sender->send(u"Main"_s, tag(u"in flight"_s), [](const std::optional<Error> &) {});
        }
    });
    sender->send(u"Main"_s, tag(u"batched"_s), [](const std::optional<Error> &) {});
    sender->start(u"Main"_s, nullptr, nullptr);
    QVERIFY(f->service.waitForReports(f->visitId(), 1));
    QTRY_COMPARE(sender->queueSize(), 0);
    QVERIFY(appended);

    sender->send(u"Main"_s, tag(u"after"_s), [](const std::optional<Error> &) {});
    QVERIFY(f->service.waitForReports(f->visitId(), 2));
    QTest::qWait(300);
    QCOMPARE(tags(f->service.visit(f->visitId())->reports()),
             (QStringList{u"batched"_s, u"after"_s}));
}

void tst_XhrMessageSender::failedPostEndsTheLoop()
{
    LogCapture capture;
    f->service.setCannedReply(u"POST"_s, messagePath, CannedReply::dropped());
    sender->send(u"Main"_s, tag(u"doomed"_s), [](const std::optional<Error> &) {});
    sender->start(u"Main"_s, nullptr, nullptr);
    QTRY_VERIFY(capture.contains(u"[ERROR] XhrMessageSender: Request failed"_s));
    // Qt may have retried the dropped POST once on a new connection before giving up.
    const qsizetype attempts = posts(f->service).size();
    QVERIFY(attempts >= 1);

    // The service recovers, but the loop has ended: reports pile up, and send() still succeeds.
    f->service.clearCannedReplies();
    std::optional<Error> result = StringError(u"not called"_s);
    sender->send(u"Main"_s, tag(u"queued"_s),
                 [&result](const std::optional<Error> &error) { result = error; });
    QVERIFY(!result);
    QTest::qWait(500);
    QCOMPARE(posts(f->service).size(), attempts);
    QCOMPARE(sender->queueSize(), 2);
    QVERIFY(!sender->isStopped());
}

void tst_XhrMessageSender::failedGetStartsNoLoop()
{
    LogCapture capture;
    f->service.setCannedReply(u"GET"_s, messagePath, CannedReply::dropped());
    sender->send(u"Main"_s, tag(u"never"_s), [](const std::optional<Error> &) {});
    sender->start(u"Main"_s, nullptr, nullptr);
    QTRY_VERIFY(capture.contains(u"[ERROR] XhrMessageSender: Request failed"_s));
    QTest::qWait(400);
    QCOMPARE(posts(f->service).size(), 0);
    QCOMPARE(sender->currentInterval(), 0.0);
}

void tst_XhrMessageSender::stopFlushesOnceMoreAndDeletesTheVisit()
{
    LogCapture capture;
    sender->start(u"Main"_s, nullptr, nullptr);
    QTRY_COMPARE(sender->currentInterval(), 0.1);
    // A flush is armed now; the report queued with stop() still goes out with it.
    sender->send(u"Main"_s, tag(u"last words"_s), [](const std::optional<Error> &) {});
    sender->stop();
    QVERIFY(sender->isStopped());
    QVERIFY(f->service.waitForReports(f->visitId(), 1));
    QCOMPARE(tags(f->service.visit(f->visitId())->reports()), QStringList{u"last words"_s});

    sender->send(u"Main"_s, tag(u"too late"_s), [](const std::optional<Error> &) {});
    QTest::qWait(500);
    QCOMPARE(posts(f->service).size(), 1);

    const auto deletes = [this] {
        QList<VistrelService::RecordedRequest> result;
        for (const auto &request : f->service.requests(messagePath)) {
            if (request.method == u"DELETE"_s)
                result.append(request);
        }
        return result;
    };
    QTRY_COMPARE(deletes().size(), 1);
    const VisitConfig &visit = f->config->config().visitConfig;
    const auto request = deletes().first();
    QCOMPARE(request.queryValue(u"id"_s), *visit.visitId);
    QCOMPARE(request.queryValue(u"sId"_s), *visit.sessionId);
    QCOMPARE(request.queryValue(u"tId"_s), u"tenant-1"_s);
    QCOMPARE(request.queryValue(u"vId"_s), *visit.visitorId);
    QCOMPARE(request.queryValue(u"url"_s), u"Main"_s);
    QCOMPARE(request.queryValue(u"fsTy"_s), u"l"_s);
    QTRY_VERIFY(capture.contains(u"[DEBUG] MessageSender: Delete sent"_s));
}

void tst_XhrMessageSender::replies_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("handled");
    QTest::addColumn<bool>("warns");

    QTest::newRow("empty array") << "[]"_ba << 0 << false;
    QTest::newRow("no body") << QByteArray() << 0 << false;
    QTest::newRow("one command") << R"(["[{\"x\":300,\"y\":600}]"])"_ba << 1 << false;
    QTest::newRow("two strings, three commands")
        << R"(["[{\"a\":\"c\"},{\"x\":1,\"y\":2}]","[{\"co\":{\"b\":true}}]"])"_ba << 3 << false;
    QTest::newRow("a number ends silently") << R"([42, "[{\"a\":\"c\"}]"])"_ba << 0 << false;
    QTest::newRow("not an array") << R"({"x":1,"y":2})"_ba << 0 << false;
    QTest::newRow("inner text not an array") << R"(["{\"x\":1,\"y\":2}"])"_ba << 0 << false;
    QTest::newRow("non-object ends the rest")
        << R"(["[{\"a\":\"c\"},7,{\"a\":\"c\"}]"])"_ba << 1 << false;
    QTest::newRow("invalid JSON") << "not json"_ba << 0 << true;
    QTest::newRow("invalid inner JSON after a good one")
        << R"(["[{\"a\":\"c\"}]","[{"])"_ba << 1 << true;
    QTest::newRow("invalid UTF-8") << "[\"\xFF\xFE\"]"_ba << 0 << true;
    QTest::newRow("deeply nested") << QByteArray(100000, '[') << 0 << true;
    QTest::newRow("huge array of numbers")
        << ("[" + QByteArray("1,").repeated(500000) + "1]") << 0 << false;
}

void tst_XhrMessageSender::replies()
{
    QFETCH(QByteArray, body);
    QFETCH(int, handled);
    QFETCH(bool, warns);
    LogCapture capture;
    f->service.setCannedReply(u"POST"_s, messagePath, CannedReply{{200, body}});
    sender->send(u"Main"_s, tag(u"x"_s), [](const std::optional<Error> &) {});
    sender->start(u"Main"_s, nullptr, nullptr);
    QVERIFY(f->service.waitFor([this] { return posts(f->service).size() == 1; }));
    QTRY_COMPARE(sender->queueSize(), 0);
    QTest::qWait(50);
    QCOMPARE(f->handler.messages.size(), handled);
    QCOMPARE(capture.contains(u"[WARNING] XhrMessageSender: Cannot parse message"_s), warns);

    // Whatever the reply, the loop goes on.
    sender->send(u"Main"_s, tag(u"y"_s), [](const std::optional<Error> &) {});
    QVERIFY(f->service.waitFor([this] { return posts(f->service).size() == 2; }));
}

void tst_XhrMessageSender::fasterPollingShortensTheInterval()
{
    sender->start(u"Main"_s, nullptr, nullptr);
    QTRY_COMPARE(sender->currentInterval(), 0.1);
    f->config->config().vistrelConfig.increasedPollingFrequency = true;
    QTRY_COMPARE(sender->currentInterval(), 0.03);
    f->config->config().vistrelConfig.increasedPollingFrequency = false;
    QTRY_COMPARE(sender->currentInterval(), 0.1);
}

QTEST_MAIN(tst_XhrMessageSender)
#include "tst_xhrmessagesender.moc"
