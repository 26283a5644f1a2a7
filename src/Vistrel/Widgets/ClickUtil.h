#pragma once

#include <Vistrel/vistrel_export.h>

#include <QPoint>

class QWidget;

namespace VistrelKit {

/// Performs a remote agent's tap on a widget.
class VISTREL_AUTOTEST_EXPORT ClickUtil
{
public:
    /// A button is clicked; in an item view the row at the point is selected (through the
    /// selection model, so the view's clicked/activated signals are not emitted); a combo box
    /// opens its popup; another widget that takes focus by clicking gets the focus. Anything
    /// else is left alone. position is in view's coordinates.
    static void click(QWidget *view, const QPoint &position);
    /// A tap on a popup (a menu, a combo box's list, a completer) as a finger's: a move, a press
    /// and a release at position (in popup's coordinates), sent to the widget there. What a popup
    /// does on a tap lives in its mouse handlers, with no public call that does it.
    static void tapPopup(QWidget *popup, const QPoint &position);
    /// The widget at a point of root (root itself when no child is there); nothing outside it.
    /// Widgets transparent for mouse events, such as the kit's overlays, are looked through.
    static QWidget *hitTest(QWidget *root, const QPoint &position);
};

} // namespace VistrelKit
