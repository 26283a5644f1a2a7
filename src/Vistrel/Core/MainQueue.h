#pragma once

#include <Vistrel/vistrel_export.h>

#include <functional>

namespace VistrelKit {

/// Runs work later on the GUI thread, after the current event has been handled.
class VISTREL_PRIVATE_EXPORT MainQueue
{
public:
    static void async(std::function<void()> work);

    /// How long work that yields to the event loop (a flood of agent commands, a long reply, a
    /// burst of frames) may run in one turn, so the app stays responsive.
    static constexpr int SliceMs = 5;
};

} // namespace VistrelKit
