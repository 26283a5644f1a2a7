// The channel poll's reply (POST "api/in/co"): {"messages": [{"channel": "COQS", "payload":
// "4"}, ...]}, read whole or refused whole, each malformed message dropped alone.
#include "FuzzEnvironment.h"

#include "Communication/CommunicationMessageWrapper.h"

using namespace VistrelKit;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto reply = CommunicationMessageWrapper::decodeReply(FuzzEnvironment::bytes(data, size));
    if (!reply.isOk()) {
        (void)reply.error().description();
        return 0;
    }
    // A message the kit delivers is one it could have sent itself: it reads back unchanged.
    for (const CommunicationMessage &message : reply.value().messages) {
        const auto again = CommunicationMessage::fromJson(message.toJson());
        if (!again.isOk() || !(again.value() == message))
            qFatal("A poll message does not read back from its own encoding");
    }
    return 0;
}
