#include "Api/HealthCheck.h"

#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

HealthCheck::HealthCheck(ApplicationConfigWrapper *applicationConfig, OrvaneAPI *orvaneAPI,
                         QObject *parent)
    : QObject(parent)
    , m_urlPattern(u"%1://%2/api/ic/h"_s)
    , m_applicationConfig(applicationConfig)
    , m_orvaneAPI(orvaneAPI)
{}

QString HealthCheck::url() const
{
    return m_urlPattern.arg(ConstantUtils::getProperty(u"HttpProtocol"_s).value_or(QString()),
                            m_applicationConfig->config().hostname.value_or(QString()));
}

} // namespace VistrelKit
