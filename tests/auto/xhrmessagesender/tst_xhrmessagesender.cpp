#include "LogCapture.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Network/Xhr/XhrSender.h"
#include "TransportFixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;

namespace {
const QString messagePath = u"/api/ix/m"_s;

/// An XHR sender against the local service, with readers for what reached it.
struct Fixture : TransportFixture
{
    void queue(const QString &tag)
    {
        sender.send(u"Main"_s, MessageSender::tagReport(tag, 0),
                    [](const std::optional<Error> &error) { QVERIFY(!error); });
    }
    QList<VistrelService::RecordedRequest> requests(const QString &method) const
    {
        QList<VistrelService::RecordedRequest> result;
        for (const auto &request : service.requests(messagePath)) {
            if (request.method == method)
                result.append(request);
        }
        return result;
    }
    qsizetype count(const QString &method) const { return requests(method).size(); }
    QStringList tags() const
    {
        QStringList result;
        if (const auto *visit = service.visit(visitId())) {
            for (const auto &report : visit->reports())
                result.append(QString::fromStdString(report.message.tag()));
        }
        return result;
    }

    XhrMessageSender sender{config.get(), initSender.get(), api.get(), http.get(), parser.get()};
    LogCapture log;
};
} // namespace

class tst_XhrMessageSender : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void url_data();
    void url();
    void skipsEmptyFlushesAndBatchesInOrder();
    void reportAppendedDuringPostIsLost();
    void failedRequestEndsTheLoop_data();
    void failedRequestEndsTheLoop();
    void stopFlushesOnceMoreAndDeletesTheVisit();
    void replies_data();
    void replies();
};

void tst_XhrMessageSender::url_data()
{
    QTest::addColumn<bool>("visit");
    QTest::addColumn<QString>("screen");
    QTest::addColumn<QString>("expected");
    const QString base = u"http://host.example:1/api/ix/m?"_s;
    QTest::newRow("visit") << true << u"Main"_s
                           << base + u"id=V&sId=S&tId=T&vId=R&url=Main&fsTy=l"_s;
    // The service reads the values as the device wrote them.
    QTest::newRow("screen name unescaped")
        << true << u"a&b c%41"_s << base + u"id=V&sId=S&tId=T&vId=R&url=a&b c%41&fsTy=l"_s;
    QTest::newRow("nothing known")
        << false << QString() << base + u"id=&sId=&tId=&vId=&url=&fsTy="_s;
}

void tst_XhrMessageSender::url()
{
    QFETCH(bool, visit);
    QFETCH(QString, screen);
    QFETCH(QString, expected);
    TestConfig::use(u"host.example:1"_s);
    ApplicationConfig config;
    config.hostname = u"host.example:1"_s;
    if (visit) {
        config.tenantId = u"T"_s;
        config.visitConfig = {u"R"_s, u"V"_s, u"S"_s, std::nullopt};
        config.vistrelConfig.storageType = u"l"_s;
    }
    QCOMPARE(XhrSender::buildUrl(config, screen), expected);
}

void tst_XhrMessageSender::skipsEmptyFlushesAndBatchesInOrder()
{
    Fixture f;
    // This transport has no connection to report on: the callbacks are never called.
    int callbacks = 0;
    f.sender.start(
        u"Main"_s, [&callbacks] { ++callbacks; }, [&callbacks] { ++callbacks; });
    QTRY_COMPARE(f.sender.currentInterval(), 0.1);
    QTest::qWait(600); // several flush cycles with nothing queued
    QCOMPARE(f.count(u"POST"_s), 0);

    // Queued in one go, before the next flush: one POST carries all three, in order.
    for (const QString &text : {u"first"_s, u"second"_s, u"third"_s})
        f.queue(text);
    QVERIFY(f.service.waitForReports(f.visitId(), 3));
    QCOMPARE(f.tags(), (QStringList{u"first"_s, u"second"_s, u"third"_s}));
    QCOMPARE(f.count(u"POST"_s), 1);
    QCOMPARE(f.service.visit(f.visitId())->reports().first().url, u"Main"_s);
    QTRY_COMPARE(f.sender.queueSize(), 0);
    QCOMPARE(callbacks, 0);
}

