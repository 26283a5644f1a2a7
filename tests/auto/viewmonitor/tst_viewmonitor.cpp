#include "CaptureFixture.h"
#include "LogCapture.h"
#include "Monitoring/ViewMonitor.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>
#include <QVBoxLayout>
#include <QWindow>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
class FormPage : public QWidget
{
    Q_OBJECT
};

class ListPage : public QWidget
{
    Q_OBJECT
};

enum class Holder { Stack, Tabs, StackInTab };
enum class Gesture { PressOnly, Drag, OtherWindow, AfterStop };
} // namespace

Q_DECLARE_METATYPE(Holder)
Q_DECLARE_METATYPE(Gesture)

class tst_ViewMonitor : public QObject
{
    Q_OBJECT
public:
    // Device pixels differ from widget units, so a missing or doubled scaling shows.
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private Q_SLOTS:
    void init();
    void cleanup();
    void screenshotIsAThirdOfTheDevicePixels();
    void unchangedScreenIsSentOncePerStart();
    void pageChanges_data();
    void pageChanges();
    void reportPageChangeSendsAtOnce();
    void tapsAreSentInDevicePixels_data();
    void tapsAreSentInDevicePixels();
    void otherGesturesAreNotSent_data();
    void otherGesturesAreNotSent();
    void withoutWindow();

private:
    /// Starts the monitor and returns the completion's error text (empty on success).
    QString startMonitor();

    std::unique_ptr<CaptureFixture> f;
    std::unique_ptr<ViewMonitor> monitor;
};

void tst_ViewMonitor::init()
{
    f = std::make_unique<CaptureFixture>();
    monitor = std::make_unique<ViewMonitor>(f->config.get());
}

void tst_ViewMonitor::cleanup()
{
    monitor.reset();
    f.reset();
}

QString tst_ViewMonitor::startMonitor()
{
    std::optional<QString> result;
    monitor->start(&f->sender, [&result](const std::optional<Error> &error) {
        result = error ? error->stringError()->message() : QString();
    });
    if (!QTest::qWaitFor([&result] { return result.has_value(); }))
        return u"no completion"_s;
    return *result;
}

void tst_ViewMonitor::screenshotIsAThirdOfTheDevicePixels()
{
    // A red block in the lower right quarter tells whether the whole window was scaled down.
    auto *block = new QWidget(&f->screen);
    block->setGeometry(240, 180, 60, 45);
    block->setAutoFillBackground(true);
    block->setPalette(QPalette(Qt::red));
    QVERIFY(f->showWindow());
    QCOMPARE(f->screen.devicePixelRatioF(), 2.0);

    QCOMPARE(startMonitor(), QString());
    QVERIFY(f->waitForScreenshots(1));
    const QImage image = CaptureFixture::decodeJpeg(f->screenshots().constFirst());
    QVERIFY(!image.isNull());
    QCOMPARE(image.size(), QSize(320 * 2 / 3, 240 * 2 / 3));

    const QColor inBlock = image.pixelColor(QPoint(270, 202) * 2 / 3);
    QVERIFY2(inBlock.red() > 200 && inBlock.green() < 60, qPrintable(inBlock.name()));
    const QColor outside = image.pixelColor(QPoint(100, 100) * 2 / 3);
    QVERIFY2(outside.green() > 200, qPrintable(outside.name()));
}

void tst_ViewMonitor::unchangedScreenIsSentOncePerStart()
{
    auto *label = new QLabel(u"Balance: 10"_s, &f->screen);
    label->setGeometry(20, 20, 200, 30);
    QVERIFY(f->showWindow());

    QCOMPARE(startMonitor(), QString());
    QVERIFY(f->waitForScreenshots(1));
    QTest::qWait(1000); // several ticks
    QCOMPARE(f->screenshots().size(), 1);

    // Stopped: a change goes unseen.
    monitor->stop();
    label->setText(u"Balance: 20"_s);
    QTest::qWait(700);
    QCOMPARE(f->screenshots().size(), 1);

    // Back to what was sent last: a new start sends nothing, as the last screenshot is kept.
    label->setText(u"Balance: 10"_s);
    QCOMPARE(startMonitor(), QString());
    QTest::qWait(1000);
    QCOMPARE(f->screenshots().size(), 1);

    label->setText(u"Balance: 30"_s);
    QVERIFY(f->waitForScreenshots(2));
    const QList<QByteArray> shots = f->screenshots();
    QVERIFY(shots.at(1) != shots.at(0));
    QVERIFY(!CaptureFixture::decodeJpeg(shots.at(1)).isNull());
    QCOMPARE(monitor->lastScreenshot(), shots.at(1));
}

