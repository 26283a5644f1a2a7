#pragma once

#include <Vistrel/vistrel_export.h>

#include <QImage>
#include <QQuickPaintedItem>

namespace VistrelKit {

/// An image laid over all of a Qt Quick window at half opacity, above the app's items and popups;
/// it takes no input, so every touch goes through to what is beneath.
class VISTREL_AUTOTEST_EXPORT QuickImageOverlay : public QQuickPaintedItem
{
    Q_OBJECT
public:
    /// Lays the overlay over window's content, kept at its size.
    QuickImageOverlay(const QImage &image, QQuickWindow *window);

    const QImage &image() const { return m_image; }
    void paint(QPainter *painter) override;

    /// Above everything an app puts on its window, Qt Quick Controls' popup layer included.
    static constexpr qreal OverlayZ = 10000000;

private:
    QImage m_image;
};

} // namespace VistrelKit
