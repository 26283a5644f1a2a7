// What a video call costs: the time from join() to the first queue position at the device (the
// channel poll at the co-browsing listener's 3 s rate, as a host runs it after initConfig), from
// start() to the meeting page loaded in the call view (the stand-in meeting over HTTPS), and the
// memory an open call view adds, this process and Qt WebEngine's children together. The baseline
// is a bare QWebEngineView loading the same meeting page.
//
// Needs the test authority: run it with HOME and VISTREL_TEST_TLS_DIR as the tests do, e.g.
//   tests/tls/make-test-authority.sh /tmp/tls
//   HOME=/tmp/tls/home VISTREL_TEST_TLS_DIR=/tmp/tls build/release/bench/bench_conference
#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "BenchService.h"
#include "Communication/Communication.h"
#include "Conference.h"
#include "Config/ApplicationConfigWrapper.h"
#include "ProcessMemory.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QWebEngineView>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    BenchService bench;
    if (!bench.start(qEnvironmentVariable("VISTREL_TEST_TLS_DIR")))
        return 1;
    VistrelService::LocalService &service = bench.service;
    ServiceHost &host = bench.host;
    ApplicationConfigWrapper wrapper;
    wrapper.config().tenantId = u"tenant"_s;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http, &host);
    Communication communication(&api, &wrapper);
    // The co-browsing start listener that Orvane::initConfig registers sets the poll's pace.
    communication.registerClient(
        RegisteredClient{u"startCoBrowsing"_s, CommunicationChannel::SCB, 3.0, {}, {}, {}});
    Conference conference(&api, &wrapper, &communication);
    QWidget window;
    window.resize(480, 640);
    window.show();

    ConferenceProperties customer;
    customer.customerId = u"c1"_s;
    customer.displayName = u"Customer"_s;
    QElapsedTimer clock;
    clock.start();
    bool positioned = false;
    conference.setQueueStatusCallback(u"c1"_s, [&](int) { positioned = true; });
    conference.join(customer);
    if (!QTest::qWaitFor([&] { return positioned; }, 30000))
        return 1;
    const double joinMs = clock.nsecsElapsed() / 1e6;

    const qint64 beforeMiB = ProcessMemory::residentMiB();
    clock.restart();
    conference.start(customer);
    if (!service.waitFor([&] { return !service.meetings().isEmpty(); }, 60000))
        return 1;
    const double startMs = clock.nsecsElapsed() / 1e6;
    const qint64 openMiB = ProcessMemory::residentMiB();
    conference.conferenceTerminated();
    const qint64 closedMiB = ProcessMemory::residentMiB();

    // The baseline: the same meeting page in a bare view, the engine now warm.
    const QString room = Conference::roomName(u"tenant"_s, u"c1"_s);
    const qsizetype meetings = service.meetings().size();
    clock.restart();
    auto *view = new QWebEngineView(&window);
    view->setGeometry(window.rect());
    view->show();
    view->load(QUrl(u"https://%1/%2"_s.arg(service.tlsHostAndPort(), room)));
    if (!service.waitFor([&] { return service.meetings().size() > meetings; }, 60000))
        return 1;
    const double bareMs = clock.nsecsElapsed() / 1e6;
    const qint64 bareOpenMiB = ProcessMemory::residentMiB();
    delete view;

    std::printf("%-40s %10s %10s\n", "video call, offscreen, loopback", "kit", "bare view");
    std::printf("%-40s %10.1f %10s\n", "join to first queue position (ms)", joinMs, "-");
    std::printf("%-40s %10.1f %10.1f %s\n", "start to meeting page reported (ms)", startMs, bareMs,
                "(bare: engine already up)");
    std::printf("%-40s %10lld %10lld\n", "memory before the call (MiB)", beforeMiB, closedMiB);
    std::printf("%-40s %10lld %10lld\n", "memory while in the call (MiB)", openMiB, bareOpenMiB);
    std::printf("%-40s %10lld %10s\n", "memory after the call (MiB)", closedMiB, "-");
    return 0;
}
