#include "User/User.h"

#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
#include "Core/Log.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace VistrelKit {

User::User(ApplicationConfigWrapper *applicationConfig, Vistrel *vistrel, WebChat *webChat,
           OrvaneAPI *orvaneAPI, CoBrowsing *coBrowsing, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_vistrel(vistrel)
    , m_webChat(webChat)
    , m_orvaneAPI(orvaneAPI)
    , m_coBrowsing(coBrowsing)
{}

void User::tag(const ActiveUser &activeUser)
{
    ApplicationConfig &config = m_applicationConfig->config();
    config.activeUserTag = activeUser;
    config.vistrelConfig.optIn = false;
    VisitConfig &visit = config.visitConfig;
    if (activeUser.id) {
        visit.visitorId = activeUser.id;
    } else {
        // Someone new: nothing of the previous visitor's visit carries over.
        visit.visitId = IdUtils::newUuid();
        visit.sessionId = IdUtils::newUuid();
        visit.visitorId = IdUtils::newUuid();
    }
    QPointer<User> self(this);
    m_orvaneAPI->tagUser(visit.visitorId.value_or(QString()), config.tenantId.value_or(QString()),
                         activeUser, [self](const std::optional<Error> &error) {
                             if (!self)
                                 return;
                             if (error) {
                                 Log::warning(u"Cannot send tag: "_s + error->description());
                                 return;
                             }
                             if (!self->m_coBrowsing) {
                                 Log::warning(u"Cannot restart Vistrel"_s);
                                 return;
                             }
                             self->m_coBrowsing->restart();
                             Q_EMIT self->tagged();
                         });
}

void User::clear()
{
    m_applicationConfig->config().activeUserTag.reset();
    m_vistrel->stop();
}

} // namespace VistrelKit