void tst_ViewMonitor::pageChanges_data()
{
    QTest::addColumn<Holder>("holder");
    QTest::newRow("stacked widget") << Holder::Stack;
    QTest::newRow("tab widget") << Holder::Tabs;
    QTest::newRow("stack inside a tab page") << Holder::StackInTab;
}

void tst_ViewMonitor::pageChanges()
{
    QFETCH(Holder, holder);
    LogCapture capture;
    auto *layout = new QVBoxLayout(&f->screen);
    QStackedWidget *stack = nullptr;
    QTabWidget *tabs = nullptr;
    if (holder == Holder::Tabs) {
        tabs = new QTabWidget;
        tabs->addTab(new FormPage, u"Form"_s);
        tabs->addTab(new ListPage, u"List"_s);
        // Switched by the app: a tab bar repainting would send a screenshot alongside.
        tabs->tabBar()->hide();
        layout->addWidget(tabs);
    } else {
        stack = new QStackedWidget;
        stack->addWidget(new FormPage);
        stack->addWidget(new ListPage);
        if (holder == Holder::StackInTab) {
            // The outer tab's page is a plain widget; the stack inside it names the screen.
            tabs = new QTabWidget;
            auto *page = new QWidget;
            (new QVBoxLayout(page))->addWidget(stack);
            tabs->addTab(page, u"Main"_s);
            layout->addWidget(tabs);
        } else {
            layout->addWidget(stack);
        }
    }
    QVERIFY(f->showWindow());

    QCOMPARE(startMonitor(), QString());
    // The first check only learns the name.
    QTRY_VERIFY_WITH_TIMEOUT(monitor->lastView().has_value(), 3000);
    QCOMPARE(*monitor->lastView(), u"FormPage"_s);
    QVERIFY(f->flushReports(u"first check"_s));
    QCOMPARE(f->pageChanges(), QStringList());
    QVERIFY(!capture.contains(u"View changed to"_s));

    if (holder == Holder::Tabs)
        tabs->setCurrentIndex(1);
    else
        stack->setCurrentIndex(1);
    QVERIFY(f->waitForDelivery([this] { return !f->pageChanges().isEmpty(); }, 3000));
    QCOMPARE(f->pageChanges(), QStringList{u"ListPage"_s});
    QCOMPARE(*monitor->lastView(), u"ListPage"_s);
    QVERIFY(capture.contains(u"[DEBUG] ViewMonitor: View changed to: ListPage"_s));

    QTest::qWait(1100); // the next check finds nothing new
    QCOMPARE(f->pageChanges(), QStringList{u"ListPage"_s});
}

void tst_ViewMonitor::reportPageChangeSendsAtOnce()
{
    QVERIFY(f->showWindow());
    monitor->reportPageChange(u"Before start"_s); // no sender yet: dropped
    QCOMPARE(startMonitor(), QString());
    QVERIFY(f->waitForScreenshots(1));
    monitor->reportPageChange(u"Checkout"_s);
    QVERIFY(f->waitForDelivery([this] { return !f->pageChanges().isEmpty(); }));
    QCOMPARE(f->pageChanges(), QStringList{u"Checkout"_s});
    // The name checks keep their own reference.
    QVERIFY(monitor->lastView() != u"Checkout"_s);
}

void tst_ViewMonitor::tapsAreSentInDevicePixels_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QPoint>("press");
    QTest::addColumn<QPoint>("release");
    QTest::addColumn<bool>("throughWindow");

    const QPoint p(7, 5);
    QTest::newRow("button") << u"button"_s << p << p << false;
    QTest::newRow("label, which ignores the press") << u"label"_s << p << p << false;
    QTest::newRow("widget in a container") << u"inner"_s << p << p << false;
    QTest::newRow("through the window") << u"inner"_s << p << p << true;
    const QPoint moved = p + QPoint(QApplication::startDragDistance(), 0);
    QTest::newRow("moved within the drag distance") << u"label"_s << p << moved << true;
}

