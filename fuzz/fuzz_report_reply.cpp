// The reply to a report POST on the HTTP transport: a JSON array of strings, each the JSON text
// of an array of agent command objects, handed to the command parser as the transport does.
#include "FuzzEnvironment.h"

#include "Api/HttpUtil.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrMessageSender.h"

using namespace VistrelKit;

namespace {
XhrMessageSender *sender;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    FuzzEnvironment::application();
    auto *config = new ApplicationConfigWrapper;
    auto *http = new HttpUtil(config);
    auto *parser = new BidirectionalMessageParser;
    // The command handler's first step: the command as its log line shows it.
    QObject::connect(parser, &BidirectionalMessageParser::messageReceived,
                     [](const BidirectionalMessage &message) { (void)message.toString(); });
    sender = new XhrMessageSender(config, nullptr, nullptr, http, parser);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    sender->processReply(FuzzEnvironment::bytes(data, size));
    return 0;
}
