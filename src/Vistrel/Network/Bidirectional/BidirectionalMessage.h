#pragma once

#include <Vistrel/vistrel_export.h>

#include <QByteArray>
#include <QString>

#include <optional>

namespace VistrelKit {

/// One agent command as read from the wire; every field may be absent.
struct VISTREL_AUTOTEST_EXPORT BidirectionalMessage
{
    /// A tap in device pixels.
    struct Click
    {
        qint64 x = 0;
        qint64 y = 0;
        bool operator==(const Click &other) const = default;
    };

    /// The decoded PNG of the agent's drawing.
    std::optional<QByteArray> drawing;
    std::optional<bool> start;
    std::optional<bool> bidirectional;
    std::optional<bool> stop;
    std::optional<Click> click;
    std::optional<bool> optIn;

    /// e.g. BidirectionalMessage(drawing: nil, start: true, ..., click: Click(x: 1, y: 2), ...)
    QString toString() const;

    bool operator==(const BidirectionalMessage &other) const = default;
};

} // namespace VistrelKit
