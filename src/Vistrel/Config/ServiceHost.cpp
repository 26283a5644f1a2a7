#include "Config/ServiceHost.h"

#include "Config/ConstantUtils.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

ServiceHost::ServiceHost(QObject *parent)
    : QObject(parent)
    , m_cdnPattern(u"%1://%2/cdn"_s)
    , m_server(ConstantUtils::getProperty(u"Hostname"_s).value_or(QString()))
{
    recomputeCdnPath();
}

void ServiceHost::recomputeCdnPath()
{
    m_cdnPath = m_cdnPattern.arg(ConstantUtils::getProperty(u"HttpProtocol"_s).value_or(QString()),
                                 ConstantUtils::getProperty(u"CdnHostname"_s).value_or(QString()));
}

void ServiceHost::setServer(const QString &hostname)
{
    m_server = hostname;
    recomputeCdnPath();
}

void ServiceHost::setCdnServer(const QString &)
{
    recomputeCdnPath();
}

} // namespace VistrelKit
