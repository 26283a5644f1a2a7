#include "WebChat/WebChat.h"

#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "WebChat/ChatView.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace VistrelKit {

WebChat::WebChat(ApplicationConfigWrapper *applicationConfig, OrvaneAPI *orvaneAPI,
                 ServiceHost *serviceHost, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_orvaneAPI(orvaneAPI)
    , m_serviceHost(serviceHost)
    , m_urlPattern(u"%@://%@/api/in/wc/c/%@"_s)
{}

ChatView *WebChat::chatViewOf(QWidget *controller)
{
    return controller ? controller->findChild<ChatView *>(QString(), Qt::FindDirectChildrenOnly)
                      : nullptr;
}

void WebChat::open(QWidget *controller, const QString &chatId)
{
    if (!controller || chatViewOf(controller))
        return;
    m_pending.removeAll(nullptr);
    if (m_pending.contains(controller))
        return;
    m_pending.append(controller);
    QPointer<WebChat> self(this);
    QPointer<QWidget> parent(controller);
    m_orvaneAPI->webChatConfiguration(
        chatId, [self, parent](const Result<WebChatConfigurationDTO> &result) {
            if (!self)
                return;
            self->m_pending.removeAll(parent);
            if (!result.isOk()) {
                Log::error(u"Get WebChat configuration failed: "_s + result.error().description());
                return;
            }
            MainQueue::async([self, parent, config = result.value()] {
                if (self && parent)
                    self->show(parent, config);
            });
        });
}

void WebChat::openOnTopWindow(const QString &chatId)
{
    // The chat is a widget (Qt WebEngine Widgets): a Qt Quick app has no window to put it on.
    if (!qobject_cast<QApplication *>(QCoreApplication::instance())) {
        Log::error(u"Cannot open the web chat: it needs a QApplication"_s);
        return;
    }
    QPointer<WebChat> self(this);
    ViewUtils::withTopViewController([self, chatId](QWidget *controller) {
        if (self)
            self->open(controller, chatId);
    });
}

void WebChat::show(QWidget *parent, const WebChatConfigurationDTO &config)
{
    if (chatViewOf(parent))
        return;
    const ApplicationConfig &tree = m_applicationConfig->config();
    const std::optional<QString> visitorId =
        tree.activeUserTag ? tree.activeUserTag->id : std::nullopt;
    auto *view =
        new ChatView(parent, config, tree.tenantId, visitorId, m_serviceHost, &m_documents);
    if (!view->setup()) {
        delete view;
        return;
    }
    m_chatView = view;
    // However it goes: closed by the user, by an error page, or with its window.
    connect(view, &QObject::destroyed, this, &WebChat::closed);
    view->setGeometry(parent->rect());
    view->show();
    view->raise();
    Q_EMIT opened();
}

} // namespace VistrelKit
