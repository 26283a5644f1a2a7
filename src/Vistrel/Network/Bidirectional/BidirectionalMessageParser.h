#pragma once

#include "Core/JsonUtils.h"
#include "Network/Bidirectional/BidirectionalMessage.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

/// Reads agent command objects ({"x":1,"y":2}, {"a":"c"}, {"co":{...}}, {"d":{"u":...}}) into
/// BidirectionalMessage records and emits each. Malformed parts are left out.
class VISTREL_AUTOTEST_EXPORT BidirectionalMessageParser : public QObject
{
    Q_OBJECT
public:
    explicit BidirectionalMessageParser(QObject *parent = nullptr);

    /// Reads object and emits the record. Never fails.
    void parse(const Json &object);
    /// The record alone, without handling it.
    BidirectionalMessage read(const Json &object) const;

    /// Standard base64 with padding and nothing else; nothing when the text is not that.
    static std::optional<QByteArray> decodeStrictBase64(const QByteArray &text);

Q_SIGNALS:
    /// One agent command, read; the device carries it out (connected by the kit's wiring).
    void messageReceived(const VistrelKit::BidirectionalMessage &message);

private:
    void readDrawing(const Json &object, BidirectionalMessage &message) const;
    void readConfiguration(const Json &object, BidirectionalMessage &message) const;
    void readAction(const Json &object, BidirectionalMessage &message) const;
    void readClick(const Json &object, BidirectionalMessage &message) const;

    const std::string m_drawing = "d";
    const std::string m_drawingUrl = "u";
    const std::string m_configuration = "co";
    const std::string m_configurationStart = "s";
    const std::string m_configurationBidirectional = "b";
    const std::string m_configurationOptIn = "opt";
    const std::string m_action = "a";
    const std::string m_actionClose = "c";
    const std::string m_clickX = "x";
    const std::string m_clickY = "y";
    const std::string m_base64Prefix = "data:image/png;base64,";
};

} // namespace VistrelKit
