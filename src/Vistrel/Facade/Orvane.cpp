#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConfiguration.h>
#include <Vistrel/OrvaneVistrel.h>

#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"
#include "Core/Injection.h"

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

std::optional<InitConfiguration> Orvane::initConfig(const QString &tenantId, const QString &token)
{
    auto *wrapper = Injection::getContainer().resolve<ApplicationConfigWrapper>();
    if (!wrapper) {
        Log::error(u"Cannot find instance of Application Config"_s);
        return std::nullopt;
    }
    ApplicationConfig &config = wrapper->config();
    config.tenantId = tenantId;
    config.token = token;
    wrapper->newVisit(config.visitConfig.sessionId);
    return InitConfiguration();
}

void Orvane::setConfigFile(const QString &path)
{
    ConstantUtils::setConfigFile(path);
}

} // namespace VistrelKit
