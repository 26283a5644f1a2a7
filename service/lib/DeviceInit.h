#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

namespace VistrelService {

/// What a device announced in its init request (POST api/in/im/c). Over HTTP this is the only
/// place the share id travels, so the console ties it to the visit by the visit id.
struct DeviceInit
{
    QString visitId;
    QString shareId;
    QString visitorId;
    QString sessionId;
    QString tenantId;
    /// The screen on display.
    QString url;
    bool optIn = false;
    QDateTime receivedAt;

    /// The announcement of an init body; nothing when the body is not a JSON object. Keys of
    /// the wrong type read as empty.
    static std::optional<DeviceInit> fromBody(const QByteArray &body, const QDateTime &receivedAt);
};

} // namespace VistrelService
