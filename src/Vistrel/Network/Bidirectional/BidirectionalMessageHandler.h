#pragma once

#include "Network/Bidirectional/BidirectionalMessage.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

class ApplicationConfigWrapper;
class UIStrings;

/// Carries out agent commands on the device.
class VISTREL_EXPORT BidirectionalMessageHandler : public QObject
{
    Q_OBJECT
public:
    BidirectionalMessageHandler(ApplicationConfigWrapper *applicationConfig, UIStrings *uiStrings,
                                QObject *parent = nullptr);

    /// Logs the command, then carries out its parts: the tap at its device-pixel position.
    virtual void handle(const BidirectionalMessage &message);
    /// Taps the topmost window at a point in device pixels.
    void click(const BidirectionalMessage::Click &click);

    /// Seconds a drawing stays on screen.
    double drawingTimeout() const { return m_drawingTimeout; }

protected:
    ApplicationConfigWrapper *m_applicationConfig;
    UIStrings *m_uiStrings;

private:
    const double m_drawingTimeout = 5.0;
};

} // namespace VistrelKit
