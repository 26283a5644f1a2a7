// The web chat's configuration reply (GET "api/in/wc/c/<chat id>"): decoded as the chat decodes
// it, then made into the chat page's URL, whose fragment carries the texts.
#include "FuzzEnvironment.h"

#include "Api/OrvaneAPI.h"
#include "Api/WebChatConfigurationDTO.h"
#include "WebChat/ChatView.h"

#include <QUrl>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto reply = OrvaneAPI::decode<WebChatConfigurationDTO>(
        FuzzEnvironment::bytes(data, size), u"WebChatConfigurationDTO"_s);
    if (!reply.isOk()) {
        (void)reply.error().description();
        return 0;
    }
    const auto again = WebChatConfigurationDTO::fromJson(reply.value().toJson());
    if (!again.isOk() || !(again.value() == reply.value()))
        qFatal("The chat configuration does not read back from its own encoding");

    // The texts are percent-encoded into the fragment: whatever they hold, the page can open.
    const QString text =
        ChatView::chatUrl(u"http://127.0.0.1:8080/cdn"_s, u"127.0.0.1:8080"_s, 1700000000,
                          u"tenant-1"_s, u"visitor-1"_s, reply.value().params);
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty())
        qFatal("The service's chat texts make a chat URL that does not parse");
    return 0;
}
