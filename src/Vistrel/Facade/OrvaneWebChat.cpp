#include <Vistrel/OrvaneWebChat.h>

#include "Facade/Kit.h"
#include "WebChat/ChatView.h"
#include "WebChat/WebChat.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

void OrvaneWebChat::open(const QString &chatId)
{
    if (auto *webChat = Kit::container().resolveOrLog<WebChat>())
        webChat->openOnTopWindow(chatId);
}

bool OrvaneWebChat::isOpen() const
{
    auto *webChat = Kit::container().resolveOrLog<WebChat>();
    return webChat && webChat->chatView() && webChat->chatView()->parentWidget();
}

} // namespace VistrelKit
