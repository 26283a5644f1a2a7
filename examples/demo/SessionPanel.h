#pragma once

#include <QFrame>

class QLabel;
class QPushButton;

/// The always visible bar that starts and stops the screen session and co-browsing, opens the
/// web chat, queues the user for a video call, and shows the share id, whether the screen is
/// being recorded and where the call stands.
class SessionPanel : public QFrame
{
    Q_OBJECT
public:
    /// The demo's tenant, given to initConfig; also its chat id.
    static constexpr const char *TenantId = "demo-tenant";
    /// The chat button's fill.
    static constexpr const char *ChatColor = "#e8590c";
    /// The video call button's fill.
    static constexpr const char *VideoCallColor = "#7b2cbf";

    explicit SessionPanel(QWidget *parent = nullptr);

    /// Reads the session's state from the kit and shows it.
    void refresh();

private Q_SLOTS:
    void joinVideoCall();
    void showQueuePosition(const QString &customerId, int position);

private:
    QLabel *m_state;
    QLabel *m_shareId;
    QPushButton *m_startSession;
    QPushButton *m_startCoBrowsing;
    QPushButton *m_chat;
    QPushButton *m_videoCall;
    QLabel *m_callState;
    bool m_connectionLost = false;
    /// Between the user's join and the call's start: position 0 then opens the call, once.
    bool m_waitingForCall = false;
};
