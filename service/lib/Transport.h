#pragma once

#include <QString>

namespace VistrelService {

/// The two ways a device streams its reports: HTTP polling or one WebSocket.
enum class Transport { Xhr, WebSocket };

/// "xhr" or "websocket", as logs and the agent console show it.
inline QString transportName(Transport transport)
{
    return transport == Transport::Xhr ? QStringLiteral("xhr") : QStringLiteral("websocket");
}

} // namespace VistrelService
