#pragma once

#include <Vistrel/vistrel_export.h>

#include <QPointF>

class QQuickWindow;

namespace VistrelKit {

/// Carries out an agent's tap on a Qt Quick window.
class VISTREL_AUTOTEST_EXPORT QuickClick
{
public:
    /// A press and a release of the left button at position (device pixels of the window),
    /// delivered to the window as a mouse would: Button, MouseArea, TapHandler and list delegates
    /// react as to a finger. Outside the window nothing happens, and the answer is false.
    static bool tap(QQuickWindow *window, const QPointF &devicePixels);
};

} // namespace VistrelKit
