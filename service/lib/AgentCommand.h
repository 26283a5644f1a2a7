#pragma once

#include <QByteArray>

namespace VistrelService {

/// One agent command waiting for its visit's next delivery.
struct AgentCommand
{
    /// The text of one JSON command object, or, when raw, exactly what goes on the wire.
    QByteArray text;
    /// Raw text skips the wrapping below, so tests can hand the device malformed commands.
    bool raw = false;
    /// Unique within the service, from 1; the registry numbers commands as they are queued.
    qint64 id = 0;

    /// The string element of an XHR reply: the JSON text of an array of command objects.
    QByteArray xhrElement() const
    {
        if (raw)
            return text;
        QByteArray element;
        element.reserve(text.size() + 2);
        element += '[';
        element += text;
        element += ']';
        return element;
    }
    /// The text of one WebSocket frame: the command object itself.
    QByteArray frameText() const { return text; }
};

} // namespace VistrelService
