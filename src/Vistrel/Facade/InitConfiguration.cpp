#include <Vistrel/InitConfiguration.h>

#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"
#include "Facade/Kit.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

InitConfiguration &InitConfiguration::withCustomServer(const QString &hostname)
{
    if (auto *wrapper = Kit::container().resolve<ApplicationConfigWrapper>())
        wrapper->setHostname(hostname);
    return *this;
}

InitConfiguration &InitConfiguration::withCustomCdnServer(const QString &cdnServer)
{
    if (auto *wrapper = Kit::container().resolve<ApplicationConfigWrapper>()) {
        wrapper->config().cdnPath = u"%1://%2/cdn"_s.arg(
            ConstantUtils::getProperty(u"HttpProtocol"_s).value_or(QString()), cdnServer);
    }
    return *this;
}

} // namespace VistrelKit
