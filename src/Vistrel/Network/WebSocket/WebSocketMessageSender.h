#pragma once

#include "Network/MessageSender.h"

#include <QElapsedTimer>
#include <QNetworkRequest>
#include <QTimer>
#include <QWebSocket>

#include <deque>
#include <memory>

namespace VistrelKit {

class BidirectionalMessageParser;
class HttpUtil;

/// The WebSocket transport: one connection per visit, each report one binary frame, agent
/// commands back as text frames (one JSON object each). A connection that drops after it had
/// opened is reopened at once; one that never opened is reported through onError only.
class VISTREL_AUTOTEST_EXPORT WebSocketMessageSender : public MessageSender
{
    Q_OBJECT
public:
    WebSocketMessageSender(ApplicationConfigWrapper *applicationConfig, InitSender *initSender,
                           OrvaneAPI *orvaneAPI, HttpUtil *httpUtil,
                           BidirectionalMessageParser *parser, ScreenPlatform *screen,
                           QObject *parent = nullptr);
    ~WebSocketMessageSender() override;

    /// Connects for the screen named url. The first of "opened" and "closed" calls onSuccess or
    /// onError, and both callbacks are then dropped; a URL that cannot be built calls onError
    /// at once.
    void start(const QString &url, Callback onSuccess, Callback onError) override;
    /// Deletes the visit and closes the connection normally.
    void stop() override;
    /// Writes the report as one frame; fails with "No socket found" before start() and with
    /// "Sender is closed" until the connection has opened once.
    void send(const QString &url, const ProtoMessage &message, ErrorCompletion completion) override;

    /// The URL start() connects to (values inserted unescaped).
    QString buildUrl(const QString &url) const;
    bool wasSuccessfulOnce() const { return m_wasSuccessfulOnce; }
    /// How long an opening handshake may take before it counts as a failed connection (60 s,
    /// like every request of the kit).
    void setConnectTimeout(int milliseconds) { m_connectTimer.setInterval(milliseconds); }
    QWebSocket *socket() const { return m_socket.get(); }

    /// Handles one text frame from the service. Frames are read as they come until a turn of the
    /// event loop has spent MainQueue::SliceMs on them; the rest wait for the next turns (at most
    /// MaxPendingBytes of them: over it the oldest go, counted and logged).
    void handleText(const QString &text);
    qsizetype pendingFrames() const { return qsizetype(m_pendingFrames.size()); }

    static constexpr qsizetype MaxPendingBytes = 16 * 1024 * 1024;

private:
    void open();
    void onConnected();
    void onDisconnected();
    void onConnectTimeout();
    void readPendingFrames();
    void readFrame(const QString &text);

    const QString m_urlTemplate;
    HttpUtil *m_httpUtil;
    BidirectionalMessageParser *m_parser;
    std::unique_ptr<QWebSocket> m_socket;
    QNetworkRequest m_request;
    // QWebSocket ignores the request's transfer time-out and has no handshake time-out of its own.
    QTimer m_connectTimer;
    Callback m_successCallback;
    Callback m_errorCallback;
    bool m_wasSuccessfulOnce = false;
    bool m_closingByUs = false;
    bool m_timedOut = false;
    // Frames the service sent faster than this turn could read them.
    std::deque<QString> m_pendingFrames;
    qsizetype m_pendingBytes = 0;
    qint64 m_droppedFrames = 0;
    // Runs from the first frame read in a turn of the event loop until that turn ends.
    QElapsedTimer m_turnClock;
    QTimer m_readTimer;
};

} // namespace VistrelKit
