#pragma once

#include "Quick/QuickTapWatcher.h"
#include "Screen/ScreenPlatform.h"

#include <Vistrel/vistrel_export.h>

#include <QMetaObject>
#include <QPointer>
#include <QQuickWindow>

#include <atomic>
#include <memory>

class QQmlEngine;
class QQuickItem;

namespace VistrelKit {

/// The screen of a Qt Quick app: its topmost QQuickWindow and the page it shows
/// (QuickViewUtils), read with grabWindow() and masked by QuickPrivacy (ScreenCapture), tapped
/// as a mouse would (QuickClick). A window counts as changed when its scene graph swapped a frame
/// since the last look. The kit's overlays are items over the window's content: the drawing a
/// QuickImageOverlay, the co-browse panel and the opt-in question the kit's own QML, built by the
/// window's QML engine (else the kit's), so no widget is ever built.
class VISTREL_AUTOTEST_EXPORT QuickScreen : public ScreenPlatform
{
    Q_OBJECT
public:
    explicit QuickScreen(QObject *parent = nullptr);
    ~QuickScreen() override;

    QWindow *topWindow() const override;
    QString viewName(QWindow *window) const override;
    QImage capture(QWindow *window, const std::optional<IOSConfig> &config,
                   QSet<QString> *warned) override;
    Caret caret(QWindow *window) const override;
    void startWatching() override;
    void stopWatching() override;
    bool takeChanged(QWindow *window) override;
    void watchTaps(QWindow *window) override;
    bool tap(QWindow *window, const QPointF &devicePixels) override;
    QObject *showDrawing(QWindow *window, const QImage &image) override;
    void removeOverlay(QObject *overlay) override;
    QObject *askOptIn(QWindow *window, const OptInTexts &texts,
                      std::function<void(bool)> answered) override;
    void withdrawOptIn(QObject *question) override;
    bool hasCoBrowseView(QWindow *window) const override;
    CoBrowseView *showCoBrowseView(QWindow *window) override;

private:
    /// One of the kit's QML items (qrc:/vistrel/qml/<name>.qml) over window's content, with
    /// properties set before its bindings run; null (logged) when it cannot be built.
    QQuickItem *createItem(QQuickWindow *window, const QString &name,
                           const QVariantMap &properties);
    QQmlEngine *engineFor(QQuickWindow *window);

    QuickTapWatcher m_taps;
    // The frames the counted window swapped (on the render thread) and the count last seen.
    QPointer<QQuickWindow> m_counted;
    QMetaObject::Connection m_frameConnection;
    std::shared_ptr<std::atomic<quint64>> m_frames;
    quint64 m_seenFrames = 0;
    bool m_forceChange = true;
    // For windows that no QML engine built.
    std::unique_ptr<QQmlEngine> m_engine;
};

} // namespace VistrelKit
