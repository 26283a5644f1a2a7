#include "MainWindow.h"

#include "DemoUser.h"
#include "ListPage.h"
#include "SessionPanel.h"
#include "SettingsPage.h"
#include "SignInPage.h"

#include <QStackedWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_pages(new QStackedWidget)
{
    setWindowTitle(u"Vistrel demo"_s);
    // A phone-sized window, so the agent's view looks like a phone screen.
    resize(480, 800);

    auto *signIn = new SignInPage;
    auto *list = new ListPage;
    auto *settings = new SettingsPage;
    m_pages->addWidget(signIn);
    m_pages->addWidget(list);
    m_pages->addWidget(settings);

    connect(signIn, &SignInPage::signedIn, this, [this, list] {
        m_pages->setCurrentWidget(list);
        DemoUser::signIn();
    });
    connect(list, &ListPage::settingsRequested, this,
            [this, settings] { m_pages->setCurrentWidget(settings); });
    connect(list, &ListPage::signOutRequested, this,
            [this, signIn] { m_pages->setCurrentWidget(signIn); });
    connect(settings, &SettingsPage::backRequested, this,
            [this, list] { m_pages->setCurrentWidget(list); });

    auto *central = new QWidget;
    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_pages, 1);
    layout->addWidget(new SessionPanel);
    setCentralWidget(central);
}
