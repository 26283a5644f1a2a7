#pragma once

#include <QHostAddress>
#include <QTcpServer>

/// A loopback port that nobody listens on: a free one is bound, then released again.
inline quint16 closedPort()
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost, 0))
        qFatal("Cannot find a free loopback port");
    return server.serverPort();
}
