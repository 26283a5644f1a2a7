#include "CaptureFixture.h"
#include "LogCapture.h"
#include "Widgets/PassthroughUIImageView.h"

#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTableWidget>

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
    void init()
    {
        f = std::make_unique<CaptureFixture>();
        QVERIFY(f->service.waitForVisitOpen(f->visitId(), 20000));
        m_log.clear();
    }
    void cleanup() { f.reset(); }
    void tapHitsTheWidgetThere_data();
    void tapHitsTheWidgetThere();
    void rowIsSelected_data();
    void rowIsSelected();

private:
    /// Queues the agent's tap on the service and waits until the device has carried it out.
    bool tapAsAgent(const QPointF &pixel)
    {
        if (!f->service.queueCommand(f->visitId(),
                                     QJsonObject{{u"x"_s, pixel.x()}, {u"y"_s, pixel.y()}}))
            return false;
        // Commands ride on the reply to the device's next post: give it a report to post.
        f->sender.sendTag(u"carrier"_s, f->startTime(), [](const std::optional<Error> &) {});
        const auto done = [this] { return m_log.count(foundView) + m_log.count(viewNotFound); };
        const int before = done();
        return QTest::qWaitFor([&] { return done() > before; }, 20000);
    }

    std::unique_ptr<CaptureFixture> f;
    LogCapture m_log;
};

void tst_ClickUtil::tapHitsTheWidgetThere_data()
{
    QTest::addColumn<QPointF>("pixel");
    QTest::addColumn<QString>("found"); // class name; empty: nothing
    QTest::addColumn<QString>("focus");

    // The window is 320 × 240 units, 640 × 480 device pixels; the button covers units
    // 40..139 × 30..69, device pixels 80..279 × 60..139.
    QTest::newRow("button's first pixel") << QPointF(80, 60) << u"QPushButton"_s << u"start"_s;
    QTest::newRow("button's last pixel") << QPointF(279, 139) << u"QPushButton"_s << u"start"_s;
    QTest::newRow("left of the button") << QPointF(79, 100) << u"QWidget"_s << u"start"_s;
    QTest::newRow("line edit takes the focus") << QPointF(100, 220) << u"QLineEdit"_s << u"edit"_s;
    QTest::newRow("label does not") << QPointF(100, 320) << u"QLabel"_s << u"start"_s;
    QTest::newRow("window's last pixel") << QPointF(639, 479) << u"QWidget"_s << u"start"_s;
    QTest::newRow("right of the window") << QPointF(640, 100) << QString() << u"start"_s;
    QTest::newRow("below the window") << QPointF(100, 480) << QString() << u"start"_s;
    QTest::newRow("negative") << QPointF(-4, 10) << QString() << u"start"_s;
    QTest::newRow("beyond any int") << QPointF(1e12, -1e12) << QString() << u"start"_s;
}

void tst_ClickUtil::tapHitsTheWidgetThere()
{
    QFETCH(QPointF, pixel);
    QFETCH(QString, found);
    QFETCH(QString, focus);
    auto *button = new QPushButton(u"Pay"_s, &f->screen);
    button->setGeometry(40, 30, 100, 40);
    QSignalSpy clicked(button, &QAbstractButton::clicked);
    auto *edit = new QLineEdit(&f->screen);
    edit->setObjectName(u"edit"_s);
    edit->setGeometry(40, 100, 200, 30);
    (new QLabel(u"Name"_s, &f->screen))->setGeometry(40, 150, 200, 30);
    auto *start = new QLineEdit(&f->screen);
    start->setObjectName(u"start"_s);
    start->setGeometry(40, 200, 200, 30);
    // An agent's drawing over the whole window lets every tap through.
    QImage drawing(64, 48, QImage::Format_ARGB32);
    drawing.fill(QColor(255, 0, 0, 128));
    (new PassthroughUIImageView(drawing, &f->screen))->setGeometry(f->screen.rect());
    QVERIFY(f->showWindow());
    start->setFocus();
    QTRY_VERIFY(start->hasFocus());

    QVERIFY(tapAsAgent(pixel));
    QCOMPARE(clicked.count(), found == u"QPushButton"_s ? 1 : 0);
    QCOMPARE(m_log.contains(viewNotFound), found.isEmpty());
    QVERIFY(found.isEmpty() || m_log.contains(foundView + found + u'('));
    QCOMPARE(QApplication::focusWidget(), f->screen.findChild<QWidget *>(focus));
}

void tst_ClickUtil::rowIsSelected_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("row");
    QTest::newRow("list") << u"list"_s << 3;
    QTest::newRow("table") << u"table"_s << 2;
    QTest::newRow("label in a table cell") << u"cell label"_s << 4;
    // Half of it below the view's edge: selecting must not scroll it into view.
    QTest::newRow("row cut off by the view's edge") << u"cut off"_s << 3;
}

void tst_ClickUtil::rowIsSelected()
{
    QFETCH(QString, kind);
    QFETCH(int, row);
    QAbstractItemView *view = nullptr;
    if (kind == u"list"_s || kind == u"cut off"_s) {
        auto *list = new QListWidget(&f->screen);
        list->addItems(QStringList(20, u"Item"_s));
        view = list;
    } else {
        view = new QTableWidget(6, 3, &f->screen);
    }
    const bool list = qobject_cast<QListWidget *>(view);
    const QModelIndex target = view->model()->index(row, list ? 0 : 1);
    if (kind == u"cell label"_s)
        view->setIndexWidget(target, new QLabel(u"Edit"_s));
    const int rowHeight = view->sizeHintForRow(0);
    const int frame = 2 * view->frameWidth();
    view->setGeometry(20, 20, 280, kind == u"cut off"_s ? frame + rowHeight * 7 / 2 : 200);
    view->setCurrentIndex(view->model()->index(0, 0));
    QSignalSpy clicked(view, &QAbstractItemView::clicked);
    QSignalSpy activated(view, &QAbstractItemView::activated);
    QVERIFY(f->showWindow());

    const QRect cell = view->visualRect(target).intersected(view->viewport()->rect());
    QVERIFY(!cell.isEmpty());
    QVERIFY(tapAsAgent(view->viewport()->mapTo(&f->screen, cell.center()) * 2));
    QCOMPARE(view->verticalScrollBar()->value(), 0);
    QVERIFY(kind != u"cell label"_s || m_log.contains(foundView + u"QLabel("_s));
    const QModelIndexList rows = view->selectionModel()->selectedRows();
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.first().row(), row);
    QCOMPARE(view->currentIndex().row(), row);
    // The app's own handlers are not called.
    QCOMPARE(clicked.count() + activated.count(), 0);
}

QTEST_MAIN(tst_ClickUtil)
#include "tst_clickutil.moc"
