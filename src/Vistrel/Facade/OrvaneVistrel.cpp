#include <Vistrel/OrvaneVistrel.h>

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Facade/Kit.h"
#include "Session/Vistrel.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
Vistrel *session()
{
    return Kit::container().resolveOrLog<Vistrel>();
}

void startSession(Vistrel *vistrel)
{
    vistrel->start([](const std::optional<Error> &error) {
        if (error)
            Log::error(u"Error when starting Vistrel: "_s + error->description());
    });
}
} // namespace

void OrvaneVistrel::start()
{
    if (Vistrel *vistrel = session())
        startSession(vistrel);
}

void OrvaneVistrel::start(const QString &tenantId, const QString &token)
{
    Vistrel *vistrel = session();
    if (!vistrel)
        return;
    auto *wrapper = Kit::container().resolveOrLog<ApplicationConfigWrapper>();
    if (!wrapper)
        return;
    wrapper->config().tenantId = tenantId;
    wrapper->config().token = token;
    startSession(vistrel);
}

void OrvaneVistrel::setTransport(Transport transport)
{
    if (Vistrel *vistrel = session())
        vistrel->setWebSocketPreferred(transport == Transport::WebSocket);
}

OrvaneVistrel::Transport OrvaneVistrel::transport() const
{
    const Vistrel *vistrel = session();
    return vistrel && vistrel->isWebSocketPreferred() ? Transport::WebSocket : Transport::Http;
}

void OrvaneVistrel::stop()
{
    if (Vistrel *vistrel = session())
        vistrel->stop();
}

bool OrvaneVistrel::connected() const
{
    Vistrel *vistrel = session();
    return vistrel && vistrel->connected();
}

QString OrvaneVistrel::shareId() const
{
    Vistrel *vistrel = session();
    return vistrel ? vistrel->shareId() : QString();
}

void OrvaneVistrel::tag(const QString &text)
{
    if (Vistrel *vistrel = session()) {
        vistrel->tag(text, [](const std::optional<Error> &error) {
            if (error)
                Log::error(u"Cannot tag session: "_s + error->description());
        });
    }
}

void OrvaneVistrel::registerCallbacks(std::function<void()> onStart, std::function<void()> onStop)
{
    if (Vistrel *vistrel = session())
        vistrel->registerCallbacks(std::move(onStart), std::move(onStop));
}

} // namespace VistrelKit
