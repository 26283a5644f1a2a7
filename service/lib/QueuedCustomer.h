#pragma once

#include <QByteArray>
#include <QString>

namespace VistrelService {

/// A customer waiting in a tenant's queue for a video call with an agent.
struct QueuedCustomer
{
    QString customerId;
    /// The body of their join request, byte for byte.
    QByteArray body;
    /// 1-based; 0 once the agent started the call and the customer's device should open it.
    int position = 0;
};

} // namespace VistrelService
