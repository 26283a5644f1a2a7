#pragma once

#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "TestConfig.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QTest>
#include <QWidget>

/// The kit as a host runs it: the process-wide container against a local service, bound to a
/// tenant, with a shown window. A suite inherits it after QObject and calls setUp() first.
struct SessionFixture
{
    // Waits end as soon as their condition holds; a loaded machine under a sanitizer is slow.
    static constexpr int patience = 30000;
    using Report = VistrelService::Report;

    bool setUp()
    {
        using namespace VistrelKit;
        using namespace Qt::StringLiterals;
        // Before the container is built: its configuration reads the host once.
        TestConfig::use(service.start() ? service.hostAndPort() : QString());
        OrvaneVistrel *v = Orvane::vistrel();
        OrvaneCoBrowsing *c = Orvane::coBrowsing();
        const auto note = [this](const QString &text) { return [this, text] { heard << text; }; };
        QObject::connect(v, &OrvaneVistrel::started, &service, note(u"started"_s));
        QObject::connect(v, &OrvaneVistrel::stopped, &service, note(u"stopped"_s));
        QObject::connect(c, &OrvaneCoBrowsing::started, &service, note(u"co-browsing started"_s));
        QObject::connect(c, &OrvaneCoBrowsing::ended, &service, note(u"co-browsing ended"_s));
        QObject::connect(v, &OrvaneVistrel::startFailed, &service,
                         [this](const QString &e) { heard << u"failed "_s + e; });
        QObject::connect(v, &OrvaneVistrel::connectedChanged, &service, [this](bool on) {
            heard << u"connected "_s + (on ? u"true"_s : u"false"_s);
        });
        QObject::connect(v, &OrvaneVistrel::shareIdChanged, &service, [=, this](const QString &id) {
            heard << (!id.isEmpty() && id == v->shareId() ? u"shareId"_s : u"shareId "_s + id);
        });
        window.resize(360, 640);
        window.show();
        return service.port() && QTest::qWaitForWindowActive(&window) &&
               Orvane::initConfig(u"tenant-1"_s, u"token-1"_s);
    }

    template<class T>
    static T *resolve()
    {
        return VistrelKit::Kit::container().resolve<T>();
    }
    static VistrelKit::ApplicationConfig &config()
    {
        return resolve<VistrelKit::ApplicationConfigWrapper>()->config();
    }
    static QString currentVisit() { return config().visitConfig.visitId.value_or(QString()); }
    static bool running() { return resolve<VistrelKit::Vistrel>()->isRunning(); }
    static bool isScreenshot(const Report &r) { return r.message.screenshotevent_size() > 0; }

    /// The host's start; the visit id once the service saw it open, else empty.
    QString startSession()
    {
        VistrelKit::Orvane::vistrel()->start();
        const QString visit = currentVisit();
        return service.waitForVisitOpen(visit, patience) ? visit : QString();
    }
    /// Until the device deleted the visit it opened.
    bool waitForEnd(const QString &visit, int timeoutMs = patience)
    {
        using State = VistrelService::Visit::State;
        const auto ended = [&] { return service.visit(visit)->state() == State::Ended; };
        return service.waitFor([&] { return service.visit(visit) && ended(); }, timeoutMs);
    }
    bool waitForScreenshot(const QString &visit)
    {
        return service.waitForReports(
            visit, [](const auto &reports) { return std::ranges::any_of(reports, isScreenshot); },
            patience);
    }

    VistrelService::LocalService service;
    QWidget window;
    LogCapture log;
    /// What the host heard from the facades' signals, in order (see setUp()).
    QStringList heard;
};
