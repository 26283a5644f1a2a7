#pragma once

#include "Core/Error.h"

#include <Vistrel/vistrel_export.h>

#include <QByteArray>
#include <QEvent>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <memory>
#include <optional>

namespace VistrelKit {

class ApplicationConfigWrapper;
class MessageSender;
struct IOSConfig;

/// Watches the app's screen while a session runs: a screenshot of the topmost window every
/// 0.3 s (masked, scaled to a third, JPEG at quality 40, sent only when its bytes changed), the
/// screen's name every second (sent when it changed), and every completed tap, in device pixels.
class VISTREL_AUTOTEST_EXPORT ViewMonitor : public QObject
{
    Q_OBJECT
public:
    explicit ViewMonitor(ApplicationConfigWrapper *applicationConfig, QObject *parent = nullptr);
    ~ViewMonitor() override;

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
    void resetLastScreenshot() { m_lastScreenshot.reset(); }
    std::optional<QString> lastView() const { return m_lastView; }
    bool isCapturingClicks() const { return m_clickRoot != nullptr; }

    /// One screenshot as it would be sent: root rendered, masked, scaled to a third and encoded.
    static QByteArray captureScreenshot(QWidget *root, QWidget *controller,
                                        const std::optional<IOSConfig> &iosConfig);
    /// Renders root at its device pixel ratio.
    static QImage render(QWidget *root);
    /// A third of the image in each dimension, smoothly scaled.
    static QImage scaleToThird(const QImage &image);
    /// JPEG at quality 40.
    static QByteArray encodeJpeg(const QImage &image);

    static constexpr int ScreenshotIntervalMs = 300;
    static constexpr int ViewChangeIntervalMs = 1000;
    static constexpr int JpegQuality = 40;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void screenshotTick();
    void viewChangeTick();
    void handleClick(const QPointF &positionInRoot);
    qint64 startTime() const;

    ApplicationConfigWrapper *m_applicationConfig;
    QPointer<MessageSender> m_messageSender;
    std::unique_ptr<QTimer> m_screenshotTimer;
    std::unique_ptr<QTimer> m_viewChangeTimer;
    quint64 m_stopCount = 0;
    std::optional<QByteArray> m_lastScreenshot;
    std::optional<QString> m_lastView;
    // The window whose taps are captured, and the press that may become a tap.
    QPointer<QWidget> m_clickRoot;
    std::optional<QPointF> m_pressInRoot;
    QEvent::Type m_lastEventType = QEvent::None;
    quint64 m_lastEventTimestamp = 0;
};

} // namespace VistrelKit
