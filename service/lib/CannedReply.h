#pragma once

#include "HttpReply.h"

namespace VistrelService {

/// A fixed answer for an endpoint, set by tests to play a misbehaving service.
struct CannedReply : HttpReply
{
    /// Close the connection without answering (a transport error on the kit's side).
    bool dropConnection = false;
    /// How the answer is written when it is written at all.
    enum class Delivery {
        Whole,
        /// The headers announce the whole body, half of it follows, then the connection closes
        /// cleanly: a reply cut short.
        CutShort,
        /// The headers, then one byte of the body every trickleIntervalMs: never silent, never
        /// done.
        Trickle,
    };
    Delivery delivery = Delivery::Whole;
    int trickleIntervalMs = 200;

    static CannedReply dropped()
    {
        CannedReply reply;
        reply.dropConnection = true;
        return reply;
    }
    static CannedReply delivered(Delivery delivery, const QByteArray &body)
    {
        CannedReply reply;
        reply.body = body;
        reply.delivery = delivery;
        return reply;
    }
};

} // namespace VistrelService
