#include "SessionPanel.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

SessionPanel::SessionPanel(QWidget *parent)
    : QFrame(parent)
    , m_state(new QLabel(this))
    , m_shareId(new QLabel(this))
    , m_startSession(new QPushButton(u"Start session"_s, this))
    , m_startCoBrowsing(new QPushButton(u"Start co-browsing"_s, this))
{
    setFrameShape(QFrame::StyledPanel);
    m_shareId->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *stopSession = new QPushButton(u"Stop session"_s, this);
    auto *stopCoBrowsing = new QPushButton(u"Stop co-browsing"_s, this);
    // The kit reports failures in its log; the panel shows the outcome at the next refresh.
    connect(m_startSession, &QPushButton::clicked, this, [] { Orvane::vistrel()->start(); });
    connect(stopSession, &QPushButton::clicked, this, [] { Orvane::vistrel()->stop(); });
    // Co-browsing brings its own session: a running one is replaced.
    connect(m_startCoBrowsing, &QPushButton::clicked, this, [] { Orvane::coBrowsing()->start(); });
    connect(stopCoBrowsing, &QPushButton::clicked, this, [] { Orvane::coBrowsing()->stop(); });

    auto *layout = new QGridLayout(this);
    layout->addWidget(m_state, 0, 0);
    layout->addWidget(m_shareId, 0, 1);
    layout->addWidget(m_startSession, 1, 0);
    layout->addWidget(stopSession, 1, 1);
    layout->addWidget(m_startCoBrowsing, 2, 0);
    layout->addWidget(stopCoBrowsing, 2, 1);

    // The kit holds one pair of callbacks; they run after each start and stop of the session,
    // whoever asked for it (this panel, co-browsing or the agent).
    // The destructor takes them back.
    Orvane::vistrel()->registerCallbacks([this] { refresh(); }, [this] { refresh(); });

    // Co-browsing and a start that fails have no callback: a light poll keeps the panel honest.
    auto *timer = new QTimer(this);
    timer->setInterval(500);
    connect(timer, &QTimer::timeout, this, &SessionPanel::refresh);
    timer->start();
    refresh();
}

SessionPanel::~SessionPanel()
{
    // The kit outlives the window; it must not call into a panel that is gone.
    Orvane::vistrel()->registerCallbacks({}, {});
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
}
