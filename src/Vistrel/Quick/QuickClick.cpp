#include "Quick/QuickClick.h"

#include "Core/Log.h"

#include <QCoreApplication>
#include <QMouseEvent>
#include <QPointer>
#include <QQuickWindow>

using namespace Qt::StringLiterals;

namespace VistrelKit {

void QuickClick::tap(QQuickWindow *window, const QPoint &devicePixels)
{
    const QPointF local = QPointF(devicePixels) / window->effectiveDevicePixelRatio();
    if (!QRectF(QPointF(0, 0), window->size()).contains(local)) {
        Log::warning(u"View not found"_s);
        return;
    }
    const QPointF global = window->mapToGlobal(local);
    QPointer<QQuickWindow> target(window);
    const struct
    {
        QEvent::Type type;
        Qt::MouseButton button;
        Qt::MouseButtons buttons;
    } steps[] = {{QEvent::MouseButtonPress, Qt::LeftButton, Qt::LeftButton},
                 {QEvent::MouseButtonRelease, Qt::LeftButton, Qt::NoButton}};
    for (const auto &step : steps) {
        // A press can close the window (a dialog's button).
        if (!target)
            return;
        QMouseEvent event(step.type, local, local, global, step.button, step.buttons,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(target, &event);
    }
}

} // namespace VistrelKit
