#include "Widgets/ViewUtils.h"

#include "Core/MainQueue.h"

#include <QApplication>
#include <QPointer>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTimer>
#include <QWidget>

#include <algorithm>
#include <limits>

namespace VistrelKit {

namespace {
bool isScreenWindow(const QWidget *widget)
{
    // A window of no area shows nothing and cannot be rendered.
    if (!widget->isWindow() || !widget->isVisible() || widget->isMinimized() ||
        widget->size().isEmpty())
        return false;
    const Qt::WindowType type = widget->windowType();
    return type == Qt::Window || type == Qt::Dialog || type == Qt::Sheet;
}

// The page holder that decides the screen's name inside parent: the first one met breadth first,
// so an outer holder wins over holders nested in its pages.
QWidget *currentPage(QWidget *parent)
{
    QList<QWidget *> level{parent};
    while (!level.isEmpty()) {
        QList<QWidget *> next;
        for (QWidget *widget : std::as_const(level)) {
            if (widget != parent) {
                if (auto *stack = qobject_cast<QStackedWidget *>(widget))
                    return stack->currentWidget();
                if (auto *tabs = qobject_cast<QTabWidget *>(widget))
                    return tabs->currentWidget();
            }
            const auto children = widget->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
            for (QWidget *child : children) {
                if (!child->isWindow())
                    next.append(child);
            }
        }
        level = std::move(next);
    }
    return nullptr;
}
} // namespace

QWidget *ViewUtils::topViewController()
{
    // Activation can lag behind hiding: a window that is no longer shown never counts.
    if (QWidget *modal = QApplication::activeModalWidget(); modal && isScreenWindow(modal))
        return modal;
    if (QWidget *active = QApplication::activeWindow(); active && isScreenWindow(active))
        return active;
    QWidget *best = nullptr;
    qint64 bestArea = -1;
    const auto windows = QApplication::topLevelWidgets();
    for (QWidget *widget : windows) {
        if (!isScreenWindow(widget))
            continue;
        const qint64 area = qint64(widget->width()) * widget->height();
        if (area > bestArea) {
            best = widget;
            bestArea = area;
        }
    }
    return best;
}

QList<QWidget *> ViewUtils::popupsOver(QWidget *window)
{
    const QRect area(window->mapToGlobal(QPoint(0, 0)), window->size());
    // Popups stack in the order they opened, and each opens from a widget of the one below.
    const auto level = [](const QWidget *popup) {
        if (popup->windowType() == Qt::ToolTip)
            return std::numeric_limits<int>::max();
        int depth = 0;
        for (const QWidget *w = popup->parentWidget(); w; w = w->parentWidget())
            depth += w->isWindow() && w->windowType() == Qt::Popup;
        return depth;
    };
    QList<QWidget *> popups;
    const auto windows = QApplication::topLevelWidgets();
    for (QWidget *widget : windows) {
        const Qt::WindowType type = widget->windowType();
        if ((type == Qt::Popup || type == Qt::ToolTip) && widget->isVisible() &&
            QRect(widget->mapToGlobal(QPoint(0, 0)), widget->size()).intersects(area))
            popups.append(widget);
    }
    std::stable_sort(popups.begin(), popups.end(),
                     [&level](const QWidget *a, const QWidget *b) { return level(a) < level(b); });
    return popups;
}

void ViewUtils::withTopViewController(std::function<void(QWidget *)> callback)
{
    MainQueue::async([callback = std::move(callback)]() mutable {
        if (QWidget *top = topViewController()) {
            callback(top);
            return;
        }
        QTimer::singleShot(RetryIntervalMs, QCoreApplication::instance(),
                           [callback = std::move(callback)]() mutable {
                               withTopViewController(std::move(callback));
                           });
    });
}

QString ViewUtils::viewName(QWidget *controller)
{
    QWidget *named = controller;
    while (QWidget *page = currentPage(named))
        named = page;
    return QString::fromLatin1(named->metaObject()->className());
}

QList<QWidget *> ViewUtils::subviews(QWidget *view, const char *className)
{
    QList<QWidget *> found;
    const auto children = view->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
    for (QWidget *child : children) {
        found.append(subviews(child, className));
        if (child->inherits(className))
            found.append(child);
    }
    return found;
}

void ViewUtils::removeFromWindow(QWidget *view)
{
    view->hide();
    view->setParent(nullptr);
    view->deleteLater();
}

} // namespace VistrelKit
