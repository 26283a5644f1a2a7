// What the web chat costs: the time from WebChat::open() to the chat page loaded (the first open
// starts Qt WebEngine's processes, later ones reuse them) and the memory the chat adds while it is
// open and after it closed, this process and Qt WebEngine's child processes together. The
// baseline is a bare QWebEngineView loading the same page: no configuration request, no script
// messages.
#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "BenchService.h"
#include "Config/ApplicationConfigWrapper.h"
#include "ProcessMemory.h"
#include "WebChat/ChatPage.h"
#include "WebChat/ChatView.h"
#include "WebChat/WebChat.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QWebEngineView>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
constexpr int Rounds = 5;

struct Figures
{
    double firstMs = 0;
    double laterMs = 0;
    qint64 beforeMiB = 0;
    qint64 openMiB = 0;
    qint64 closedMiB = 0;
};

void print(const char *what, double kit, double baseline, const char *unit)
{
    std::printf("%-34s %10.1f %10.1f %s\n", what, kit, baseline, unit);
}
} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    BenchService bench;
    if (!bench.start())
        return 1;
    ServiceHost &host = bench.host;
    ApplicationConfigWrapper wrapper;
    wrapper.config().tenantId = u"tenant"_s;
    wrapper.config().activeUserTag.emplace().id = u"visitor"_s;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http, &host);
    WebChat webChat(&wrapper, &api, &host);
    QWidget window;
    window.resize(400, 700);
    window.show();

    // The kit: open, wait for the page, close.
    Figures kit;
    kit.beforeMiB = ProcessMemory::residentMiB();
    for (int round = 0; round < Rounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        webChat.open(&window, u"tenant"_s);
        if (!QTest::qWaitFor([&] { return WebChat::chatViewOf(&window); }, 30000))
            return 1;
        ChatView *view = WebChat::chatViewOf(&window);
        bool loaded = false;
        QObject::connect(view->page(), &QWebEnginePage::loadFinished,
                         [&](bool ok) { loaded = ok; });
        if (!QTest::qWaitFor([&] { return loaded; }, 30000))
            return 1;
        const double ms = clock.nsecsElapsed() / 1e6;
        (round == 0 ? kit.firstMs : kit.laterMs) += round == 0 ? ms : ms / (Rounds - 1);
        if (round == 0)
            kit.openMiB = ProcessMemory::residentMiB();
        view->remove();
        if (!QTest::qWaitFor([&] { return !WebChat::chatViewOf(&window); }, 5000))
            return 1;
    }
    kit.closedMiB = ProcessMemory::residentMiB();

    // The baseline: a bare web view with the same page, in the same (now warm) process.
    Figures bare;
    const QUrl page(ChatView::chatUrl(host.cdnPath(), host.server(), 0, u"tenant"_s, u"visitor"_s,
                                      std::nullopt));
    bare.beforeMiB = kit.closedMiB;
    for (int round = 0; round < Rounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        auto *view = new QWebEngineView(&window);
        view->setGeometry(window.rect());
        view->show();
        bool loaded = false;
        QObject::connect(view->page(), &QWebEnginePage::loadFinished,
                         [&](bool ok) { loaded = ok; });
        view->load(page);
        if (!QTest::qWaitFor([&] { return loaded; }, 30000))
            return 1;
        const double ms = clock.nsecsElapsed() / 1e6;
        (round == 0 ? bare.firstMs : bare.laterMs) += round == 0 ? ms : ms / (Rounds - 1);
        if (round == 0)
            bare.openMiB = ProcessMemory::residentMiB();
        delete view;
    }
    bare.closedMiB = ProcessMemory::residentMiB();

    std::printf("%-34s %10s %10s\n", "web chat, offscreen, loopback", "kit", "bare view");
    print("open to loaded, first (ms)", kit.firstMs, bare.firstMs, "(bare: engine already up)");
    print("open to loaded, later (ms)", kit.laterMs, bare.laterMs, "");
    print("memory before (MiB)", double(kit.beforeMiB), double(bare.beforeMiB), "");
    print("memory while open (MiB)", double(kit.openMiB), double(bare.openMiB), "");
    print("memory after close (MiB)", double(kit.closedMiB), double(bare.closedMiB), "");
    return 0;
}
