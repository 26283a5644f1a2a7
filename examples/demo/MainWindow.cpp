#include "MainWindow.h"

#include "ListPage.h"
#include "SessionPanel.h"
#include "SettingsPage.h"
#include "SignInPage.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneUser.h>

#include <QStackedWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
// Tells the service who signed in. The kit then restarts the screen session as a new visit
// under the user's id, so the agent sees a named customer from here on.
void identifyUser()
{
    VistrelKit::ActiveUser user;
    user.id = QString::fromLatin1(MainWindow::DemoUserId);
    user.firstname = u"Alex"_s;
    user.lastname = u"Morgan"_s;
    user.email = u"alex.morgan@example.com"_s;
    user.tags = QStringList{u"premium"_s};
    VistrelKit::Orvane::user()->tag(user);
}
} // namespace

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
        identifyUser();
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
