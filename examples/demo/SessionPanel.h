#pragma once

#include <QFrame>

class QLabel;
class QPushButton;

/// The always visible bar that starts and stops the screen session and co-browsing, and shows
/// the share id and whether the screen is being recorded.
class SessionPanel : public QFrame
{
    Q_OBJECT
public:
    explicit SessionPanel(QWidget *parent = nullptr);

    /// Reads the session's state from the kit and shows it.
    void refresh();

private:
    QLabel *m_state;
    QLabel *m_shareId;
    QPushButton *m_startSession;
    QPushButton *m_startCoBrowsing;
};
