#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

#include <optional>

namespace VistrelKit {

/// The named channels of the poll; on the wire each is its own name ("SCB", "COQS").
enum class CommunicationChannel {
    CF,
    C,
    V,
    VCB,
    SCB, ///< any message starts co-browsing
    S,   ///< conference call status
    WC,
    CO,
    COQS, ///< conference queue position
    NO,
    JS,
};

/// The channel's wire name.
VISTREL_AUTOTEST_EXPORT QString toString(CommunicationChannel channel);
/// The channel of a wire name; nothing for any other text (names are case-sensitive).
VISTREL_AUTOTEST_EXPORT std::optional<CommunicationChannel>
communicationChannelFromString(const QString &name);

} // namespace VistrelKit
