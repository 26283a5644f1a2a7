#include "SessionPanel.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
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
    m_chat->setStyleSheet(
        u"QPushButton { background-color: %1; color: white; border: none;"
        " font-weight: bold; } QPushButton:disabled { background-color: #9aa3ad; }"_s.arg(
            QLatin1StringView(ChatColor)));

    auto *layout = new QGridLayout(this);
    layout->addWidget(m_state, 0, 0);
    layout->addWidget(m_shareId, 0, 1);
    layout->addWidget(m_startSession, 1, 0);
    layout->addWidget(stopSession, 1, 1);
    layout->addWidget(m_startCoBrowsing, 2, 0);
    layout->addWidget(stopCoBrowsing, 2, 1);
    layout->addWidget(m_chat, 3, 0, 1, 2);

    // The kit's signals tell of every start and stop, whoever asked for it (this panel,
    // co-browsing or an agent).
    OrvaneVistrel *session = Orvane::vistrel();
    connect(session, &OrvaneVistrel::connectedChanged, this, &SessionPanel::refresh);
    connect(session, &OrvaneVistrel::shareIdChanged, this, &SessionPanel::refresh);
    connect(session, &OrvaneVistrel::started, this, &SessionPanel::refresh);
    connect(session, &OrvaneVistrel::stopped, this, &SessionPanel::refresh);
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

void SessionPanel::refresh()
{
    const bool connected = Orvane::vistrel()->connected();
    const bool coBrowsing = Orvane::coBrowsing()->isShown();
    const QString shareId = Orvane::vistrel()->shareId();

    m_state->setText(connected ? (coBrowsing ? u"● Co-browsing"_s : u"● Connected"_s)
                               : u"○ Not connected"_s);
    m_state->setStyleSheet(connected ? u"color: #1a7f37; font-weight: bold;"_s : QString());
    m_shareId->setText(u"Share id: "_s + (shareId.isEmpty() ? u"–"_s : shareId));
    // Stopping stays possible at any time: a session can run without recording yet (the
    // service decides), and stopping an idle one only logs a warning.
    m_startSession->setEnabled(!connected && !coBrowsing);
    m_startCoBrowsing->setEnabled(!coBrowsing);
    m_chat->setEnabled(!Orvane::webChat()->isOpen());
}
