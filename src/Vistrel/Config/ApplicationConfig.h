#pragma once

#include "Config/VisitConfig.h"
#include "Config/VistrelConfig.h"

#include <Vistrel/ActiveUser.h>

#include <QString>

#include <optional>

namespace VistrelKit {

/// The one configuration tree every service reads at the moment of use.
struct ApplicationConfig
{
    /// Server host of the health probe, web chat and transport URLs.
    std::optional<QString> hostname;
    /// Base URL of static content.
    std::optional<QString> cdnPath;
    std::optional<QString> tenantId;
    std::optional<QString> token;
    std::optional<ActiveUser> activeUserTag;
    VisitConfig visitConfig;
    VistrelConfig vistrelConfig;
    std::optional<bool> chatAvailable;
};

} // namespace VistrelKit
