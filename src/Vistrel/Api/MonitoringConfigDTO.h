#pragma once

#include "Config/IOSConfig.h"
#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <Vistrel/vistrel_export.h>

#include <optional>

namespace VistrelKit {

/// The init reply: whether and how to monitor, and which views to mask.
struct VISTREL_AUTOTEST_EXPORT MonitoringConfigDTO
{
    bool shouldStartMonitoring = false;
    std::optional<QString> startMonitoringType;
    bool htmlExists = false;
    QString ip;
    IOSConfig ios;
    std::optional<QString> storageType;
    bool ignoreIp = false;
    std::optional<bool> disableWebSocket;
    std::optional<bool> chatActivated;

    /// Required keys must be present with the right type; optional keys may be missing or null
    /// but, when present, must have the right type too.
    static Result<MonitoringConfigDTO> fromJson(const Json &object);
    Json toJson() const;
};

} // namespace VistrelKit
