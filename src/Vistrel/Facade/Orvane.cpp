#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneConfiguration.h>
#include <Vistrel/OrvaneUser.h>
#include <Vistrel/OrvaneVistrel.h>
#include <Vistrel/OrvaneWebChat.h>

#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"
#include "Core/Log.h"
#include "Facade/Kit.h"
#include "Session/CoBrowsing.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

OrvaneConfiguration *Orvane::configuration()
{
    static OrvaneConfiguration *instance = new OrvaneConfiguration;
    return instance;
}

OrvaneVistrel *Orvane::vistrel()
{
    static OrvaneVistrel *instance = new OrvaneVistrel;
    return instance;
}

OrvaneCoBrowsing *Orvane::coBrowsing()
{
    static OrvaneCoBrowsing *instance = new OrvaneCoBrowsing;
    return instance;
}

OrvaneWebChat *Orvane::webChat()
{
    static OrvaneWebChat *instance = new OrvaneWebChat;
    return instance;
}

OrvaneUser *Orvane::user()
{
    static OrvaneUser *instance = new OrvaneUser;
    return instance;
}

std::optional<InitConfiguration> Orvane::initConfig(const QString &tenantId, const QString &token)
{
    auto *wrapper = Kit::container().resolve<ApplicationConfigWrapper>();
    if (!wrapper) {
        Log::error(u"Cannot find instance of Application Config"_s);
        return std::nullopt;
    }
    ApplicationConfig &config = wrapper->config();
    config.tenantId = tenantId;
    config.token = token;
    wrapper->newVisit(config.visitConfig.sessionId);
    // From now on an agent can start co-browsing from the service.
    if (auto *coBrowsing = Kit::container().resolve<CoBrowsing>())
        coBrowsing->startPollingForStart();
    return InitConfiguration();
}

void Orvane::setConfigFile(const QString &path)
{
    ConstantUtils::setConfigFile(path);
}

void Orvane::setLogHandler(LogHandler handler)
{
    Log::setHandler(std::move(handler));
}

} // namespace VistrelKit
