#include "Core/Injection.h"

#include "Api/HealthCheck.h"
#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "CoBrowsing/CoBrowsing.h"
#include "Communication/Communication.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/UIStrings.h"
#include "Init/InitSender.h"
#include "Monitoring/ViewMonitor.h"
#include "Network/Bidirectional/BidirectionalMessageHandler.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/MessageSenderManager.h"
#include "Network/PingSender.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Vistrel/Vistrel.h"

namespace VistrelKit {

Injection::~Injection()
{
    // Dependents were created after their dependencies, so they go first.
    for (auto it = m_creationOrder.rbegin(); it != m_creationOrder.rend(); ++it)
        m_entries[*it].instance.reset();
}

Injection &Injection::getContainer()
{
    // Never destroyed: services live as long as the process.
    static Injection *container = [] {
        auto *instance = new Injection;
        registerKit(*instance);
        return instance;
    }();
    return *container;
}

void *Injection::resolveEntry(std::type_index type)
{
    const auto it = m_entries.find(type);
    if (it == m_entries.end())
        return nullptr;
    if (it->second.instance)
        return it->second.instance.get();
    if (it->second.building)
        return nullptr; // a dependency cycle: report failure rather than recurse forever
    it->second.building = true;
    std::shared_ptr<void> instance = it->second.factory(*this);
    // The factory may have added entries, so look the entry up again.
    Entry &entry = m_entries[type];
    entry.building = false;
    if (!instance)
        return nullptr;
    entry.instance = std::move(instance);
    m_creationOrder.push_back(type);
    return entry.instance.get();
}

QString Injection::unqualified(const char *className)
{
    const QString name = QString::fromLatin1(className);
    const qsizetype colon = name.lastIndexOf(QLatin1StringView("::"));
    return colon < 0 ? name : name.mid(colon + 2);
}

namespace {
// Builds T from resolved dependencies, or fails when any of them cannot be resolved.
template<class T, class... Deps>
Injection::Factory<T> from()
{
    return [](Injection &container) -> std::unique_ptr<T> {
        std::tuple<Deps *...> deps{container.resolve<Deps>()...};
        const bool complete = std::apply([](auto *...d) { return ((d != nullptr) && ...); }, deps);
        if (!complete)
            return nullptr;
        return std::apply([](auto *...d) { return std::make_unique<T>(d...); }, deps);
    };
}
} // namespace

void Injection::registerKit(Injection &container)
{
    container.registerSingleton<ApplicationConfigWrapper>(from<ApplicationConfigWrapper>());
    container.registerSingleton<OrvaneAPI>(from<OrvaneAPI, HttpUtil>());
    container.registerSingleton<InitSender>(
        from<InitSender, ApplicationConfigWrapper, OrvaneAPI>());
    container.registerSingleton<Vistrel>(
        from<Vistrel, InitSender, MessageSenderManager, ViewMonitor, ApplicationConfigWrapper,
             PingSender, HealthCheck>());
    container.registerSingleton<MessageSenderManager>(
        from<MessageSenderManager, WebSocketMessageSender, XhrMessageSender,
             ApplicationConfigWrapper, HealthCheck>());
    container.registerSingleton<XhrMessageSender>(
        from<XhrMessageSender, ApplicationConfigWrapper, InitSender, OrvaneAPI, HttpUtil,
             BidirectionalMessageParser>());
    container.registerSingleton<WebSocketMessageSender>(
        from<WebSocketMessageSender, ApplicationConfigWrapper, InitSender, OrvaneAPI, HttpUtil,
             BidirectionalMessageParser>());
    container.registerSingleton<ViewMonitor>(from<ViewMonitor, ApplicationConfigWrapper>());
    container.registerSingleton<PingSender>(from<PingSender, ApplicationConfigWrapper>());
    container.registerSingleton<BidirectionalMessageParser>(
        from<BidirectionalMessageParser, BidirectionalMessageHandler>());
    container.registerSingleton<BidirectionalMessageHandler>(
        from<BidirectionalMessageHandler, ApplicationConfigWrapper, UIStrings>());
    container.registerSingleton<HealthCheck>(
        from<HealthCheck, ApplicationConfigWrapper, OrvaneAPI>());
    container.registerSingleton<HttpUtil>(from<HttpUtil, ApplicationConfigWrapper>());
    container.registerSingleton<CoBrowsing>(
        from<CoBrowsing, Vistrel, UIStrings, ApplicationConfigWrapper, Communication>());
    container.registerSingleton<UIStrings>(from<UIStrings, OrvaneAPI>());
    container.registerSingleton<Communication>(
        from<Communication, OrvaneAPI, ApplicationConfigWrapper>());
}

} // namespace VistrelKit
