// The call's poll messages: a poll reply whose "S" (call status) and "COQS" (queue position)
// messages reach the listeners that joining the queue registered, as the poll delivers them.
// "SCB" messages start co-browsing whatever their payload, so no listener reads them.
#include "FuzzEnvironment.h"

#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Communication/Communication.h"
#include "Conference.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/ServiceHost.h"

#include <QCoreApplication>

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
HttpUtil *http;
Communication *communication;
Conference *conference;

void joinQueue()
{
    // Finishes what an earlier join left under way (its refused request) first.
    QCoreApplication::processEvents();
    ConferenceProperties properties;
    properties.customerId = u"customer-1"_s;
    properties.firstname = u"Ada"_s;
    conference->join(properties);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    FuzzEnvironment::application();
    auto *config = new ApplicationConfigWrapper;
    config->config().tenantId = u"tenant-1"_s;
    http = new HttpUtil(config);
    // Its network thread ends before Qt's globals go at exit.
    std::atexit([] { delete http; });
    // Joining posts the customer; nothing listens on this port, and the poll's own ticks are
    // minutes apart.
    auto *host = new ServiceHost;
    host->setServer(u"127.0.0.1:9"_s);
    auto *api = new OrvaneAPI(http, host);
    communication = new Communication(api, config);
    conference = new Conference(api, config, communication);
    conference->setQueueStatusCallback(u"customer-1"_s, [](int) {});
    joinQueue();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Position -1 ends the queue and its polls: the next input finds the customer queued again.
    if (!communication->registry().contains(conference->coQueueId()))
        joinQueue();
    const auto reply = CommunicationMessageWrapper::decodeReply(FuzzEnvironment::bytes(data, size));
    if (!reply.isOk())
        return 0;
    for (const CommunicationMessage &message : reply.value().messages) {
        const auto callbacks = communication->registry().callbacksFor(message.channel);
        for (const auto &callback : callbacks)
            callback(message);
    }
    return 0;
}
