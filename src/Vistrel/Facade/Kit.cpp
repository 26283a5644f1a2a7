#include "Facade/Kit.h"

#include "Api/HealthCheck.h"
#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "Api/UIStrings.h"
#include "Communication/Communication.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/ServiceHost.h"
#include "Monitoring/ViewMonitor.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/MessageSenderManager.h"
#include "Network/PingSender.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Platform/QuickScreen.h"
#include "Platform/Screens.h"
#include "Platform/WidgetScreen.h"
#include "Session/BidirectionalMessageHandler.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "User/User.h"
#include "WebChat/WebChat.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>
#include <Vistrel/OrvaneWebChat.h>

using namespace Qt::StringLiterals;

namespace VistrelKit {

Injection &Kit::container()
{
    // Never destroyed: the kit's objects live as long as the process.
    static Injection *container = [] {
        auto *instance = new Injection;
        registerKit(*instance);
        return instance;
    }();
    return *container;
}

namespace {
// Builds T with from<T, Deps...>(args...), then lets wire() connect it; nothing when T cannot be
// built.
template<class T, class... Deps, class Wire, class... Args>
Injection::Factory<T> wired(Wire wire, Args... args)
{
    return [wire, build = Injection::from<T, Deps...>(args...)](
               Injection &container) -> std::unique_ptr<T> {
        std::unique_ptr<T> object = build(container);
        if (object)
            wire(container, object.get());
        return object;
    };
}
} // namespace

void Kit::registerKit(Injection &container)
{
    // In the order of the service's other kits.
    container.registerSingleton<ApplicationConfigWrapper>(
        Injection::from<ApplicationConfigWrapper>());
    container.registerSingleton<OrvaneAPI>(Injection::from<OrvaneAPI, HttpUtil, ServiceHost>());
    container.registerSingleton<WebChat>(
        wired<WebChat, ApplicationConfigWrapper, OrvaneAPI, ServiceHost>(
            [](Injection &, WebChat *webChat) {
                OrvaneWebChat *facade = Orvane::webChat();
                QObject::connect(webChat, &WebChat::opened, facade, &OrvaneWebChat::opened);
                QObject::connect(webChat, &WebChat::closed, facade, &OrvaneWebChat::closed);
            }));
    container.registerSingleton<Vistrel>(
        wired<Vistrel, InitSender, MessageSenderManager, ViewMonitor, ApplicationConfigWrapper,
              PingSender, HealthCheck, ScreenPlatform>([](Injection &, Vistrel *vistrel) {
            OrvaneVistrel *facade = Orvane::vistrel();
            QObject::connect(vistrel, &Vistrel::started, facade, &OrvaneVistrel::started);
            QObject::connect(vistrel, &Vistrel::startFailed, facade, &OrvaneVistrel::startFailed);
            QObject::connect(vistrel, &Vistrel::stopped, facade, &OrvaneVistrel::stopped);
            QObject::connect(vistrel, &Vistrel::connectedChanged, facade,
                             &OrvaneVistrel::connectedChanged);
            QObject::connect(vistrel, &Vistrel::shareIdChanged, facade,
                             &OrvaneVistrel::shareIdChanged);
            QObject::connect(vistrel, &Vistrel::connectionLost, facade,
                             &OrvaneVistrel::connectionLost);
            QObject::connect(vistrel, &Vistrel::connectionRestored, facade,
                             &OrvaneVistrel::connectionRestored);
        }));
    container.registerSingleton<InitSender>(
        Injection::from<InitSender, ApplicationConfigWrapper, OrvaneAPI>());
    container.registerSingleton<MessageSenderManager>(
        Injection::from<MessageSenderManager, WebSocketMessageSender, XhrMessageSender,
                        ApplicationConfigWrapper, HealthCheck>());
    container.registerSingleton<XhrMessageSender>(
        Injection::from<XhrMessageSender, ApplicationConfigWrapper, InitSender, OrvaneAPI, HttpUtil,
                        BidirectionalMessageParser, ScreenPlatform>());
    container.registerSingleton<WebSocketMessageSender>(
        Injection::from<WebSocketMessageSender, ApplicationConfigWrapper, InitSender, OrvaneAPI,
                        HttpUtil, BidirectionalMessageParser, ScreenPlatform>());
    container.registerSingleton<ViewMonitor>(
        Injection::from<ViewMonitor, ApplicationConfigWrapper, ScreenPlatform>());
    container.registerSingleton<PingSender>(
        Injection::from<PingSender, ApplicationConfigWrapper>());
    container.registerSingleton<BidirectionalMessageParser>(
        wired<BidirectionalMessageParser>([](Injection &c, BidirectionalMessageParser *parser) {
            // The handler needs the session, which needs the transports, which need the parser:
            // it is built when the first command arrives, once the session runs.
            QObject::connect(parser, &BidirectionalMessageParser::messageReceived, parser,
                             [&c](const BidirectionalMessage &message) {
                                 if (auto *handler = c.resolveOrLog<BidirectionalMessageHandler>())
                                     handler->handle(message);
                             });
        }));
    container.registerSingleton<BidirectionalMessageHandler>(
        Injection::from<BidirectionalMessageHandler, ApplicationConfigWrapper, UIStrings, Vistrel,
                        CoBrowsing, ScreenPlatform>());
    container.registerSingleton<HealthCheck>(
        Injection::from<HealthCheck, ApplicationConfigWrapper, OrvaneAPI>());
    container.registerSingleton<HttpUtil>(Injection::from<HttpUtil, ApplicationConfigWrapper>());
    container.registerSingleton<CoBrowsing>(
        wired<CoBrowsing, Vistrel, UIStrings, ApplicationConfigWrapper, Communication,
              ScreenPlatform>([](Injection &c, CoBrowsing *coBrowsing) {
            auto *vistrel = c.resolve<Vistrel>(); // built already, as a dependency
            // The widget has no meaning without the session it shows the id of.
            QObject::connect(vistrel, &Vistrel::stopped, coBrowsing, &CoBrowsing::stop);
            QObject::connect(vistrel, &Vistrel::chatAvailabilityChanged, coBrowsing,
                             &CoBrowsing::setChatAvailable);
            // The widget's chat button opens the tenant's chat over the topmost window.
            QObject::connect(coBrowsing, &CoBrowsing::chatRequested, coBrowsing,
                             [&c](const QString &tenantId) {
                                 if (auto *webChat = c.resolveOrLog<WebChat>())
                                     webChat->openOnTopWindow(tenantId);
                             });
            OrvaneCoBrowsing *facade = Orvane::coBrowsing();
            QObject::connect(coBrowsing, &CoBrowsing::started, facade, &OrvaneCoBrowsing::started);
            QObject::connect(coBrowsing, &CoBrowsing::ended, facade, &OrvaneCoBrowsing::ended);
        }));
    container.registerSingleton<UIStrings>(Injection::from<UIStrings, OrvaneAPI>());
    container.registerSingleton<User>(
        Injection::from<User, ApplicationConfigWrapper, Vistrel, WebChat, OrvaneAPI, CoBrowsing>());
    container.registerSingleton<Communication>(
        Injection::from<Communication, OrvaneAPI, ApplicationConfigWrapper>());
    container.registerSingleton<ServiceHost>(Injection::from<ServiceHost>());
    // Widgets and Qt Quick side by side: a host may show either, or both.
    container.registerSingleton<ScreenPlatform>([](Injection &) -> std::unique_ptr<ScreenPlatform> {
        return std::make_unique<Screens>(new WidgetScreen, new QuickScreen);
    });
}

} // namespace VistrelKit
