#include "Monitoring/ViewMonitor.h"

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Monitoring/ScreenCapture.h"
#include "Network/MessageSender.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
std::unique_ptr<QTimer> repeatingTimer(int intervalMs, ViewMonitor *monitor,
                                       void (ViewMonitor::*tick)())
{
    auto timer = std::make_unique<QTimer>();
    timer->setInterval(intervalMs);
    QObject::connect(timer.get(), &QTimer::timeout, monitor, tick);
    timer->start();
    return timer;
}
} // namespace

ViewMonitor::ViewMonitor(ApplicationConfigWrapper *applicationConfig, ScreenPlatform *screen,
                         QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_screen(screen)
{
    connect(screen, &ScreenPlatform::pageShown, this, &ViewMonitor::checkPageSoon);
    connect(screen, &ScreenPlatform::tapped, this, [this](const QPointF &devicePixels) {
        if (m_clickWindow)
            handleClick(devicePixels);
    });
}

qint64 ViewMonitor::startTime() const
{
    return m_applicationConfig->config().vistrelConfig.startTime.value_or(0);
}

void ViewMonitor::start(MessageSender *messageSender, ErrorCompletion completion)
{
    m_messageSender = messageSender;
    // A new start captures at once, and logs a bad entry of the service's lists once more.
    m_screen->startWatching();
    m_warned.clear();

    Log::debug(u"Schedule new timer"_s);
    QPointer<ViewMonitor> self(this);
    // What this start queued is dropped when a stop() comes first, even in this turn.
    const auto stopped = [self, stops = m_stopCount] {
        return !self || self->m_stopCount != stops;
    };
    MainQueue::async([self, stopped] {
        if (!stopped())
            self->m_screenshotTimer =
                repeatingTimer(ScreenshotIntervalMs, self, &ViewMonitor::screenshotTick);
    });

    MainQueue::async([self, stopped, completion = std::move(completion)] {
        if (stopped())
            return;
        QWindow *root = self->m_screen->topWindow();
        if (!root) {
            completion(StringError(u"Cannot get root view"_s));
            return;
        }
        // Taps are seen on their way to the app and never consumed.
        self->m_screen->watchTaps(root);
        self->m_clickWindow = root;
        self->m_viewChangeTimer =
            repeatingTimer(ViewChangeIntervalMs, self, &ViewMonitor::viewChangeTick);
        completion(std::nullopt);
    });
}

void ViewMonitor::stop()
{
    Log::debug(u"Stop"_s);
    ++m_stopCount;
    m_screenshotTimer.reset();
    m_viewChangeTimer.reset();
    m_screen->stopWatching();
    QPointer<ViewMonitor> self(this);
    MainQueue::async([self] {
        if (!self)
            return;
        // Before what a start() after this stop() queued: it watches its window again.
        self->m_screen->watchTaps(nullptr);
        self->m_clickWindow.clear();
    });
}

void ViewMonitor::reportPageChange(const QString &name)
{
    if (!m_messageSender)
        return;
    m_messageSender->sendPageChange(startTime(), name, [](const std::optional<Error> &error) {
        if (error)
            Log::error(u"Sending view change failed: "_s + error->description());
    });
}

void ViewMonitor::resetLastScreenshot()
{
    m_lastScreenshot.reset();
    m_lastImage.reset();
}

void ViewMonitor::screenshotTick()
{
    QPointer<QWindow> root = m_screen->topWindow();
    if (!root) {
        Log::warning(u"Root view is null"_s);
        return;
    }
    const std::optional<IOSConfig> &config = m_applicationConfig->config().vistrelConfig.iosConfig;
    // Nothing painted, the same window and lists: the last capture still holds.
    const bool changed = m_screen->takeChanged(root);
    if (!changed && root == m_capturedWindow && config == m_capturedConfig &&
        ++m_ticksSinceCapture < ForcedCaptureTicks)
        return;
    m_ticksSinceCapture = 0;
    m_capturedWindow = root;
    m_capturedConfig = config;
    QPointer<ViewMonitor> self(this);
    m_screen->withTopWindow([self, root, stops = m_stopCount](QWindow *top) {
        // Another window on top by now: its views say nothing about what root shows, so root
        // could not be masked. The next tick takes the new window.
        if (!self || self->m_stopCount != stops || !root || top != root)
            return;
        self->capture(root);
    });
}

void ViewMonitor::capture(QWindow *window)
{
    const QImage shot =
        m_screen->capture(window, m_applicationConfig->config().vistrelConfig.iosConfig, &m_warned);
    // A blink of the same text cursor over the same text is no change; anything else is.
    const ScreenPlatform::Caret caret = m_screen->caret(window);
    const QRect ignored = caret == m_lastCaret ? caret.rect : QRect();
    if (m_lastImage && !ScreenCapture::differsOutside(*m_lastImage, shot, ignored))
        return;
    m_lastImage = shot;
    m_lastCaret = caret;
    const QByteArray bytes = ScreenCapture::encodeJpeg(shot);
    if (m_lastScreenshot == bytes)
        return;
    // Kept before sending, whatever the outcome: an unchanged screen is not sent again.
    m_lastScreenshot = bytes;
    if (!m_messageSender)
        qFatal("A changed screenshot has no message sender to go to");
    m_messageSender->sendScreenshot(bytes, startTime(), [](const std::optional<Error> &error) {
        if (error)
            Log::error(u"Sending screenshot failed: "_s + error->description());
    });
}

void ViewMonitor::checkPageSoon()
{
    // Once the page switch is done; one check for the pages a switch shows together.
    if (m_pageCheckQueued)
        return;
    m_pageCheckQueued = true;
    QPointer<ViewMonitor> self(this);
    MainQueue::async([self, stops = m_stopCount] {
        if (!self)
            return;
        self->m_pageCheckQueued = false;
        if (self->m_stopCount == stops)
            self->viewChangeTick();
    });
}

void ViewMonitor::viewChangeTick()
{
    // No window, no screen to name: waiting for one would pile up a wait at every tick.
    if (!m_screen->topWindow())
        return;
    QPointer<ViewMonitor> self(this);
    m_screen->withTopWindow([self, stops = m_stopCount](QWindow *top) {
        if (!self || self->m_stopCount != stops)
            return;
        const QString name = self->m_screen->viewName(top);
        if (!self->m_lastView) {
            self->m_lastView = name;
            return;
        }
        if (*self->m_lastView == name)
            return;
        Log::debug(u"View changed to: "_s + name);
        if (self->m_messageSender) {
            self->m_messageSender->sendPageChange(
                self->startTime(), name, [](const std::optional<Error> &error) {
                    if (error)
                        Log::error(u"Sending view change failed: "_s + error->description());
                });
        }
        self->m_lastView = name;
    });
}

void ViewMonitor::handleClick(const QPointF &devicePixels)
{
    Log::debug(u"Got click at "_s + QString::number(devicePixels.x()) + u", "_s +
               QString::number(devicePixels.y()));
    if (!m_messageSender)
        qFatal("A click has no message sender to go to");
    m_messageSender->sendClick(
        startTime(),
        [](const std::optional<Error> &error) {
            if (error)
                Log::warning(u"Cannot send click event: "_s + error->description());
        },
        devicePixels.x(), devicePixels.y());
}

} // namespace VistrelKit
