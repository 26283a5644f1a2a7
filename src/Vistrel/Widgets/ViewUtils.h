#pragma once

#include <Vistrel/vistrel_export.h>

#include <QList>
#include <QString>

#include <functional>

class QWidget;

namespace VistrelKit {

/// Finds what is on screen: the topmost window and the name of the page it shows.
class VISTREL_PRIVATE_EXPORT ViewUtils
{
public:
    /// The active modal widget, else the active window, else the front-most visible top-level
    /// window (the largest one: main windows are). Nothing when no window is shown; a window of
    /// no area never counts.
    static QWidget *topViewController();
    /// The app's shown popups, menus, completers and tool tips (windows of their own in Qt) that
    /// overlap window on screen, bottom to top: a popup above the one it was opened from, tool
    /// tips above all.
    static QList<QWidget *> popupsOver(QWidget *window);
    /// Calls back on the GUI thread with the topmost window, retrying every 0.5 s until one exists.
    static void withTopViewController(std::function<void(QWidget *)> callback);
    /// The name that identifies the screen a window shows: the class of the current page of its
    /// page holders (QStackedWidget, QTabWidget), outermost first, else the window's own class.
    static QString viewName(QWidget *controller);
    /// All descendants of view that inherit className, depth first, each child's matching
    /// descendants before the child itself.
    static QList<QWidget *> subviews(QWidget *view, const char *className);
    /// Takes an overlay off its window at once (hidden, out of the window's tree, so a look for
    /// it right after finds nothing) and deletes it later, once the events under way are done.
    static void removeFromWindow(QWidget *view);

    static constexpr int RetryIntervalMs = 500;
};

} // namespace VistrelKit
