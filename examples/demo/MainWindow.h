#pragma once

#include <QMainWindow>

class QStackedWidget;

/// The demo's window: the pages in a stack above the session panel. The kit names the screen
/// after the stack's current page, so each page is a class of its own.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    /// The signed-in user's id: it becomes the device's visitor id.
    static constexpr const char *DemoUserId = "A1E7C0DE-0000-4000-8000-00000000D3A0";

    explicit MainWindow(QWidget *parent = nullptr);

private:
    QStackedWidget *m_pages;
};
