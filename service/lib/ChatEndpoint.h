#pragma once

#include "AgentDocument.h"
#include "ChatMessage.h"
#include "HttpReply.h"
#include "RecordedRequest.h"

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>

namespace VistrelService {

class LocalService;

/// The web chat: its configuration ("api/in/wc/c/{chatId}"), its page ("cdn/chat/chat.html"),
/// the messages between the page and the agent ("api/in/wc/m") and the documents the agent sends
/// ("api/in/wc/doc/{id}"). A chat is one (tenant id, visitor id) pair; it lives as long as the
/// service, keeping its newest MaxMessages messages.
class ChatEndpoint : public QObject
{
    Q_OBJECT
public:
    using DocumentKind = AgentDocument::Kind;

    static constexpr qsizetype MaxMessages = 100;
    /// Documents kept in all; the oldest go first (their messages then link to a 404).
    static constexpr qsizetype MaxDocuments = 50;
    static constexpr qsizetype MaxTextLength = 4000;

    explicit ChatEndpoint(LocalService *service);

    static bool handles(const QString &path);
    HttpReply handle(const RecordedRequest &request);

    /// The reply body of GET api/in/wc/c/{chatId}, the same for every chat id.
    void setConfiguration(const QByteArray &json) { m_configuration = json; }
    QByteArray configuration() const { return m_configuration; }
    static QByteArray defaultConfiguration();

    /// Returns the message's id.
    qint64 sendAgentMessage(const QString &tenantId, const QString &visitorId, const QString &text);
    /// Makes the document (fileName empty: "statement.pdf" / "chart.png") and posts a message
    /// linking to it. Returns the document id, or -1 when no document could be made (without a
    /// QGuiApplication).
    qint64 sendAgentDocument(const QString &tenantId, const QString &visitorId, DocumentKind kind,
                             const QString &fileName = {});
    /// Oldest first.
    QList<ChatMessage> messages(const QString &tenantId, const QString &visitorId) const;

    /// What the chat page and the console read: id, from, text, at, delivered and, for a
    /// document, "document": {name, type, url (the path on this service)}.
    static QJsonObject toJson(const ChatMessage &message);

Q_SIGNALS:
    void messagePosted(const QString &tenantId, const QString &visitorId,
                       const VistrelService::ChatMessage &message);
    /// The chat page fetched messages it had not seen: they count as delivered now.
    void messagesDelivered(const QString &tenantId, const QString &visitorId);

private:
    using ChatKey = QPair<QString, QString>;
    struct Document
    {
        QString fileName;
        QByteArray contentType;
        QByteArray bytes;
    };

    HttpReply page() const;
    HttpReply poll(const RecordedRequest &request);
    HttpReply post(const RecordedRequest &request);
    HttpReply document(const QString &idText) const;
    /// Stamps id and time, keeps the newest MaxMessages, emits messagePosted.
    ChatMessage append(const ChatKey &chat, ChatMessage message);

    LocalService *m_service;
    QByteArray m_configuration;
    QHash<ChatKey, QList<ChatMessage>> m_chats;
    QMap<qint64, Document> m_documents;
    qint64 m_lastMessageId = 0;
    qint64 m_lastDocumentId = 0;
};

} // namespace VistrelService
