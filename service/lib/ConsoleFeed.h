#pragma once

#include <QObject>
#include <QSet>
#include <QString>

#include <vector>

class QWebSocket;

namespace VistrelService {

/// The console's WebSocket, "/console/api/live": after any turn of the event loop in which
/// something the console shows changed, every connected console gets one text frame
/// {"conversations": [ids whose time line or screen changed], "list": true when the
/// conversation or device lists changed, "chat": true when a chat changed, "calls": true when
/// the call queue or the calls changed}, and fetches what it needs over the JSON API.
class ConsoleFeed : public QObject
{
    Q_OBJECT
public:
    static constexpr QStringView Path = u"/console/api/live";

    explicit ConsoleFeed(QObject *parent = nullptr);
    ~ConsoleFeed() override;

    /// Takes over a socket opened on Path.
    void accept(QWebSocket *socket);
    int connectionCount() const { return int(m_sockets.size()); }

    void conversationChanged(const QString &id);
    void listChanged();
    void chatChanged();
    void callsChanged();

private:
    void schedule();
    void forget();
    void flush();

    std::vector<QWebSocket *> m_sockets;
    QSet<QString> m_changed;
    bool m_listChanged = false;
    bool m_chatChanged = false;
    bool m_callsChanged = false;
    bool m_scheduled = false;
};

} // namespace VistrelService
