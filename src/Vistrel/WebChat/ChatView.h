#pragma once

#include "Api/WebChatConfigurationDTO.h"

#include <Vistrel/vistrel_export.h>

#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <optional>

class QWebEngineLoadingInfo;
class QWebEngineView;

namespace VistrelKit {

class ChatPage;
class ChatViewController;
class DocumentStore;
class ServiceHost;

/// The web chat over a host window: the service's chat page in a web view with the tenant,
/// the visitor and the chat's texts in its URL. A tap in the top fifth of the window closes
/// it; a link in the page downloads a document into the preview; an error page closes it with
/// an "Error" dialog.
class VISTREL_AUTOTEST_EXPORT ChatView : public QWidget
{
    Q_OBJECT
public:
    /// Navigation failures that close the chat (Chromium's codes): timed out, host not found,
    /// file not found.
    static constexpr int ErrTimedOut = -7;
    static constexpr int ErrConnectionTimedOut = -118;
    static constexpr int ErrNameNotResolved = -105;
    static constexpr int ErrFileNotFound = -6;
    /// How long the chat page may take to load.
    static constexpr int LoadTimeoutMs = 60000;

    ChatView(QWidget *parent, const std::optional<WebChatConfigurationDTO> &config,
             const std::optional<QString> &tenantId, const std::optional<QString> &visitorId,
             ServiceHost *serviceHost, DocumentStore *documents);

    /// Creates the web view and loads the chat; false (logged) when there is nothing to show:
    /// no visitor id, or no URL could be made.
    bool setup();

    /// "<cdn>/chat/chat.html?<seconds>#d=<server>&tId=&vId=&title=&message=&hint=&color=
    /// &n=true&eU=true", the four texts percent-encoded with the query-allowed characters.
    static QString chatUrl(const QString &cdnPath, const QString &server, qint64 seconds,
                           const QString &tenantId, const QString &visitorId,
                           const std::optional<GrowthActionParams> &params);
    /// A text percent-encoded as a URL query allows it: "&", "=", "/", "?" stay.
    static QString queryEncoded(const std::optional<QString> &text);
    /// The script that fetches url in the page and posts the document to "openDocument".
    static QString downloadScript(const QUrl &url);
    /// Whether a finished load shows an error the chat cannot be used with.
    static bool isFailure(const QWebEngineLoadingInfo &info);

    QString url() const { return m_url; }
    QWebEngineView *webView() const { return m_webView; }
    ChatPage *page() const { return m_page; }
    ChatViewController *controller() const { return m_controller; }

    /// Takes the chat off the window for good (it is deleted later).
    void remove();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void installScriptMessages();
    void onLoadingChanged(const QWebEngineLoadingInfo &info);
    void download(const QUrl &url);
    void showErrorAndRemove();

    QPointer<QWidget> m_parent;
    std::optional<WebChatConfigurationDTO> m_config;
    std::optional<QString> m_tenantId;
    std::optional<QString> m_visitorId;
    ServiceHost *m_serviceHost;
    QString m_url;
    QWebEngineView *m_webView = nullptr;
    ChatPage *m_page = nullptr;
    ChatViewController *m_controller;
    QTimer m_loadTimeout;
    bool m_removed = false;
};

} // namespace VistrelKit
