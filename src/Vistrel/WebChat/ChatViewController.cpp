#include "WebChat/ChatViewController.h"

#include "Core/Log.h"
#include "WebChat/DocumentPreview.h"
#include "WebChat/DocumentStore.h"
#include "Widgets/ViewUtils.h"

#include <QWidget>

using namespace Qt::StringLiterals;

namespace VistrelKit {

const QStringList &ChatViewController::messageNames()
{
    static const QStringList names{u"openDocument"_s, u"jsError"_s};
    return names;
}

ChatViewController::ChatViewController(DocumentStore *documents, QObject *parent)
    : QObject(parent)
    , m_documents(documents)
{}

void ChatViewController::postMessage(const QString &name, const QString &body)
{
    Log::debug(u"did receive message "_s + name);
    if (name == u"openDocument"_s)
        openDocument(body);
    else if (name == u"jsError"_s)
        Log::warning(u"jsError: "_s + body);
}

void ChatViewController::openDocument(const QString &body)
{
    // "<file name>;data:<type>;base64,<data>"
    const QStringList parts = body.split(u';');
    const QString fileName = parts.first();
    const QString payload = parts.size() >= 3 ? parts.last() : QString();
    const qsizetype start = payload.indexOf(u"base64,"_s);
    const QStringView base64 =
        start < 0 ? QStringView() : QStringView(payload).mid(start + qsizetype(7));
    // Refused before decoding: the decoded bytes would be three quarters of the text.
    if (base64.size() / 4 * 3 > DocumentStore::MaxDocumentBytes) {
        Log::warning(
            u"Document too large: about %1 bytes, the limit is %2"_s.arg(base64.size() / 4 * 3)
                .arg(DocumentStore::MaxDocumentBytes));
        return;
    }
    const auto decoded =
        QByteArray::fromBase64Encoding(base64.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (start < 0 || !decoded) {
        Log::warning(u"Could not construct data from base64"_s);
        return;
    }
    const Result<QString> written = m_documents->write(fileName, *decoded);
    if (!written.isOk()) {
        Log::warning(u"Cannot save document: "_s + written.error().description());
        return;
    }
    m_documentUrl = written.value();
    m_preview = DocumentPreview::show(m_documentUrl, ViewUtils::topViewController());
    Q_EMIT documentOpened(m_documentUrl);
}

} // namespace VistrelKit
