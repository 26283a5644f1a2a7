#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>

namespace VistrelService {

/// One message of a web chat, kept per tenant and visitor.
struct ChatMessage
{
    /// Unique in the service and increasing: the chat page's poll cursor.
    qint64 id = 0;
    /// "agent", "visitor" or "system" (what the chat page reports, e.g. that it was opened).
    QString from;
    QString text;
    /// A document the agent sent; both empty otherwise.
    QString documentName;
    /// Absolute, on the service's loopback address.
    QString documentUrl;
    QDateTime postedAt;
    /// When a poll of the chat page first fetched it; null until then.
    QDateTime deliveredAt;

    bool hasDocument() const { return !documentName.isEmpty(); }
    bool isDelivered() const { return deliveredAt.isValid(); }
};

} // namespace VistrelService

Q_DECLARE_METATYPE(VistrelService::ChatMessage)
