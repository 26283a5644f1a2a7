#include "CaptureFixture.h"
#include "LogCapture.h"
#include "Widgets/PassthroughUIImageView.h"
#include "Widgets/PassthroughUIView.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QHeaderView>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTableWidget>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

const QString foundView = u"[DEBUG] ClickUtil: Found view: "_s;
const QString viewNotFound = u"[WARNING] BidirectionalMessageHandler: View not found"_s;

/// The agent's taps, from the service through the device's command handler to the widget hit.
class tst_Widgets : public QObject
{
    Q_OBJECT
public:
    // Agents send device pixels; at a ratio of 2 a wrong conversion lands on another widget.
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private:
    std::unique_ptr<CaptureFixture> f;

private Q_SLOTS:
    void init()
    {
        f = std::make_unique<CaptureFixture>();
        QVERIFY(f->service.waitForVisitOpen(f->visitId(), 20000));
    }
    void cleanup() { f.reset(); }

    void tap_data()
    {
        QTest::addColumn<QPointF>("pixel"); // for a table row: the middle of its visible part
        QTest::addColumn<QString>("found"); // class name; empty: nothing
        QTest::addColumn<int>("row");       // the table row tapped
        // The window is 480 × 240 units, 960 × 480 device pixels; the button covers units
        // 40..139 × 30..69, device pixels 80..279 × 60..139.
        QTest::newRow("button's first pixel") << QPointF(80, 60) << u"QPushButton"_s << -1;
        QTest::newRow("button's last pixel") << QPointF(279, 139) << u"QPushButton"_s << -1;
        QTest::newRow("left of the button") << QPointF(79, 100) << u"QWidget"_s << -1;
        QTest::newRow("line edit takes the focus") << QPointF(100, 220) << u"QLineEdit"_s << -1;
        QTest::newRow("label does not") << QPointF(100, 320) << u"QLabel"_s << -1;
        QTest::newRow("overlay's panel") << QPointF(900, 20) << u"QFrame"_s << -1;
        QTest::newRow("window's last pixel") << QPointF(959, 479) << u"QWidget"_s << -1;
        QTest::newRow("right of the window") << QPointF(960, 100) << QString() << -1;
        QTest::newRow("below the window") << QPointF(100, 480) << QString() << -1;
        QTest::newRow("negative") << QPointF(-4, 10) << QString() << -1;
        QTest::newRow("beyond any int") << QPointF(1e12, -1e12) << QString() << -1;
        QTest::newRow("table row") << QPointF() << u"QWidget"_s << 0;
        QTest::newRow("label in a table cell") << QPointF() << u"QLabel"_s << 1;
        // Half of it below the table's edge: selecting must not scroll it into view.
        QTest::newRow("row cut off by the table's edge") << QPointF() << u"QWidget"_s << 3;
    }
    void tap()
    {
        QFETCH(QPointF, pixel);
        QFETCH(QString, found);
        QFETCH(int, row);
        LogCapture log;
        QWidget &window = f->screen;
        window.resize(480, 240);
        const auto place = [](auto *widget, const QRect &rect) {
            widget->setGeometry(rect);
            return widget;
        };
        QSignalSpy clicked(place(new QPushButton(u"Pay"_s, &window), {40, 30, 100, 40}),
                           &QAbstractButton::clicked);
        auto *edit = place(new QLineEdit(&window), {40, 100, 200, 30});
        place(new QLabel(u"Name"_s, &window), {40, 150, 200, 30});
        QWidget *start = place(new QLineEdit(&window), {40, 200, 200, 30});
        auto *table = new QTableWidget(20, 2, &window);
        table->setIndexWidget(table->model()->index(1, 1), new QLabel(u"Edit"_s));
        place(table, {250, 70, 220,
                      2 * table->frameWidth() + table->horizontalHeader()->sizeHint().height() +
                          table->verticalHeader()->defaultSectionSize() * 7 / 2});
        table->setCurrentIndex(table->model()->index(0, 0));
        QSignalSpy rowClicked(table, &QAbstractItemView::clicked);
        QSignalSpy activated(table, &QAbstractItemView::activated);
        // Over the whole window: a co-browsing overlay with a panel in its corner and one just
        // hidden, and an agent's drawing. Taps go through all but the shown panel.
        auto *overlay = place(new PassthroughUIView(&window), window.rect());
        place(new QFrame(overlay), {420, 0, 60, 60});
        QWidget *hidden = place(new QFrame(overlay), window.rect());
        QImage drawing(64, 48, QImage::Format_ARGB32);
        drawing.fill(QColor(255, 0, 0, 128));
        place(new PassthroughUIImageView(drawing, &window), window.rect());
        QVERIFY(f->showWindow());
        hidden->hide();
        start->setFocus();
        QTRY_VERIFY(start->hasFocus());
        if (row >= 0) {
            const QRect full = table->visualRect(table->model()->index(row, 1));
            const QRect cell = full.intersected(table->viewport()->rect());
            QVERIFY(!cell.isEmpty() && (cell.height() < full.height()) == (row == 3));
            pixel = table->viewport()->mapTo(&window, cell.center()) * 2;
        }

        QVERIFY(f->service.queueCommand(f->visitId(),
                                        QJsonObject{{u"x"_s, pixel.x()}, {u"y"_s, pixel.y()}}));
        // Commands ride on the reply to the device's next post: give it a report to post.
        f->sender.sendTag(u"carrier"_s, f->startTime(), [](const std::optional<Error> &) {});
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(foundView) || log.contains(viewNotFound), 20000);
        QCOMPARE(clicked.count(), found == u"QPushButton"_s ? 1 : 0);
        QCOMPARE(log.contains(viewNotFound), found.isEmpty());
        QVERIFY(found.isEmpty() || log.contains(foundView + found + u'('));
        QCOMPARE(QApplication::focusWidget(), found == u"QLineEdit"_s ? edit : start);
        // A row is selected where it is, and the app's own handlers are not called.
        QCOMPARE(table->selectionModel()->selectedRows(),
                 row < 0 ? QModelIndexList() : QModelIndexList{table->model()->index(row, 0)});
        QCOMPARE(table->currentIndex().row(), std::max(row, 0));
        QCOMPARE(table->verticalScrollBar()->value(), 0);
        QCOMPARE(rowClicked.count() + activated.count(), 0);
    }

    void popupTap_data()
    {
        QTest::addColumn<QString>("popup");
        // Each reacts in its mouse handlers only: a tap given to the window beneath, or a
        // method call on the popup's widget, does nothing.
        QTest::newRow("menu action") << u"menu"_s;
        QTest::newRow("combo box item") << u"combo"_s;
    }
    void popupTap()
    {
        QFETCH(QString, popup);
        QWidget &window = f->screen;
        window.resize(480, 240);
        auto *combo = new QComboBox(&window);
        combo->addItems({u"Euro"_s, u"Dollar"_s, u"Pound"_s, u"Yen"_s});
        combo->setGeometry(40, 30, 160, 30);
        QMenu menu(&window);
        menu.addAction(u"Open"_s);
        QAction *target = menu.addAction(u"Share"_s);
        QSignalSpy triggered(target, &QAction::triggered);
        QVERIFY(f->showWindow());
        QWidget *shown = nullptr;
        QRect item;
        if (popup == u"menu"_s) {
            menu.popup(window.mapToGlobal(QPoint(250, 40)));
            shown = &menu;
            item = menu.actionGeometry(target);
        } else {
            combo->showPopup();
            auto *list = combo->view();
            shown = list->window();
            item = QRect(list->viewport()->mapTo(
                             shown, list->visualRect(combo->model()->index(2, 0)).topLeft()),
                         list->visualRect(combo->model()->index(2, 0)).size());
        }
        QTRY_VERIFY(shown->isVisible());
        QTest::qWait(QApplication::doubleClickInterval()); // the popup ignores its opening tap
        const QPoint pixel = window.mapFromGlobal(shown->mapToGlobal(item.center())) * 2;
        QVERIFY(f->service.queueCommand(f->visitId(),
                                        QJsonObject{{u"x"_s, pixel.x()}, {u"y"_s, pixel.y()}}));
        f->sender.sendTag(u"carrier"_s, f->startTime(), [](const std::optional<Error> &) {});
        QTRY_VERIFY_WITH_TIMEOUT(!shown->isVisible(), 20000);
        QCOMPARE(triggered.count(), popup == u"menu"_s ? 1 : 0);
        QCOMPARE(combo->currentIndex(), popup == u"combo"_s ? 2 : 0);
    }
};

QTEST_MAIN(tst_Widgets)
#include "tst_widgets.moc"
