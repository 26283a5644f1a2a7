#pragma once

#include <Vistrel/vistrel_export.h>

#include <functional>

namespace VistrelKit {

/// Runs work later on the GUI thread, after the current event has been handled.
class VISTREL_PRIVATE_EXPORT MainQueue
{
public:
    static void async(std::function<void()> work);
};

} // namespace VistrelKit
