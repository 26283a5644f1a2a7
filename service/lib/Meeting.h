#pragma once

#include <QString>

#include <optional>

namespace VistrelService {

/// One call as the stand-in meeting page reported it when it opened.
struct Meeting
{
    QString room;
    QString jwt;
    QString displayName;
    QString email;
    std::optional<QString> subject;
    /// The agent ended it or the user hung up.
    bool ended = false;
};

} // namespace VistrelService
