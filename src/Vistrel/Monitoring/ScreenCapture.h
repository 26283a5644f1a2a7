#pragma once

#include <Vistrel/vistrel_export.h>

#include <QByteArray>
#include <QImage>
#include <QList>
#include <QRect>
#include <QSet>
#include <QString>

#include <optional>

class QQuickWindow;
class QWidget;

namespace VistrelKit {

struct IOSConfig;

/// Turns what a window shows into the image the agent sees: the window's device pixels at a
/// third of their size, with the app's popups that overlap it composited at their place.
/// Private views are painted black on the small image (PrivacyUtils) before it is encoded.
class VISTREL_AUTOTEST_EXPORT ScreenCapture
{
public:
    /// The pixels the window shows, in device pixels. Where Qt keeps them in a raster backing
    /// store (readsBackingStore()) this is a view of that buffer, valid until the window paints
    /// again; otherwise the window is rendered.
    static QImage pixels(QWidget *window);
    /// Whether pixels() reads the window's backing store: the platform's backing store is a
    /// raster image that stays put between paints, the window is exposed, and nothing in it is
    /// composed outside that image (OpenGL, Qt Quick or web content, native child windows).
    static bool readsBackingStore(QWidget *window);
    /// The window rendered with QWidget::grab() at its device pixel ratio.
    static QImage render(QWidget *window);
    /// A third of the image in each dimension (at least 1×1): each pixel is the mean of a 3×3
    /// block, the area average a smooth scaler gives at this factor. The last 1–2 columns and
    /// rows of a size that is no multiple of 3 are left out.
    static QImage scaleToThird(const QImage &image);
    /// JPEG at quality 40.
    static QByteArray encodeJpeg(const QImage &image);
    /// The screenshot before encoding: the window at a third of its device pixels with its
    /// visible popups drawn over it at their place, every private view of either black.
    /// warned: the bad entries of config already logged (each is logged once while it stays).
    static QImage capture(QWidget *window, const std::optional<IOSConfig> &config,
                          QSet<QString> *warned);
    /// The same for a Qt Quick window: its device pixels (QQuickWindow::grabWindow()) at a third,
    /// every private item black (QuickPrivacy). Qt Quick's popups, menus and tool tips are items
    /// of the window, so they are in its pixels already.
    static QImage capture(QQuickWindow *window, const std::optional<IOSConfig> &config,
                          QSet<QString> *warned);
    /// Whether a and b (images of one size) differ anywhere outside ignored; images of
    /// different sizes always differ.
    static bool differsOutside(const QImage &a, const QImage &b, const QRect &ignored);
    /// A rectangle of window (in its units) as pixels of its third-size image: grown to whole
    /// pixels, so that every pixel it touches is inside.
    static QRect toThird(QWidget *window, const QRectF &rect);
    /// The same for a window of that device pixel ratio.
    static QRect toThird(qreal devicePixelRatio, const QRectF &rect);

    static constexpr int JpegQuality = 40;
};

} // namespace VistrelKit
