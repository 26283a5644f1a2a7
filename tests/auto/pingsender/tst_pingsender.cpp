#include "LogCapture.h"
#include "Network/PingSender.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "TransportFixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

class tst_PingSender : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void oncePerSecondWithWholeSecondTimes();
    void failuresAreLoggedAndTheTimerGoesOn();
};

void tst_PingSender::oncePerSecondWithWholeSecondTimes()
{
    TransportFixture f;
    XhrMessageSender sender(f.config.get(), f.initSender.get(), f.api.get(), f.http.get(),
                            f.parser.get());
    PingSender ping(f.config.get());
    sender.start(u"Main"_s, nullptr, nullptr);
    ping.start(&sender);
    QVERIFY(f.service.waitForReports(f.visitId(), 4, 8000));
    ping.stop();
    QVERIFY(!ping.isRunning());

    const auto reports = f.service.visit(f.visitId())->reports();
    const qint64 startTime = f.startTime();
    for (const auto &report : reports) {
        // Only the time is set; it is whole seconds since 1970, times 1000, minus the start.
        QVERIFY(report.message.has_time());
        QVERIFY(!report.message.has_pagechange() && !report.message.has_tag());
        QCOMPARE(report.message.screenshotevent_size() + report.message.clickevent_size(), 0);
        const qint64 time = qint64(report.message.time());
        QCOMPARE((time + startTime) % 1000, 0);
        const qint64 arrival = report.receivedAt.toMSecsSinceEpoch() - startTime;
        QVERIFY2(time <= arrival && time > arrival - 2000,
                 qPrintable(QString::number(arrival - time)));
    }
    // One per second: consecutive times 1000 apart, give or take the truncation to seconds.
    const qint64 first = qint64(reports.first().message.time());
    const qint64 last = qint64(reports.last().message.time());
    const qint64 span = last - first;
    QVERIFY2(span >= 1000 * (reports.size() - 2) && span <= 1000 * reports.size(),
             qPrintable(QString::number(span)));

    // Stopped: no more pings.
    const qsizetype count = f.service.visit(f.visitId())->reports().size();
    QTest::qWait(1500);
    QCOMPARE(f.service.visit(f.visitId())->reports().size(), count);
}

void tst_PingSender::failuresAreLoggedAndTheTimerGoesOn()
{
    // A WebSocket sender that never connected fails every ping.
    TransportFixture f;
    WebSocketMessageSender sender(f.config.get(), f.initSender.get(), f.api.get(), f.http.get(),
                                  f.parser.get());
    LogCapture capture;
    PingSender ping(f.config.get());
    ping.start(&sender);
    const QString failure =
        u"[WARNING] PingSender: Ping sending failed: StringError(mMsg: \"No socket found\")"_s;
    QTRY_COMPARE_WITH_TIMEOUT(capture.count(failure), 2, 4000);
    QCOMPARE(capture.count(u"[DEBUG] PingSender: Execute ping interval task"_s), 2);
}

QTEST_MAIN(tst_PingSender)
#include "tst_pingsender.moc"
