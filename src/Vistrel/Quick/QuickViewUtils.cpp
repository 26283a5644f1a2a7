#include "Quick/QuickViewUtils.h"

#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickRenderControl>
#include <QQuickWindow>

#include <limits>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
bool isScreenWindow(const QQuickWindow *window)
{
    // A window of no area shows nothing and cannot be read.
    if (!window || !window->isVisible() || window->visibility() == QWindow::Minimized ||
        window->size().isEmpty())
        return false;
    // A QQuickWidget renders through an offscreen window: its pixels are part of the widget
    // window that holds it.
    if (QQuickRenderControl::renderWindowFor(const_cast<QQuickWindow *>(window)))
        return false;
    const Qt::WindowType type = window->type();
    return type == Qt::Window || type == Qt::Dialog || type == Qt::Sheet;
}

// The page a page holder shows, or null when item holds no pages.
QQuickItem *pageOf(QQuickItem *item)
{
    // Qt Quick Controls' classes are private: they are known by name and read by property.
    const char *property = nullptr;
    if (item->inherits("QQuickStackView") || item->inherits("QQuickSwipeView"))
        property = "currentItem";
    else if (item->inherits("QQuickLoader"))
        property = "item";
    if (!property)
        return nullptr;
    // No page yet (an empty stack, a loader still loading) names nothing.
    return qvariant_cast<QQuickItem *>(item->property(property));
}

// The page of the first page holder met breadth first below parent, so that an outer holder
// wins over the holders in its pages.
QQuickItem *currentPage(QQuickItem *parent)
{
    QList<QQuickItem *> level{parent};
    while (!level.isEmpty()) {
        QList<QQuickItem *> next;
        for (QQuickItem *item : std::as_const(level)) {
            if (item != parent) {
                if (QQuickItem *page = pageOf(item))
                    return page;
            }
            next.append(item->childItems());
        }
        level = std::move(next);
    }
    return nullptr;
}

void collect(QQuickItem *item, const std::function<bool(const QQuickItem *)> &test,
             QList<QQuickItem *> &found)
{
    if (!item->isVisible())
        return;
    if (test(item))
        found.append(item);
    const auto children = item->childItems();
    for (QQuickItem *child : children)
        collect(child, test, found);
}
} // namespace

QQuickWindow *QuickViewUtils::topWindow()
{
    if (auto *focus = qobject_cast<QQuickWindow *>(QGuiApplication::focusWindow());
        isScreenWindow(focus)) {
        return focus;
    }
    QQuickWindow *best = nullptr;
    qint64 bestArea = -1;
    const auto windows = QGuiApplication::topLevelWindows();
    for (QWindow *window : windows) {
        auto *quick = qobject_cast<QQuickWindow *>(window);
        if (!isScreenWindow(quick))
            continue;
        const qint64 area = qint64(quick->width()) * quick->height();
        if (area > bestArea) {
            best = quick;
            bestArea = area;
        }
    }
    return best;
}

QString QuickViewUtils::viewName(QQuickWindow *window)
{
    QObject *named = window;
    QQuickItem *holder = window->contentItem();
    while (QQuickItem *page = currentPage(holder)) {
        named = page;
        holder = page;
    }
    return typeName(named);
}

QString QuickViewUtils::typeName(const QObject *object)
{
    QString name = QString::fromLatin1(object->metaObject()->className());
    // The engine names the types it builds from QML "<Type>_QMLTYPE_<n>" (and "<Type>_QML_<n>"
    // for types it extends): the agent knows the page by its QML name.
    for (const QLatin1StringView marker : {"_QMLTYPE_"_L1, "_QML_"_L1}) {
        const qsizetype at = name.lastIndexOf(marker);
        if (at > 0) {
            name.truncate(at);
            break;
        }
    }
    return name;
}

QList<QQuickItem *> QuickViewUtils::shownItems(QQuickWindow *window,
                                               const std::function<bool(const QQuickItem *)> &test)
{
    QList<QQuickItem *> found;
    collect(window->contentItem(), test, found);
    return found;
}

void QuickViewUtils::removeFromWindow(QQuickItem *item)
{
    if (!item)
        return;
    item->setVisible(false);
    item->setParentItem(nullptr);
    item->setParent(nullptr);
    item->deleteLater();
}

} // namespace VistrelKit
