#pragma once

#include "WebChat/DocumentPreview.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QPointer>
#include <QStringList>

class QWidget;

namespace VistrelKit {

class DocumentStore;

/// Takes the chat page's script messages: "openDocument" writes the document the page
/// downloaded into the kit's private directory and shows it in the preview; "jsError" is
/// logged. The page reaches it as window.webkit.messageHandlers.<name>.postMessage(body).
class VISTREL_AUTOTEST_EXPORT ChatViewController : public QObject
{
    Q_OBJECT
public:
    /// The message names the page may post to.
    static const QStringList &messageNames();

    explicit ChatViewController(DocumentStore *documents, QObject *parent = nullptr);

    /// The file of the last document written (empty before one).
    QString documentUrl() const { return m_documentUrl; }
    /// The preview on screen, if any.
    DocumentPreview *preview() const { return m_preview; }

    /// Called by the page through the web channel.
    Q_INVOKABLE void postMessage(const QString &name, const QString &body);

Q_SIGNALS:
    /// A document was written and handed to the preview.
    void documentOpened(const QString &path);

private:
    void openDocument(const QString &body);

    DocumentStore *m_documents;
    QString m_documentUrl;
    QPointer<DocumentPreview> m_preview;
};

} // namespace VistrelKit
