#include "CoBrowsing/CornerMask.h"

#include <QPainterPath>
#include <QWidget>

namespace VistrelKit {

QRegion CornerMask::region(const QSize &size, Corners corners, qreal radius)
{
    if (size.isEmpty())
        return QRegion();
    const qreal w = size.width();
    const qreal h = size.height();
    const qreal r = std::clamp(radius, 0.0, std::min(w, h) / 2);
    const qreal d = 2 * r;
    // Clockwise from the top-left corner; a square corner is a plain vertex.
    QPainterPath path;
    if (corners & TopLeft) {
        path.moveTo(0, r);
        path.arcTo(0, 0, d, d, 180, -90);
    } else {
        path.moveTo(0, 0);
    }
    if (corners & TopRight)
        path.arcTo(w - d, 0, d, d, 90, -90);
    else
        path.lineTo(w, 0);
    if (corners & BottomRight)
        path.arcTo(w - d, h - d, d, d, 0, -90);
    else
        path.lineTo(w, h);
    if (corners & BottomLeft)
        path.arcTo(0, h - d, d, d, 270, -90);
    else
        path.lineTo(0, h);
    path.closeSubpath();
    return QRegion(path.toFillPolygon().toPolygon());
}

void CornerMask::apply(QWidget *widget, Corners corners, qreal radius)
{
    widget->setMask(region(widget->size(), corners, radius));
}

} // namespace VistrelKit
