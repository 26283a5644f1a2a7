#include "Quick/QuickClick.h"

#include <QCoreApplication>
#include <QMouseEvent>
#include <QPointer>
#include <QQuickWindow>

namespace VistrelKit {

bool QuickClick::tap(QQuickWindow *window, const QPointF &devicePixels)
{
    const QPointF local = devicePixels / window->effectiveDevicePixelRatio();
    // Checked first: far-off numbers make no sense as a position.
    if (!QRectF(QPointF(0, 0), window->size()).contains(local))
        return false;
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
            return true;
        QMouseEvent event(step.type, local, local, global, step.button, step.buttons,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(target, &event);
    }
    return true;
}

} // namespace VistrelKit
