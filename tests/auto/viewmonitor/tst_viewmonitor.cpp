#include "CaptureFixture.h"
#include "Config/IOSConfig.h"

#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>
#include <QWindow>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
enum class Gesture { Tap, TapOnWindow, PressOnly, AfterStop };

// The colour at a point of the window, in a screenshot of a third of its device pixels.
QColor colourAt(const QByteArray &screenshot, const QPoint &point)
{
    return CaptureFixture::decodeJpeg(screenshot).pixelColor(point * 2 / 3);
}

// Hides a window right after the monitor's next screenshot tick, before the capture it queued.
struct HideAfterNextTick : QObject
{
    explicit HideAfterNextTick(QWidget *window)
        : window(window)
    {
        qApp->installEventFilter(this);
    }
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *timer = qobject_cast<QTimer *>(watched);
        if (window && event->type() == QEvent::Timer && timer &&
            timer->interval() == ViewMonitor::ScreenshotIntervalMs) {
            // Posted before the tick runs, so it runs after the tick and before what it posts.
            QMetaObject::invokeMethod(
                window, [w = window] { w->hide(); }, Qt::QueuedConnection);
            window = nullptr;
        }
        return false;
    }
    QWidget *window;
};
} // namespace

Q_DECLARE_METATYPE(Gesture)

class tst_ViewMonitor : public QObject
{
    Q_OBJECT
public:
    // Device pixels differ from widget units, so a missing or doubled scaling shows.
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private Q_SLOTS:
    void init() { f = std::make_unique<CaptureFixture>(); }
    void cleanup() { f.reset(); }
    void screenshots();
    void screenshotOfTheWindowOnTop();
    void pageChanges_data();
    void pageChanges();
    void taps_data();
    void taps();

private:
    std::unique_ptr<CaptureFixture> f;
};

void tst_ViewMonitor::screenshots()
{
    // A red block in the lower right tells whether the whole window was scaled down.
    auto *block = new QWidget(&f->screen);
    block->setGeometry(240, 180, 60, 45);
    block->setAutoFillBackground(true);
    block->setPalette(QPalette(Qt::red));
    // Before any window is shown (one of no area is none) the start fails, but its screenshot
    // timer runs on.
    QWidget empty;
    empty.resize(0, 0);
    empty.show();
    QCOMPARE(f->startMonitor(), u"Cannot get root view"_s);
    QVERIFY(f->showWindow());
    QCOMPARE(f->screen.devicePixelRatio(), 2.0);
    QVERIFY(f->waitForScreenshots(1));
    const QByteArray first = f->screenshots().constFirst();
    QCOMPARE(CaptureFixture::decodeJpeg(first).size(), QSize(320 * 2 / 3, 240 * 2 / 3));
    QVERIFY(colourAt(first, QPoint(270, 202)).red() > 200);
    QVERIFY(colourAt(first, QPoint(270, 202)).green() < 60);
    QVERIFY(colourAt(first, QPoint(100, 100)).green() > 200);

    QTest::qWait(1000); // several ticks of an unchanged window
    QCOMPARE(f->screenshots().size(), 1);
    f->monitor.stop();
    block->setPalette(QPalette(Qt::blue));
    // Nor does a start stopped in the same turn run anything.
    f->monitor.start(&f->sender, [](const std::optional<Error> &) {});
    f->monitor.stop();
    QTest::qWait(700);
    QVERIFY(f->flushReports(u"after stop"_s));
    QCOMPARE(f->screenshots().size(), 1);
    QCOMPARE(f->startMonitor(), QString());
    QVERIFY(f->waitForScreenshots(2));
    QVERIFY(colourAt(f->screenshots().at(1), QPoint(270, 202)).blue() > 200);
}

void tst_ViewMonitor::screenshotOfTheWindowOnTop()
{
    // The window on top goes away between a tick and its capture: its private label must not
    // be sent masked against the next window's widgets.
    auto *secret = new QLabel(&f->screen);
    secret->setGeometry(0, 0, 320, 240);
    secret->setAutoFillBackground(true);
    secret->setPalette(QPalette(Qt::red));
    f->config->config().vistrelConfig.iosConfig = IOSConfig{{}, {u"QLabel"_s}};
    QWidget next;
    next.resize(320, 240);
    next.setAutoFillBackground(true);
    next.setPalette(QPalette(Qt::green));
    next.show();
    QVERIFY(f->showWindow());
    HideAfterNextTick hide(&f->screen);
    QCOMPARE(f->startMonitor(), QString());
    QVERIFY(f->waitForScreenshots(1));
    QVERIFY(colourAt(f->screenshots().constFirst(), QPoint(160, 120)).red() < 100);
}

void tst_ViewMonitor::pageChanges_data()
{
    QTest::addColumn<bool>("nested");
    QTest::addColumn<bool>("stoppedWhileHidden");
    QTest::newRow("tab widget") << false << false;
    QTest::newRow("stack inside a tab page") << true << false;
    QTest::newRow("stopped while no window was shown") << false << true;
}

