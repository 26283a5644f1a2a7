// One agent command object ({"x":1,"y":2}, {"a":"c"}, {"co":{...}}, {"d":{"u":...}}) as both
// transports read it, and the strict base64 check of the drawing on its own.
#include "FuzzEnvironment.h"

#include "Network/Bidirectional/BidirectionalMessageParser.h"

using namespace VistrelKit;

namespace {
BidirectionalMessageParser *parser;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    parser = new BidirectionalMessageParser;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = FuzzEnvironment::bytes(data, size);
    if (const auto json = JsonUtils::parse(bytes))
        (void)parser->read(*json).toString();

    // Whatever the check lets through is base64 that Qt's strict decoder reads the same way.
    if (const auto drawing = BidirectionalMessageParser::decodeStrictBase64(bytes)) {
        const auto strict =
            QByteArray::fromBase64Encoding(bytes, QByteArray::AbortOnBase64DecodingErrors);
        if (!strict || *strict != *drawing)
            qFatal("The drawing passed the strict base64 check but is not strict base64");
    }
    return 0;
}
