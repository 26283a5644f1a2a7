#pragma once

#include "Api/WebChatConfigurationDTO.h"
#include "WebChat/ChatView.h"
#include "WebChat/DocumentStore.h"

#include <Vistrel/vistrel_export.h>

#include <QList>
#include <QObject>
#include <QPointer>

#include <optional>

class QWidget;

namespace VistrelKit {

class ApplicationConfigWrapper;
class OrvaneAPI;
class ServiceHost;

/// Opens the service's web chat over a host window: fetches the chat's texts and colour, then
/// puts a ChatView on the window for the tenant and the active user.
class VISTREL_AUTOTEST_EXPORT WebChat : public QObject
{
    Q_OBJECT
public:
    WebChat(ApplicationConfigWrapper *applicationConfig, OrvaneAPI *orvaneAPI,
            ServiceHost *serviceHost, QObject *parent = nullptr);

    /// Fetches the configuration of chatId and shows the chat over controller; nothing when a
    /// chat is already there or on its way.
    void open(QWidget *controller, const QString &chatId);
    /// open() over the topmost window, once one is shown.
    void openOnTopWindow(const QString &chatId);
    /// The chat view over controller, if any.
    static ChatView *chatViewOf(QWidget *controller);

    /// The chat view on screen (null when none).
    ChatView *chatView() const { return m_chatView; }
    QString urlPattern() const { return m_urlPattern; }
    std::optional<QString> mobileDeviceToken() const { return m_mobileDeviceToken; }
    DocumentStore *documents() { return &m_documents; }

Q_SIGNALS:
    /// A chat view was put on a window.
    void opened();
    /// The chat view went.
    void closed();

private:
    void show(QWidget *parent, const WebChatConfigurationDTO &config);

    ApplicationConfigWrapper *m_applicationConfig;
    OrvaneAPI *m_orvaneAPI;
    ServiceHost *m_serviceHost;
    const QString m_urlPattern;
    std::optional<QString> m_mobileDeviceToken;
    QPointer<ChatView> m_chatView;
    // Windows whose configuration is being fetched: a second open there waits for the first.
    QList<QPointer<QWidget>> m_pending;
    DocumentStore m_documents;
};

} // namespace VistrelKit
