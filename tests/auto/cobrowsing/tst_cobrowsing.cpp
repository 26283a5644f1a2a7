#include "CoBrowsing/CoBrowseButtonGroup.h"
#include "CoBrowsing/CoBrowseWidget.h"
#include "CoBrowsing/DefaultUIView.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "TestConfig.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
template<class T>
T *resolve()
{
    return Kit::container().resolve<T>();
}

const VisitConfig &visitConfig()
{
    return resolve<ApplicationConfigWrapper>()->config().visitConfig;
}

/// Whether the show button, the hide button and the button row are on screen.
QList<bool> shown(const DefaultUIView *view)
{
    return {!view->showButton()->isHidden(), !view->hideButton()->isHidden(),
            !view->buttonGroup()->isHidden()};
}
} // namespace

class tst_CoBrowsing : public QObject
{
    Q_OBJECT

    VistrelService::LocalService m_service;
    QWidget m_window;
    QPushButton *m_appButton = nullptr;
    LogCapture m_log;

    DefaultUIView *m_view = nullptr;

    bool startWidget()
    {
        Orvane::coBrowsing()->start();
        m_service.waitFor([] { return resolve<CoBrowsing>()->view() != nullptr; });
        m_view = qobject_cast<DefaultUIView *>(resolve<CoBrowsing>()->view());
        return m_view;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_service.start() != 0);
        TestConfig::use(m_service.hostAndPort());
        m_window.resize(360, 640);
        // Where the panel never is: top left.
        m_appButton = new QPushButton(u"App"_s, &m_window);
        m_appButton->setGeometry(10, 10, 100, 40);
        m_window.show();
        QVERIFY(QTest::qWaitForWindowActive(&m_window));
        QVERIFY(Orvane::initConfig(u"tenant-1"_s, u"token-1"_s));
    }

    void init() { m_log.clear(); }

    void cleanup()
    {
        Orvane::coBrowsing()->stop();
        QTRY_VERIFY(m_window.findChildren<DefaultUIView *>().isEmpty());
        QVERIFY(!resolve<Vistrel>()->isRunning());
    }

    void scbMessageStartsAndTheCloseButtonEnds()
    {
        // initConfig registered the start client: the kit polls for it.
        QVERIFY(m_service.queueChannelMessage(*visitConfig().visitorId, u"SCB"_s, QString()));
        QVERIFY(m_service.waitFor([] { return resolve<CoBrowsing>()->view() != nullptr; }, 10000));
        auto *view = qobject_cast<DefaultUIView *>(resolve<CoBrowsing>()->view());
        QCOMPARE(view->parentWidget(), &m_window);
        QVERIFY(view->isVisible());
        QCOMPARE(view->geometry(), m_window.rect());
        // "Connecting" first, then the share id of the new session.
        QVERIFY(m_service.waitFor(
            [view] { return view->shareId()->text() == resolve<Vistrel>()->shareId(); }));
        const QString visit = *visitConfig().visitId;
        QVERIFY(m_service.waitForVisitOpen(visit));

        m_log.clear();
        Orvane::coBrowsing()->start();
        QCOMPARE(m_log.lines(),
                 QStringList{u"[ERROR] OrvaneCoBrowsing: Error while starting CoBrowsing: "
                             u"StringError(mMsg: \"CoBrowsing is already started\")"_s});
        QCOMPARE(resolve<CoBrowsing>()->view(), view);

        QPointer<DefaultUIView> widget = view;
        QTest::mouseClick(view->closeButton(), Qt::LeftButton);
        QTRY_VERIFY(!widget);
        QVERIFY(!resolve<CoBrowsing>()->isStarted());
        QVERIFY(!resolve<Vistrel>()->isRunning());
        QVERIFY(m_service.waitFor([this, visit] {
            const auto *v = m_service.visit(visit);
            return v && v->state() == VistrelService::Visit::State::Ended;
        }));
    }

    void restartStartsCoBrowsingAgain()
    {
        QVERIFY(startWidget());
        QVERIFY(m_service.waitFor([] { return resolve<Vistrel>()->connected(); }));
        const QString visit = *visitConfig().visitId;
        QPointer<CoBrowseView> before = resolve<CoBrowsing>()->view();
        resolve<CoBrowsing>()->restart();
        // The old widget goes, a new one comes with a session on a new visit.
        QTRY_VERIFY(!before);
        QVERIFY(m_service.waitFor([] { return resolve<Vistrel>()->connected(); }));
        QVERIFY(resolve<CoBrowsing>()->isStarted());
        QVERIFY(resolve<CoBrowsing>()->view());
        QVERIFY(*visitConfig().visitId != visit);
        QVERIFY(m_service.waitForVisitOpen(*visitConfig().visitId));
    }

    void widgetLeftOnScreenRefusesAStart()
    {
        std::unique_ptr<DefaultUIView> leftOver(DefaultUIView::create(&m_window));
        Orvane::coBrowsing()->start();
        QTRY_VERIFY(m_log.contains(u"[DEBUG] CoBrowsing: Starting UI failed with error: "
                                   u"StringError(mMsg: \"UI is already shown\")"_s));
        QVERIFY(!resolve<CoBrowsing>()->isStarted());
        QVERIFY(!resolve<Vistrel>()->isRunning());
        QCOMPARE(m_window.findChildren<DefaultUIView *>(), QList{leftOver.get()});
    }

    void hideThenShowRestores()
    {
        QVERIFY(startWidget());
        QCOMPARE(shown(m_view), (QList{false, true, true}));
        QTest::mouseClick(m_view->hideButton(), Qt::LeftButton);
        QCOMPARE(shown(m_view), (QList{true, false, false}));
        QTest::mouseClick(m_view->showButton(), Qt::LeftButton);
        QCOMPARE(shown(m_view), (QList{false, true, true}));
    }

    void tapsOutsideThePanelReachTheApp()
    {
        QVERIFY(startWidget());
        QSignalSpy clicked(m_appButton, &QPushButton::clicked);
        // Through the window, so the tap finds its widget the way a user's does.
        const QPoint onApp = m_appButton->geometry().center();
        QTest::mouseClick(m_window.windowHandle(), Qt::LeftButton, {}, onApp);
        QCOMPARE(clicked.size(), 1);
        // The panel's own buttons still take theirs.
        QAbstractButton *hide = m_view->hideButton();
        QCOMPARE(m_window.childAt(hide->mapTo(&m_window, hide->rect().center())), hide);
    }

    void followsItsWindow()
    {
        QVERIFY(startWidget());
        m_window.resize(640, 360); // a rotation, as a window sees it
        QTRY_COMPARE(m_view->geometry(), QRect(0, 0, 640, 360));
        QCOMPARE(m_view->widget()->geometry().right(), 639); // still against the right edge
        m_window.resize(360, 640);
        QTRY_COMPARE(m_view->geometry(), m_window.rect());
    }
};

QTEST_MAIN(tst_CoBrowsing)
#include "tst_cobrowsing.moc"
