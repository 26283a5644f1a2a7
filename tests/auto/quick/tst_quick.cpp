// The Qt Quick side of the screen, in a QGuiApplication alone (no widget may exist) at a device
// pixel ratio of 2: page names, private items, the agent's tap and the user's.
#include "Config/IOSConfig.h"
#include "LogCapture.h"
#include "Monitoring/ScreenCapture.h"
#include "Quick/QuickClick.h"
#include "Quick/QuickPrivacy.h"
#include "Quick/QuickTapWatcher.h"
#include "Quick/QuickViewUtils.h"

#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
// Pages as files, so that the engine names their types after them.
const char *const Files[][2] = {
    {"SignInPage.qml", "import QtQuick\nItem { property string page: \"sign-in\" }\n"},
    {"ListPage.qml", "import QtQuick\nItem {}\n"},
    {"CardNumber.qml", "import QtQuick\nRectangle { color: \"white\" }\n"},
};
} // namespace

class tst_Quick : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void viewName_data();
    void viewName();
    void privateItems();
    void capture();
    void agentTap_data();
    void agentTap();
    void userTaps();

private:
    /// Shows the window that main.qml (written with body) makes, exposed, and returns it.
    QQuickWindow *show(const QByteArray &body);
    QQuickItem *item(const char *objectName) const
    {
        return m_window->findChild<QQuickItem *>(QString::fromLatin1(objectName));
    }

    QTemporaryDir m_dir;
    QQmlEngine m_engine;
    std::unique_ptr<QQuickWindow> m_window;
};

void tst_Quick::initTestCase()
{
    QVERIFY(m_dir.isValid());
    for (const auto &file : Files) {
        QFile out(m_dir.filePath(QString::fromLatin1(file[0])));
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(file[1]);
    }
    QCOMPARE(qApp->devicePixelRatio(), 2.0);
}

void tst_Quick::cleanup()
{
    m_window.reset();
}

QQuickWindow *tst_Quick::show(const QByteArray &body)
{
    const QString path = m_dir.filePath(u"Main.qml"_s);
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly))
        return nullptr;
    out.write("import QtQuick\nimport QtQuick.Controls\nWindow {\n width: 400; height: 300\n" +
              body + "\n}\n");
    out.close();
    m_engine.clearComponentCache();
    QQmlComponent component(&m_engine, QUrl::fromLocalFile(path));
    m_window.reset(qobject_cast<QQuickWindow *>(component.create()));
    if (!m_window) {
        qWarning() << component.errors();
        return nullptr;
    }
    m_window->show();
    if (!QTest::qWaitForWindowExposed(m_window.get()))
        return nullptr;
    return m_window.get();
}

void tst_Quick::viewName_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("name");

    // The page on top, not the stack's first page or the window.
    QTest::newRow("StackView: the pushed page")
        << R"(StackView { objectName: "stack"; anchors.fill: parent; initialItem: SignInPage {}
              Component.onCompleted: push(Qt.createComponent("ListPage.qml")) })"_ba
        << u"ListPage"_s;
    QTest::newRow("SwipeView: the current page")
        << R"(SwipeView { anchors.fill: parent; currentIndex: 1; SignInPage {} ListPage {} })"_ba
        << u"ListPage"_s;
    // A holder inside the outer one's page names the screen, as nested stacks do among widgets.
    QTest::newRow("Loader in a stack's page")
        << R"(StackView { anchors.fill: parent; initialItem: Item {
              Loader { source: "SignInPage.qml" } } })"_ba
        << u"SignInPage"_s;
    QTest::newRow("no page holder: the window's own type") << QByteArray() << u"Main"_s;
}

void tst_Quick::viewName()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, name);
    QQuickWindow *window = show(body);
    QVERIFY(window);
    QCOMPARE(QuickViewUtils::topWindow(), window);
    QTRY_COMPARE(QuickViewUtils::viewName(window), name);
}

void tst_Quick::privateItems()
{
    QQuickWindow *window = show(R"(
        TextField { objectName: "password"; x: 10; y: 10; width: 100; height: 20
                    echoMode: TextInput.Password }
        TextField { objectName: "plain"; x: 10; y: 40; width: 100; height: 20 }
        Rectangle { objectName: "marked"; x: 10; y: 70; width: 50; height: 20
                    property bool vistrelPrivate: true }
        Item { x: 200; y: 10; width: 100; height: 100
               Rectangle { objectName: "tagged"; x: 5; y: 5; width: 30; height: 30
                           property int vistrelTag: 7 } }
        CardNumber { objectName: "card"; x: 10; y: 100; width: 120; height: 20 }
        Rectangle { x: 10; y: 200; width: 20; height: 20; visible: false
                    property int vistrelTag: 7 })"_ba);
    QVERIFY(window);
    IOSConfig config;
    config.blacklist = {u"7"_s, u"seven"_s};
    config.blacklistClasses = {u"CardNumber"_s, u"NoSuchPage"_s};
    LogCapture log;
    QSet<QString> warned;
    QList<QRectF> rects;
    for (int capture = 0; capture < 2; ++capture)
        rects = QuickPrivacy::privateRects(window, config, &warned);
    // The tag's and the type's items with the service's rectangle (origin halved) and the true
    // one, then the items private on the device; the hidden tagged item and the plain field not.
    const QList<QRectF> expected{QRectF(102.5, 7.5, 30, 30), QRectF(205, 15, 30, 30),
                                 QRectF(5, 50, 120, 20),     QRectF(10, 100, 120, 20),
                                 QRectF(10, 10, 100, 20),    QRectF(10, 70, 50, 20)};
    QCOMPARE(rects, expected);
    QCOMPARE(log.count(u"Cannot convert tag to integer"_s), 1);
    QCOMPARE(log.count(u"Cannot convert class name to class"_s), 1);
}

