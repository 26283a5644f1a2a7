#include "WebChat/ChatPage.h"

#include <QWebEngineNewWindowRequest>

using namespace Qt::StringLiterals;

namespace VistrelKit {

ChatPage::ChatPage(QObject *parent)
    : QWebEnginePage(parent)
{
    // A link that asks for a new window is a link all the same; the chat never opens windows.
    connect(this, &QWebEnginePage::newWindowRequested, this,
            [this](QWebEngineNewWindowRequest &request) {
                if (!isChatUrl(request.requestedUrl()))
                    Q_EMIT downloadRequested(request.requestedUrl());
            });
}

bool ChatPage::isChatUrl(const QUrl &url)
{
    return url.toString(QUrl::FullyEncoded).contains(u"chat.html"_s);
}

bool ChatPage::acceptNavigationRequest(const QUrl &url, NavigationType, bool isMainFrame)
{
    // Frames inside the chat (a captcha, a widget) load as the page wants: only the chat's own
    // navigation is a user following a link.
    if (!isMainFrame || isChatUrl(url))
        return true;
    Q_EMIT downloadRequested(url);
    return false;
}

} // namespace VistrelKit