void tst_ViewMonitor::pageChanges()
{
    QFETCH(bool, nested);
    QFETCH(bool, stoppedWhileHidden);
    // Pages that look alike, so that no screenshot's post swallows the page change.
    auto *form = new QFrame;
    auto *list = new QLabel;
    auto *tabs = new QTabWidget;
    tabs->tabBar()->hide();
    (new QVBoxLayout(&f->screen))->addWidget(tabs);
    QStackedWidget *stack = nullptr;
    if (nested) {
        // The outer tab's page is a plain widget; the stack inside it names the screen.
        stack = new QStackedWidget;
        stack->addWidget(form);
        stack->addWidget(list);
        auto *page = new QWidget;
        (new QVBoxLayout(page))->addWidget(stack);
        tabs->addTab(page, u"Main"_s);
    } else {
        tabs->addTab(form, u"Form"_s);
        tabs->addTab(list, u"List"_s);
    }
    QVERIFY(f->showWindow());
    QCOMPARE(f->startMonitor(), QString());

    // The first check only learns the name.
    QTRY_VERIFY_WITH_TIMEOUT(f->monitor.lastView() == u"QFrame"_s, 20000);
    QVERIFY(f->flushReports(u"first check"_s));

    if (stoppedWhileHidden) {
        // The checks made meanwhile must not wait for a window and report after the stop.
        f->screen.hide();
        QTest::qWait(1100);
        f->monitor.stop();
        f->screen.show();
    }
    if (nested)
        stack->setCurrentWidget(list);
    else
        tabs->setCurrentWidget(list);
    QTest::qWait(1100); // the next check finds nothing new
    f->monitor.reportPageChange(u"Checkout"_s);
    QVERIFY(f->waitForDelivery([this] { return f->events().contains(u"page Checkout"_s); }));
    const QStringList sent = stoppedWhileHidden ? QStringList{u"page Checkout"_s}
                                                : QStringList{u"page QLabel"_s, u"page Checkout"_s};
    QCOMPARE(f->events().filter(u"page"_s), sent);
}

void tst_ViewMonitor::taps_data()
{
    QTest::addColumn<Gesture>("gesture");
    QTest::addColumn<QString>("target");
    QTest::addColumn<int>("moveBy");
    QTest::addColumn<bool>("sent");

    const int drag = QApplication::startDragDistance();
    QTest::newRow("button") << Gesture::Tap << u"button"_s << 0 << true;
    QTest::newRow("label in a container, which ignores the press")
        << Gesture::Tap << u"inner"_s << 0 << true;
    QTest::newRow("through the window, moved within the drag distance")
        << Gesture::TapOnWindow << u"inner"_s << drag << true;
    QTest::newRow("dragged further") << Gesture::TapOnWindow << u"button"_s << drag + 1 << false;
    QTest::newRow("press without release") << Gesture::PressOnly << u"button"_s << 0 << false;
    QTest::newRow("tap after stop") << Gesture::AfterStop << u"button"_s << 0 << false;
}

void tst_ViewMonitor::taps()
{
    QFETCH(Gesture, gesture);
    QFETCH(QString, target);
    QFETCH(int, moveBy);
    QFETCH(bool, sent);

    auto *button = new QPushButton(u"Pay"_s, &f->screen);
    button->setObjectName(u"button"_s);
    button->setGeometry(30, 40, 100, 30);
    button->setFocusPolicy(Qt::NoFocus); // looks the same after the tap
    auto *container = new QWidget(&f->screen);
    container->setGeometry(60, 120, 200, 100);
    auto *inner = new QLabel(u"Details"_s, container);
    inner->setObjectName(u"inner"_s);
    inner->setGeometry(50, 30, 100, 40);
    QVERIFY(f->showWindow());
    QCOMPARE(f->startMonitor(), QString());
    QVERIFY(f->waitForScreenshots(1));
    if (gesture == Gesture::AfterStop) {
        f->monitor.stop();
        QTRY_VERIFY(!f->monitor.isCapturingClicks());
    }

    auto *widget = f->screen.findChild<QWidget *>(target);
    const QPoint press(7, 5);
    const QPoint release = press + QPoint(moveBy, 0);
    if (gesture == Gesture::TapOnWindow) {
        QWindow *handle = f->screen.windowHandle();
        QTest::mousePress(handle, Qt::LeftButton, {}, widget->mapTo(&f->screen, press));
        QTest::mouseRelease(handle, Qt::LeftButton, {}, widget->mapTo(&f->screen, release));
    } else {
        QTest::mousePress(widget, Qt::LeftButton, {}, press);
        if (gesture != Gesture::PressOnly)
            QTest::mouseRelease(widget, Qt::LeftButton, {}, release);
    }

    QVERIFY(f->flushReports(u"after the gesture"_s));
    const QPoint pixel = widget->mapTo(&f->screen, release) * 2;
    const QString click = u"click %1,%2"_s.arg(pixel.x()).arg(pixel.y());
    QCOMPARE(f->events().filter(u"click"_s), sent ? QStringList{click} : QStringList());
    if (gesture == Gesture::PressOnly) // no button left held for the next case
        QTest::mouseRelease(&f->screen, Qt::LeftButton, {}, QPoint(300, 230));
}

QTEST_MAIN(tst_ViewMonitor)
#include "tst_viewmonitor.moc"
