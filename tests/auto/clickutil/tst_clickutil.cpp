#include "CaptureFixture.h"
#include "LogCapture.h"
#include "Monitoring/ClickUtil.h"
#include "Monitoring/PassthroughUIImageView.h"
#include "Monitoring/PassthroughUIView.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>
#include <QWindow>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
const QString foundView = u"[DEBUG] ClickUtil: Found view: "_s;
const QString viewNotFound = u"[WARNING] BidirectionalMessageHandler: View not found"_s;
} // namespace

class tst_ClickUtil : public QObject
{
    Q_OBJECT
public:
    // Agents send device pixels; at a ratio of 2 a wrong conversion lands on another widget.
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private Q_SLOTS:
    void init();
    void cleanup();
    void buttonIsPressedOnce_data();
    void buttonIsPressedOnce();
    void rowIsSelected_data();
    void rowIsSelected();
    void otherWidgets_data();
    void otherWidgets();
    void outsideTheWindow_data();
    void outsideTheWindow();
    void overlaysLetTapsThrough_data();
    void overlaysLetTapsThrough();

private:
    /// Queues the agent's tap on the service and waits until the device has carried it out.
    bool tapAsAgent(const QPoint &devicePixels);
    static QPoint pixelsOf(QWidget *widget, const QPoint &position)
    {
        return widget->mapTo(widget->window(), position) * 2;
    }

    std::unique_ptr<CaptureFixture> f;
    std::unique_ptr<LogCapture> capture;
};

void tst_ClickUtil::init()
{
    f = std::make_unique<CaptureFixture>();
    capture = std::make_unique<LogCapture>();
    QVERIFY(f->service.waitForVisitOpen(f->visitId()));
}

void tst_ClickUtil::cleanup()
{
    capture.reset();
    f.reset();
}

bool tst_ClickUtil::tapAsAgent(const QPoint &devicePixels)
{
    const QByteArray command =
        u"{\"x\":%1,\"y\":%2}"_s.arg(devicePixels.x()).arg(devicePixels.y()).toUtf8();
    if (!f->service.queueCommand(f->visitId(), command))
        return false;
    // Commands ride on the reply to the device's next post: give it a report to post.
    f->sender.sendTag(u"carrier"_s, f->startTime(), [](const std::optional<Error> &) {});
    const qsizetype before = capture->count(foundView) + capture->count(viewNotFound);
    return QTest::qWaitFor([this, before] {
        return capture->count(foundView) + capture->count(viewNotFound) > before;
    });
}

void tst_ClickUtil::buttonIsPressedOnce_data()
{
    QTest::addColumn<QPoint>("pixel");
    QTest::addColumn<int>("presses");

    // The button covers window units 40..139 × 30..69, device pixels 80..279 × 60..139.
    QTest::newRow("centre") << QPoint(180, 100) << 1;
    QTest::newRow("first device pixel") << QPoint(80, 60) << 1;
    QTest::newRow("last device pixel") << QPoint(279, 139) << 1;
    QTest::newRow("left of it") << QPoint(79, 100) << 0;
    QTest::newRow("above it") << QPoint(180, 59) << 0;
}

void tst_ClickUtil::buttonIsPressedOnce()
{
    QFETCH(QPoint, pixel);
    QFETCH(int, presses);
    auto *button = new QPushButton(u"Pay"_s, &f->screen);
    button->setGeometry(40, 30, 100, 40);
    QSignalSpy clicked(button, &QAbstractButton::clicked);
    QVERIFY(f->showWindow());

    QVERIFY(tapAsAgent(pixel));
    QCOMPARE(clicked.count(), presses);
    QCOMPARE(capture->contains(foundView + u"QPushButton("_s), presses == 1);
}

void tst_ClickUtil::rowIsSelected_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("row");
    QTest::newRow("list widget") << u"list"_s << 3;
    QTest::newRow("table view") << u"table"_s << 2;
    QTest::newRow("label in a table cell") << u"cell label"_s << 4;
}

void tst_ClickUtil::rowIsSelected()
{
    QFETCH(QString, kind);
    QFETCH(int, row);
    QAbstractItemView *view = nullptr;
    QModelIndex target;
    QWidget *hit = nullptr;
    if (kind == u"list"_s) {
        auto *list = new QListWidget(&f->screen);
        for (int i = 0; i < 6; ++i)
            list->addItem(u"Item %1"_s.arg(i));
        view = list;
        target = list->model()->index(row, 0);
    } else {
        auto *model = new QStandardItemModel(6, 3, &f->screen);
        for (int r = 0; r < 6; ++r) {
            for (int c = 0; c < 3; ++c)
                model->setItem(r, c, new QStandardItem(u"%1/%2"_s.arg(r).arg(c)));
        }
        auto *table = new QTableView(&f->screen);
        table->setModel(model);
        view = table;
        target = model->index(row, 1);
        if (kind == u"cell label"_s) {
            hit = new QLabel(u"Edit"_s);
            table->setIndexWidget(target, hit);
        }
    }
    view->setGeometry(20, 20, 280, 200);
    view->setCurrentIndex(view->model()->index(0, 0));
    QSignalSpy clicked(view, &QAbstractItemView::clicked);
    QSignalSpy activated(view, &QAbstractItemView::activated);
    QVERIFY(f->showWindow());

    const QRect cell = view->visualRect(target);
    QVERIFY(!cell.isEmpty());
    QVERIFY(tapAsAgent(pixelsOf(view->viewport(), cell.center())));
    if (hit)
        QVERIFY(capture->contains(foundView + u"QLabel("_s));
    const QModelIndexList rows = view->selectionModel()->selectedRows();
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.first().row(), row);
    QCOMPARE(view->currentIndex().row(), row);
    // The app's own handlers are not called.
    QCOMPARE(clicked.count(), 0);
    QCOMPARE(activated.count(), 0);
}

