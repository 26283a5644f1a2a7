#pragma once

#include "Network/Bidirectional/BidirectionalMessage.h"
#include "Session/AgentCommandQueue.h"

#include <Vistrel/vistrel_export.h>

#include <QList>
#include <QObject>
#include <QPointer>
#include <QTimer>

class QWindow;

namespace VistrelKit {

class ApplicationConfigWrapper;
class CoBrowsing;
class ScreenPlatform;
class UIStrings;
class Vistrel;

/// Carries out agent commands on the device.
///
/// A service can send any number of commands at once, so the handler keeps what it does
/// bounded: commands wait in an AgentCommandQueue (its rules say what is merged or dropped) and
/// are carried out in arrival order, in slices of MainQueue::SliceMs per turn of the event loop, so
/// the app stays responsive; at most MaxDrawings drawings are on screen, and one opt-in dialog.
/// What a burst dropped is logged once, when the queue has run empty.
class VISTREL_AUTOTEST_EXPORT BidirectionalMessageHandler : public QObject
{
    Q_OBJECT
public:
    BidirectionalMessageHandler(ApplicationConfigWrapper *applicationConfig, UIStrings *uiStrings,
                                Vistrel *vistrel, CoBrowsing *coBrowsing, ScreenPlatform *screen,
                                QObject *parent = nullptr);

    /// Switches to faster polling at once when the command says so, and queues the rest. Each
    /// command is logged as it is carried out, on the GUI thread after this returns: drawing,
    /// tap, stop, opt-in question, start.
    void handle(const VistrelKit::BidirectionalMessage &message);

    /// Commands waiting to be carried out.
    qsizetype pendingCommands() const { return m_queue.size(); }

    /// Seconds a drawing stays on screen.
    double drawingTimeout() const { return m_drawingTimeout; }

    static constexpr qsizetype MaxDrawings = AgentCommandQueue::MaxDrawings;
    /// Longest run of commands between two turns of the event loop.

private:
    void workOff();
    void carryOut(const BidirectionalMessage &message);
    void reportDrops();
    /// Lays the image over the topmost window at half opacity for drawingTimeout seconds;
    /// touches go through it. The oldest drawing goes when MaxDrawings are shown; an image
    /// larger than the window is refused before it is decoded.
    void showDrawing(const QByteArray &imageBytes);
    /// Taps the window at a point in device pixels.
    void click(QWindow *window, const BidirectionalMessage::Click &click);
    /// Ends co-browsing and the screen session.
    void stop();
    /// Asks the user whether to start co-browsing, with the service's texts (fetched first
    /// when none are loaded). Accepting starts it on the tenant id as the session id.
    void askForOptIn();
    /// Restarts the screen session on a new visit, monitoring forced on.
    void start();
    void showOptInDialog();
    void startCoBrowsing();

    ApplicationConfigWrapper *m_applicationConfig;
    UIStrings *m_uiStrings;
    Vistrel *m_vistrel;
    CoBrowsing *m_coBrowsing;
    ScreenPlatform *m_screen;

    const double m_drawingTimeout = 5.0;
    AgentCommandQueue m_queue;
    QTimer m_workTimer;
    // Set while a slice runs: a tap can open a modal dialog, whose event loop runs the timer.
    bool m_working = false;
    // The open opt-in question, closed by a stop.
    QPointer<QObject> m_optInDialog;
    // The drawings on screen, oldest first.
    QList<QPointer<QObject>> m_drawings;
};

} // namespace VistrelKit
