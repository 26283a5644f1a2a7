#include "Network/Xhr/XhrSender.h"

#include "Config/ApplicationConfig.h"
#include "Config/ConstantUtils.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

QString XhrSender::buildUrl(const ApplicationConfig &config, const QString &url)
{
    const VisitConfig &visit = config.visitConfig;
    // Values go in unescaped on purpose: the service reads them as the device wrote them.
    return u"%1://%2/api/ix/m?id=%3&sId=%4&tId=%5&vId=%6&url=%7&fsTy=%8"_s.arg(
        ConstantUtils::getProperty(u"HttpProtocol"_s).value_or(QString()),
        config.hostname.value_or(QString()), visit.visitId.value_or(QString()),
        visit.sessionId.value_or(QString()), config.tenantId.value_or(QString()),
        visit.visitorId.value_or(QString()), url,
        config.vistrelConfig.storageType.value_or(QString()));
}

} // namespace VistrelKit