void tst_ClickUtil::otherWidgets_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("className");
    QTest::addColumn<bool>("takesFocus");
    QTest::newRow("line edit") << u"edit"_s << u"QLineEdit"_s << true;
    QTest::newRow("label") << u"caption"_s << u"QLabel"_s << false;
}

void tst_ClickUtil::otherWidgets()
{
    QFETCH(QString, target);
    QFETCH(QString, className);
    QFETCH(bool, takesFocus);
    auto *start = new QLineEdit(&f->screen);
    start->setGeometry(20, 20, 200, 30);
    auto *edit = new QLineEdit(&f->screen);
    edit->setObjectName(u"edit"_s);
    edit->setGeometry(20, 70, 200, 30);
    auto *caption = new QLabel(u"Name"_s, &f->screen);
    caption->setObjectName(u"caption"_s);
    caption->setGeometry(20, 120, 200, 30);
    QVERIFY(f->showWindow());
    start->setFocus();
    QTRY_VERIFY(start->hasFocus());

    auto *widget = f->screen.findChild<QWidget *>(target);
    QVERIFY(tapAsAgent(pixelsOf(widget, widget->rect().center())));
    const QStringList found = capture->matching(foundView);
    QCOMPARE(found.size(), 1);
    QVERIFY2(found.first().startsWith(foundView + className + u'(') &&
                 found.first().contains(u"name=\"%1\""_s.arg(target)),
             qPrintable(found.first()));
    QCOMPARE(QApplication::focusWidget(), takesFocus ? widget : start);
    QCOMPARE(capture->matching(u"[WARNING]"_s), QStringList());
}

void tst_ClickUtil::outsideTheWindow_data()
{
    QTest::addColumn<QPoint>("pixel");
    QTest::addColumn<bool>("found");

    // The window is 320 × 240 units, 640 × 480 device pixels.
    QTest::newRow("last device pixel inside") << QPoint(639, 479) << true;
    QTest::newRow("right of the window") << QPoint(640, 100) << false;
    QTest::newRow("below the window") << QPoint(100, 480) << false;
    QTest::newRow("negative") << QPoint(-4, 10) << false;
}

void tst_ClickUtil::outsideTheWindow()
{
    QFETCH(QPoint, pixel);
    QFETCH(bool, found);
    QVERIFY(f->showWindow());
    QVERIFY(tapAsAgent(pixel));
    QCOMPARE(capture->contains(viewNotFound), !found);
    QCOMPARE(capture->contains(foundView + u"QWidget("_s), found);
}

void tst_ClickUtil::overlaysLetTapsThrough_data()
{
    QTest::addColumn<bool>("imageOverlay");
    QTest::addColumn<bool>("innerHidden");
    QTest::addColumn<QPoint>("point"); // window units
    QTest::addColumn<QString>("expected");

    QTest::newRow("drawing over a button") << true << false << QPoint(100, 60) << u"below"_s;
    QTest::newRow("panel's empty area over a button")
        << false << false << QPoint(60, 60) << u"below"_s;
    QTest::newRow("button inside the panel") << false << false << QPoint(190, 80) << u"inner"_s;
    QTest::newRow("panel's hidden button") << false << true << QPoint(190, 80) << u"below"_s;
}

void tst_ClickUtil::overlaysLetTapsThrough()
{
    QFETCH(bool, imageOverlay);
    QFETCH(bool, innerHidden);
    QFETCH(QPoint, point);
    QFETCH(QString, expected);

    auto *below = new QPushButton(u"Below"_s, &f->screen);
    below->setObjectName(u"below"_s);
    below->setGeometry(40, 40, 200, 100);
    QWidget *overlay = nullptr;
    QPushButton *inner = nullptr;
    if (imageOverlay) {
        QImage drawing(64, 48, QImage::Format_ARGB32);
        drawing.fill(QColor(255, 0, 0, 128));
        overlay = new PassthroughUIImageView(drawing, &f->screen);
    } else {
        overlay = new PassthroughUIView(&f->screen);
        inner = new QPushButton(u"Inner"_s, overlay);
        inner->setObjectName(u"inner"_s);
        inner->setGeometry(150, 60, 80, 40);
    }
    overlay->setGeometry(f->screen.rect());
    overlay->raise();
    QSignalSpy belowClicked(below, &QAbstractButton::clicked);
    std::optional<QSignalSpy> innerClicked;
    if (inner)
        innerClicked.emplace(inner, &QAbstractButton::clicked);
    QVERIFY(f->showWindow());
    if (innerHidden)
        inner->hide();

    const auto counts = [&] {
        return QList<int>{int(belowClicked.count()), innerClicked ? int(innerClicked->count()) : 0};
    };
    const QList<int> once = expected == u"below"_s ? QList<int>{1, 0} : QList<int>{0, 1};
    QWidget *hit = ClickUtil::hitTest(&f->screen, point);
    QVERIFY(hit);
    QCOMPARE(hit->objectName(), expected);

    // The user's tap, through the window as the platform delivers it.
    QTest::mouseClick(f->screen.windowHandle(), Qt::LeftButton, {}, point);
    QCOMPARE(counts(), once);

    // The agent's tap finds the same button.
    QVERIFY(tapAsAgent(point * 2));
    QCOMPARE(counts(), (QList<int>{once[0] * 2, once[1] * 2}));
}

QTEST_MAIN(tst_ClickUtil)
#include "tst_clickutil.moc"
