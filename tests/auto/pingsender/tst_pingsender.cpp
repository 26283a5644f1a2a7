#include "LogCapture.h"
#include "Network/PingSender.h"
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
};

void tst_PingSender::oncePerSecondWithWholeSecondTimes()
{
    TransportFixture f;
    XhrMessageSender sender(f.config.get(), f.initSender.get(), f.api.get(), f.http.get(),
                            f.parser.get());
    PingSender ping(f.config.get());
    sender.start(u"Main"_s, nullptr, nullptr);
    ping.start(&sender);
    QVERIFY(f.service.waitForReports(f.visitId(), 5, 30000));
    ping.stop();

    const auto reports = f.service.visit(f.visitId())->reports();
    for (const auto &report : reports) {
        // Whole seconds since 1970, times 1000, minus the start.
        const qint64 time = qint64(report.message.time());
        QCOMPARE((time + f.startTime()) % 1000, 0);
        const qint64 arrival = report.receivedAt.toMSecsSinceEpoch() - f.startTime();
        QVERIFY(time <= arrival && time > arrival - 60000);
    }
    // One a second: n pings span n - 1 seconds, give or take one for the truncation and for a
    // coarse timer firing a little early or late.
    const qint64 span = qint64(reports.last().message.time() - reports.first().message.time());
    QVERIFY2(span >= 1000 * (reports.size() - 2) && span <= 1000 * reports.size(),
             qPrintable(QString::number(span)));

    // Neither the stopped timer nor a start stopped in the same turn pings again.
    LogCapture log;
    ping.start(&sender);
    ping.stop();
    QTest::qWait(2500);
    QCOMPARE(log.count(u"Execute ping interval task"_s), 0);
}

QTEST_MAIN(tst_PingSender)
#include "tst_pingsender.moc"
