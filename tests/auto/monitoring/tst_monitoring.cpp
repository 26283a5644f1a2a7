#include "CaptureFixture.h"
#include "Config/IOSConfig.h"
#include "LogCapture.h"
#include "Monitoring/PrivacyUtils.h"
#include "Monitoring/ScreenCapture.h"
#include "Widgets/PassthroughUIImageView.h"

#include <QCommandLinkButton>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>
#include <QWindow>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

// A class the app registers but does not show.
class AuditBadge : public QLabel
{
    Q_OBJECT
};

// The mean colour of a rectangle of the window (in units) as the agent sees it: a third of the
// device pixels at a ratio of 2. The border is left out: JPEG smears edges.
static QColor colourIn(const QByteArray &screenshot, const QRect &rect)
{
    const QRect area(rect.topLeft() * 2 / 3, rect.size() * 2 / 3);
    const QImage part = CaptureFixture::decodeJpeg(screenshot).copy(area.adjusted(3, 3, -3, -3));
    return part.scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).pixelColor(0, 0);
}

// Hides a window right after the monitor's next screenshot tick, before the capture it queued.
struct HideAfterNextTick : QObject
{
    QWidget *window = nullptr;
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *timer = qobject_cast<QTimer *>(watched);
        // Posted before the tick runs, so it runs after the tick and before what it posts.
        if (window && event->type() == QEvent::Timer && timer &&
            timer->interval() == ViewMonitor::ScreenshotIntervalMs)
            QMetaObject::invokeMethod(std::exchange(window, nullptr), &QWidget::hide,
                                      Qt::QueuedConnection);
        return false;
    }
};

