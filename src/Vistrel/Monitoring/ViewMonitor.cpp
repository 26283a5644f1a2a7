#include "Monitoring/ViewMonitor.h"

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Monitoring/ScreenCapture.h"
#include "Network/MessageSender.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QMouseEvent>
#include <QTouchEvent>
#include <QWidget>

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

ViewMonitor::ViewMonitor(ApplicationConfigWrapper *applicationConfig, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
{
    connect(&m_changes, &ScreenChangeTracker::pageShown, this, &ViewMonitor::checkPageSoon);
}

ViewMonitor::~ViewMonitor()
{
    if (QCoreApplication *app = QCoreApplication::instance())
        app->removeEventFilter(this);
}

qint64 ViewMonitor::startTime() const
{
    return m_applicationConfig->config().vistrelConfig.startTime.value_or(0);
}

void ViewMonitor::start(MessageSender *messageSender, ErrorCompletion completion)
{
    m_messageSender = messageSender;
    // A new start captures at once, and logs a bad entry of the service's lists once more.
    m_changes.start();
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
        QWidget *root = ViewUtils::topViewController();
        if (!root) {
            completion(StringError(u"Cannot get root view"_s));
            return;
        }
        // Taps are seen on their way to the app's widgets and never consumed.
        qApp->removeEventFilter(self);
        qApp->installEventFilter(self);
        self->m_clickRoot = root;
        self->m_pressInRoot.reset();
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
    m_changes.stop();
    QPointer<ViewMonitor> self(this);
    MainQueue::async([self] {
        if (!self)
            return;
        qApp->removeEventFilter(self);
        self->m_clickRoot.clear();
        self->m_pressInRoot.reset();
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
    QPointer<QWidget> root = ViewUtils::topViewController();
    if (!root) {
        Log::warning(u"Root view is null"_s);
        return;
    }
    const std::optional<IOSConfig> &config = m_applicationConfig->config().vistrelConfig.iosConfig;
    // Nothing painted, the same window and lists: the last capture still holds.
    const bool changed = m_changes.takeChanged();
    if (!changed && root == m_capturedRoot && config == m_capturedConfig &&
        ++m_ticksSinceCapture < ForcedCaptureTicks)
        return;
    m_ticksSinceCapture = 0;
    m_capturedRoot = root;
    m_capturedConfig = config;
    QPointer<ViewMonitor> self(this);
    ViewUtils::withTopViewController([self, root, stops = m_stopCount](QWidget *controller) {
        // Another window on top by now: its widgets say nothing about what root shows, so root
        // could not be masked. The next tick takes the new window.
        if (!self || self->m_stopCount != stops || !root || controller != root)
            return;
        self->capture(root);
    });
}

void ViewMonitor::capture(QWidget *root)
{
    const QImage shot = ScreenCapture::capture(
        root, m_applicationConfig->config().vistrelConfig.iosConfig, &m_warned);
    // A blink of the same text cursor over the same text is no change; anything else is.
    const Caret caret = caretIn(root);
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

ViewMonitor::Caret ViewMonitor::caretIn(QWidget *root)
{
    QWidget *focus = QApplication::focusWidget();
    if (!focus || focus->window() != root || !focus->testAttribute(Qt::WA_InputMethodEnabled))
        return {};
    const QRect cursor = focus->inputMethodQuery(Qt::ImCursorRectangle).toRect();
    if (cursor.isEmpty())
        return {};
    // A pixel more all round: the scaled pixels at the cursor's edges mix it with its neighbours.
    const QRect rect = ScreenCapture::toThird(root, QRectF(focus->mapTo(root, cursor.topLeft()),
                                                           QSizeF(cursor.size())))
                           .adjusted(-1, -1, 1, 1);
    const size_t text = qHashMulti(0, focus->inputMethodQuery(Qt::ImSurroundingText).toString(),
                                   focus->inputMethodQuery(Qt::ImCursorPosition).toInt(),
                                   focus->inputMethodQuery(Qt::ImAnchorPosition).toInt());
    return {focus, rect, text};
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
    if (!ViewUtils::topViewController())
        return;
    QPointer<ViewMonitor> self(this);
    ViewUtils::withTopViewController([self, stops = m_stopCount](QWidget *controller) {
        if (!self || self->m_stopCount != stops)
            return;
        const QString name = ViewUtils::viewName(controller);
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

bool ViewMonitor::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    // The second press of a double click comes as a double-click event: it is a tap too.
    const bool press = type == QEvent::MouseButtonPress || type == QEvent::MouseButtonDblClick ||
                       type == QEvent::TouchBegin;
    const bool release = type == QEvent::MouseButtonRelease || type == QEvent::TouchEnd;
    if ((!press && !release) || !m_clickRoot || !watched->isWidgetType())
        return false;
    auto *widget = static_cast<QWidget *>(watched);
    QWidget *root = m_clickRoot;
    const bool inRoot = widget == root || root->isAncestorOf(widget);
    // A popup (a menu, a combo box's list) is a window of its own, shown over the root: the
    // agent sees it in the screenshot, so its taps count, at their place on the root.
    if (!inRoot && widget->window()->windowType() != Qt::Popup)
        return false;

    // An event ignored by a widget travels on to its parents (as a copy): count it once.
    auto *input = static_cast<QPointerEvent *>(event);
    if (input->pointCount() != 1 ||
        (type == m_lastEventType && input->timestamp() == m_lastEventTimestamp)) {
        return false;
    }
    m_lastEventType = type;
    m_lastEventTimestamp = input->timestamp();

    const QPointF local = input->point(0).position();
    const QPointF position =
        inRoot ? widget->mapTo(root, local) : root->mapFromGlobal(widget->mapToGlobal(local));
    if (press) {
        m_pressInRoot = position;
        return false;
    }
    if (!m_pressInRoot)
        return false;
    const QPointF moved = position - *m_pressInRoot;
    m_pressInRoot.reset();
    if (moved.manhattanLength() <= QApplication::startDragDistance())
        handleClick(position);
    return false;
}

void ViewMonitor::handleClick(const QPointF &positionInRoot)
{
    Log::debug(u"Got click at "_s + QString::number(positionInRoot.x()) + u", "_s +
               QString::number(positionInRoot.y()));
    const qreal scale = m_clickRoot ? m_clickRoot->devicePixelRatioF() : 1.0;
    if (!m_messageSender)
        qFatal("A click has no message sender to go to");
    m_messageSender->sendClick(
        startTime(),
        [](const std::optional<Error> &error) {
            if (error)
                Log::warning(u"Cannot send click event: "_s + error->description());
        },
        positionInRoot.x() * scale, positionInRoot.y() * scale);
}

} // namespace VistrelKit
