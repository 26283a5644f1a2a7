#pragma once

#include <QWidget>

/// The screen after signing in: a list of accounts, a way to the settings and back to sign-in.
class ListPage : public QWidget
{
    Q_OBJECT
public:
    explicit ListPage(QWidget *parent = nullptr);

Q_SIGNALS:
    void settingsRequested();
    void signOutRequested();
};
