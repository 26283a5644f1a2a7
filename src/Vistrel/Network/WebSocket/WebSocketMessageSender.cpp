#include "Network/WebSocket/WebSocketMessageSender.h"

#include "Api/HttpUtil.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"
#include "Core/JsonUtils.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"

#include <QPointer>
#include <QRegularExpression>
#include <QUrl>

#include <utility>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
// The URL with the value of its "t=" (token) parameter replaced by a fixed mask.
QString maskedToken(const QString &url)
{
    static const QRegularExpression token(u"([?&]t=)[^&#]*"_s);
    return QString(url).replace(token, u"\\1***"_s);
}
} // namespace

WebSocketMessageSender::WebSocketMessageSender(ApplicationConfigWrapper *applicationConfig,
                                               InitSender *initSender, OrvaneAPI *orvaneAPI,
                                               HttpUtil *httpUtil,
                                               BidirectionalMessageParser *parser,
                                               ScreenPlatform *screen, QObject *parent)
    : MessageSender(applicationConfig, initSender, orvaneAPI, screen, parent)
    , m_urlTemplate(
          u"%1://%2/api/in/imws?tId=%3&sId=%4&vId=%5&t=%6&id=%7&shrId=%8&vsId=%9&url=%10&fsTy=%11"_s)
    , m_httpUtil(httpUtil)
    , m_parser(parser)
{
    m_connectTimer.setSingleShot(true);
    m_connectTimer.setInterval(HttpUtil::TimeoutMs);
    connect(&m_connectTimer, &QTimer::timeout, this, &WebSocketMessageSender::onConnectTimeout);
    m_readTimer.setSingleShot(true);
    connect(&m_readTimer, &QTimer::timeout, this, &WebSocketMessageSender::readPendingFrames);
}

WebSocketMessageSender::~WebSocketMessageSender()
{
    if (m_socket)
        m_socket->disconnect(this);
}

QString WebSocketMessageSender::buildUrl(const QString &url) const
{
    const ApplicationConfig &config = m_applicationConfig->config();
    const VisitConfig &visit = config.visitConfig;
    const QString sessionId = visit.sessionId.value_or(QString());
    // One arg() call, so a value that looks like "%1" is never substituted again. vsId repeats
    // the session id: the service reads both.
    return m_urlTemplate.arg(
        ConstantUtils::getProperty(u"WebSocketProtocol"_s).value_or(QString()),
        config.hostname.value_or(QString()), config.tenantId.value_or(QString()), sessionId,
        visit.visitorId.value_or(QString()), config.token.value_or(QString()),
        visit.visitId.value_or(QString()), config.vistrelConfig.shareId.value_or(QString()),
        sessionId, url, config.vistrelConfig.storageType.value_or(QString()));
}

void WebSocketMessageSender::start(const QString &url, Callback onSuccess, Callback onError)
{
    m_successCallback = std::move(onSuccess);
    m_errorCallback = std::move(onError);
    m_screenName = url;

    const QString text = buildUrl(url);
    const QUrl parsed(text, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.scheme().isEmpty() || parsed.host().isEmpty()) {
        Log::warning(u"Cannot construct URL"_s);
        // A failed start like any other, so that a session waiting on it goes on over HTTP.
        const Callback onErrorNow = std::exchange(m_errorCallback, nullptr);
        m_successCallback = nullptr;
        if (onErrorNow)
            onErrorNow();
        return;
    }

    // The URL carries the session token: the log shows where, not the secret.
    Log::debug(u"Connect to "_s + maskedToken(text));
    m_request = QNetworkRequest(parsed);
    m_request.setTransferTimeout(HttpUtil::TimeoutMs);
    m_httpUtil->addSessionHeader(m_request);

    if (m_socket) {
        m_socket->disconnect(this);
        // This may run inside one of the old socket's own signals: it goes once that returned.
        m_socket.release()->deleteLater();
    }
    m_socket = std::make_unique<QWebSocket>();
    // Bounded like an HTTP reply: Qt closes the connection (1009) on anything larger.
    m_socket->setMaxAllowedIncomingMessageSize(quint64(HttpUtil::MaxReplyBytes));
    m_socket->setMaxAllowedIncomingFrameSize(quint64(HttpUtil::MaxReplyBytes));
    connect(m_socket.get(), &QWebSocket::connected, this, &WebSocketMessageSender::onConnected);
    connect(m_socket.get(), &QWebSocket::disconnected, this,
            &WebSocketMessageSender::onDisconnected);
    connect(m_socket.get(), &QWebSocket::textMessageReceived, this,
            &WebSocketMessageSender::handleText);
    connect(m_socket.get(), &QWebSocket::binaryMessageReceived, this,
            [] { Log::warning(u"Received unexpected binary data"_s); });
    m_closingByUs = false;
    open();
}

void WebSocketMessageSender::open()
{
    m_timedOut = false;
    m_connectTimer.start();
    m_socket->open(m_request);
}

