#pragma once

#include "Api/GrowthActionParams.h"

#include <Vistrel/vistrel_export.h>

#include <optional>

namespace VistrelKit {

/// The reply of GET "api/in/wc/c/<chat id>".
struct VISTREL_AUTOTEST_EXPORT WebChatConfigurationDTO
{
    std::optional<GrowthActionParams> params;

    /// "params" may be missing or null; present, it must be an object of strings.
    static Result<WebChatConfigurationDTO> fromJson(const Json &object);
    Json toJson() const;

    bool operator==(const WebChatConfigurationDTO &other) const = default;
};

} // namespace VistrelKit
