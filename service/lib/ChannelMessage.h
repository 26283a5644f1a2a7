#pragma once

#include <QString>

namespace VistrelService {

/// One message on a named channel of the poll: {"channel": "SCB", "payload": ""}.
struct ChannelMessage
{
    QString channel;
    QString payload;

    friend bool operator==(const ChannelMessage &, const ChannelMessage &) = default;
};

} // namespace VistrelService
