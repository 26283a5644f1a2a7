#pragma once

#include "Config/IOSConfig.h"

#include <Vistrel/vistrel_export.h>

#include <QString>

#include <optional>

namespace VistrelKit {

/// What the screen session learns from the host and the service.
struct VISTREL_AUTOTEST_EXPORT VistrelConfig
{
    std::optional<bool> isRecordingStarted;
    std::optional<bool> increasedPollingFrequency;
    std::optional<IOSConfig> iosConfig;
    /// Milliseconds since 1970 of the last start, always a whole second.
    std::optional<qint64> startTime;
    std::optional<QString> storageType;
    /// The five-digit number the user reads out to an agent.
    std::optional<QString> shareId;
    std::optional<bool> optIn;

    /// A new start time (now, in whole seconds, times 1000) and a new share id in 10000..99999.
    void newShareIdAndStartTime();
};

} // namespace VistrelKit
