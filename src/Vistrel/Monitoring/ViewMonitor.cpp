#include "Monitoring/ViewMonitor.h"

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Monitoring/PrivacyUtils.h"
#include "Network/MessageSender.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QBuffer>
#include <QImageWriter>
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
{}

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

QImage ViewMonitor::render(QWidget *root)
{
    return root->grab().toImage();
}

QImage ViewMonitor::scaleToThird(const QImage &image)
{
    const QSize size(std::max(1, image.width() / 3), std::max(1, image.height() / 3));
    QImage scaled = image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (scaled.isNull())
        qFatal("Cannot scale the screenshot");
    return scaled;
}

QByteArray ViewMonitor::encodeJpeg(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(JpegQuality);
    if (!writer.write(image))
        qFatal("Cannot encode the screenshot as JPEG: %s", qPrintable(writer.errorString()));
    return bytes;
}

QByteArray ViewMonitor::captureScreenshot(QWidget *root, QWidget *controller,
                                          const std::optional<IOSConfig> &iosConfig)
{
    QImage image = render(root);
    if (iosConfig)
        PrivacyUtils::maskPrivateViews(image, controller, *iosConfig);
    return encodeJpeg(scaleToThird(image));
}

void ViewMonitor::screenshotTick()
{
    QPointer<QWidget> root = ViewUtils::topViewController();
    if (!root) {
        Log::warning(u"Root view is null"_s);
        return;
    }
    QPointer<ViewMonitor> self(this);
    ViewUtils::withTopViewController([self, root, stops = m_stopCount](QWidget *controller) {
        // Another window on top by now: its widgets say nothing about what root shows, so root
        // could not be masked. The next tick takes the new window.
        if (!self || self->m_stopCount != stops || !root || controller != root)
            return;
        const QByteArray bytes = captureScreenshot(
            root, controller, self->m_applicationConfig->config().vistrelConfig.iosConfig);
        if (self->m_lastScreenshot == bytes)
            return;
        // Kept before sending, whatever the outcome: an unchanged screen is not sent again.
        self->m_lastScreenshot = bytes;
        if (!self->m_messageSender)
            qFatal("A changed screenshot has no message sender to go to");
        self->m_messageSender->sendScreenshot(
            bytes, self->startTime(), [](const std::optional<Error> &error) {
                if (error)
                    Log::error(u"Sending screenshot failed: "_s + error->description());
            });
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
    const bool press = type == QEvent::MouseButtonPress || type == QEvent::TouchBegin;
    const bool release = type == QEvent::MouseButtonRelease || type == QEvent::TouchEnd;
    if ((!press && !release) || !m_clickRoot || !watched->isWidgetType())
        return false;
    auto *widget = static_cast<QWidget *>(watched);
    QWidget *root = m_clickRoot;
    if (widget != root && !root->isAncestorOf(widget))
        return false;

    // An event ignored by a widget travels on to its parents (as a copy): count it once.
    auto *input = static_cast<QPointerEvent *>(event);
    if (input->pointCount() != 1 ||
        (type == m_lastEventType && input->timestamp() == m_lastEventTimestamp)) {
        return false;
    }
    m_lastEventType = type;
    m_lastEventTimestamp = input->timestamp();

    const QPointF position = widget->mapTo(root, input->point(0).position());
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
