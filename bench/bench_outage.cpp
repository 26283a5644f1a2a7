// What a lost report channel costs: ten minutes of an active screen (3 screenshots of 100 KB a
// second, a ping a second, a tap every 10 s) while every request to the service fails, then the
// service comes back. The kit holds the reports within the visit size budget and sends only the
// newest screenshot on return; the baseline holds them all, as the report loop did when a failed
// POST ended it. Memory is this process's resident size above what it was before the outage.
#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "BenchService.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Platform/WidgetScreen.h"
#include "ProcessMemory.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
constexpr int OutageSeconds = 600;
constexpr int ScreenshotsPerSecond = 3;
constexpr qsizetype ScreenshotBytes = 100 * 1024;
const QString channelPath = u"/api/ix/m"_s;

QByteArray incompressible(quint32 seed)
{
    QByteArray bytes(ScreenshotBytes, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    generator.fillRange(reinterpret_cast<quint32 *>(bytes.data()), bytes.size() / 4);
    return bytes;
}

/// The outage's reports in the order a screen produces them, handed to sink one by one.
template<typename Sink>
void produceOutage(Sink sink)
{
    const QByteArray image = incompressible(7);
    for (int second = 0; second < OutageSeconds; ++second) {
        for (int shot = 0; shot < ScreenshotsPerSecond; ++shot) {
            // Each frame differs, as a changing screen's do.
            QByteArray frame = image;
            frame.replace(0, 4, QByteArray::number(second * ScreenshotsPerSecond + shot));
            sink(MessageSender::screenshotReport(frame, 0));
        }
        sink(MessageSender::pingReport(0));
        if (second % 10 == 0)
            sink(MessageSender::clickReport(second, second, 0));
        if (second % 20 == 0)
            QCoreApplication::processEvents(); // the retries run meanwhile
    }
}

void print(const char *what, double kit, double baseline, const char *unit)
{
    std::printf("%-44s %12.1f %12.1f %s\n", what, kit, baseline, unit);
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    BenchService bench;
    if (!bench.start())
        return 1;
    VistrelService::LocalService &service = bench.service;
    ServiceHost &host = bench.host;
    ApplicationConfigWrapper wrapper;
    wrapper.config().tenantId = u"tenant"_s;
    wrapper.newVisit(std::nullopt);
    wrapper.config().vistrelConfig.newShareIdAndStartTime();
    wrapper.config().vistrelConfig.storageType = u"l"_s;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http, &host);
    InitSender initSender(&wrapper, &api);
    BidirectionalMessageParser parser;
    WidgetScreen platform;
    XhrMessageSender sender(&wrapper, &initSender, &api, &http, &parser, &platform);
    const QString visitId = *wrapper.config().visitConfig.visitId;

    sender.start(u"Main"_s, nullptr, nullptr);
    if (!QTest::qWaitFor([&] { return sender.currentInterval() > 0; }, 10000))
        return 1;
    for (const QString &method : {u"GET"_s, u"POST"_s})
        service.setCannedReply(method, channelPath, VistrelService::CannedReply::dropped());
    sender.send(u"Main"_s, MessageSender::tagReport(u"before"_s, 0),
                [](const std::optional<Error> &) {});
    if (!QTest::qWaitFor([&] { return sender.isConnectionLost(); }, 10000))
        return 1;

    const qint64 kitBefore = ProcessMemory::residentKiB(u"self"_s);
    qint64 dropped = 0;
    produceOutage([&](const ProtoMessage &report) {
        const qsizetype before = sender.queueSize();
        sender.send(u"Main"_s, report, [](const std::optional<Error> &) {});
        dropped += before + 1 - sender.queueSize();
    });
    const qint64 kitKiB = ProcessMemory::residentKiB(u"self"_s) - kitBefore;
    const double heldMiB = double(sender.queueBytes()) / (1024 * 1024);

    // The service is back: the next retry reopens the channel.
    const int retryDelayMs = sender.retryDelayMs();
    service.clearCannedReplies();
    QElapsedTimer clock;
    clock.start();
    if (!QTest::qWaitFor([&] { return !sender.isConnectionLost(); }, 60000))
        return 1;
    const double reopenedMs = double(clock.elapsed());
    const auto delivered = [&] {
        const VistrelService::Visit *visit = service.visit(visitId);
        return visit ? visit->reports().size() : 0;
    };
    if (!QTest::qWaitFor([&] { return sender.queueSize() == 0 && delivered() > 0; }, 60000))
        return 1;
    qsizetype screenshots = 0;
    for (const auto &report : service.visit(visitId)->reports())
        screenshots += report.message.screenshotevent_size();

    // The baseline, after the kit so that memory the kit freed cannot hide its growth.
    const qint64 baselineBefore = ProcessMemory::residentKiB(u"self"_s);
    qint64 baselineBytes = 0;
    QList<ProtoMessage> held;
    produceOutage([&](const ProtoMessage &report) {
        baselineBytes += qint64(report.ByteSizeLong());
        held.append(report);
    });
    const qint64 baselineKiB = ProcessMemory::residentKiB(u"self"_s) - baselineBefore;

    std::printf("%-44s %12s %12s\n", "report channel down for 10 min", "kit", "held all");
    print("reports held at the end (MiB)", heldMiB, double(baselineBytes) / (1024 * 1024), "");
    print("memory above the start (MiB)", double(kitKiB) / 1024, double(baselineKiB) / 1024, "");
    print("reports dropped (screenshots, pings)", double(dropped), 0, "");
    print("service back to channel reopened (ms)", reopenedMs, 0, "");
    std::printf("%-44s %12d\n", "  (retry delay at that moment, ms)", retryDelayMs);
    print("reports delivered after the outage", double(delivered()), 0, "");
    print("  of them screenshots", double(screenshots), 0, "");
    return 0;
}
