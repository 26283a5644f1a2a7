#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

class QApplication;

namespace VistrelKit {
class ApplicationConfigWrapper;
class BidirectionalMessageParser;
class HttpUtil;
} // namespace VistrelKit

/// What every fuzz target shares: one application object for the process and a log that writes
/// nothing, so the fuzzer's own report stays readable and each input runs at full speed.
class FuzzEnvironment
{
public:
    FuzzEnvironment() = delete;

    /// Routes the kit's log lines to a handler that drops them (each line is still formatted).
    static void silenceLog();
    /// The process's QApplication, created on first use on the offscreen platform unless
    /// QT_QPA_PLATFORM names another.
    static QApplication *application();
    /// What a transport needs to read the service's replies (no service behind it). The parser
    /// turns each command into text, as the command handler's log line does.
    struct TransportParts
    {
        VistrelKit::ApplicationConfigWrapper *config;
        VistrelKit::HttpUtil *http;
        VistrelKit::BidirectionalMessageParser *parser;
    };
    static TransportParts transportParts();
    /// The input as bytes, without a copy: the sanitizer sees reads past its end.
    static QByteArray bytes(const uint8_t *data, size_t size);
};
