#pragma once

#include <Vistrel/vistrel_export.h>

#include <QList>
#include <QRectF>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>

class QWidget;

namespace VistrelKit {

struct IOSConfig;

/// Finds what must be black in a screenshot before it leaves the device: the views the service
/// declares private, by tag (the integer property "vistrelTag") or by class (the class or any
/// base class has the given name), and the views private on the device whatever the service says:
/// password fields and the views the host marked with the property "vistrelPrivate".
class VISTREL_AUTOTEST_EXPORT PrivacyUtils
{
public:
    /// The dynamic property that carries a widget's tag.
    static constexpr const char *TagProperty = "vistrelTag";
    /// The dynamic property by which the host keeps a widget (and all it holds) private.
    static constexpr const char *PrivateProperty = "vistrelPrivate";

    /// The rectangles of root (in its units) to paint black in a picture of it: for each shown
    /// widget carrying a tag of config's blacklist, then each of its blacklistClasses, the
    /// service's rectangle and the widget's true one; then the true rectangle of every shown
    /// widget private on the device. warned holds the bad entries of config already logged: each
    /// is logged once, until it is taken out of warned.
    static QList<QRectF> privateRects(QWidget *root, const std::optional<IOSConfig> &config,
                                      QSet<QString> *warned);
    /// A line edit whose echo mode hides the text, or a widget the host marked private.
    static bool isPrivateOnDevice(const QWidget *widget);

    /// Every shown widget of root that passes test: root itself and its descendants, depth
    /// first, parents before children. Hidden widgets and other windows are left out with what
    /// they hold.
    static QList<QWidget *> shownViews(QWidget *root,
                                       const std::function<bool(const QWidget *)> &test);
    /// Whether any class of that name is known: registered as a pointer meta type
    /// (qRegisterMetaType<T *>()) or the class of a live widget or one of its bases.
    static bool isKnownClass(const QString &className);
    /// rect with its origin divided by ratio and its size kept.
    static QRectF scaledOrigin(const QRectF &rect, qreal ratio);

private:
    static void addServiceRects(QWidget *view, QWidget *root, QList<QRectF> &rects);
};

} // namespace VistrelKit
