#include "Api/InitSender.h"

#include "Config/ApplicationConfigWrapper.h"

#include <QGuiApplication>
#include <QScreen>

namespace VistrelKit {

InitSender::InitSender(ApplicationConfigWrapper *applicationConfig, OrvaneAPI *orvaneAPI,
                       QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_orvaneAPI(orvaneAPI)
{}

void InitSender::send(const QString &url, bool initialize,
                      OrvaneAPI::Completion<MonitoringConfigDTO> completion)
{
    m_orvaneAPI->mobileInit(buildRequest(url, initialize), std::move(completion));
}

MobileInitDTO InitSender::buildRequest(const QString &url, bool initialize) const
{
    const ApplicationConfig &config = m_applicationConfig->config();
    const VistrelConfig &vistrel = config.vistrelConfig;
    const VisitConfig &visit = config.visitConfig;
    MobileInitDTO dto;
    dto.shareId = vistrel.shareId.value_or(QString());
    dto.url = url;
    dto.start = vistrel.startTime.value_or(0);
    dto.initialize = initialize;
    dto.page = screenSize();
    dto.visitorId = visit.visitorId.value_or(QString());
    dto.sessionId = visit.sessionId.value_or(QString());
    dto.visitId = visit.visitId.value_or(QString());
    dto.tenantId = config.tenantId.value_or(QString());
    dto.optIn = vistrel.optIn.value_or(false);
    return dto;
}

PageProperties InitSender::screenSize()
{
    const QScreen *screen = qobject_cast<QGuiApplication *>(QCoreApplication::instance())
                                ? QGuiApplication::primaryScreen()
                                : nullptr;
    if (!screen)
        qFatal("Cannot read the screen size: there is no screen (Vistrel needs a QGuiApplication)");
    const QSize size = screen->size();
    if (size.width() < 0 || size.height() < 0)
        qFatal("Screen size out of range: %dx%d", size.width(), size.height());
    PageProperties page;
    page.width = size.width();
    page.height = size.height();
    return page;
}

} // namespace VistrelKit
