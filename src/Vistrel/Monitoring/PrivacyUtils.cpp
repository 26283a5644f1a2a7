#include "Monitoring/PrivacyUtils.h"

#include "Config/IOSConfig.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QLineEdit>
#include <QMetaType>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
// Where `view` sits in `root`'s coordinates, also when root is not one of its ancestors.
QPoint mapToRoot(QWidget *view, QWidget *root, const QPoint &point)
{
    if (view == root || root->isAncestorOf(view))
        return view->mapTo(root, point);
    return root->mapFromGlobal(view->mapToGlobal(point));
}

// Where the view truly sits in root, in root's units.
QRectF trueRect(QWidget *view, QWidget *root)
{
    return QRectF(mapToRoot(view, root, QPoint(0, 0)), view->size());
}
} // namespace

QList<QRectF> PrivacyUtils::privateRects(QWidget *root, const std::optional<IOSConfig> &config,
                                         QSet<QString> *warned)
{
    QList<QRectF> rects;
    if (config) {
        const QSet<int> tags = config->tags(warned);
        // One walk for all tags, and every widget that carries one: a tag is often reused, say
        // by the password fields of two pages of one stack.
        if (!tags.isEmpty()) {
            const auto tagged = shownViews(root, [&tags](const QWidget *widget) {
                bool ok = false;
                const int tag = widget->property(TagProperty).toInt(&ok);
                return ok && tags.contains(tag);
            });
            for (QWidget *view : tagged)
                addServiceRects(view, root, rects);
        }
        const QStringList classes = config->classes();
        for (const QString &className : classes) {
            const QByteArray name = className.toLatin1();
            const auto views = ViewUtils::subviews(root, name.constData());
            // Only an empty result needs the (slower) question whether the class exists at all.
            if (views.isEmpty() && !isKnownClass(className)) {
                IOSConfig::warnUnknownClass(className, warned);
                continue;
            }
            for (QWidget *view : views) {
                // A hidden view (say, on a stacked page not shown) is not in the picture:
                // painting its rectangle would only black out whatever is shown in its place.
                if (view->isVisibleTo(root))
                    addServiceRects(view, root, rects);
            }
        }
    }
    const auto onDevice = shownViews(root, &PrivacyUtils::isPrivateOnDevice);
    for (QWidget *view : onDevice)
        rects.append(trueRect(view, root));
    return rects;
}

void PrivacyUtils::addServiceRects(QWidget *view, QWidget *root, QList<QRectF> &rects)
{
    // The service's rectangle: the view's frame (in its parent's coordinates) converted from the
    // view's own coordinates, its origin divided by the ratio, as its masking settings expect.
    const QRect frame = view->geometry();
    rects.append(scaledOrigin(QRectF(mapToRoot(view, root, frame.topLeft()), frame.size()),
                              root->devicePixelRatioF()));
    // And the view's true place, so that private content is covered wherever the view sits.
    rects.append(trueRect(view, root));
}

bool PrivacyUtils::isPrivateOnDevice(const QWidget *widget)
{
    if (widget->property(PrivateProperty).toBool())
        return true;
    const auto *edit = qobject_cast<const QLineEdit *>(widget);
    return edit && edit->echoMode() != QLineEdit::Normal;
}

QRectF PrivacyUtils::scaledOrigin(const QRectF &rect, qreal ratio)
{
    return QRectF(rect.x() / ratio, rect.y() / ratio, rect.width(), rect.height());
}

QList<QWidget *> PrivacyUtils::shownViews(QWidget *root,
                                          const std::function<bool(const QWidget *)> &test)
{
    QList<QWidget *> found;
    if (test(root))
        found.append(root);
    const auto children = root->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
    for (QWidget *child : children) {
        if (!child->isHidden() && !child->isWindow())
            found.append(shownViews(child, test));
    }
    return found;
}

bool PrivacyUtils::isKnownClass(const QString &className)
{
    const QByteArray name = className.toLatin1();
    if (name.isEmpty())
        return false;
    const QMetaType pointerType = QMetaType::fromName(QByteArray(name + '*'));
    if (pointerType.isValid() && pointerType.metaObject())
        return true;
    const auto widgets = QApplication::allWidgets();
    for (const QWidget *widget : widgets) {
        for (const QMetaObject *meta = widget->metaObject(); meta; meta = meta->superClass()) {
            if (name == meta->className())
                return true;
        }
    }
    return false;
}

} // namespace VistrelKit
