#pragma once

#include <Vistrel/vistrel_export.h>

#include <QList>
#include <QRectF>
#include <QSet>
#include <QString>

#include <optional>

class QQuickItem;
class QQuickWindow;

namespace VistrelKit {

struct IOSConfig;

/// What must be black in a picture of a Qt Quick window before it leaves the device, as
/// PrivacyUtils finds it among widgets: the items the service declares private by tag (the
/// property "vistrelTag") or by class (the QML type name, or a C++ class the item inherits), and
/// the items private on the device whatever the service says: text inputs whose echo mode hides
/// the text, and the items the host marked with the property "vistrelPrivate" (with all they
/// hold).
class VISTREL_AUTOTEST_EXPORT QuickPrivacy
{
public:
    /// The names a host gives these properties, the same as on widgets.
    static constexpr const char *TagProperty = "vistrelTag";
    static constexpr const char *PrivateProperty = "vistrelPrivate";

    /// The rectangles of window (in its logical pixels) to paint black: for each visible item
    /// with a tag of config's blacklist, then of each of its blacklistClasses, the service's
    /// rectangle and the item's true one; then the true rectangle of every visible item private
    /// on the device. Bad entries of the lists are logged once while they stay in warned.
    static QList<QRectF> privateRects(QQuickWindow *window, const std::optional<IOSConfig> &config,
                                      QSet<QString> *warned);
    static bool isPrivateOnDevice(const QQuickItem *item);
};

} // namespace VistrelKit
