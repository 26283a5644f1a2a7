#pragma once

#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <Vistrel/vistrel_export.h>

#include <optional>

namespace VistrelKit {

/// The chat's display texts and colour, as the service configures them; each one optional.
struct VISTREL_AUTOTEST_EXPORT GrowthActionParams
{
    std::optional<QString> color;
    std::optional<QString> hint;
    std::optional<QString> title;
    std::optional<QString> message;

    /// Keys may be missing or null; present ones must be strings.
    static Result<GrowthActionParams> fromJson(const Json &object);
    Json toJson() const;

    bool operator==(const GrowthActionParams &other) const = default;
};

} // namespace VistrelKit
