#pragma once

#include "HttpReply.h"

namespace VistrelService {

/// A fixed answer for an endpoint, set by tests to play a misbehaving service.
struct CannedReply : HttpReply
{
    /// Close the connection without answering (a transport error on the kit's side).
    bool dropConnection = false;

    static CannedReply dropped()
    {
        CannedReply reply;
        reply.dropConnection = true;
        return reply;
    }
};

} // namespace VistrelService
