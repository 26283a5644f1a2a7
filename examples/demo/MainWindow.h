#pragma once

#include <QMainWindow>

class QStackedWidget;

/// The demo's window: the pages in a stack above the session panel. The kit names the screen
/// after the stack's current page, so each page is a class of its own.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget *parent = nullptr);

private:
    QStackedWidget *m_pages;
};
