#include "Config/ApplicationConfigWrapper.h"

#include "Config/ConstantUtils.h"
#include "Config/IdUtils.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

ApplicationConfigWrapper::ApplicationConfigWrapper(QObject *parent)
    : QObject(parent)
{
    if (!m_config.hostname)
        m_config.hostname = ConstantUtils::getProperty(u"Hostname"_s).value_or(QString());
    if (!m_config.cdnPath)
        m_config.cdnPath = ConstantUtils::getProperty(u"CdnHostname"_s).value_or(QString());
}

void ApplicationConfigWrapper::newVisit(const std::optional<QString> &sessionId)
{
    VisitConfig &visit = m_config.visitConfig;
    const auto &user = m_config.activeUserTag;
    visit.visitorId = user && user->id ? *user->id : IdUtils::vendorId();
    visit.visitId = IdUtils::newUuid();
    visit.sessionId = sessionId ? *sessionId : IdUtils::newUuid();
}

void ApplicationConfigWrapper::setHostname(const QString &hostname)
{
    m_config.hostname = hostname;
    if (!m_config.cdnPath)
        m_config.cdnPath = hostname;
}

} // namespace VistrelKit