void tst_Quick::capture()
{
    // White fields on red: a black pixel can only be a mask.
    QQuickWindow *window = show(R"(color: "red"
        TextField { x: 30; y: 30; width: 150; height: 30; echoMode: TextInput.Password
                    text: "secret"; background: Rectangle { color: "white" } }
        Rectangle { x: 30; y: 90; width: 150; height: 30; color: "white"
                    property bool vistrelPrivate: true }
        Rectangle { x: 30; y: 150; width: 150; height: 30; color: "white"
                    property int vistrelTag: 4 }
        Rectangle { x: 30; y: 210; width: 150; height: 30; color: "white" })"_ba);
    QVERIFY(window);
    IOSConfig config;
    config.blacklist = {u"4"_s};
    QSet<QString> warned;
    const QImage shot = ScreenCapture::capture(window, config, &warned);
    // A third of the device pixels, 800×600 at ratio 2.
    QCOMPARE(shot.size(), QSize(266, 200));
    // At a third of twice the logical pixels: the middle of each field.
    const auto at = [&shot](int x, int y) { return shot.pixelColor(x * 2 / 3, y * 2 / 3); };
    QCOMPARE(at(105, 45), QColor(Qt::black));
    QCOMPARE(at(105, 105), QColor(Qt::black));
    QCOMPARE(at(105, 165), QColor(Qt::black));
    QCOMPARE(at(105, 225), QColor(Qt::white));
    QCOMPARE(at(300, 45), QColor(Qt::red));
}

void tst_Quick::agentTap_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QPoint>("logical");
    QTest::addColumn<QString>("expected");

    // Exactly once: a press and a release, not a click per event.
    QTest::newRow("Button") << R"(property int clicks: 0
        Button { x: 20; y: 20; width: 120; height: 40; onClicked: clicks++ }
        property string result: String(clicks))"_ba
                            << QPoint(60, 40) << u"1"_s;
    QTest::newRow("list delegate with a TapHandler")
        << R"(ListView { id: list; anchors.fill: parent; model: 5; currentIndex: 0
              delegate: Rectangle { width: 400; height: 40
                  TapHandler { onTapped: list.currentIndex = index } } }
            property string result: String(list.currentIndex))"_ba
        << QPoint(100, 100) << u"2"_s;
    QTest::newRow("MouseArea") << R"(property string result: "none"
              MouseArea { x: 0; y: 0; width: 200; height: 200; onClicked: result = "clicked" })"_ba
                               << QPoint(150, 150) << u"clicked"_s;
}

void tst_Quick::agentTap()
{
    QFETCH(QByteArray, body);
    QFETCH(QPoint, logical);
    QFETCH(QString, expected);
    QQuickWindow *window = show(body);
    QVERIFY(window);
    QuickClick::tap(window, logical * 2);
    QTRY_COMPARE(window->property("result").toString(), expected);
    QTest::qWait(50);
    QCOMPARE(window->property("result").toString(), expected);
}

void tst_Quick::userTaps()
{
    QQuickWindow *window = show(R"(Button { anchors.fill: parent })"_ba);
    QVERIFY(window);
    QuickTapWatcher watcher;
    watcher.watch(window);
    QSignalSpy taps(&watcher, &QuickTapWatcher::tapped);
    QTest::mouseClick(window, Qt::LeftButton, {}, QPoint(50, 60));
    // A drag is no tap.
    QTest::mousePress(window, Qt::LeftButton, {}, QPoint(100, 100));
    QTest::mouseMove(window, QPoint(160, 100));
    QTest::mouseRelease(window, Qt::LeftButton, {}, QPoint(160, 100));
    // An agent's tap is seen like the user's: the service hears of it as of any tap.
    QuickClick::tap(window, QPoint(300, 200));
    QCOMPARE(taps.size(), 2);
    QCOMPARE(taps.at(0).at(0).toPointF(), QPointF(100, 120));
    QCOMPARE(taps.at(1).at(0).toPointF(), QPointF(300, 200));
}

int main(int argc, char *argv[])
{
    // Device pixels twice the logical ones, so that none is taken for the other.
    qputenv("QT_SCALE_FACTOR", "2");
    QGuiApplication app(argc, argv);
    tst_Quick test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_quick.moc"