void tst_XhrMessageSender::reportAppendedDuringPostIsLost()
{
    Fixture f;
    bool appended = false;
    // The POST line is logged while the POST is being issued: queue a report right then.
    Log::setListener([&](const QString &line) {
        if (!appended && line.startsWith(u"[DEBUG] HttpUtil: POST "_s)) {
            appended = true;
            f.queue(u"in flight"_s);
        }
    });
    f.queue(u"batched"_s);
    f.sender.start(u"Main"_s, nullptr, nullptr);
    QTRY_VERIFY(appended);
    QVERIFY(f.service.waitForReports(f.visitId(), 1));
    QTRY_COMPARE(f.sender.queueSize(), 0);

    // Reports go out in order, so once "after" arrived "in flight" would have too.
    f.queue(u"after"_s);
    QVERIFY(f.service.waitForReports(f.visitId(), 2));
    QCOMPARE(f.tags(), (QStringList{u"batched"_s, u"after"_s}));
}

void tst_XhrMessageSender::failedRequestEndsTheLoop_data()
{
    QTest::addColumn<QString>("method");
    QTest::newRow("channel open fails") << u"GET"_s;
    QTest::newRow("post fails") << u"POST"_s;
}

void tst_XhrMessageSender::failedRequestEndsTheLoop()
{
    QFETCH(QString, method);
    Fixture f;
    f.service.setCannedReply(method, messagePath, CannedReply::dropped());
    f.queue(u"doomed"_s);
    f.sender.start(u"Main"_s, nullptr, nullptr);
    QTRY_VERIFY(f.log.contains(u"[ERROR] XhrMessageSender: Request failed"_s));
    // Qt may retry a dropped POST once on a new connection before giving up.
    const qsizetype attempts = f.count(u"POST"_s);
    QCOMPARE(attempts > 0, method == u"POST"_s);

    // The service recovers, but the loop has ended: send() still succeeds and reports pile up.
    f.service.clearCannedReplies();
    f.queue(u"queued"_s);
    QTest::qWait(500);
    QCOMPARE(f.count(u"POST"_s), attempts);
    QCOMPARE(f.sender.queueSize(), 2);
}

void tst_XhrMessageSender::stopFlushesOnceMoreAndDeletesTheVisit()
{
    Fixture f;
    f.sender.start(u"Main"_s, nullptr, nullptr);
    QTRY_COMPARE(f.sender.currentInterval(), 0.1);
    // A flush is armed now; the report queued with stop() still goes out with it.
    f.queue(u"last words"_s);
    f.sender.stop();
    QVERIFY(f.service.waitForReports(f.visitId(), 1));
    QTRY_VERIFY(f.log.contains(u"[DEBUG] MessageSender: Delete sent"_s));
    QCOMPARE(f.count(u"DELETE"_s), 1);
    QCOMPARE(f.requests(u"DELETE"_s).first().queryValue(u"id"_s), f.visitId());

    f.queue(u"too late"_s);
    QTest::qWait(500);
    QCOMPARE(f.count(u"POST"_s), 1);
    QCOMPARE(f.tags(), QStringList{u"last words"_s});
}

void tst_XhrMessageSender::replies_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("handled");
    QTest::addColumn<bool>("warns");

    QTest::newRow("empty array") << "[]"_ba << 0 << false;
    QTest::newRow("one click") << R"(["[{\"x\":300,\"y\":600}]"])"_ba << 1 << false;
    QTest::newRow("a number ends silently") << R"([42, "[{\"a\":\"c\"}]"])"_ba << 0 << false;
    QTest::newRow("not an array") << R"({"x":1,"y":2})"_ba << 0 << false;
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
    Fixture f;
    f.service.setCannedReply(u"POST"_s, messagePath, CannedReply{{200, body}});
    f.queue(u"x"_s);
    f.sender.start(u"Main"_s, nullptr, nullptr);
    // The reply is read in the same step that empties the queue.
    QTRY_COMPARE(f.sender.queueSize(), 0);
    QCOMPARE(f.commands.size(), handled);
    // The command object itself reached the parser.
    if (body.contains("300"))
        QCOMPARE(f.commands.first().click, std::optional(BidirectionalMessage::Click{300, 600}));
    else if (handled)
        QCOMPARE(f.commands.first().stop, std::optional(true));
    QCOMPARE(f.log.contains(u"[WARNING] XhrMessageSender: Cannot parse message"_s), warns);

    // Whatever the reply, the loop goes on.
    f.queue(u"y"_s);
    QVERIFY(f.service.waitFor([&f] { return f.count(u"POST"_s) == 2; }));
}

QTEST_MAIN(tst_XhrMessageSender)
#include "tst_xhrmessagesender.moc"
