#include "ConsoleFeed.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <QWebSocket>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace VistrelService {

ConsoleFeed::ConsoleFeed(QObject *parent)
    : QObject(parent)
{}

ConsoleFeed::~ConsoleFeed()
{
    // The sockets are children and outlive this body; keep them from calling back into it.
    for (QWebSocket *socket : m_sockets)
        socket->disconnect(this);
}

void ConsoleFeed::accept(QWebSocket *socket)
{
    socket->setParent(this);
    // The console sends nothing; anything it sends is not worth holding.
    socket->setMaxAllowedIncomingMessageSize(1024);
    connect(socket, &QWebSocket::disconnected, this, [this, socket] {
        m_sockets.erase(std::remove(m_sockets.begin(), m_sockets.end(), socket), m_sockets.end());
        socket->deleteLater();
    });
    m_sockets.push_back(socket);
}

void ConsoleFeed::conversationChanged(const QString &id)
{
    m_changed.insert(id);
    m_listChanged = true;
    schedule();
}

void ConsoleFeed::listChanged()
{
    m_listChanged = true;
    schedule();
}

void ConsoleFeed::chatChanged()
{
    m_chatChanged = true;
    schedule();
}

void ConsoleFeed::callsChanged()
{
    m_callsChanged = true;
    schedule();
}

void ConsoleFeed::schedule()
{
    // Without a console nothing is owed: a console that connects fetches everything.
    if (m_sockets.empty())
        forget();
    else if (!std::exchange(m_scheduled, true))
        QTimer::singleShot(0, this, &ConsoleFeed::flush);
}

void ConsoleFeed::forget()
{
    m_changed.clear();
    m_listChanged = m_chatChanged = m_callsChanged = false;
}

void ConsoleFeed::flush()
{
    m_scheduled = false;
    QStringList ids(m_changed.cbegin(), m_changed.cend());
    ids.sort();
    const QByteArray frame =
        QJsonDocument(QJsonObject{{u"conversations"_s, QJsonArray::fromStringList(ids)},
                                  {u"list"_s, m_listChanged},
                                  {u"chat"_s, m_chatChanged},
                                  {u"calls"_s, m_callsChanged}})
            .toJson(QJsonDocument::Compact);
    forget();
    for (QWebSocket *socket : m_sockets) {
        if (socket->state() == QAbstractSocket::ConnectedState)
            socket->sendTextMessage(QString::fromUtf8(frame));
    }
}

} // namespace VistrelService
