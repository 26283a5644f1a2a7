#pragma once

#include <QTcpServer>

namespace VistrelService {

/// A TCP server whose connections acknowledge what they receive at once. Qt's HTTP client writes a
/// request's headers and body separately with Nagle's algorithm on, so the body waits for the ACK
/// of the headers; a delayed ACK would hold every POST back by some 40 ms.
class QuickAckServer : public QTcpServer
{
    Q_OBJECT
public:
    using QTcpServer::QTcpServer;

protected:
    void incomingConnection(qintptr handle) override;
};

} // namespace VistrelService
