#pragma once

#include <Vistrel/vistrel_export.h>

#include <QList>
#include <QString>

#include <functional>

class QObject;
class QQuickItem;
class QQuickWindow;

namespace VistrelKit {

/// Finds what a Qt Quick application shows: its topmost window and the name of the page on it.
class VISTREL_AUTOTEST_EXPORT QuickViewUtils
{
public:
    /// The focus window when it is a shown QQuickWindow, else the largest shown one; null when
    /// no Qt Quick window is shown. A window of no area never counts.
    static QQuickWindow *topWindow();
    /// The name of the screen window shows: the QML type (or C++ class) of the current page of
    /// its page holders (StackView, SwipeView, Loader), the outermost one met first, each page
    /// searched in turn for holders of its own; else the window's own type.
    static QString viewName(QQuickWindow *window);
    /// An object's QML type name without the suffix the engine adds to the types it builds
    /// ("SignInPage_QMLTYPE_3" is "SignInPage"), else its C++ class name.
    static QString typeName(const QObject *object);
    /// Takes an item the kit laid over a window off it at once (hidden, out of the scene and of
    /// its QObject parent) and deletes it later, once the events under way are done.
    static void removeFromWindow(QQuickItem *item);
    /// Every visible item of window that passes test, parents before children; an invisible
    /// item is left out with all it holds.
    static QList<QQuickItem *> shownItems(QQuickWindow *window,
                                          const std::function<bool(const QQuickItem *)> &test);
};

} // namespace VistrelKit
