// A text frame on the WebSocket transport: one agent command object as JSON text. The socket
// hands the frame over as text, so invalid UTF-8 never reaches the sender.
#include "FuzzEnvironment.h"

#include "Network/WebSocket/WebSocketMessageSender.h"

#include <QCoreApplication>

using namespace VistrelKit;

namespace {
WebSocketMessageSender *sender;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    FuzzEnvironment::application();
    const FuzzEnvironment::TransportParts parts = FuzzEnvironment::transportParts();
    // Frames ask nothing of the screen.
    sender = new WebSocketMessageSender(parts.config, nullptr, nullptr, parts.http, parts.parser,
                                        nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    sender->handleText(QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size)));
    // The turn ends: frames left for the next one are read too.
    QCoreApplication::processEvents();
    return 0;
}
