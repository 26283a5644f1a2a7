#include "Quick/QuickPrivacy.h"

#include "Config/IOSConfig.h"
#include "Quick/QuickViewUtils.h"

#include <QMetaType>
#include <QQuickItem>
#include <QQuickWindow>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
// Where the item truly shows, in the window's logical pixels.
QRectF trueRect(const QQuickItem *item)
{
    return item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
}

void addServiceRects(const QQuickItem *item, qreal ratio, QList<QRectF> &rects)
{
    // As for widgets: the service's rectangle has its origin divided by the pixel ratio, as its
    // masking settings expect; the true one covers the item wherever it sits.
    const QRectF rect = trueRect(item);
    rects.append(QRectF(rect.x() / ratio, rect.y() / ratio, rect.width(), rect.height()));
    rects.append(rect);
}

bool hasType(const QQuickItem *item, const QString &className, const QByteArray &latin1)
{
    return QuickViewUtils::typeName(item) == className || item->inherits(latin1.constData());
}

// Whether anything in the window, shown or not, or any registered class has that name.
bool isKnownClass(QQuickWindow *window, const QString &className, const QByteArray &latin1)
{
    const QMetaType pointerType = QMetaType::fromName(QByteArray(latin1 + '*'));
    if (pointerType.isValid() && pointerType.metaObject())
        return true;
    const auto items = window->contentItem()->findChildren<QQuickItem *>();
    return std::any_of(items.begin(), items.end(),
                       [&](const QQuickItem *item) { return hasType(item, className, latin1); });
}
} // namespace

QList<QRectF> QuickPrivacy::privateRects(QQuickWindow *window,
                                         const std::optional<IOSConfig> &config,
                                         QSet<QString> *warned)
{
    QList<QRectF> rects;
    const qreal ratio = window->effectiveDevicePixelRatio();
    if (config) {
        const QSet<int> tags = config->tags(warned);
        if (!tags.isEmpty()) {
            const auto tagged = QuickViewUtils::shownItems(window, [&tags](const QQuickItem *item) {
                bool ok = false;
                const int tag = item->property(TagProperty).toInt(&ok);
                return ok && tags.contains(tag);
            });
            for (const QQuickItem *item : tagged)
                addServiceRects(item, ratio, rects);
        }
        const QStringList classes = config->classes();
        for (const QString &className : classes) {
            const QByteArray latin1 = className.toLatin1();
            const auto items = QuickViewUtils::shownItems(
                window, [&](const QQuickItem *item) { return hasType(item, className, latin1); });
            if (items.isEmpty() && !isKnownClass(window, className, latin1)) {
                IOSConfig::warnUnknownClass(className, warned);
                continue;
            }
            for (const QQuickItem *item : items)
                addServiceRects(item, ratio, rects);
        }
    }
    const auto onDevice = QuickViewUtils::shownItems(window, &QuickPrivacy::isPrivateOnDevice);
    for (const QQuickItem *item : onDevice)
        rects.append(trueRect(item));
    return rects;
}

bool QuickPrivacy::isPrivateOnDevice(const QQuickItem *item)
{
    if (item->property(PrivateProperty).toBool())
        return true;
    // TextInput and TextField; their echo mode Normal is 0, Password, NoEcho and
    // PasswordEchoOnEdit hide the text.
    return item->inherits("QQuickTextInput") && item->property("echoMode").toInt() != 0;
}

} // namespace VistrelKit
