// The call's settings (the reply of POST "cr/init/<tenant>/<customer>"): decoded as the call's
// start decodes them, made into the call's options and written into the page that creates the
// meeting. The texts from the service sit inside an inline script there, so none of them may
// change where a script of that page ends.
#include "FuzzEnvironment.h"

#include "Api/OrvaneAPI.h"
#include "Conference.h"
#include "ConferenceCallSettingsDTO.h"
#include "ConferenceView.h"

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
ConferenceProperties customer()
{
    ConferenceProperties properties;
    properties.customerId = u"customer-1"_s;
    properties.displayName = u"Ada L."_s;
    properties.email = u"ada@example.com"_s;
    return properties;
}

// What ends a script element early, or keeps its end tag from ending it ("<!--" followed by
// "<script" turns the next "</script>" into text).
qsizetype scriptBreaks(const QString &page)
{
    return page.count(u"</script"_s, Qt::CaseInsensitive) + page.count(u"<!--"_s);
}

qsizetype pageBreaks;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    // The page's own script ends, with no text from the service in it.
    ConferenceView::Options plain;
    plain.serverUrl = QUrl(u"https://meet.example/"_s);
    pageBreaks = scriptBreaks(ConferenceView::hostPage(plain));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto reply = OrvaneAPI::decode<ConferenceCallSettingsDTO>(
        FuzzEnvironment::bytes(data, size), u"ConferenceCallSettingsDTO"_s);
    if (!reply.isOk()) {
        (void)reply.error().description();
        return 0;
    }
    ConferenceProperties properties = customer();
    // The call is the one the service names.
    properties.customerId = reply.value().customerId;
    const auto options = Conference::callOptions(u"tenant-1"_s, properties, reply.value());
    if (!options)
        return 0;
    const QString page = ConferenceView::hostPage(*options);
    if (scriptBreaks(page) != pageBreaks)
        qFatal("Text from the call's settings changes where a script of the meeting page ends: %s",
               qPrintable(page.right(1200)));
    return 0;
}
