#include "Widgets/WidgetTapWatcher.h"

#include <QApplication>
#include <QMouseEvent>

namespace VistrelKit {

WidgetTapWatcher::WidgetTapWatcher(QObject *parent)
    : QObject(parent)
{}

WidgetTapWatcher::~WidgetTapWatcher()
{
    if (QCoreApplication *app = QCoreApplication::instance())
        app->removeEventFilter(this);
}

void WidgetTapWatcher::watch(QWidget *window)
{
    // Taps are seen on their way to the app's widgets, popups included. Not qApp: a Qt Quick
    // app has no QApplication, and its stop comes here too.
    QCoreApplication *app = QCoreApplication::instance();
    app->removeEventFilter(this);
    m_root = window;
    m_pressInRoot.reset();
    if (window)
        app->installEventFilter(this);
}

bool WidgetTapWatcher::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    // The second press of a double click comes as a double-click event: it is a tap too.
    const bool press = type == QEvent::MouseButtonPress || type == QEvent::MouseButtonDblClick ||
                       type == QEvent::TouchBegin;
    const bool release = type == QEvent::MouseButtonRelease || type == QEvent::TouchEnd;
    if ((!press && !release) || !m_root || !watched->isWidgetType())
        return false;
    auto *widget = static_cast<QWidget *>(watched);
    QWidget *root = m_root;
    const bool inRoot = widget == root || root->isAncestorOf(widget);
    // A popup is a window of its own, shown over the root.
    if (!inRoot && widget->window()->windowType() != Qt::Popup)
        return false;

    // An event ignored by a widget travels on to its parents (as a copy): count it once.
    auto *input = static_cast<QPointerEvent *>(event);
    if (input->pointCount() != 1 ||
        (type == m_lastEventType && input->timestamp() == m_lastEventTimestamp)) {
        return false;
    }
    m_lastEventType = type;
    m_lastEventTimestamp = input->timestamp();

    const QPointF local = input->point(0).position();
    const QPointF position =
        inRoot ? widget->mapTo(root, local) : root->mapFromGlobal(widget->mapToGlobal(local));
    if (press) {
        m_pressInRoot = position;
        return false;
    }
    if (!m_pressInRoot)
        return false;
    const QPointF moved = position - *m_pressInRoot;
    m_pressInRoot.reset();
    if (moved.manhattanLength() <= QApplication::startDragDistance())
        Q_EMIT tapped(position * root->devicePixelRatioF());
    return false;
}

} // namespace VistrelKit
