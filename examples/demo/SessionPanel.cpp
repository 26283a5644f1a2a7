#include "SessionPanel.h"

#include "DemoUser.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneConference.h>
#include <Vistrel/OrvaneVistrel.h>
#include <Vistrel/OrvaneWebChat.h>

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

SessionPanel::SessionPanel(QWidget *parent)
    : QFrame(parent)
    , m_state(new QLabel(this))
    , m_shareId(new QLabel(this))
    , m_startSession(new QPushButton(u"Start session"_s, this))
    , m_startCoBrowsing(new QPushButton(u"Start co-browsing"_s, this))
    , m_chat(new QPushButton(u"Chat"_s, this))
    , m_videoCall(new QPushButton(u"Video call"_s, this))
    , m_callState(new QLabel(this))
{
    setFrameShape(QFrame::StyledPanel);
    m_shareId->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *stopSession = new QPushButton(u"Stop session"_s, this);
    auto *stopCoBrowsing = new QPushButton(u"Stop co-browsing"_s, this);
    connect(m_startSession, &QPushButton::clicked, this, [] { Orvane::vistrel()->start(); });
    connect(stopSession, &QPushButton::clicked, this, [] { Orvane::vistrel()->stop(); });
    // Co-browsing brings its own session: a running one is replaced.
    connect(m_startCoBrowsing, &QPushButton::clicked, this, [] { Orvane::coBrowsing()->start(); });
    connect(stopCoBrowsing, &QPushButton::clicked, this, [] { Orvane::coBrowsing()->stop(); });
    // The chat id is the tenant's: the service configures one chat per tenant.
    connect(m_chat, &QPushButton::clicked, this,
            [] { Orvane::webChat()->open(QString::fromLatin1(TenantId)); });
    m_chat->setObjectName(u"chatButton"_s);
    m_chat->setMinimumHeight(40);
    // One block of a colour used nowhere else, like the sign-in button, so that it is easy to
    // find in the streamed image.
    const QString solid =
        u"QPushButton { background-color: %1; color: white; border: none;"
        " font-weight: bold; } QPushButton:disabled { background-color: #9aa3ad; }"_s;
    m_chat->setStyleSheet(solid.arg(QLatin1StringView(ChatColor)));
    m_videoCall->setMinimumHeight(40);
    m_videoCall->setStyleSheet(solid.arg(QLatin1StringView(VideoCallColor)));

    auto *layout = new QGridLayout(this);
    layout->addWidget(m_state, 0, 0);
    layout->addWidget(m_shareId, 0, 1);
    layout->addWidget(m_startSession, 1, 0);
    layout->addWidget(stopSession, 1, 1);
    layout->addWidget(m_startCoBrowsing, 2, 0);
    layout->addWidget(stopCoBrowsing, 2, 1);
    layout->addWidget(m_chat, 3, 0, 1, 2);
    layout->addWidget(m_videoCall, 4, 0);
    layout->addWidget(m_callState, 4, 1);

    // The kit tells the host only queue positions: the agent's "Start call" in the console
    // gives the customer position 0, on which the app opens the call itself.
    m_videoCall->setObjectName(u"videoCallButton"_s);
    m_callState->setObjectName(u"callState"_s);
    OrvaneConference *conference = Orvane::conference();
    connect(m_videoCall, &QPushButton::clicked, this, &SessionPanel::joinVideoCall);
    connect(conference, &OrvaneConference::queuePositionChanged, this,
            &SessionPanel::showQueuePosition);
    connect(conference, &OrvaneConference::callStarted, this, [this] {
        m_waitingForCall = false;
        m_callState->setText(u"In call"_s);
        m_videoCall->setEnabled(false);
    });
    connect(conference, &OrvaneConference::callEnded, this, [this] {
        m_callState->setText(u"Call ended"_s);
        m_videoCall->setEnabled(true);
    });

    // The kit's signals tell of every start and stop, whoever asked for it (this panel,
    // co-browsing or an agent).
    OrvaneVistrel *session = Orvane::vistrel();
    connect(session, &OrvaneVistrel::connectedChanged, this, &SessionPanel::refresh);
    connect(session, &OrvaneVistrel::shareIdChanged, this, &SessionPanel::refresh);
    connect(session, &OrvaneVistrel::started, this, &SessionPanel::refresh);
    connect(session, &OrvaneVistrel::stopped, this, &SessionPanel::refresh);
    connect(session, &OrvaneVistrel::connectionLost, this, [this] {
        m_connectionLost = true;
        refresh();
    });
    connect(session, &OrvaneVistrel::connectionRestored, this, [this] {
        m_connectionLost = false;
        refresh();
    });
    connect(session, &OrvaneVistrel::stopped, this, [this] { m_connectionLost = false; });
    connect(session, &OrvaneVistrel::startFailed, this, [this](const QString &error) {
        m_state->setText(u"○ Start failed: "_s + error);
        m_state->setStyleSheet(u"color: #b42318;"_s);
    });
    connect(Orvane::coBrowsing(), &OrvaneCoBrowsing::started, this, &SessionPanel::refresh);
    connect(Orvane::coBrowsing(), &OrvaneCoBrowsing::ended, this, &SessionPanel::refresh);
    connect(Orvane::webChat(), &OrvaneWebChat::opened, this, &SessionPanel::refresh);
    connect(Orvane::webChat(), &OrvaneWebChat::closed, this, &SessionPanel::refresh);
    refresh();
}

void SessionPanel::joinVideoCall()
{
    m_waitingForCall = true;
    m_videoCall->setEnabled(false);
    m_callState->setText(u"Joining the queue…"_s);
    Orvane::conference()->join(DemoUser::customer());
}

void SessionPanel::showQueuePosition(const QString &customerId, int position)
{
    if (customerId != QLatin1StringView(DemoUser::Id) || Orvane::conference()->isInCall()) {
        return;
    }
    if (position > 0) {
        m_callState->setText(u"Queue position %1"_s.arg(position));
    } else if (position == 0 && m_waitingForCall) {
        // Polls keep saying 0 until the call is open: start it once.
        m_waitingForCall = false;
        m_callState->setText(u"Your agent is calling…"_s);
        Orvane::conference()->start(DemoUser::customer());
    } else if (position < 0) {
        m_waitingForCall = false;
        m_callState->setText(u"Not in the queue"_s);
        m_videoCall->setEnabled(true);
    }
}

void SessionPanel::refresh()
{
    const bool connected = Orvane::vistrel()->connected();
    const bool coBrowsing = Orvane::coBrowsing()->isShown();
    const QString shareId = Orvane::vistrel()->shareId();

    if (connected && m_connectionLost) {
        m_state->setText(u"◌ Service unreachable, retrying…"_s);
        m_state->setStyleSheet(u"color: #b54708; font-weight: bold;"_s);
    } else {
        m_state->setText(connected ? (coBrowsing ? u"● Co-browsing"_s : u"● Connected"_s)
                                   : u"○ Not connected"_s);
        m_state->setStyleSheet(connected ? u"color: #1a7f37; font-weight: bold;"_s : QString());
    }
    m_shareId->setText(u"Share id: "_s + (shareId.isEmpty() ? u"–"_s : shareId));
    // Stopping stays possible at any time: a session can run without recording yet (the
    // service decides), and stopping an idle one only logs a warning.
    m_startSession->setEnabled(!connected && !coBrowsing);
    m_startCoBrowsing->setEnabled(!coBrowsing);
    m_chat->setEnabled(!Orvane::webChat()->isOpen());
}
