#include "Monitoring/ScreenCapture.h"

#include "Config/IOSConfig.h"
#include "Monitoring/PrivacyUtils.h"
#include "Quick/QuickPrivacy.h"
#include "Widgets/ViewUtils.h"

#include <QBackingStore>
#include <QBuffer>
#include <QGuiApplication>
#include <QImageWriter>
#include <QPainter>
#include <QQuickWindow>
#include <QWidget>
#include <QWindow>

#include <cstring>
#include <vector>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
// Platforms whose backing store is one raster image that keeps the last frame between paints.
// The macOS and iOS ones swap buffers at each flush, so the image handed out between paints is
// not the one on screen: there the window is rendered.
bool platformKeepsFrame()
{
    static const bool keeps = [] {
        const QString name = QGuiApplication::platformName();
        return name.startsWith(u"wayland"_s) ||
               QStringList{u"offscreen"_s, u"minimal"_s, u"xcb"_s, u"windows"_s,
                           u"eglfs"_s,     u"linuxfb"_s, u"vnc"_s, u"android"_s}
                   .contains(name);
    }();
    return keeps;
}

// Content that Qt composes outside the raster backing store, at flush or in a window of its own.
bool composedElsewhere(const QWidget *widget)
{
    return widget->inherits("QOpenGLWidget") || widget->inherits("QQuickWidget") ||
           widget->inherits("QWindowContainer");
}

QSize deviceSize(const QWidget *window)
{
    return (QSizeF(window->size()) * window->devicePixelRatioF()).toSize();
}

// A pixel's channels as two pairs in 16-bit lanes (blue and red, green and alpha): sums of nine
// pixels fit, so a sum costs one addition per pair.
constexpr quint32 PairMask = 0x00ff00ffu;

inline quint32 meanOfNine(quint32 blueRed, quint32 greenAlpha)
{
    const auto mean = [](quint32 sum) { return (sum + 4) / 9; };
    return 0xff000000u | mean(blueRed >> 16) << 16 | mean(greenAlpha & 0xffff) << 8 |
           mean(blueRed & 0xffff);
}

void paintPrivate(QImage &third, QWidget *root, const std::optional<IOSConfig> &config,
                  QSet<QString> *warned)
{
    const QList<QRectF> rects = PrivacyUtils::privateRects(root, config, warned);
    if (rects.isEmpty())
        return;
    QPainter painter(&third);
    if (!painter.isActive())
        qFatal("Cannot paint the privacy mask");
    for (const QRectF &rect : rects)
        painter.fillRect(ScreenCapture::toThird(root, rect), Qt::black);
}
} // namespace

bool ScreenCapture::readsBackingStore(QWidget *window)
{
    if (!platformKeepsFrame())
        return false;
    const QWindow *handle = window->windowHandle();
    QBackingStore *store = window->backingStore();
    if (!handle || !handle->isExposed() || handle->surfaceType() != QSurface::RasterSurface ||
        !store)
        return false;
    const QPaintDevice *device = store->paintDevice();
    if (!device || device->devType() != QInternal::Image)
        return false;
    const QSize size = static_cast<const QImage *>(device)->size();
    const QSize needed = deviceSize(window);
    if (size.width() < needed.width() || size.height() < needed.height())
        return false;
    const auto children = window->findChildren<QWidget *>();
    return std::none_of(children.cbegin(), children.cend(), composedElsewhere);
}

QImage ScreenCapture::pixels(QWidget *window)
{
    if (!readsBackingStore(window))
        return render(window);
    const auto *store = static_cast<const QImage *>(window->backingStore()->paintDevice());
    const QSize size = deviceSize(window);
    // The window's part of the buffer, read in place: no copy of a full-size frame.
    QImage view(store->constBits(), size.width(), size.height(), store->bytesPerLine(),
                store->format());
    view.setDevicePixelRatio(window->devicePixelRatioF());
    return view;
}

QImage ScreenCapture::render(QWidget *window)
{
    return window->grab().toImage();
}

