#include "Quick/QuickImageOverlay.h"

#include <QPainter>
#include <QQuickWindow>

namespace VistrelKit {

QuickImageOverlay::QuickImageOverlay(const QImage &image, QQuickWindow *window)
    : QQuickPaintedItem(window->contentItem())
    , m_image(image)
{
    QQuickItem *content = window->contentItem();
    setParentItem(content);
    setObjectName(QStringLiteral("vistrelDrawing"));
    setZ(OverlayZ);
    setOpacity(0.5);
    const auto fit = [this, content] { setSize(content->size()); };
    connect(content, &QQuickItem::widthChanged, this, fit);
    connect(content, &QQuickItem::heightChanged, this, fit);
    fit();
}

void QuickImageOverlay::paint(QPainter *painter)
{
    if (!m_image.isNull())
        painter->drawImage(boundingRect(), m_image);
}

} // namespace VistrelKit
