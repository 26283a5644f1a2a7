#include "ConferenceKit.h"

#include "Api/OrvaneAPI.h"
#include "Communication/Communication.h"
#include "Conference.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConference.h>

namespace VistrelKit {

void ConferenceKit::registerConference(Injection &container)
{
    container.registerSingleton<Conference>(
        [build = Injection::from<Conference, OrvaneAPI, ApplicationConfigWrapper, Communication>()](
            Injection &c) -> std::unique_ptr<Conference> {
            std::unique_ptr<Conference> conference = build(c);
            if (!conference)
                return nullptr;
            OrvaneConference *facade = Orvane::conference();
            QObject::connect(conference.get(), &Conference::queuePositionChanged, facade,
                             &OrvaneConference::queuePositionChanged);
            QObject::connect(conference.get(), &Conference::callStarted, facade,
                             &OrvaneConference::callStarted);
            QObject::connect(conference.get(), &Conference::callEnded, facade,
                             &OrvaneConference::callEnded);
            return conference;
        });
}

Conference *ConferenceKit::conference()
{
    // The kit's container is built without the conference, which sits above it.
    static const bool registered = [] {
        registerConference(Kit::container());
        return true;
    }();
    Q_UNUSED(registered);
    return Kit::container().resolve<Conference>();
}

} // namespace VistrelKit
