// The reply to a report POST on the HTTP transport: a JSON array of strings, each the JSON text
// of an array of agent command objects, handed to the command parser as the transport does.
#include "FuzzEnvironment.h"

#include "Network/Xhr/XhrMessageSender.h"

using namespace VistrelKit;

namespace {
XhrMessageSender *sender;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    FuzzEnvironment::application();
    const FuzzEnvironment::TransportParts parts = FuzzEnvironment::transportParts();
    // Replies ask nothing of the screen.
    sender =
        new XhrMessageSender(parts.config, nullptr, nullptr, parts.http, parts.parser, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    sender->processReply(FuzzEnvironment::bytes(data, size));
    return 0;
}
