#pragma once

#include <Vistrel/vistrel_export.h>

#include <QFlags>
#include <QRegion>

class QWidget;

namespace VistrelKit {

/// Rounds chosen corners of a widget by masking it, so the rounding also clips children and
/// holds on every platform style.
class VISTREL_AUTOTEST_EXPORT CornerMask
{
public:
    enum Corner {
        TopLeft = 0x1,
        TopRight = 0x2,
        BottomLeft = 0x4,
        BottomRight = 0x8,
    };
    Q_DECLARE_FLAGS(Corners, Corner)

    /// The area of a rectangle of size with the given corners rounded by radius (clamped to
    /// half the shorter side).
    static QRegion region(const QSize &size, Corners corners, qreal radius);
    /// Sets that area as the widget's mask for its current size.
    static void apply(QWidget *widget, Corners corners, qreal radius);
};

Q_DECLARE_OPERATORS_FOR_FLAGS(CornerMask::Corners)

} // namespace VistrelKit
