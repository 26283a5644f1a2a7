#pragma once

#include <Vistrel/ConferenceProperties.h>

/// The demos' one user, Alex Morgan: who signs in, and who waits in the agents' call queue.
class DemoUser
{
public:
    DemoUser() = delete;

    /// The user's id: once signed in, it becomes the device's visitor id.
    static constexpr const char *Id = "A1E7C0DE-0000-4000-8000-00000000D3A0";

    /// Tells the service who signed in. The kit then restarts the screen session as a new visit
    /// under the user's id, so the agent sees a named customer from here on.
    static void signIn();
    /// The user as the agent sees them in the call queue and the call.
    static VistrelKit::ConferenceProperties customer();
};
