#pragma once

#include "Screen/ScreenPlatform.h"

#include <Vistrel/vistrel_export.h>

namespace VistrelKit {

/// The app's screen whatever it is built with: a widgets screen and a Qt Quick screen side by
/// side. The topmost window is the one of the two that has the focus, else the larger; each
/// question about a window goes to the screen it belongs to. A QQuickWidget is part of its
/// widget window.
class VISTREL_AUTOTEST_EXPORT Screens : public ScreenPlatform
{
    Q_OBJECT
public:
    /// Takes both screens as children.
    Screens(ScreenPlatform *widgets, ScreenPlatform *quick, QObject *parent = nullptr);

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
    ScreenPlatform *screenOf(QWindow *window) const;

    ScreenPlatform *m_widgets;
    ScreenPlatform *m_quick;
};

} // namespace VistrelKit
