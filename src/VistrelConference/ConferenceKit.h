#pragma once

#include <Vistrel/vistrelconference_export.h>

namespace VistrelKit {

class Conference;
class Injection;

/// The conference library's part of the composition root: registers Conference in the kit's
/// container (once, on first use) and connects it to its facade.
class VISTREL_CONFERENCE_EXPORT ConferenceKit
{
public:
    ConferenceKit() = delete;

    /// Adds Conference to a container.
    static void registerConference(Injection &container);
    /// The process-wide Conference, registered on first use; null when it cannot be built.
    static Conference *conference();
};

} // namespace VistrelKit
