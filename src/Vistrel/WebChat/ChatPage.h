#pragma once

#include <Vistrel/vistrel_export.h>

#include <QWebEnginePage>

namespace VistrelKit {

/// The chat's page: it stays on the chat. A link to anything else is a document the user wants,
/// so it is not opened but handed on for download.
class VISTREL_AUTOTEST_EXPORT ChatPage : public QWebEnginePage
{
    Q_OBJECT
public:
    explicit ChatPage(QObject *parent = nullptr);

    /// Whether a URL may load in the chat view: only the chat page itself.
    static bool isChatUrl(const QUrl &url);

Q_SIGNALS:
    /// The page tried to open url, which is not the chat: download it instead.
    void downloadRequested(const QUrl &url);

protected:
    bool acceptNavigationRequest(const QUrl &url, NavigationType type, bool isMainFrame) override;
};

} // namespace VistrelKit