void WebSocketMessageSender::stop()
{
    MessageSender::stop();
    m_wasSuccessfulOnce = false;
    // A closed socket emits nothing more, so only a live one leaves a close of ours to expect.
    if (m_socket && m_socket->state() != QAbstractSocket::UnconnectedState) {
        m_closingByUs = true;
        m_socket->close(QWebSocketProtocol::CloseCodeNormal);
    }
}

void WebSocketMessageSender::send(const QString &, const ProtoMessage &message,
                                  ErrorCompletion completion)
{
    if (!m_socket) {
        completion(StringError(u"No socket found"_s));
        return;
    }
    if (!m_wasSuccessfulOnce) {
        completion(StringError(u"Sender is closed"_s));
        return;
    }
    ProtoMessageList list;
    *list.add_messages() = message;
    std::string bytes;
    list.SerializePartialToString(&bytes);
    // Not awaited: a frame written while the connection is down is lost.
    m_socket->sendBinaryMessage(QByteArray(bytes.data(), qsizetype(bytes.size())));
    completion(std::nullopt);
}

void WebSocketMessageSender::onConnected()
{
    m_connectTimer.stop();
    Log::debug(u"Connection opened"_s);
    m_wasSuccessfulOnce = true;
    if (m_successCallback)
        m_successCallback();
    m_errorCallback = nullptr;
    m_successCallback = nullptr;
}

void WebSocketMessageSender::onDisconnected()
{
    // A close we asked for carries no error. Otherwise a failed socket is an error of its own, and
    // a close frame from the service is an error carrying its code.
    m_connectTimer.stop();
    bool hasError = false;
    if (!m_closingByUs) {
        hasError = true;
        if (m_timedOut || m_socket->error() != QAbstractSocket::UnknownSocketError) {
            Log::warning(u"Connection closed with unknown error"_s);
        } else if (m_socket->closeCode() == QWebSocketProtocol::CloseCodeTooMuchData) {
            Log::warning(
                u"Connection closed: a message from the service was larger than %1 bytes"_s.arg(
                    HttpUtil::MaxReplyBytes));
        } else if (m_socket->closeCode() == QWebSocketProtocol::CloseCodeNormal) {
            Log::debug(u"Connection closed"_s);
        } else {
            Log::warning(u"Connection closed: "_s + QString::number(int(m_socket->closeCode())));
        }
    }
    m_closingByUs = false;
    m_timedOut = false;

    if (hasError && m_wasSuccessfulOnce) {
        Log::debug(u"Connect again"_s);
        QPointer<WebSocketMessageSender> self(this);
        QPointer<QWebSocket> socket(m_socket.get());
        // Queued, so the socket has finished closing before it opens again. A stop() or start()
        // in between cancels it.
        MainQueue::async([self, socket] {
            if (self && socket && self->m_socket.get() == socket && self->m_wasSuccessfulOnce)
                self->open();
        });
    }

    if (m_errorCallback)
        m_errorCallback();
    m_errorCallback = nullptr;
    m_successCallback = nullptr;
}

void WebSocketMessageSender::onConnectTimeout()
{
    // Aborting emits disconnected at once, which reports the failure like any other.
    m_timedOut = true;
    m_socket->abort();
}

void WebSocketMessageSender::handleText(const QString &text)
{
    // Qt hands over every frame of a read at once: a flood is read a slice per turn.
    m_pendingFrames.push_back(text);
    m_pendingBytes += text.size() * qsizetype(sizeof(QChar));
    while (m_pendingBytes > MaxPendingBytes && m_pendingFrames.size() > 1) {
        m_pendingBytes -= m_pendingFrames.front().size() * qsizetype(sizeof(QChar));
        m_pendingFrames.pop_front();
        ++m_droppedFrames;
    }
    if (!m_readTimer.isActive())
        readPendingFrames();
}

void WebSocketMessageSender::readPendingFrames()
{
    if (!m_turnClock.isValid()) {
        m_turnClock.start();
        QMetaObject::invokeMethod(
            this, [this] { m_turnClock.invalidate(); }, Qt::QueuedConnection);
    }
    while (!m_pendingFrames.empty()) {
        if (m_turnClock.elapsed() >= MainQueue::SliceMs) {
            m_readTimer.start(0);
            return;
        }
        const QString text = std::move(m_pendingFrames.front());
        m_pendingFrames.pop_front();
        m_pendingBytes -= text.size() * qsizetype(sizeof(QChar));
        readFrame(text);
    }
    if (m_droppedFrames > 0) {
        Log::warning(u"Dropped the oldest %1 messages: over %2 bytes of them were waiting"_s
                         .arg(m_droppedFrames)
                         .arg(MaxPendingBytes));
        m_droppedFrames = 0;
    }
}

void WebSocketMessageSender::readFrame(const QString &text)
{
    const auto value = JsonUtils::parse(text.toUtf8());
    if (!value) {
        Log::error(u"Cannot parse JSON of WebSocket response: "_s + text);
        return;
    }
    if (!value->is_object()) {
        Log::error(u"Cannot convert to dict: "_s + JsonUtils::dumpText(*value));
        return;
    }
    m_parser->parse(*value);
}

} // namespace VistrelKit
