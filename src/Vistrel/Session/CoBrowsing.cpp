#include "Session/CoBrowsing.h"

#include "Api/UIStrings.h"
#include "Communication/Communication.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Screen/ScreenPlatform.h"
#include "Session/Vistrel.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace VistrelKit {

CoBrowsing::CoBrowsing(Vistrel *vistrel, UIStrings *uiStrings,
                       ApplicationConfigWrapper *applicationConfig, Communication *communication,
                       ScreenPlatform *screen, QObject *parent)
    : QObject(parent)
    , m_vistrel(vistrel)
    , m_uiStrings(uiStrings)
    , m_applicationConfig(applicationConfig)
    , m_communication(communication)
    , m_screen(screen)
    , m_startCoBrowsingId(u"SCB"_s)
    , m_errorString(u"ui.mobile.error"_s)
    , m_connectingString(u"ui.mobile.connecting"_s)
{}

void CoBrowsing::start(const std::optional<QString> &sessionId, ErrorCompletion completion)
{
    if (m_isStarted) {
        completion(StringError(u"CoBrowsing is already started"_s));
        return;
    }
    m_isStarted = true;
    // Stopping a running session also stops co-browsing (and so clears isStarted); the start
    // goes on regardless, with a fresh session.
    m_vistrel->stop();
    const ApplicationConfig &config = m_applicationConfig->config();
    const std::optional<QString> id =
        m_vistrel->isRunning() && !sessionId ? config.visitConfig.sessionId : sessionId;
    const QString tenantId = config.tenantId.value_or(QString());

    QPointer<CoBrowsing> self(this);
    auto proceed = [self, id, tenantId, completion = std::move(completion)] {
        if (self)
            self->showAndStartVistrel(id, tenantId, completion);
    };
    if (m_uiStrings->isLoaded()) {
        MainQueue::async(std::move(proceed));
        return;
    }
    m_uiStrings->load(m_uiStrings->preferredLanguage(),
                      [proceed = std::move(proceed)](const std::optional<Error> &error) {
                          // Without texts the widget still shows, with its built-in ones.
                          if (error)
                              Log::warning(u"Cannot load UI strings: "_s + error->description());
                          MainQueue::async(proceed);
                      });
}

void CoBrowsing::showAndStartVistrel(const std::optional<QString> &sessionId,
                                     const QString &tenantId, ErrorCompletion completion)
{
    const Result<CoBrowseView *> shown = showWidget(tenantId);
    if (!shown.isOk()) {
        m_isStarted = false;
        Log::debug(u"Starting UI failed with error: "_s + shown.error().description());
        return;
    }
    QPointer<CoBrowsing> self(this);
    m_vistrel->start(sessionId, [self, completion](const std::optional<Error> &error) {
        if (!self)
            return;
        if (error) {
            Log::error(u"Starting Vistrel failed: "_s + error->description());
            self->m_isStarted = false;
            self->setShareIdText(self->text(self->m_errorString, u"ERROR"_s));
        } else {
            self->setShareIdText(self->m_vistrel->shareId());
            Q_EMIT self->started();
        }
        completion(error);
    });
}

Result<CoBrowseView *> CoBrowsing::showWidget(const QString &tenantId)
{
    QWindow *top = m_screen->topWindow();
    if (!top)
        return StringError(u"Cannot find view of controller"_s);
    if (m_screen->hasCoBrowseView(top))
        return StringError(u"UI is already shown"_s);
    CoBrowseView *view = m_screen->showCoBrowseView(top);
    if (!view)
        return StringError(u"Widget cannot be created"_s);
    m_view = view;
    connect(view, &CoBrowseView::closeRequested, this, &CoBrowsing::stop);
    connect(view, &CoBrowseView::chatRequested, this, &CoBrowsing::chatRequested);
    setShareIdText(text(m_connectingString, u"CONNECTING"_s));
    view->setTenantId(tenantId);
    view->setChatActivated(m_applicationConfig->config().chatAvailable.value_or(false));
    return view;
}

void CoBrowsing::stop()
{
    // Taken at once: the host sees the widget gone, and the session's stop, which calls this
    // again, finds nothing left to end.
    const QPointer<CoBrowseView> view = std::exchange(m_view, nullptr);
    MainQueue::async([view] {
        if (!view)
            return;
        // Off the window at once, so a start right after this finds no panel.
        view->remove();
    });
    m_vistrel->stop();
    m_isStarted = false;
    if (view)
        Q_EMIT ended();
}

void CoBrowsing::restart()
{
    if (!m_isStarted) {
        // The session's stop also removes a widget a failed start left behind.
        m_vistrel->restart();
        return;
    }
    m_vistrel->stop();
    stop();
    // Co-browsing starts its own session.
    start(std::nullopt, [](const std::optional<Error> &error) {
        if (error)
            Log::error(u"Error while starting CoBrowsing: "_s + error->description());
    });
}

void CoBrowsing::startPollingForStart()
{
    Log::debug(u"Start polling for SCB messages"_s);
    RegisteredClient client;
    client.id = m_startCoBrowsingId;
    client.channel = CommunicationChannel::SCB;
    client.rate = 3.0;
    client.callback = [self = QPointer<CoBrowsing>(this)](const CommunicationMessage &) {
        Log::debug(u"Got SCB message"_s);
        if (!self)
            return;
        self->start(std::nullopt, [](const std::optional<Error> &error) {
            if (error)
                Log::error(u"Error while starting CoBrowsing: "_s + error->description());
        });
    };
    m_communication->registerClient(client);
}

void CoBrowsing::setChatAvailable(bool flag)
{
    MainQueue::async([view = m_view, flag] {
        if (view)
            view->setChatActivated(flag);
    });
}

void CoBrowsing::setShareIdText(const QString &text)
{
    MainQueue::async([view = m_view, text] {
        if (view)
            view->setShareIdText(text);
    });
}

CoBrowseView *CoBrowsing::view() const
{
    return m_view;
}

QString CoBrowsing::text(const QString &key, const QString &fallback) const
{
    return m_uiStrings->find(key).value_or(fallback);
}

} // namespace VistrelKit
