#include "Screen/ScreenPlatform.h"

#include "Core/MainQueue.h"

#include <QPointer>
#include <QTimer>
#include <QWindow>

namespace VistrelKit {

void ScreenPlatform::withTopWindow(std::function<void(QWindow *)> callback)
{
    QPointer<ScreenPlatform> self(this);
    MainQueue::async([self, callback = std::move(callback)]() mutable {
        if (!self)
            return;
        if (QWindow *top = self->topWindow()) {
            callback(top);
            return;
        }
        QTimer::singleShot(RetryIntervalMs, self, [self, callback = std::move(callback)]() mutable {
            self->withTopWindow(std::move(callback));
        });
    });
}

} // namespace VistrelKit
