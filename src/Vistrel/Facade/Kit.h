#pragma once

#include "Core/Injection.h"

#include <Vistrel/vistrel_export.h>

namespace VistrelKit {

/// The composition root: the one place that knows every class of the kit, registers them and
/// connects the signals by which lower objects tell higher ones what happened. The facades
/// resolve their objects from container().
class VISTREL_PRIVATE_EXPORT Kit
{
public:
    Kit() = delete;

    /// The process-wide container with the kit registered; built once, never torn down.
    static Injection &container();
    /// Adds the kit's registrations and wiring to a container.
    static void registerKit(Injection &container);
};

} // namespace VistrelKit
