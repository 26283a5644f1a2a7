#include "Widgets/PassthroughUIView.h"

#include <QChildEvent>

namespace VistrelKit {

PassthroughUIView::PassthroughUIView(QWidget *parent)
    : QWidget(parent)
{
    updateShape();
}

bool PassthroughUIView::event(QEvent *event)
{
    switch (event->type()) {
    case QEvent::ChildAdded:
        if (auto *child = qobject_cast<QWidget *>(static_cast<QChildEvent *>(event)->child()))
            child->installEventFilter(this);
        updateShape();
        break;
    case QEvent::ChildRemoved:
    case QEvent::Resize:
    case QEvent::LayoutRequest:
    case QEvent::Polish:
        updateShape();
        break;
    default:
        break;
    }
    return QWidget::event(event);
}

bool PassthroughUIView::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Show:
    case QEvent::Hide:
    case QEvent::Move:
    case QEvent::Resize:
        updateShape();
        break;
    default:
        break;
    }
    return QWidget::eventFilter(watched, event);
}

void PassthroughUIView::updateShape()
{
    QRegion shape;
    const auto children = findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
    for (const QWidget *child : children) {
        if (!child->isHidden())
            shape += child->geometry();
    }
    // An empty mask would mean "no mask": with nothing to show, let every event through.
    setAttribute(Qt::WA_TransparentForMouseEvents, shape.isEmpty());
    if (shape.isEmpty())
        clearMask();
    else
        setMask(shape);
}

} // namespace VistrelKit
