#pragma once

#include "ChannelMessage.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

namespace VistrelService {

/// A device that polls "api/in/co", keyed by its visitor id; it may poll before any visit exists.
struct ChannelPoller
{
    QString visitorId;
    /// Of the last poll ("tId", "sId").
    QString tenantId;
    QString sessionId;
    /// The channels the last poll listened on, in its order.
    QStringList channels;
    /// What the last poll sent on them.
    QList<ChannelMessage> messages;
    QString additionalProperties;
    QDateTime lastPollAt;
    qint64 pollCount = 0;
};

} // namespace VistrelService
