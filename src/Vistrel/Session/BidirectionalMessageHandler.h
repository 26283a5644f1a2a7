#pragma once

#include "Network/Bidirectional/BidirectionalMessage.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

class ApplicationConfigWrapper;
class CoBrowsing;
class UIStrings;
class Vistrel;

/// Carries out agent commands on the device.
class VISTREL_AUTOTEST_EXPORT BidirectionalMessageHandler : public QObject
{
    Q_OBJECT
public:
    BidirectionalMessageHandler(ApplicationConfigWrapper *applicationConfig, UIStrings *uiStrings,
                                Vistrel *vistrel, CoBrowsing *coBrowsing,
                                QObject *parent = nullptr);

    /// Logs the command, then carries out its parts in this order: drawing, tap, stop, faster
    /// polling, opt-in question, start. The parts that touch widgets run on the GUI thread
    /// after this returns.
    void handle(const VistrelKit::BidirectionalMessage &message);
    /// Lays the image over the topmost window at half opacity for drawingTimeout seconds;
    /// touches go through it.
    void showDrawing(const QByteArray &imageBytes);
    /// Taps the topmost window at a point in device pixels.
    void click(const BidirectionalMessage::Click &click);
    /// Ends co-browsing and the screen session.
    void stop();
    /// Asks the user whether to start co-browsing, with the service's texts (fetched first
    /// when none are loaded). Accepting starts it on the tenant id as the session id.
    void askForOptIn();
    /// Restarts the screen session on a new visit, monitoring forced on.
    void start();

    /// Seconds a drawing stays on screen.
    double drawingTimeout() const { return m_drawingTimeout; }

private:
    void showOptInDialog();
    void startCoBrowsing();

    ApplicationConfigWrapper *m_applicationConfig;
    UIStrings *m_uiStrings;
    Vistrel *m_vistrel;
    CoBrowsing *m_coBrowsing;

    const double m_drawingTimeout = 5.0;
};

} // namespace VistrelKit
