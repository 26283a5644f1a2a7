#include "Monitoring/PrivacyUtils.h"

#include "Config/IOSConfig.h"
#include "Core/Log.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QMetaType>
#include <QPainter>
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
} // namespace

void PrivacyUtils::maskPrivateViews(QImage &image, QWidget *root, const IOSConfig &config)
{
    QSet<int> tags;
    for (const QString &entry : config.blacklist) {
        bool ok = false;
        const int tag = entry.toInt(&ok, 10);
        if (!ok) {
            Log::warning(u"Cannot convert tag to integer"_s);
            continue;
        }
        tags.insert(tag);
    }
    // One walk for all tags, however long the list, and every widget that carries one: a tag is
    // often reused, say by the password fields of two pages of one stack.
    if (!tags.isEmpty()) {
        const auto views = viewsWithTags(root, tags);
        for (QWidget *view : views)
            maskView(view, root, image);
    }
    QSet<QString> classesDone;
    for (const QString &className : config.blacklistClasses) {
        if (!classesDone.contains(className)) {
            classesDone.insert(className);
            maskClass(root, className, image);
        }
    }
}

void PrivacyUtils::maskClass(QWidget *root, const QString &className, QImage &image)
{
    const QByteArray name = className.toLatin1();
    const auto views = ViewUtils::subviews(root, name.constData());
    // Only an empty result needs the (slower) question whether the class exists at all.
    if (views.isEmpty() && !isKnownClass(className)) {
        Log::warning(u"Cannot convert class name to class"_s);
        return;
    }
    for (QWidget *view : views)
        maskView(view, root, image);
}

void PrivacyUtils::maskView(QWidget *view, QWidget *root, QImage &image)
{
    // A hidden view (say, on a stacked page not shown) is not in the rendered image: painting
    // its rectangle would only black out whatever page is shown in its place.
    if (!view->isVisibleTo(root))
        return;
    // The service's rectangle: the view's frame (in its parent's coordinates) converted from the
    // view's own coordinates, as its masking settings were made for.
    const QRect frame = view->geometry();
    mask(image, QRectF(mapToRoot(view, root, frame.topLeft()), frame.size()));
    // And the view's true place, so that private content is covered wherever the view sits
    // (its origin scaled up, as mask() divides it by the ratio).
    const QPointF origin = mapToRoot(view, root, QPoint(0, 0)) * image.devicePixelRatio();
    mask(image, QRectF(origin, QSizeF(view->size())));
}

void PrivacyUtils::mask(QImage &image, const QRectF &rect)
{
    // Painted in place: a copy per view would cost a full-screen image each time.
    QPainter painter(&image);
    if (!painter.isActive())
        qFatal("Cannot paint the privacy mask");
    painter.fillRect(scaledOrigin(rect, image.devicePixelRatio()), Qt::black);
}

QRectF PrivacyUtils::scaledOrigin(const QRectF &rect, qreal ratio)
{
    return QRectF(rect.x() / ratio, rect.y() / ratio, rect.width(), rect.height());
}

QList<QWidget *> PrivacyUtils::viewsWithTags(QWidget *root, const QSet<int> &tags)
{
    QList<QWidget *> found;
    bool ok = false;
    const int tag = root->property(TagProperty).toInt(&ok);
    if (ok && tags.contains(tag))
        found.append(root);
    const auto children = root->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
    for (QWidget *child : children) {
        if (!child->isHidden() && !child->isWindow())
            found.append(viewsWithTags(child, tags));
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
