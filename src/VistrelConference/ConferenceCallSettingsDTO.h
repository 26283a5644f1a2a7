#pragma once

#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <Vistrel/vistrelconference_export.h>

#include <QList>
#include <QPair>

#include <optional>

namespace VistrelKit {

/// The call's settings, as the service answers "cr/init/".
struct VISTREL_CONFERENCE_EXPORT ConferenceCallSettingsDTO
{
    using Texts = QList<QPair<QString, std::optional<QString>>>;

    std::optional<QString> customerId;
    /// The call's access token (the meeting's JWT).
    std::optional<QString> token;
    std::optional<QString> appName;
    /// Host of the meeting server: the call loads from "https://" + domain + "/".
    std::optional<QString> domain;
    /// Text keys to texts (a text may be null); "page.title" is the call's subject.
    std::optional<Texts> i18n;

    /// Missing or null keys are absent, unknown keys ignored; a present key of the wrong type
    /// fails.
    static Result<ConferenceCallSettingsDTO> fromJson(const Json &object);
    /// The "page.title" text, when there is one.
    std::optional<QString> subject() const;

    bool operator==(const ConferenceCallSettingsDTO &other) const = default;
};

} // namespace VistrelKit
