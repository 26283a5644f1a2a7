#pragma once

#include "Config/IOSConfig.h"

#include <Vistrel/vistrel_export.h>

#include <QImage>
#include <QObject>
#include <QPointF>
#include <QRect>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>

class QWindow;

namespace VistrelKit {

class CoBrowseView;

/// Everything the session asks of the app's screen, whatever draws it: the window the user sees
/// and the name of its page, its pixels with private content black, the user's taps, the agent's
/// tap, and what the kit lays over it (a drawing, the opt-in question, the co-browse panel). A
/// window is a QWindow: a widget window's windowHandle(), or a QQuickWindow.
class VISTREL_AUTOTEST_EXPORT ScreenPlatform : public QObject
{
    Q_OBJECT
public:
    /// The focused text cursor as a capture sees it: where it is (in pixels of the screenshot)
    /// and what text it is in. The same cursor over the same text is a blink.
    struct Caret
    {
        const QObject *owner = nullptr;
        QRect rect;
        size_t text = 0;
        bool operator==(const Caret &) const = default;
    };

    /// The texts of the opt-in question; a title or message the service has not is left out.
    struct OptInTexts
    {
        std::optional<QString> title;
        std::optional<QString> message;
        QString accept;
        QString decline;
    };

    using QObject::QObject;

    /// The window the user sees; null when none is shown.
    virtual QWindow *topWindow() const = 0;
    /// The name of the screen window shows: the class or QML type of its current page.
    virtual QString viewName(QWindow *window) const = 0;
    /// The screenshot before encoding: window at a third of its device pixels, private content
    /// black. warned: the bad entries of config already logged (each is logged once).
    virtual QImage capture(QWindow *window, const std::optional<IOSConfig> &config,
                           QSet<QString> *warned) = 0;
    /// The focused text cursor in window, grown by a pixel; empty when none has focus there.
    virtual Caret caret(QWindow *window) const = 0;

    /// Notes paints and window changes until stopWatching(); counts as a change.
    virtual void startWatching() = 0;
    virtual void stopWatching() = 0;
    /// Whether window may show something else than at the last call.
    virtual bool takeChanged(QWindow *window) = 0;
    /// Reports the user's taps on window by tapped() from now on; null reports none.
    virtual void watchTaps(QWindow *window) = 0;

    /// Carries out the agent's tap at a point of window in device pixels, as a finger's; false
    /// when nothing is there to take it.
    virtual bool tap(QWindow *window, const QPointF &devicePixels) = 0;
    /// Lays image over all of window at half opacity; touches go through it. removeOverlay()
    /// takes it away.
    virtual QObject *showDrawing(QWindow *window, const QImage &image) = 0;
    /// Takes an overlay (a drawing) off its window at once (its parent() is null from then on)
    /// and deletes it later.
    virtual void removeOverlay(QObject *overlay) = 0;
    /// Asks the user, in a modal question over window, whether to start co-browsing. answered
    /// is called once: true on accept; false on decline, withdrawOptIn() or the question gone
    /// with its window.
    virtual QObject *askOptIn(QWindow *window, const OptInTexts &texts,
                              std::function<void(bool)> answered) = 0;
    /// Closes an open question as declined.
    virtual void withdrawOptIn(QObject *question) = 0;
    /// Whether a co-browse panel is on window.
    virtual bool hasCoBrowseView(QWindow *window) const = 0;
    /// Lays the co-browse panel over window, kept at its size; null when it cannot.
    virtual CoBrowseView *showCoBrowseView(QWindow *window) = 0;

    /// Calls back on the GUI thread with the topmost window, retrying every RetryIntervalMs
    /// until one is shown.
    void withTopWindow(std::function<void(QWindow *)> callback);

    static constexpr int RetryIntervalMs = 500;

Q_SIGNALS:
    /// The user tapped the watched window, at this point in its device pixels.
    void tapped(const QPointF &devicePixels);
    /// A page holder showed another page: the screen's name may have changed.
    void pageShown();
};

} // namespace VistrelKit
