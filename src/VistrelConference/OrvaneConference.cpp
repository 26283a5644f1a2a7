#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConference.h>

#include "Conference.h"
#include "ConferenceKit.h"
#include "Core/Log.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
Conference *controller()
{
    Conference *conference = ConferenceKit::conference();
    if (!conference)
        Log::error(u"Cannot get Conference instance: Cannot find instance of Conference"_s);
    return conference;
}
} // namespace

OrvaneConference *Orvane::conference()
{
    static OrvaneConference *instance = new OrvaneConference;
    return instance;
}

OrvaneConference *Orvane::conferenceInstance()
{
    return conference();
}

void OrvaneConference::start(const ConferenceProperties &properties)
{
    if (Conference *conference = controller())
        conference->start(properties);
}

void OrvaneConference::join(const ConferenceProperties &properties)
{
    if (Conference *conference = controller())
        conference->join(properties);
}

void OrvaneConference::queueStatus(const QString &customerId,
                                   std::function<void(int position)> completion)
{
    if (Conference *conference = controller())
        conference->setQueueStatusCallback(customerId, std::move(completion));
}

bool OrvaneConference::isInCall() const
{
    Conference *conference = controller();
    return conference && conference->view();
}

} // namespace VistrelKit
