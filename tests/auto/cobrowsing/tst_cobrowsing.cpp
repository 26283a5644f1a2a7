#include "CoBrowsing/CoBrowseButtonGroup.h"
#include "CoBrowsing/CoBrowseWidget.h"
#include "CoBrowsing/CoBrowsing.h"
#include "CoBrowsing/DefaultUIView.h"
#include "CoBrowsing/RoundedButton.h"
#include "Communication/Communication.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Injection.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "TestConfig.h"
#include "Vistrel/Vistrel.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::LocalService;

namespace {
CoBrowsing *controller()
{
    return Injection::getContainer().resolve<CoBrowsing>();
}

Vistrel *session()
{
    return Injection::getContainer().resolve<Vistrel>();
}

ApplicationConfig &config()
{
    return Injection::getContainer().resolve<ApplicationConfigWrapper>()->config();
}

struct Visibility
{
    bool show;
    bool hide;
    bool group;
    friend bool operator==(const Visibility &, const Visibility &) = default;
};

Visibility visibility(const DefaultUIView *view)
{
    return {!view->showButton()->isHidden(), !view->hideButton()->isHidden(),
            !view->buttonGroup()->isHidden()};
}

char *toString(const Visibility &v) // for QCOMPARE
{
    return qstrdup(qPrintable(u"show %1 hide %2 group %3"_s.arg(v.show).arg(v.hide).arg(v.group)));
}
} // namespace

class tst_CoBrowsing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void scbMessageStartsCoBrowsing();
    void widgetLeftOnScreenRefusesAStart();
    void closeButtonEndsTheSession();
    void hideThenShowRestores();
    void tapsOutsideThePanelReachTheApp();
    void chatButton();
    void followsItsWindow();
    void roundedCorners_data();
    void roundedCorners();

private:
    DefaultUIView *startAndWaitForWidget();

    LocalService m_service;
    QWidget m_window;
    QPushButton *m_appButton = nullptr;
    LogCapture m_log;
};

void tst_CoBrowsing::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_service.start() != 0);
    TestConfig::use(m_service.hostAndPort());
    m_window.setObjectName(u"app"_s);
    m_window.resize(360, 640);
    // Where the panel never is: top left.
    m_appButton = new QPushButton(u"App"_s, &m_window);
    m_appButton->setGeometry(10, 10, 100, 40);
    m_window.show();
    QVERIFY(QTest::qWaitForWindowActive(&m_window));
    QVERIFY(Orvane::initConfig(u"tenant-1"_s, u"token-1"_s));
}

void tst_CoBrowsing::init()
{
    m_service.clearRequests();
    m_log.clear();
}

void tst_CoBrowsing::cleanup()
{
    Orvane::coBrowsing()->stop();
    QTRY_VERIFY(m_window.findChildren<DefaultUIView *>().isEmpty());
    QVERIFY(!session()->isRunning());
}

DefaultUIView *tst_CoBrowsing::startAndWaitForWidget()
{
    Orvane::coBrowsing()->start();
    if (!QTest::qWaitFor([] { return controller()->view() != nullptr; }))
        return nullptr;
    return controller()->view();
}

void tst_CoBrowsing::scbMessageStartsCoBrowsing()
{
    // initConfig registered the start client: the kit polls for it every 3 s.
    const QString visitor = config().visitConfig.visitorId.value_or(QString());
    QVERIFY(m_service.queueChannelMessage(visitor, u"SCB"_s, QString()));
    QVERIFY(m_service.waitFor([] { return controller()->view() != nullptr; }, 10000));
    DefaultUIView *view = controller()->view();
    QCOMPARE(view->parentWidget(), &m_window);
    QVERIFY(view->isVisible());
    QCOMPARE(view->geometry(), m_window.rect());
    QVERIFY(m_log.contains(u"[DEBUG] CoBrowsing: Got SCB message"_s));
    // The label shows "connecting" first, then the share id of the new session.
    QVERIFY(m_service.waitFor([view] { return view->shareId()->text() == session()->shareId(); }));
    QCOMPARE(session()->shareId().size(), 5);
    QVERIFY(controller()->isStarted());
    QVERIFY(Orvane::coBrowsing()->isShown());
    QVERIFY(m_service.waitForVisitOpen(config().visitConfig.visitId.value_or(QString())));

    m_log.clear();
    Orvane::coBrowsing()->start();
    QCOMPARE(m_log.lines(),
             QStringList{u"[ERROR] OrvaneCoBrowsing: Error while starting CoBrowsing: "
                         u"StringError(mMsg: \"CoBrowsing is already started\")"_s});
    QCOMPARE(controller()->view(), view);
}

void tst_CoBrowsing::widgetLeftOnScreenRefusesAStart()
{
    DefaultUIView *leftOver = DefaultUIView::create(&m_window);
    Orvane::coBrowsing()->start();
    QTRY_VERIFY(m_log.contains(u"[DEBUG] CoBrowsing: Starting UI failed with error: "
                               u"StringError(mMsg: \"UI is already shown\")"_s));
    QVERIFY(!controller()->isStarted());
    QVERIFY(!session()->isRunning());
    QCOMPARE(m_window.findChildren<DefaultUIView *>(), QList{leftOver});
    delete leftOver;
}

