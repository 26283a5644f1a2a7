#pragma once

#include <Vistrel/vistrel_export.h>

#include <QImage>
#include <QRectF>
#include <QSet>
#include <QStringList>

class QWidget;

namespace VistrelKit {

struct IOSConfig;

/// Paints the views the service declared private black in a screenshot, before it leaves the
/// device. A view is private by tag (the integer property "vistrelTag") or by class (its class or
/// any base class has the given name).
class VISTREL_AUTOTEST_EXPORT PrivacyUtils
{
public:
    /// The dynamic property that carries a widget's tag.
    static constexpr const char *TagProperty = "vistrelTag";

    /// Masks image (a rendering of root, in root's coordinates, with root's device pixel ratio):
    /// first every shown widget carrying a tag of config.blacklist, then every class of
    /// config.blacklistClasses.
    static void maskPrivateViews(QImage &image, QWidget *root, const IOSConfig &config);
    /// Masks every widget under root that is of className.
    static void maskClass(QWidget *root, const QString &className, QImage &image);
    /// Paints rect black on image, in place. The origin is divided by the image's device pixel
    /// ratio, the size is not (the service's masking settings assume it).
    static void mask(QImage &image, const QRectF &rect);

    /// Every shown widget carrying one of tags: root itself and its descendants, depth first,
    /// parents before children. Hidden widgets and other windows are left out with what they hold.
    static QList<QWidget *> viewsWithTags(QWidget *root, const QSet<int> &tags);
    /// Whether any class of that name is known: registered as a pointer meta type
    /// (qRegisterMetaType<T *>()) or the class of a live widget or one of its bases.
    static bool isKnownClass(const QString &className);

    /// rect with its origin divided by ratio and its size kept.
    static QRectF scaledOrigin(const QRectF &rect, qreal ratio);

private:
    static void maskView(QWidget *view, QWidget *root, QImage &image);
};

} // namespace VistrelKit
