#include "Quick/QuickTapWatcher.h"

#include <QGuiApplication>
#include <QPointerEvent>
#include <QQuickWindow>
#include <QStyleHints>

namespace VistrelKit {

QuickTapWatcher::QuickTapWatcher(QObject *parent)
    : QObject(parent)
{}

void QuickTapWatcher::watch(QQuickWindow *window)
{
    if (m_window)
        m_window->removeEventFilter(this);
    m_window = window;
    m_press.reset();
    if (window)
        window->installEventFilter(this);
}

bool QuickTapWatcher::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    // The second press of a double click is a tap too.
    const bool press = type == QEvent::MouseButtonPress || type == QEvent::MouseButtonDblClick ||
                       type == QEvent::TouchBegin;
    const bool release = type == QEvent::MouseButtonRelease || type == QEvent::TouchEnd;
    if ((!press && !release) || watched != m_window)
        return false;
    auto *input = static_cast<QPointerEvent *>(event);
    if (input->pointCount() != 1)
        return false;
    const QPointF position = input->point(0).position();
    if (press) {
        m_press = position;
        return false;
    }
    if (!m_press)
        return false;
    const QPointF moved = position - *m_press;
    m_press.reset();
    if (moved.manhattanLength() <= QGuiApplication::styleHints()->startDragDistance())
        Q_EMIT tapped(position * m_window->effectiveDevicePixelRatio());
    return false;
}

} // namespace VistrelKit
