#include <Vistrel/InitConfiguration.h>

#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"
#include "Core/Injection.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

InitConfiguration &InitConfiguration::withCustomServer(const QString &hostname)
{
    if (auto *wrapper = Injection::getContainer().resolve<ApplicationConfigWrapper>())
        wrapper->setHostname(hostname);
    return *this;
}

InitConfiguration &InitConfiguration::withCustomCdnServer(const QString &cdnServer)
{
    if (auto *wrapper = Injection::getContainer().resolve<ApplicationConfigWrapper>()) {
        wrapper->config().cdnPath = u"%1://%2/cdn"_s.arg(
            ConstantUtils::getProperty(u"HttpProtocol"_s).value_or(QString()), cdnServer);
    }
    return *this;
}

} // namespace VistrelKit
