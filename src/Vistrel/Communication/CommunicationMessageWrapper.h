#pragma once

#include "Communication/CommunicationMessage.h"

#include <Vistrel/vistrel_export.h>

#include <QList>

namespace VistrelKit {

/// The body of a poll and of its reply: the channels listened on, the messages sent on them
/// and extra query-style parameters.
struct VISTREL_AUTOTEST_EXPORT CommunicationMessageWrapper
{
    QList<CommunicationChannel> channels;
    QList<CommunicationMessage> messages;
    QString additionalProperties;

    /// {"channels": [...], "messages": [...], "additionalProperties": ""}, keys in that order.
    Json toJson() const;
    QByteArray encode() const { return JsonUtils::dump(toJson()); }

    /// A decoded reply: the well-formed messages, plus one error text for each one dropped.
    struct Decoded
    {
        QList<CommunicationMessage> messages;
        QStringList droppedMessages;
    };
    /// Reads the messages of a reply. A body that is not such an object fails as a whole; a
    /// malformed or unknown-channel message is dropped alone, so one bad message does not hold
    /// back the others. "channels" and "additionalProperties" are not needed to read a reply.
    static Result<Decoded> decodeReply(const QByteArray &body);
};

} // namespace VistrelKit
