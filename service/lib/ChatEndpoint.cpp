#include "ChatEndpoint.h"

#include "LocalService.h"
#include "ServiceLog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {
constexpr QStringView ConfigPrefix = u"/api/in/wc/c/";
constexpr QStringView MessagesPath = u"/api/in/wc/m";
constexpr QStringView DocumentPrefix = u"/api/in/wc/doc/";
constexpr QStringView PagePath = u"/cdn/chat/chat.html";

HttpReply jsonReply(int status, const QJsonObject &object)
{
    return HttpReply{status, QJsonDocument(object).toJson(QJsonDocument::Compact)};
}

HttpReply fail(int status, const QString &message)
{
    qCInfo(lcVistrelService) << "Chat refused a request:" << status << message;
    return jsonReply(status, QJsonObject{{u"error"_s, message}});
}

// The page may come from another host than the service (a CDN); it reads with credentials.
HttpReply withCors(HttpReply reply, const RecordedRequest &request)
{
    const QByteArray origin = request.header("origin");
    if (!origin.isEmpty()) {
        reply.headers += {{"Access-Control-Allow-Origin", origin},
                          {"Access-Control-Allow-Credentials", "true"},
                          {"Access-Control-Expose-Headers", "Content-Disposition"}};
    }
    return reply;
}

// A file name safe inside a quoted header value.
QByteArray quotedFileName(const QString &name)
{
    QByteArray latin = name.toUtf8();
    latin.replace('"', '_').replace('\\', '_').replace('\r', '_').replace('\n', '_');
    return '"' + latin + '"';
}
} // namespace

ChatEndpoint::ChatEndpoint(LocalService *service)
    : m_service(service)
    , m_configuration(defaultConfiguration())
{}

bool ChatEndpoint::handles(const QString &path)
{
    return path.startsWith(u"/api/in/wc/"_s) || path == PagePath;
}

HttpReply ChatEndpoint::handle(const RecordedRequest &request)
{
    const QString &path = request.path;
    const QString &method = request.method;
    if (path == PagePath)
        return method == u"GET"_s ? page() : fail(405, u"method not allowed"_s);
    if (path.startsWith(ConfigPrefix)) {
        const QString chatId = path.mid(ConfigPrefix.size());
        if (chatId.isEmpty() || chatId.contains(u'/'))
            return fail(404, u"no such chat"_s);
        if (method != u"GET"_s)
            return fail(405, u"method not allowed"_s);
        return withCors(HttpReply{200, m_configuration}, request);
    }
    if (path == MessagesPath) {
        if (method == u"GET"_s)
            return withCors(poll(request), request);
        if (method == u"POST"_s)
            return withCors(post(request), request);
        return fail(405, u"method not allowed"_s);
    }
    if (path.startsWith(DocumentPrefix)) {
        if (method != u"GET"_s)
            return fail(405, u"method not allowed"_s);
        return withCors(document(path.mid(DocumentPrefix.size())), request);
    }
    return fail(404, u"no such chat endpoint"_s);
}

HttpReply ChatEndpoint::page() const
{
    QFile file(u":/vistrel-chat/chat.html"_s);
    if (!file.open(QIODevice::ReadOnly))
        return fail(500, u"chat page missing from the build"_s);
    return HttpReply{200,
                     file.readAll(),
                     QByteArrayLiteral("text/html; charset=utf-8"),
                     {{"Cache-Control", "no-store"}}};
}

HttpReply ChatEndpoint::poll(const RecordedRequest &request)
{
    const QString tenantId = request.queryValue(u"tId"_s);
    const QString visitorId = request.queryValue(u"vId"_s);
    if (visitorId.isEmpty())
        return fail(400, u"vId is missing"_s);
    qint64 since = 0;
    if (request.query.hasQueryItem(u"since"_s)) {
        bool ok = false;
        since = request.queryValue(u"since"_s).toLongLong(&ok);
        if (!ok || since < 0)
            return fail(400, u"since is not a non-negative integer"_s);
    }
    QJsonArray list;
    qint64 next = since;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const auto chat = m_chats.find(ChatKey(tenantId, visitorId));
    bool delivered = false;
    if (chat != m_chats.end()) {
        for (ChatMessage &message : *chat) {
            if (message.id <= since)
                continue;
            if (!message.isDelivered()) {
                message.deliveredAt = now;
                delivered = true;
            }
            list.append(toJson(message));
            next = message.id;
        }
    }
    if (delivered)
        Q_EMIT messagesDelivered(tenantId, visitorId);
    return jsonReply(200, QJsonObject{{u"messages"_s, list}, {u"next"_s, next}});
}

