#pragma once

#include <Vistrel/vistrelconference_export.h>

#include <QObject>

namespace VistrelKit {

/// What the call's page tells the kit, over the web channel.
class VISTREL_CONFERENCE_EXPORT ConferenceBridge : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// The meeting ended: the user left it or it is ready to close.
    Q_INVOKABLE void conferenceTerminated() { Q_EMIT terminated(); }
    /// The meeting could not be created (its script did not load or threw).
    Q_INVOKABLE void conferenceFailed(const QString &error) { Q_EMIT failed(error); }

Q_SIGNALS:
    void terminated();
    void failed(const QString &error);
};

} // namespace VistrelKit