QImage ScreenCapture::scaleToThird(const QImage &image)
{
    const int width = image.width() / 3;
    const int height = image.height() / 3;
    if (width == 0 || height == 0) {
        QImage scaled = image.scaled(std::max(1, width), std::max(1, height), Qt::IgnoreAspectRatio,
                                     Qt::SmoothTransformation);
        if (scaled.isNull())
            qFatal("Cannot scale the screenshot");
        return scaled;
    }
    const QImage::Format format = image.format();
    const QImage source = format == QImage::Format_RGB32 || format == QImage::Format_ARGB32 ||
                                  format == QImage::Format_ARGB32_Premultiplied
                              ? image
                              : image.convertToFormat(QImage::Format_RGB32);
    QImage third(width, height, QImage::Format_RGB32);
    if (third.isNull())
        qFatal("Cannot scale the screenshot");
    // Columns of three rows first (a plain loop the compiler vectorises), then triples of them.
    const int columns = 3 * width;
    std::vector<quint32> blueRed(columns);
    std::vector<quint32> greenAlpha(columns);
    for (int y = 0; y < height; ++y) {
        const auto *row0 = reinterpret_cast<const quint32 *>(source.constScanLine(3 * y));
        const auto *row1 = reinterpret_cast<const quint32 *>(source.constScanLine(3 * y + 1));
        const auto *row2 = reinterpret_cast<const quint32 *>(source.constScanLine(3 * y + 2));
        for (int x = 0; x < columns; ++x) {
            blueRed[x] = (row0[x] & PairMask) + (row1[x] & PairMask) + (row2[x] & PairMask);
            greenAlpha[x] =
                (row0[x] >> 8 & PairMask) + (row1[x] >> 8 & PairMask) + (row2[x] >> 8 & PairMask);
        }
        auto *out = reinterpret_cast<quint32 *>(third.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int i = 3 * x;
            out[x] = meanOfNine(blueRed[i] + blueRed[i + 1] + blueRed[i + 2],
                                greenAlpha[i] + greenAlpha[i + 1] + greenAlpha[i + 2]);
        }
    }
    return third;
}

QByteArray ScreenCapture::encodeJpeg(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(JpegQuality);
    if (!writer.write(image))
        qFatal("Cannot encode the screenshot as JPEG: %s", qPrintable(writer.errorString()));
    return bytes;
}

QRect ScreenCapture::toThird(QWidget *window, const QRectF &rect)
{
    return toThird(window->devicePixelRatioF(), rect);
}

QRect ScreenCapture::toThird(qreal devicePixelRatio, const QRectF &rect)
{
    const qreal scale = devicePixelRatio / 3;
    return QRectF(rect.x() * scale, rect.y() * scale, rect.width() * scale, rect.height() * scale)
        .toAlignedRect();
}

QImage ScreenCapture::capture(QWidget *window, const std::optional<IOSConfig> &config,
                              QSet<QString> *warned)
{
    QImage shot = scaleToThird(pixels(window));
    paintPrivate(shot, window, config, warned);
    const auto popups = ViewUtils::popupsOver(window);
    if (popups.isEmpty())
        return shot;
    QPainter painter(&shot);
    for (QWidget *popup : popups) {
        QImage part = scaleToThird(pixels(popup));
        paintPrivate(part, popup, config, warned);
        const QPoint place = window->mapFromGlobal(popup->mapToGlobal(QPoint(0, 0)));
        painter.drawImage(toThird(window, QRectF(place, popup->size())).topLeft(), part);
    }
    return shot;
}

QImage ScreenCapture::capture(QQuickWindow *window, const std::optional<IOSConfig> &config,
                              QSet<QString> *warned)
{
    QImage shot = scaleToThird(window->grabWindow());
    const QList<QRectF> rects = QuickPrivacy::privateRects(window, config, warned);
    if (rects.isEmpty())
        return shot;
    QPainter painter(&shot);
    if (!painter.isActive())
        qFatal("Cannot paint the privacy mask");
    const qreal ratio = window->effectiveDevicePixelRatio();
    for (const QRectF &rect : rects)
        painter.fillRect(toThird(ratio, rect), Qt::black);
    return shot;
}

bool ScreenCapture::differsOutside(const QImage &a, const QImage &b, const QRect &ignored)
{
    if (a.size() != b.size() || a.format() != b.format())
        return true;
    const QRect hole = ignored & a.rect();
    const int pixelBytes = a.depth() / 8;
    const qsizetype rowBytes = qsizetype(a.width()) * pixelBytes;
    for (int y = 0; y < a.height(); ++y) {
        const uchar *rowA = a.constScanLine(y);
        const uchar *rowB = b.constScanLine(y);
        if (hole.isEmpty() || y < hole.top() || y > hole.bottom()) {
            if (std::memcmp(rowA, rowB, rowBytes) != 0)
                return true;
            continue;
        }
        const qsizetype left = qsizetype(hole.left()) * pixelBytes;
        const qsizetype right = qsizetype(hole.right() + 1) * pixelBytes;
        if (std::memcmp(rowA, rowB, left) != 0 ||
            std::memcmp(rowA + right, rowB + right, rowBytes - right) != 0)
            return true;
    }
    return false;
}

} // namespace VistrelKit
