#pragma once

#include "Monitoring/ScreenChangeTracker.h"
#include "Screen/ScreenPlatform.h"
#include "Widgets/WidgetTapWatcher.h"

#include <Vistrel/vistrel_export.h>

class QWidget;

namespace VistrelKit {

/// The screen of a Qt Widgets app: its topmost widget window (ViewUtils), read from its backing
/// store with its popups (ScreenCapture), masked by PrivacyUtils, tapped through ClickUtil; the
/// kit's overlays are widgets over the window. In a process without a QApplication it sees no
/// window, so it never builds a widget there.
class VISTREL_AUTOTEST_EXPORT WidgetScreen : public ScreenPlatform
{
    Q_OBJECT
public:
    explicit WidgetScreen(QObject *parent = nullptr);

    /// The top-level widget whose window this is; null for any other window.
    static QWidget *widgetOf(QWindow *window);

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
    ScreenChangeTracker m_changes;
    WidgetTapWatcher m_taps;
};

} // namespace VistrelKit
