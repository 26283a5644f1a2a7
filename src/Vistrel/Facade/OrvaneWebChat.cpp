#include <Vistrel/OrvaneWebChat.h>

#include "Core/Log.h"
#include "Facade/Kit.h"
#include "WebChat/ChatView.h"
#include "WebChat/WebChat.h"
#include "Widgets/ViewUtils.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace VistrelKit {

void OrvaneWebChat::open(const QString &chatId)
{
    auto *webChat = Kit::container().resolveOrLog<WebChat>();
    if (!webChat)
        return;
    QPointer<WebChat> guard(webChat);
    ViewUtils::withTopViewController([guard, chatId](QWidget *controller) {
        if (guard)
            guard->open(controller, chatId);
    });
}

bool OrvaneWebChat::isOpen() const
{
    auto *webChat = Kit::container().resolveOrLog<WebChat>();
    return webChat && webChat->chatView() && webChat->chatView()->parentWidget();
}

} // namespace VistrelKit