void tst_CoBrowsing::closeButtonEndsTheSession()
{
    QPointer<DefaultUIView> view = startAndWaitForWidget();
    QVERIFY(view);
    const QString visitId = config().visitConfig.visitId.value_or(QString());
    QVERIFY(m_service.waitForVisitOpen(visitId));
    QTest::mouseClick(view->closeButton(), Qt::LeftButton);
    QTRY_VERIFY(!view);
    QVERIFY(!controller()->isStarted());
    QVERIFY(!session()->isRunning());
    QVERIFY(m_service.waitFor([&] {
        const auto *visit = m_service.visit(visitId);
        return visit && visit->state() == VistrelService::Visit::State::Ended;
    }));
}

void tst_CoBrowsing::hideThenShowRestores()
{
    DefaultUIView *view = startAndWaitForWidget();
    QVERIFY(view);
    const Visibility initial = visibility(view);
    QCOMPARE(initial, (Visibility{false, true, true}));
    QTest::mouseClick(view->hideButton(), Qt::LeftButton);
    QCOMPARE(visibility(view), (Visibility{true, false, false}));
    QTest::mouseClick(view->showButton(), Qt::LeftButton);
    QCOMPARE(visibility(view), initial);
}

void tst_CoBrowsing::tapsOutsideThePanelReachTheApp()
{
    DefaultUIView *view = startAndWaitForWidget();
    QVERIFY(view);
    QSignalSpy clicked(m_appButton, &QPushButton::clicked);
    // Through the window, so the tap finds its widget the way a user's does.
    const QPoint onApp = m_appButton->geometry().center();
    QCOMPARE(m_window.childAt(onApp), m_appButton);
    QTest::mouseClick(m_window.windowHandle(), Qt::LeftButton, {}, onApp);
    QCOMPARE(clicked.size(), 1);
    // The panel's own buttons still take theirs.
    const QPoint onHide = view->hideButton()->mapTo(&m_window, view->hideButton()->rect().center());
    QCOMPARE(m_window.childAt(onHide), view->hideButton());
}

void tst_CoBrowsing::chatButton()
{
    DefaultUIView *view = startAndWaitForWidget();
    QVERIFY(view);
    QCOMPARE(view->tenantId(), u"tenant-1"_s);
    // The service's init reply decides whether the chat button shows.
    controller()->setChatAvailable(false);
    QTRY_VERIFY(view->chatButton()->isHidden());
    controller()->setChatAvailable(true);
    QTRY_VERIFY(!view->chatButton()->isHidden());
    QTest::mouseClick(view->chatButton(), Qt::LeftButton);
    QVERIFY(m_log.contains(u"[ERROR] DefaultUIView: Cannot find instance of WebChat"_s));
}

void tst_CoBrowsing::followsItsWindow()
{
    DefaultUIView *view = startAndWaitForWidget();
    QVERIFY(view);
    m_window.resize(640, 360); // a rotation, as a window sees it
    QTRY_COMPARE(view->geometry(), QRect(0, 0, 640, 360));
    const QRect panel = view->widget()->geometry();
    QCOMPARE(panel.right(), 639); // still against the right edge
    m_window.resize(360, 640);
    QTRY_COMPARE(view->geometry(), m_window.rect());
}

void tst_CoBrowsing::roundedCorners_data()
{
    QTest::addColumn<QString>("part");
    QTest::addColumn<QList<QPoint>>("cutCorners"); // in fractions: 0 = left/top, 1 = right/bottom
    QTest::addColumn<QList<QPoint>>("squareCorners");

    QTest::newRow("panel") << u"widget"_s << QList{QPoint(0, 0), QPoint(0, 1)}
                           << QList{QPoint(1, 0), QPoint(1, 1)};
    QTest::newRow("button row") << u"buttonGroup"_s << QList{QPoint(0, 1)}
                                << QList{QPoint(0, 0), QPoint(1, 0), QPoint(1, 1)};
    QTest::newRow("button") << u"hideButton"_s << QList{QPoint(0, 0), QPoint(0, 1)}
                            << QList{QPoint(1, 0), QPoint(1, 1)};
}

void tst_CoBrowsing::roundedCorners()
{
    QFETCH(QString, part);
    QFETCH(QList<QPoint>, cutCorners);
    QFETCH(QList<QPoint>, squareCorners);

    DefaultUIView *view = startAndWaitForWidget();
    QVERIFY(view);
    auto *widget = view->findChild<QWidget *>(part);
    QVERIFY(widget);
    QTRY_VERIFY(!widget->mask().isEmpty());
    const QRegion mask = widget->mask();
    const auto corner = [widget](QPoint f) {
        return QPoint(f.x() * (widget->width() - 1), f.y() * (widget->height() - 1));
    };
    for (QPoint f : cutCorners)
        QVERIFY2(!mask.contains(corner(f)), qPrintable(u"%1,%2"_s.arg(f.x()).arg(f.y())));
    for (QPoint f : squareCorners)
        QVERIFY2(mask.contains(corner(f)), qPrintable(u"%1,%2"_s.arg(f.x()).arg(f.y())));
    QVERIFY(mask.contains(widget->rect().center()));
    if (auto *button = qobject_cast<RoundedButton *>(widget))
        QCOMPARE(button->palette().color(QPalette::Button), QColor(48, 48, 48));
    if (auto *group = qobject_cast<CoBrowseButtonGroup *>(widget)) {
        QVERIFY(group->backdrop());
        QCOMPARE(group->backdrop()->geometry(), QRect(0, 0, group->width() + 5, group->height()));
        QCOMPARE(group->children().indexOf(group->backdrop()), 0); // under every button
    }
}

QTEST_MAIN(tst_CoBrowsing)
#include "tst_cobrowsing.moc"
