#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace VistrelService {

/// The newest body POSTed to the user tag endpoint for one tenant and visitor.
struct TaggedUser
{
    QString tenantId;
    /// From the path.
    QString visitorId;
    /// Exactly as received: the key order is part of what the device sends.
    QByteArray body;
    QJsonObject user;
    QDateTime receivedAt;
};

} // namespace VistrelService
