#include "QuickAckServer.h"

#include <QTcpSocket>

#ifdef Q_OS_LINUX
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

namespace VistrelService {

void QuickAckServer::incomingConnection(qintptr handle)
{
    auto *socket = new QTcpSocket(this);
    if (!socket->setSocketDescriptor(handle)) {
        delete socket;
        return;
    }
    // Our replies go out in several writes too.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
#ifdef Q_OS_LINUX
    // Quick-ACK mode lasts only a while: enter it again before each read (connected before the
    // HTTP server's own reader, so it runs first).
    connect(socket, &QTcpSocket::readyRead, socket, [socket] {
        const int on = 1;
        ::setsockopt(int(socket->socketDescriptor()), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
    });
#endif
    addPendingConnection(socket);
}

} // namespace VistrelService
