#pragma once

#include <QWidget>

class QLineEdit;

/// A few settings, and a field that attaches a free text tag to the session for the agent.
class SettingsPage : public QWidget
{
    Q_OBJECT
public:
    explicit SettingsPage(QWidget *parent = nullptr);

Q_SIGNALS:
    void backRequested();

private:
    void sendTag();

    QLineEdit *m_tag;
};