/// What the view monitor sends, read back from the service: screenshots (decoded, their private
/// widgets masked), page changes and taps.
class tst_Monitoring : public QObject
{
    Q_OBJECT
public:
    // Device pixels differ from widget units, so a missing or doubled scaling shows.
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private:
    std::unique_ptr<CaptureFixture> f;

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<AuditBadge *>(); }
    void init() { f = std::make_unique<CaptureFixture>(); }
    void cleanup() { f.reset(); }

    void screenshotsOnlyWhileStartedAndChanged()
    {
        auto *block = new QLabel(&f->screen);
        block->setGeometry(240, 180, 60, 45);
        block->setStyleSheet(u"background: red"_s);
        // Before any window is shown (one of no area is none) the start fails, but its
        // screenshot timer runs on.
        f->window.resize(0, 0);
        f->window.show();
        QCOMPARE(f->startMonitor(), u"Cannot get root view"_s);
        QVERIFY(f->showWindow());
        QVERIFY(f->waitForScreenshots(1));
        QTest::qWait(1000); // several ticks of an unchanged window
        QCOMPARE(f->screenshots().size(), 1);
        f->monitor.stop();
        block->setStyleSheet(u"background: blue"_s);
        // Nor does a start stopped in the same turn run anything.
        f->monitor.start(&f->sender, [](const std::optional<Error> &) {});
        f->monitor.stop();
        QTest::qWait(700);
        QVERIFY(f->flushReports(u"after stop"_s));
        QCOMPARE(f->screenshots().size(), 1);
        QCOMPARE(f->startMonitor(), QString());
        QVERIFY(f->waitForScreenshots(2));
        QVERIFY(colourIn(f->screenshots().at(1), block->geometry()).blue() > 200);
    }

    void screenshotOfTheWindowOnTop()
    {
        // The window on top goes away between a tick and its capture: its private label must
        // not be sent masked against the next window's widgets.
        auto *secret = new QLabel(&f->screen);
        secret->setGeometry(f->screen.rect());
        secret->setStyleSheet(u"background: red"_s);
        f->config->config().vistrelConfig.iosConfig = IOSConfig{{}, {u"QLabel"_s}};
        f->window.setPalette(QPalette(Qt::green));
        f->window.show();
        QVERIFY(f->showWindow());
        HideAfterNextTick hide;
        hide.window = &f->screen;
        qApp->installEventFilter(&hide);
        QCOMPARE(f->startMonitor(), QString());
        QVERIFY(f->waitForScreenshots(1));
        QVERIFY(!hide.window); // else nothing came between a tick and its capture
        QVERIFY(colourIn(f->screenshots().constFirst(), f->window.rect()).red() < 100);
    }

    void masking_data()
    {
        QTest::addColumn<QString>("tags");
        QTest::addColumn<QString>("classes");
        QTest::addColumn<QString>("masked");
        QTest::addColumn<QString>("warning"); // empty: none at all
        QTest::newRow("tags: reused, nested, also on a page not shown, on no widget")
            << u"7 9 42"_s << QString() << u"secret twin nested"_s << QString();
        QTest::newRow("tag that is not a number")
            << u"abc 7"_s << QString() << u"secret twin"_s
            << u"[WARNING] PrivacyUtils: Cannot convert tag to integer"_s;
        QTest::newRow("classes: subclassed, nested, in a namespace, without an instance")
            << QString() << u"QPushButton VistrelKit::PassthroughUIImageView AuditBadge"_s
            << u"button link nestedButton image"_s << QString();
        QTest::newRow("unknown class")
            << QString() << u"NoSuchWidget VistrelKit::PassthroughUIImageView"_s << u"image"_s
            << u"[WARNING] PrivacyUtils: Cannot convert class name to class"_s;
        // Password fields and what the host marked are private whatever the service says.
        QTest::newRow("nothing declared") << QString() << QString() << QString() << QString();
    }
    void masking()
    {
        QFETCH(QString, tags);
        QFETCH(QString, classes);
        QFETCH(QString, masked);
        QFETCH(QString, warning);
        LogCapture log;
        if (!tags.isEmpty() || !classes.isEmpty())
            f->config->config().vistrelConfig.iosConfig = IOSConfig{
                tags.split(u' ', Qt::SkipEmptyParts), classes.split(u' ', Qt::SkipEmptyParts)};
        masked += u" password onEdit noEcho marked"_s;
        // Fixed places, so that the service's rectangle of a nested widget falls on empty
        // background and never on another widget.
        QWidget &window = f->screen;
        window.resize(400, 300);
        const auto place = [](QWidget *widget, const QString &name, const QRect &rect,
                              int tag = 0) {
            widget->setObjectName(name);
            widget->setGeometry(rect);
            widget->setProperty(PrivacyUtils::TagProperty, tag ? QVariant(tag) : QVariant());
        };
        // Masking a private field on a page not shown would black out the page shown instead.
        // It comes first, so the tag's other widgets must still be found.
        auto *pages = new QStackedWidget(&window);
        pages->setGeometry(105, 60, 90, 30);
        pages->addWidget(new QWidget);
        pages->addWidget(new QPushButton);
        place(pages->widget(1), u"hidden"_s, pages->rect(), 7);
        place(new QLineEdit(&window), u"secret"_s, {10, 10, 90, 30}, 7);
        place(new QLineEdit(&window), u"control"_s, {105, 10, 90, 30});
        place(new QPushButton(&window), u"button"_s, {200, 10, 90, 30});
        place(new QCommandLinkButton(&window), u"link"_s, {295, 10, 90, 30});
        place(new PassthroughUIImageView(&window), u"image"_s, {10, 60, 90, 30});
        place(new QLineEdit(&window), u"twin"_s, {10, 110, 90, 30}, 7);
        auto *container = new QFrame(&window);
        container->setGeometry(200, 150, 190, 140);
        place(new QLineEdit(container), u"nested"_s, {10, 10, 80, 30}, 9);
        place(new QPushButton(container), u"nestedButton"_s, {10, 80, 80, 30});
        const QLineEdit::EchoMode hiding[] = {QLineEdit::Password, QLineEdit::PasswordEchoOnEdit,
                                              QLineEdit::NoEcho};
        const QString hidingNames[] = {u"password"_s, u"onEdit"_s, u"noEcho"_s};
        for (int i = 0; i < 3; ++i) {
            auto *edit = new QLineEdit(u"1234"_s, &window);
            edit->setEchoMode(hiding[i]);
            place(edit, hidingNames[i], {105, 110 + 45 * i, 90, 30});
        }
        auto *marked = new QLabel(u"4111 1111"_s, &window);
        marked->setProperty(PrivacyUtils::PrivateProperty, true);
        place(marked, u"marked"_s, {10, 250, 90, 40});
        QVERIFY(f->showWindow());

        QCOMPARE(f->startMonitor(), QString());
        QVERIFY(f->waitForScreenshots(1));
        const QByteArray shot = f->screenshots().constFirst();
        // The whole window, scaled to a third.
        QCOMPARE(CaptureFixture::decodeJpeg(shot).size(), QSize(400 * 2 / 3, 300 * 2 / 3));
        for (QWidget *widget : window.findChildren<QWidget *>()) {
            const QString name = widget->objectName();
            if (name.isEmpty())
                continue;
            const auto grey = [&](const QPoint &origin) {
                return qGray(colourIn(shot, QRect(origin, widget->size())).rgb());
            };
            const bool isPrivate = masked.split(u' ').contains(name);
            const int seen = grey(widget->mapTo(&window, QPoint()));
            QVERIFY2(isPrivate ? seen < 40 : seen > 120, qPrintable(name));
            // The service's rectangle as well: the frame's origin divided by the ratio.
            QVERIFY2(!isPrivate || grey(widget->mapTo(&window, widget->pos()) / 2) < 40,
                     qPrintable(name));
        }
        // Captures go on (a repaint each), but a bad entry is logged once per start.
        for (int i = 0; i < 2; ++i) {
            window.repaint();
            QTest::qWait(ViewMonitor::ScreenshotIntervalMs + 50);
        }
        QCOMPARE(log.count(u"[WARNING]"_s), warning.isEmpty() ? 0 : 1);
        QVERIFY(warning.isEmpty() || log.contains(warning));
    }

    void windowPixels_data()
    {
        QTest::addColumn<bool>("embedded");
        // Read in place, the window's buffer must give exactly what rendering gives, at the
        // device pixel ratio: a wrong stride, crop or ratio shows here.
        QTest::newRow("widgets") << false;
        // A window embedded in a widget (as video, OpenGL and Qt Quick content is) paints
        // outside that buffer: the window must be rendered.
        QTest::newRow("with an embedded window") << true;
    }
    void windowPixels()
    {
        QFETCH(bool, embedded);
        new QLabel(u"Balance"_s, &f->screen);
        (new QLineEdit(u"42.00"_s, &f->screen))->move(20, 40);
        (new QPushButton(u"Pay"_s, &f->screen))->move(20, 90);
        if (embedded)
            QWidget::createWindowContainer(new QWindow, &f->screen)->setGeometry(200, 20, 60, 60);
        f->screen.resize(301, 200); // a width of no whole number of 3-pixel blocks
        QVERIFY(f->showWindow());
        QTRY_VERIFY(f->screen.windowHandle()->isExposed());
        QCOMPARE(ScreenCapture::readsBackingStore(&f->screen), !embedded);
        const QImage read = ScreenCapture::pixels(&f->screen);
        const QImage rendered = ScreenCapture::render(&f->screen);
        QCOMPARE(read.size(), QSize(602, 400));
        QCOMPARE(read.devicePixelRatio(), 2.0);
        if (!embedded)
            QCOMPARE(read.convertToFormat(QImage::Format_RGB32),
                     rendered.convertToFormat(QImage::Format_RGB32));
    }

    void newListsMaskWithoutRepaint()
    {
        // The service's lists come with a new init reply while the screen stands still: the
        // field must go black at once, not at the app's next repaint.
        auto *field = new QLabel(u"Card"_s, &f->screen);
        field->setGeometry(60, 60, 120, 60);
        field->setProperty(PrivacyUtils::TagProperty, 5);
        QVERIFY(f->showWindow());
        QCOMPARE(f->startMonitor(), QString());
        QVERIFY(f->waitForScreenshots(1));
        QVERIFY(qGray(colourIn(f->screenshots().constFirst(), field->geometry()).rgb()) > 120);
        f->config->config().vistrelConfig.iosConfig = IOSConfig{{u"5"_s}, {}};
        QVERIFY(f->waitForDelivery([this] { return f->screenshots().size() == 2; }, 2000));
        QVERIFY(qGray(colourIn(f->screenshots().at(1), field->geometry()).rgb()) < 40);
    }

    void popups()
    {
        // A popup and a tool tip are windows of their own: the agent must see them over the
        // window, the tool tip on top, the popup's password field black, and no longer once
        // they are closed.
        f->window.setPalette(QPalette(Qt::white));
        f->screen.setPalette(QPalette(Qt::white));
        QVERIFY(f->showWindow());
        QFrame popup(&f->screen, Qt::Popup);
        popup.setPalette(QPalette(Qt::red));
        popup.setAutoFillBackground(true);
        auto *password = new QLineEdit(u"secret"_s, &popup);
        password->setEchoMode(QLineEdit::Password);
        password->setGeometry(20, 70, 100, 30);
        popup.setGeometry(QRect(f->screen.mapToGlobal(QPoint(60, 40)), QSize(160, 120)));
        QLabel tip(u"Tip"_s, nullptr, Qt::ToolTip);
        tip.setStyleSheet(u"background: blue"_s);
        tip.setGeometry(QRect(f->screen.mapToGlobal(QPoint(180, 40)), QSize(100, 40)));
        popup.show();
        tip.show();
        QCOMPARE(f->startMonitor(), QString());
        QVERIFY(f->waitForScreenshots(1));
        const QByteArray shot = f->screenshots().constFirst();
        const auto near = [&shot](const QRect &area, QColor expected) {
            const QColor seen = colourIn(shot, area);
            return qAbs(seen.red() - expected.red()) + qAbs(seen.green() - expected.green()) +
                       qAbs(seen.blue() - expected.blue()) <
                   120;
        };
        QVERIFY(near({60, 40, 110, 25}, Qt::red));    // the popup
        QVERIFY(near({80, 110, 100, 30}, Qt::black)); // its password field
        QVERIFY(near({180, 40, 100, 40}, Qt::blue));  // the tip, over it
        QVERIFY(near({10, 180, 300, 50}, Qt::white)); // the window
        // Moving or closing them paints nothing in the window: it must be noticed all the
        // same, and sooner than the forced capture.
        tip.move(f->screen.mapToGlobal(QPoint(20, 180)));
        QVERIFY(f->waitForDelivery([this] { return f->screenshots().size() == 2; }, 2000));
        QVERIFY(colourIn(f->screenshots().at(1), {20, 180, 100, 40}).blue() > 200);
        QVERIFY(colourIn(f->screenshots().at(1), {180, 40, 100, 40}).red() > 150); // no blue
        tip.hide();
        popup.hide();
        QVERIFY(f->waitForDelivery([this] { return f->screenshots().size() == 3; }, 2000));
        QVERIFY(qGray(colourIn(f->screenshots().at(2), {20, 40, 260, 180}).rgb()) > 200);
    }

    void caret_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("screenshots");
        // Over 3 s: the cursor blinks several times and a capture is forced.
        QTest::newRow("blinking") << QString() << 1;
        // A narrow letter fits inside the cursor's old rectangle: still a change.
        QTest::newRow("typed a narrow letter") << u"l"_s << 2;
    }
    void caret()
    {
        QFETCH(QString, typed);
        QFETCH(int, screenshots);
        auto *edit = new QLineEdit(u"Name"_s, &f->screen);
        edit->setGeometry(20, 20, 200, 30);
        QVERIFY(f->showWindow());
        edit->setFocus();
        QTRY_VERIFY(edit->hasFocus());
        QCOMPARE(f->startMonitor(), QString());
        QVERIFY(f->waitForScreenshots(1));
        for (const QChar letter : typed)
            QTest::keyClick(edit, letter.toLatin1());
        const QImage before = f->screen.grab().toImage();
        int blinks = 0;
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() <
               ViewMonitor::ForcedCaptureTicks * ViewMonitor::ScreenshotIntervalMs + 300) {
            QTest::qWait(100);
            blinks += f->screen.grab().toImage() != before;
        }
        QVERIFY(blinks > 0); // else nothing blinked
        QVERIFY(f->flushReports(u"after"_s));
        QCOMPARE(f->screenshots().size(), screenshots);
    }

    void reports_data()
    {
        // Steps: "hide" the window while checks run on, "stop", then a "tap" (through the
        // window, as a user's) or a "press" alone, on the "button" or else on the page, which
        // ignores it and so passes it on, or a "double" click on the button, or a tap on a
        // "popup" over the window; or a switch of the outer "tab" or the inner "stack", which
        // must be reported within a flush, not at the next 1 s check.
        QTest::addColumn<QString>("steps");
        QTest::addColumn<int>("moveBy");   // between press and release
        QTest::addColumn<QString>("sent"); // "click": at the release
        const int drag = QApplication::startDragDistance();
        QTest::newRow("tap") << u"tap button"_s << 0 << u"click"_s;
        QTest::newRow("ignored tap moved within the drag distance")
            << u"tap"_s << drag << u"click"_s;
        QTest::newRow("dragged further") << u"tap button"_s << drag + 1 << QString();
        QTest::newRow("press without release") << u"press button"_s << 0 << QString();
        QTest::newRow("tap after stop") << u"stop tap button"_s << 0 << QString();
        // Qt delivers the second press as a double-click event.
        QTest::newRow("double click") << u"double button"_s << 0 << u"click click"_s;
        QTest::newRow("tap on a popup") << u"tap popup"_s << 0 << u"click"_s;
        QTest::newRow("tab") << u"tab"_s << 0 << u"page QLabel"_s;
        QTest::newRow("stack inside a tab page") << u"stack"_s << 0 << u"page QLabel"_s;
        QTest::newRow("stopped while no window was shown") << u"hide stop tab"_s << 0 << QString();
    }
    void reports()
    {
        QFETCH(QString, steps);
        QFETCH(int, moveBy);
        QFETCH(QString, sent);
        // The outer tab's first page is a plain widget; the stack inside it names the screen.
        // Pages look alike, so that no screenshot's post swallows a report.
        auto *stack = new QStackedWidget;
        stack->addWidget(new QFrame);
        stack->addWidget(new QLabel);
        auto *page = new QWidget;
        (new QVBoxLayout(page))->addWidget(stack);
        auto *tabs = new QTabWidget;
        tabs->tabBar()->hide();
        tabs->addTab(page, u"Main"_s);
        tabs->addTab(new QLabel, u"List"_s);
        (new QVBoxLayout(&f->screen))->addWidget(tabs);
        auto *button = new QPushButton(u"Pay"_s, &f->screen);
        button->setGeometry(30, 40, 100, 30);
        button->setFocusPolicy(Qt::NoFocus); // looks the same after the tap
        QVERIFY(f->showWindow());
        QCOMPARE(f->startMonitor(), QString());
        // The first check only learns the name.
        QTRY_VERIFY_WITH_TIMEOUT(f->monitor.lastView() == u"QFrame"_s, 20000);
        QVERIFY(f->flushReports(u"first check"_s));

        if (steps.startsWith(u"hide"_s)) {
            f->screen.hide();
            QTest::qWait(1100);
        }
        if (steps.contains(u"stop"_s)) {
            f->monitor.stop();
            QTRY_VERIFY(!f->monitor.isCapturingClicks());
            f->screen.show();
        }
        QFrame popup(&f->screen, Qt::Popup);
        popup.setGeometry(QRect(f->screen.mapToGlobal(QPoint(150, 100)), QSize(100, 60)));
        if (steps.contains(u"popup"_s))
            popup.show();
        QWidget *widget = steps.contains(u"button"_s) ? button : stack->currentWidget();
        widget = steps.contains(u"popup"_s) ? &popup : widget;
        const QPoint press = widget->mapTo(widget->window(), QPoint(7, 5));
        const QPoint release = press + QPoint(moveBy, 0);
        QWindow *window = widget->window()->windowHandle();
        if (steps.contains(u"tab"_s) || steps.contains(u"stack"_s)) {
            stack->setCurrentIndex(steps.contains(u"stack"_s) ? 1 : 0);
            tabs->setCurrentIndex(steps.contains(u"tab"_s) ? 1 : 0);
            QTest::qWait(50);
        } else if (steps.contains(u"double"_s)) {
            QTest::mouseDClick(window, Qt::LeftButton, {}, press);
        } else {
            QTest::mousePress(window, Qt::LeftButton, {}, press);
            if (steps.contains(u"tap"_s))
                QTest::mouseRelease(window, Qt::LeftButton, {}, release);
        }
        QVERIFY(f->flushReports(u"after"_s));
        // Clicks in the window's device pixels, wherever the tap landed.
        const QPoint atRelease = f->screen.mapFromGlobal(widget->window()->mapToGlobal(release));
        QStringList expected;
        if (sent.startsWith(u"page"_s))
            expected.append(sent);
        else
            for (qsizetype i = sent.count(u"click"_s); i > 0; --i)
                expected.append(u"click %1,%2"_s.arg(atRelease.x() * 2).arg(atRelease.y() * 2));
        QCOMPARE(f->events().filter(u"click"_s) + f->events().filter(u"page"_s), expected);
        if (steps.contains(u"press"_s)) // no button left held for the next case
            QTest::mouseRelease(f->screen.windowHandle(), Qt::LeftButton, {}, QPoint(300, 230));
    }
};

QTEST_MAIN(tst_Monitoring)
#include "tst_monitoring.moc"
