#pragma once

#include <Vistrel/ActiveUser.h>
#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

class ApplicationConfigWrapper;
class CoBrowsing;
class OrvaneAPI;
class Vistrel;
class WebChat;

/// The app's user as the service knows it: stored in the configuration, its id made the
/// visitor id, tagged on the service's customer record, then the session restarts so that the
/// new identity is in the stream.
class VISTREL_AUTOTEST_EXPORT User : public QObject
{
    Q_OBJECT
public:
    /// The restart goes through co-browsing, which knows whether it has to start again.
    User(ApplicationConfigWrapper *applicationConfig, Vistrel *vistrel, WebChat *webChat,
         OrvaneAPI *orvaneAPI, CoBrowsing *coBrowsing, QObject *parent = nullptr);

    /// Stores the user, sets the visitor id (fresh ids when the user has none), posts the user
    /// to "rest/v1/customerstatus/tag/byVisitor/<visitor id>?tId=<tenant>" and, once the
    /// service took it, restarts the session.
    void tag(const ActiveUser &activeUser);
    /// Forgets the user and stops the session.
    void clear();

    WebChat *webChat() const { return m_webChat; }

Q_SIGNALS:
    /// The service took the user and the session was restarted.
    void tagged();

private:
    ApplicationConfigWrapper *m_applicationConfig;
    Vistrel *m_vistrel;
    WebChat *m_webChat;
    OrvaneAPI *m_orvaneAPI;
    CoBrowsing *m_coBrowsing;
};

} // namespace VistrelKit
