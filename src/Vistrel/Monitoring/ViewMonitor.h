#pragma once

#include "Config/IOSConfig.h"
#include "Core/Error.h"
#include "Screen/ScreenPlatform.h"

#include <Vistrel/vistrel_export.h>

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QSet>
#include <QTimer>
#include <QWindow>

#include <memory>
#include <optional>

namespace VistrelKit {

class ApplicationConfigWrapper;
class MessageSender;

/// Watches the app's screen (through its ScreenPlatform) while a session runs: a screenshot of
/// the topmost window every 0.3 s (private content black, a third of the device pixels, JPEG at
/// quality 40) sent when what it shows changed, the screen's name every second and whenever a
/// page holder shows another page (sent when it changed), and every completed tap, in device
/// pixels. A tick with nothing painted since the last capture does nothing, for at most
/// ForcedCaptureTicks ticks; a change inside the focused text cursor alone (its blink) is not
/// sent.
class VISTREL_AUTOTEST_EXPORT ViewMonitor : public QObject
{
    Q_OBJECT
public:
    ViewMonitor(ApplicationConfigWrapper *applicationConfig, ScreenPlatform *screen,
                QObject *parent = nullptr);

    /// Starts the timers and the tap capture over the topmost window. The completion reports
    /// "Cannot get root view" when no window is shown (the screenshot timer still runs). A stop()
    /// before the timers are up drops it uncalled.
    void start(MessageSender *messageSender, ErrorCompletion completion);
    /// Stops the timers now and the tap capture right after; what a start() or a tick queued
    /// before is dropped.
    void stop();
    /// Sends a page change with this name at once, when a sender is set.
    void reportPageChange(const QString &name);

    std::optional<QByteArray> lastScreenshot() const { return m_lastScreenshot; }
    /// Forgetting the last screenshot makes the next tick send one whatever it shows.
    void resetLastScreenshot();
    std::optional<QString> lastView() const { return m_lastView; }
    bool isCapturingClicks() const { return m_clickWindow != nullptr; }

    static constexpr int ScreenshotIntervalMs = 300;
    static constexpr int ViewChangeIntervalMs = 1000;
    /// Even with nothing painted, every tenth tick (3 s) captures, so that nothing missed by the
    /// change tracking stays stale for long.
    static constexpr int ForcedCaptureTicks = 10;

private Q_SLOTS:
    // Slots, so that a benchmark can time one tick through the meta-object system.
    void screenshotTick();
    void viewChangeTick();

private:
    void capture(QWindow *window);
    void checkPageSoon();
    void handleClick(const QPointF &devicePixels);
    qint64 startTime() const;

    ApplicationConfigWrapper *m_applicationConfig;
    ScreenPlatform *m_screen;
    QPointer<MessageSender> m_messageSender;
    std::unique_ptr<QTimer> m_screenshotTimer;
    std::unique_ptr<QTimer> m_viewChangeTimer;
    quint64 m_stopCount = 0;
    std::optional<QByteArray> m_lastScreenshot;
    // What the last screenshot sent showed, before encoding, and its text cursor.
    std::optional<QImage> m_lastImage;
    ScreenPlatform::Caret m_lastCaret;
    // What the last capture was of; a change of either forces the next one.
    QPointer<QWindow> m_capturedWindow;
    std::optional<IOSConfig> m_capturedConfig;
    int m_ticksSinceCapture = 0;
    bool m_pageCheckQueued = false;
    QSet<QString> m_warned;
    std::optional<QString> m_lastView;
    // The window whose taps are captured.
    QPointer<QWindow> m_clickWindow;
};

} // namespace VistrelKit
