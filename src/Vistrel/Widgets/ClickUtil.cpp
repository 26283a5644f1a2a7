#include "Widgets/ClickUtil.h"

#include "Core/Log.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QComboBox>
#include <QCoreApplication>
#include <QDebug>
#include <QItemSelectionModel>
#include <QMouseEvent>
#include <QPointer>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
QString description(const QWidget *widget)
{
    QString text;
    QDebug(&text).nospace() << widget;
    return text;
}

// The item view whose viewport holds widget (a cell's editor or index widget included).
QAbstractItemView *itemViewOf(QWidget *widget)
{
    for (QWidget *w = widget; w; w = w->parentWidget()) {
        auto *view = qobject_cast<QAbstractItemView *>(w->parentWidget());
        if (view && view->viewport() == w)
            return view;
    }
    return nullptr;
}
} // namespace

void ClickUtil::click(QWidget *view, const QPoint &position)
{
    Log::debug(u"Found view: "_s + description(view));
    if (auto *button = qobject_cast<QAbstractButton *>(view)) {
        button->click();
        return;
    }
    if (QAbstractItemView *items = itemViewOf(view)) {
        const QModelIndex index = items->indexAt(view->mapTo(items->viewport(), position));
        if (index.isValid() && items->selectionModel()) {
            // Selected where it is: the agent tapped what the user sees, so nothing scrolls.
            const bool autoScroll = items->hasAutoScroll();
            items->setAutoScroll(false);
            items->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect |
                                                                QItemSelectionModel::Rows);
            items->setAutoScroll(autoScroll);
        }
        return;
    }
    if (auto *combo = qobject_cast<QComboBox *>(view)) {
        combo->showPopup();
        return;
    }
    if (view->isEnabled() && (view->focusPolicy() & Qt::ClickFocus))
        view->setFocus(Qt::MouseFocusReason);
}

void ClickUtil::tapPopup(QWidget *popup, const QPoint &position)
{
    QWidget *child = popup->childAt(position);
    QPointer<QWidget> target = child ? child : popup;
    Log::debug(u"Found view: "_s + description(target));
    const QPointF local = target->mapFrom(popup, QPointF(position));
    const QPointF global = popup->mapToGlobal(QPointF(position));
    const struct
    {
        QEvent::Type type;
        Qt::MouseButton button;
        Qt::MouseButtons buttons;
    } steps[] = {{QEvent::MouseMove, Qt::NoButton, Qt::NoButton},
                 {QEvent::MouseButtonPress, Qt::LeftButton, Qt::LeftButton},
                 {QEvent::MouseButtonRelease, Qt::LeftButton, Qt::NoButton}};
    for (const auto &step : steps) {
        // A press can close the popup, and a popup can delete itself when it closes.
        if (!target || !target->isVisible())
            return;
        QMouseEvent event(step.type, local, QPointF(position), global, step.button, step.buttons,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(target, &event);
    }
}

QWidget *ClickUtil::hitTest(QWidget *root, const QPoint &position)
{
    if (!root->rect().contains(position))
        return nullptr;
    QWidget *child = root->childAt(position);
    return child ? child : root;
}

} // namespace VistrelKit
