#include <Vistrel/OrvaneConfiguration.h>

#include "Config/ServiceHost.h"
#include "Facade/Kit.h"

namespace VistrelKit {

namespace {
// ServiceHost has no dependency, so it always resolves.
ServiceHost *host()
{
    return Kit::container().resolve<ServiceHost>();
}
} // namespace

QString OrvaneConfiguration::server() const
{
    return host()->server();
}

QString OrvaneConfiguration::cdnPath() const
{
    return host()->cdnPath();
}

QString OrvaneConfiguration::cdnPattern() const
{
    return host()->cdnPattern();
}

void OrvaneConfiguration::setServer(const QString &hostname)
{
    host()->setServer(hostname);
}

void OrvaneConfiguration::setCdnServer(const QString &hostname)
{
    host()->setCdnServer(hostname);
}

} // namespace VistrelKit
