#pragma once

#include "Core/Error.h"
#include "Core/Result.h"
#include "Screen/CoBrowseView.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QPointer>

#include <optional>

namespace VistrelKit {

class ApplicationConfigWrapper;
class Communication;
class ScreenPlatform;
class UIStrings;
class Vistrel;

/// Co-browsing: a screen session plus the co-browse widget that shows its share id. Also
/// listens on the "SCB" channel, through which an agent starts co-browsing by itself.
class VISTREL_AUTOTEST_EXPORT CoBrowsing : public QObject
{
    Q_OBJECT
public:
    /// screen lays the panel each start shows over the topmost window.
    CoBrowsing(Vistrel *vistrel, UIStrings *uiStrings, ApplicationConfigWrapper *applicationConfig,
               Communication *communication, ScreenPlatform *screen, QObject *parent = nullptr);

    /// Stops any screen session, shows the widget over the topmost window (fetching the UI
    /// texts first when they are not loaded) and starts a new session on sessionId. The
    /// completion is not called when the widget cannot be shown (that is logged instead).
    void start(const std::optional<QString> &sessionId, ErrorCompletion completion);
    /// Removes the widget (view() is null from now on) and stops the screen session.
    void stop();
    /// Stops the screen session and starts it again: co-browsing again when it was on, else the
    /// session alone on a new visit.
    void restart();
    /// Registers the "SCB" listener; each message on it starts co-browsing.
    void startPollingForStart();
    /// Shows or hides the widget's chat button (nothing without a widget).
    void setChatAvailable(bool flag);
    /// Writes the widget's share id label (nothing without a widget).
    void setShareIdText(const QString &text);

    bool isStarted() const { return m_isStarted; }
    /// The widget on screen; null before a start shows one and after a stop.
    CoBrowseView *view() const;

    QString startCoBrowsingId() const { return m_startCoBrowsingId; }
    double startCoBrowsingPollRate() const { return m_startCoBrowsingPollRate; }

Q_SIGNALS:
    /// Co-browsing is on: the widget shows and its session started.
    void started();
    /// The widget went: co-browsing ended, however it was stopped.
    void ended();
    /// The widget's chat button was tapped.
    void chatRequested(const QString &tenantId);

private:
    /// On the GUI thread: the widget, then the screen session.
    void showAndStartVistrel(const std::optional<QString> &sessionId, const QString &tenantId,
                             ErrorCompletion completion);
    Result<CoBrowseView *> showWidget(const QString &tenantId);
    QString text(const QString &key, const QString &fallback) const;

    Vistrel *m_vistrel;
    UIStrings *m_uiStrings;
    ApplicationConfigWrapper *m_applicationConfig;
    Communication *m_communication;
    ScreenPlatform *m_screen;
    const QString m_startCoBrowsingId;
    const double m_startCoBrowsingPollRate = 3.0;
    const QString m_errorString;
    const QString m_connectingString;
    QPointer<CoBrowseView> m_view;
    bool m_isStarted = false;
};

} // namespace VistrelKit
