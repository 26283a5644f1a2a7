#include <Vistrel/OrvaneConfiguration.h>

#include "Config/ConstantUtils.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

OrvaneConfiguration::OrvaneConfiguration()
    : m_cdnPattern(u"%1://%2/cdn"_s)
    , m_server(ConstantUtils::getProperty(u"Hostname"_s).value_or(QString()))
{
    recomputeCdnPath();
}

void OrvaneConfiguration::recomputeCdnPath()
{
    m_cdnPath = m_cdnPattern.arg(ConstantUtils::getProperty(u"HttpProtocol"_s).value_or(QString()),
                                 ConstantUtils::getProperty(u"CdnHostname"_s).value_or(QString()));
}

void OrvaneConfiguration::setServer(const QString &hostname)
{
    m_server = hostname;
    recomputeCdnPath();
}

void OrvaneConfiguration::setCdnServer(const QString &)
{
    // Intentionally ignores its argument: the CDN host comes from the config file only.
    recomputeCdnPath();
}

} // namespace VistrelKit
