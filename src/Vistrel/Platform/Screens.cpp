#include "Platform/Screens.h"

#include <QGuiApplication>
#include <QQuickWindow>

namespace VistrelKit {

Screens::Screens(ScreenPlatform *widgets, ScreenPlatform *quick, QObject *parent)
    : ScreenPlatform(parent)
    , m_widgets(widgets)
    , m_quick(quick)
{
    for (ScreenPlatform *screen : {widgets, quick}) {
        screen->setParent(this);
        connect(screen, &ScreenPlatform::tapped, this, &ScreenPlatform::tapped);
        connect(screen, &ScreenPlatform::pageShown, this, &ScreenPlatform::pageShown);
    }
}

ScreenPlatform *Screens::screenOf(QWindow *window) const
{
    return qobject_cast<QQuickWindow *>(window) ? m_quick : m_widgets;
}

QWindow *Screens::topWindow() const
{
    QWindow *widgets = m_widgets->topWindow();
    QWindow *quick = m_quick->topWindow();
    if (!widgets || !quick)
        return widgets ? widgets : quick;
    QWindow *focus = QGuiApplication::focusWindow();
    if (focus == widgets || focus == quick)
        return focus;
    const auto area = [](const QWindow *window) {
        return qint64(window->width()) * window->height();
    };
    return area(quick) > area(widgets) ? quick : widgets;
}

QString Screens::viewName(QWindow *window) const
{
    return screenOf(window)->viewName(window);
}

QImage Screens::capture(QWindow *window, const std::optional<IOSConfig> &config,
                        QSet<QString> *warned)
{
    return screenOf(window)->capture(window, config, warned);
}

ScreenPlatform::Caret Screens::caret(QWindow *window) const
{
    return screenOf(window)->caret(window);
}

void Screens::startWatching()
{
    m_widgets->startWatching();
    m_quick->startWatching();
}

void Screens::stopWatching()
{
    m_widgets->stopWatching();
    m_quick->stopWatching();
}

bool Screens::takeChanged(QWindow *window)
{
    return screenOf(window)->takeChanged(window);
}

void Screens::watchTaps(QWindow *window)
{
    // One window's taps at a time.
    ScreenPlatform *owner = window ? screenOf(window) : nullptr;
    m_widgets->watchTaps(owner == m_widgets ? window : nullptr);
    m_quick->watchTaps(owner == m_quick ? window : nullptr);
}

bool Screens::tap(QWindow *window, const QPointF &devicePixels)
{
    return screenOf(window)->tap(window, devicePixels);
}

QObject *Screens::showDrawing(QWindow *window, const QImage &image)
{
    return screenOf(window)->showDrawing(window, image);
}

void Screens::removeOverlay(QObject *overlay)
{
    // Each screen takes only overlays of its kind.
    m_widgets->removeOverlay(overlay);
    m_quick->removeOverlay(overlay);
}

QObject *Screens::askOptIn(QWindow *window, const OptInTexts &texts,
                           std::function<void(bool)> answered)
{
    return screenOf(window)->askOptIn(window, texts, std::move(answered));
}

void Screens::withdrawOptIn(QObject *question)
{
    m_widgets->withdrawOptIn(question);
    m_quick->withdrawOptIn(question);
}

bool Screens::hasCoBrowseView(QWindow *window) const
{
    return screenOf(window)->hasCoBrowseView(window);
}

CoBrowseView *Screens::showCoBrowseView(QWindow *window)
{
    return screenOf(window)->showCoBrowseView(window);
}

} // namespace VistrelKit
