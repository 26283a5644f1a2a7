#pragma once

#include <QByteArray>

namespace VistrelService {

/// A fixed answer for an endpoint, set by tests to play a misbehaving service.
struct CannedReply
{
    int status = 200;
    QByteArray body;
    QByteArray contentType = QByteArrayLiteral("application/json");
    /// Close the connection without answering (a transport error on the kit's side).
    bool dropConnection = false;
};

} // namespace VistrelService
