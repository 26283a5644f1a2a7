#include "DemoSession.h"

#include "DemoUser.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneConference.h>
#include <Vistrel/OrvaneVistrel.h>
#include <Vistrel/OrvaneWebChat.h>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

DemoSession::DemoSession(QObject *parent)
    : QObject(parent)
{
    // The kit's signals tell of every start and stop, whoever asked for it (the panel,
    // co-browsing or an agent).
    OrvaneVistrel *session = Orvane::vistrel();
    connect(session, &OrvaneVistrel::connectedChanged, this, &DemoSession::refresh);
    connect(session, &OrvaneVistrel::shareIdChanged, this, &DemoSession::refresh);
    connect(session, &OrvaneVistrel::started, this, &DemoSession::refresh);
    connect(session, &OrvaneVistrel::stopped, this, [this] {
        m_connectionLost = false;
        refresh();
    });
    connect(session, &OrvaneVistrel::connectionLost, this, [this] {
        m_connectionLost = true;
        refresh();
    });
    connect(session, &OrvaneVistrel::connectionRestored, this, [this] {
        m_connectionLost = false;
        refresh();
    });
    connect(session, &OrvaneVistrel::startFailed, this, [this](const QString &error) {
        m_state = State::StartFailed;
        m_startError = error;
        Q_EMIT stateChanged();
    });
    connect(Orvane::coBrowsing(), &OrvaneCoBrowsing::started, this, &DemoSession::refresh);
    connect(Orvane::coBrowsing(), &OrvaneCoBrowsing::ended, this, &DemoSession::refresh);
    connect(Orvane::webChat(), &OrvaneWebChat::opened, this, &DemoSession::refresh);
    connect(Orvane::webChat(), &OrvaneWebChat::closed, this, &DemoSession::refresh);

    // The kit tells the host only queue positions: the agent's "Start call" in the console
    // gives the customer position 0, on which the app opens the call itself.
    OrvaneConference *conference = Orvane::conference();
    connect(conference, &OrvaneConference::queuePositionChanged, this,
            &DemoSession::showQueuePosition);
    connect(conference, &OrvaneConference::callStarted, this, [this] {
        m_waitingForCall = false;
        setCallState(CallState::InCall);
    });
    connect(conference, &OrvaneConference::callEnded, this,
            [this] { setCallState(CallState::Ended); });
    refresh();
}

bool DemoSession::isConnected() const
{
    return Orvane::vistrel()->connected();
}

QString DemoSession::shareId() const
{
    return Orvane::vistrel()->shareId();
}

bool DemoSession::canStart() const
{
    return !Orvane::vistrel()->connected() && !Orvane::coBrowsing()->isShown();
}

bool DemoSession::canStartCoBrowsing() const
{
    return !Orvane::coBrowsing()->isShown();
}

bool DemoSession::isChatOpen() const
{
    return Orvane::webChat()->isOpen();
}

bool DemoSession::canJoinCall() const
{
    return m_callState == CallState::Idle || m_callState == CallState::Ended ||
           m_callState == CallState::NotQueued;
}

void DemoSession::start()
{
    Orvane::vistrel()->start();
}

void DemoSession::stop()
{
    Orvane::vistrel()->stop();
}

// Co-browsing brings its own session: a running one is replaced.
void DemoSession::coBrowse()
{
    Orvane::coBrowsing()->start();
}

void DemoSession::stopCoBrowsing()
{
    Orvane::coBrowsing()->stop();
}

// The chat id is the tenant's: the service configures one chat per tenant.
void DemoSession::chat()
{
    Orvane::webChat()->open(QString::fromLatin1(TenantId));
}

void DemoSession::videoCall()
{
    m_waitingForCall = true;
    setCallState(CallState::Joining);
    Orvane::conference()->join(DemoUser::customer());
}

void DemoSession::signIn()
{
    DemoUser::signIn();
}

void DemoSession::tag(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return;
    // The agent sees the tag beside the session; the kit logs it when no session runs.
    Orvane::vistrel()->tag(trimmed);
}

void DemoSession::refresh()
{
    const bool connected = Orvane::vistrel()->connected();
    if (connected && m_connectionLost)
        m_state = State::Unreachable;
    else if (!connected)
        m_state = State::NotConnected;
    else
        m_state = Orvane::coBrowsing()->isShown() ? State::CoBrowsing : State::Connected;
    m_startError.clear();
    Q_EMIT stateChanged();
}

void DemoSession::setCallState(CallState state, int position)
{
    m_callState = state;
    m_queuePosition = position;
    Q_EMIT callStateChanged();
}

void DemoSession::showQueuePosition(const QString &customerId, int position)
{
    if (customerId != QLatin1StringView(DemoUser::Id) || Orvane::conference()->isInCall())
        return;
    if (position > 0) {
        setCallState(CallState::Queued, position);
    } else if (position == 0 && m_waitingForCall) {
        // Polls keep saying 0 until the call is open: start it once.
        m_waitingForCall = false;
        setCallState(CallState::Calling);
        Orvane::conference()->start(DemoUser::customer());
    } else if (position < 0) {
        m_waitingForCall = false;
        setCallState(CallState::NotQueued);
    }
}
