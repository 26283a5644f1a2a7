#pragma once

#include <Vistrel/ConferenceProperties.h>
#include <Vistrel/vistrelconference_export.h>

#include <QObject>
#include <QString>

#include <functional>

namespace VistrelKit {

/// A video call with an agent. Reached through Orvane::conference() (link Vistrel::Conference).
///
/// \code
/// ConferenceProperties customer;
/// customer.customerId = account.id();
/// customer.displayName = account.name();
/// connect(Orvane::conference(), &OrvaneConference::queuePositionChanged, this,
/// &Panel::showPosition); Orvane::conference()->join(customer);   // the customer waits in the
/// agents' queue
/// // ... when the agent is ready:
/// Orvane::conference()->start(customer);  // the call opens over the topmost window
/// \endcode
class VISTREL_CONFERENCE_EXPORT OrvaneConference : public QObject
{
    Q_OBJECT
public:
    /// Asks the service for the call's settings and opens the call over the topmost window.
    void start(const ConferenceProperties &properties);
    /// Announces the customer to the service, which puts them in the agents' queue, and polls
    /// their queue position and call status.
    void join(const ConferenceProperties &properties);
    /// Calls completion with each queue position polled for customerId (-1: no longer queued),
    /// replacing an earlier completion for that customer.
    void queueStatus(const QString &customerId, std::function<void(int position)> completion);
    /// Whether a call view is on screen.
    bool isInCall() const;

Q_SIGNALS:
    /// A queue position was polled for customerId (-1: the customer left the queue).
    void queuePositionChanged(const QString &customerId, int position);
    /// The call view opened.
    void callStarted();
    /// The call ended (the user left or closed it) and its view closed.
    void callEnded();

private:
    friend class Orvane;
    OrvaneConference() = default;
};

} // namespace VistrelKit