HttpReply ChatEndpoint::post(const RecordedRequest &request)
{
    const QString tenantId = request.queryValue(u"tId"_s);
    const QString visitorId = request.queryValue(u"vId"_s);
    if (visitorId.isEmpty())
        return fail(400, u"vId is missing"_s);
    const QJsonDocument document = QJsonDocument::fromJson(request.body);
    if (!document.isObject())
        return fail(400, u"body is not a JSON object"_s);
    const QJsonObject body = document.object();
    const QString type = body.value(u"type"_s).toString();
    ChatMessage message;
    if (type == u"opened"_s) {
        message.from = u"system"_s;
        message.text = u"The visitor opened the chat"_s;
    } else if (type == u"text"_s) {
        message.from = u"visitor"_s;
        message.text = body.value(u"text"_s).toString().trimmed();
        if (message.text.isEmpty())
            return fail(400, u"text is missing or empty"_s);
        if (message.text.size() > MaxTextLength)
            return fail(413, u"text longer than %1 characters"_s.arg(MaxTextLength));
    } else {
        return fail(400, u"type is neither \"text\" nor \"opened\""_s);
    }
    const ChatMessage posted = append(ChatKey(tenantId, visitorId), message);
    return jsonReply(200, QJsonObject{{u"id"_s, posted.id}});
}

HttpReply ChatEndpoint::document(const QString &idText) const
{
    bool ok = false;
    const auto found = m_documents.constFind(idText.toLongLong(&ok));
    if (!ok || found == m_documents.constEnd())
        return fail(404, u"no such document"_s);
    return HttpReply{
        200,
        found->bytes,
        found->contentType,
        {{"Content-Disposition", "attachment; filename=" + quotedFileName(found->fileName)}}};
}

qint64 ChatEndpoint::sendAgentMessage(const QString &tenantId, const QString &visitorId,
                                      const QString &text)
{
    ChatMessage message;
    message.from = u"agent"_s;
    message.text = text;
    return append(ChatKey(tenantId, visitorId), message).id;
}

qint64 ChatEndpoint::sendAgentDocument(const QString &tenantId, const QString &visitorId,
                                       DocumentKind kind, const QString &fileName)
{
    const AgentDocument made = AgentDocument::make(kind, fileName);
    if (made.bytes.isEmpty()) {
        qCWarning(lcVistrelService) << "Cannot make a document without a QGuiApplication";
        return -1;
    }
    const qint64 id = ++m_lastDocumentId;
    m_documents.insert(id, Document{made.fileName, made.contentType, made.bytes});
    while (m_documents.size() > MaxDocuments)
        m_documents.erase(m_documents.begin());

    ChatMessage message;
    message.from = u"agent"_s;
    message.text = made.fileName;
    message.documentName = made.fileName;
    message.documentUrl =
        u"http://"_s + m_service->hostAndPort() + DocumentPrefix + QString::number(id);
    append(ChatKey(tenantId, visitorId), message);
    return id;
}

QList<ChatMessage> ChatEndpoint::messages(const QString &tenantId, const QString &visitorId) const
{
    return m_chats.value(ChatKey(tenantId, visitorId));
}

QJsonObject ChatEndpoint::toJson(const ChatMessage &message)
{
    QJsonObject object{
        {u"id"_s, message.id},
        {u"from"_s, message.from},
        {u"text"_s, message.text},
        {u"at"_s, message.postedAt.toMSecsSinceEpoch()},
        {u"delivered"_s, message.isDelivered()},
    };
    if (message.hasDocument()) {
        const QUrl url(message.documentUrl);
        object.insert(u"document"_s,
                      QJsonObject{{u"name"_s, message.documentName}, {u"url"_s, url.path()}});
    }
    return object;
}

ChatMessage ChatEndpoint::append(const ChatKey &chat, ChatMessage message)
{
    message.id = ++m_lastMessageId;
    message.postedAt = QDateTime::currentDateTimeUtc();
    QList<ChatMessage> &list = m_chats[chat];
    list.append(message);
    if (list.size() > MaxMessages)
        list.remove(0, list.size() - MaxMessages);
    Q_EMIT messagePosted(chat.first, chat.second, message);
    return message;
}

QByteArray ChatEndpoint::defaultConfiguration()
{
    return QByteArrayLiteral(R"({"params":{"color":"#1e6fd9","hint":"Type a message",)"
                             R"("title":"Chat with us","message":"Hello! How can we help you?"}})");
}

} // namespace VistrelService
