#include "Monitoring/ScreenChangeTracker.h"

#include <QCoreApplication>
#include <QEvent>
#include <QStackedWidget>
#include <QWidget>

namespace VistrelKit {

ScreenChangeTracker::ScreenChangeTracker(QObject *parent)
    : QObject(parent)
{}

ScreenChangeTracker::~ScreenChangeTracker()
{
    stop();
}

void ScreenChangeTracker::start()
{
    m_changed = true;
    if (QCoreApplication *app = QCoreApplication::instance()) {
        app->removeEventFilter(this);
        app->installEventFilter(this);
    }
}

void ScreenChangeTracker::stop()
{
    if (QCoreApplication *app = QCoreApplication::instance())
        app->removeEventFilter(this);
}

bool ScreenChangeTracker::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    // Widgets paint in a window's update request (update(), repaint()) or its expose.
    case QEvent::UpdateRequest:
    case QEvent::Expose:
        m_changed = true;
        break;
    // A popup or tool tip moved or closed leaves its window's pixels as they were.
    case QEvent::Show:
    case QEvent::Hide:
    case QEvent::Move:
    case QEvent::Resize:
        if (watched->isWidgetType()) {
            auto *widget = static_cast<QWidget *>(watched);
            if (widget->isWindow())
                m_changed = true;
            else if (event->type() == QEvent::Show &&
                     qobject_cast<QStackedWidget *>(widget->parentWidget()))
                Q_EMIT pageShown();
        }
        break;
    default:
        break;
    }
    return false;
}

} // namespace VistrelKit