void tst_ViewMonitor::tapsAreSentInDevicePixels()
{
    QFETCH(QString, target);
    QFETCH(QPoint, press);
    QFETCH(QPoint, release);
    QFETCH(bool, throughWindow);

    auto *button = new QPushButton(u"Pay"_s, &f->screen);
    button->setObjectName(u"button"_s);
    button->setGeometry(30, 40, 100, 30);
    button->setFocusPolicy(Qt::NoFocus); // looks the same after the tap
    auto *label = new QLabel(u"Total"_s, &f->screen);
    label->setObjectName(u"label"_s);
    label->setGeometry(150, 40, 100, 30);
    auto *container = new QWidget(&f->screen);
    container->setGeometry(60, 120, 200, 100);
    auto *inner = new QLabel(u"Details"_s, container);
    inner->setObjectName(u"inner"_s);
    inner->setGeometry(50, 30, 100, 40);
    QVERIFY(f->showWindow());
    QCOMPARE(startMonitor(), QString());
    QVERIFY(f->waitForScreenshots(1));

    auto *widget = f->screen.findChild<QWidget *>(target);
    QVERIFY(widget);
    if (throughWindow) {
        QWindow *handle = f->screen.windowHandle();
        QTest::mousePress(handle, Qt::LeftButton, {}, widget->mapTo(&f->screen, press));
        QTest::mouseRelease(handle, Qt::LeftButton, {}, widget->mapTo(&f->screen, release));
    } else {
        QTest::mousePress(widget, Qt::LeftButton, {}, press);
        QTest::mouseRelease(widget, Qt::LeftButton, {}, release);
    }

    QVERIFY(f->waitForDelivery([this] { return !f->clicks().isEmpty(); }));
    QVERIFY(f->flushReports(u"after the tap"_s));
    const QPointF expected = QPointF(widget->mapTo(&f->screen, release)) * 2;
    QCOMPARE(f->clicks(), QList<QPointF>{expected});
}

void tst_ViewMonitor::otherGesturesAreNotSent_data()
{
    QTest::addColumn<Gesture>("gesture");
    QTest::newRow("press without release") << Gesture::PressOnly;
    QTest::newRow("drag beyond the drag distance") << Gesture::Drag;
    QTest::newRow("tap on another window") << Gesture::OtherWindow;
    QTest::newRow("tap after stop") << Gesture::AfterStop;
}

void tst_ViewMonitor::otherGesturesAreNotSent()
{
    QFETCH(Gesture, gesture);
    auto *button = new QPushButton(u"Pay"_s, &f->screen);
    button->setGeometry(30, 40, 100, 30);
    QVERIFY(f->showWindow());
    QCOMPARE(startMonitor(), QString());

    QWidget other;
    auto *otherButton = new QPushButton(u"Close"_s, &other);
    otherButton->setGeometry(10, 10, 80, 30);
    const QPoint p(10, 10);
    switch (gesture) {
    case Gesture::PressOnly:
        QTest::mousePress(button, Qt::LeftButton, {}, p);
        break;
    case Gesture::Drag: {
        const QPoint end = p + QPoint(QApplication::startDragDistance() + 1, 0);
        QTest::mousePress(button, Qt::LeftButton, {}, p);
        QTest::mouseMove(button, end);
        QTest::mouseRelease(button, Qt::LeftButton, {}, end);
        break;
    }
    case Gesture::OtherWindow:
        other.setGeometry(50, 50, 120, 60);
        other.show();
        QVERIFY(QTest::qWaitForWindowExposed(&other));
        QTest::mouseClick(otherButton, Qt::LeftButton, {}, p);
        QTest::mouseClick(other.windowHandle(), Qt::LeftButton, {}, QPoint(100, 50));
        break;
    case Gesture::AfterStop:
        monitor->stop();
        QTRY_VERIFY(!monitor->isCapturingClicks());
        QTest::mouseClick(button, Qt::LeftButton, {}, p);
        break;
    }

    QVERIFY(f->flushReports(u"after the gesture"_s));
    QCOMPARE(f->clicks(), QList<QPointF>());

    if (gesture == Gesture::PressOnly) // no button left held for the next case
        QTest::mouseRelease(&f->screen, Qt::LeftButton, {}, QPoint(300, 230));
}

void tst_ViewMonitor::withoutWindow()
{
    LogCapture capture;
    QCOMPARE(startMonitor(), u"Cannot get root view"_s);
    QTRY_VERIFY(capture.count(u"[WARNING] ViewMonitor: Root view is null"_s) >= 2);
    QCOMPARE(f->screenshots().size(), 0);

    // The screenshot timer runs on and picks up the window once there is one.
    QVERIFY(f->showWindow());
    QVERIFY(f->waitForScreenshots(1));
}

QTEST_MAIN(tst_ViewMonitor)
#include "tst_viewmonitor.moc"
