// A Qt Quick app's whole session through the public facade against the local service, in a
// QGuiApplication alone (a widget would abort the process) at a device pixel ratio of 2: what the
// service decodes of the screen and the taps, and the kit's QML over the app's window.
#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"
#include "LocalService.h"
#include "Monitoring/ViewMonitor.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "TestConfig.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QBuffer>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::LocalService;

namespace {
constexpr int patience = 30000; // waits end when their condition holds; a sanitizer is slow

// Pages as files, so that the engine names their types after them. White on red: black in a
// screenshot can only be a mask.
const char *const Files[][2] = {
    {"Main.qml", R"(import QtQuick
import QtQuick.Controls
ApplicationWindow {
    width: 400; height: 400; visible: true; color: "red"
    StackView { id: stack; objectName: "stack"; anchors.fill: parent; initialItem: HomePage {} }
    function showList() { if (stack.depth === 1) stack.push("ListPage.qml") }
})"},
    {"HomePage.qml", R"(import QtQuick
import QtQuick.Controls
Rectangle {
    color: "red"
    Rectangle { x: 20; y: 20; width: 160; height: 60; property int vistrelTag: 7 }
    CardNumber { x: 20; y: 120; width: 160; height: 60 }
    TextField { x: 20; y: 220; width: 160; height: 60; echoMode: TextInput.Password
                text: "secret"; color: "white"; background: Rectangle {} }
    Rectangle { x: 20; y: 320; width: 160; height: 60; property bool vistrelPrivate: true }
    Rectangle { x: 220; y: 20; width: 160; height: 60 }
})"},
    {"CardNumber.qml", "import QtQuick\nRectangle {}\n"},
    {"ListPage.qml", R"(import QtQuick
import QtQuick.Controls
Rectangle {
    property int clicks: 0
    property alias current: list.currentIndex
    Button { objectName: "button"; x: 20; y: 20; width: 160; height: 50; onClicked: clicks++ }
    ListView { id: list; y: 100; width: 400; height: 300; model: 5
        delegate: Rectangle { width: 400; height: 50
            TapHandler { onTapped: list.currentIndex = index } } }
})"},
};

// What the host hears of a start and a stop.
const QStringList up{u"shareId"_s, u"connected true"_s, u"started"_s};
const QStringList down{u"connected false"_s, u"stopped"_s};
const QStringList coBrowsingUp = up + QStringList{u"co-browsing started"_s};
const QStringList coBrowsingDown = down + QStringList{u"co-browsing ended"_s};

bool near(const QColor &seen, const QColor &expected)
{
    // JPEG at quality 40 moves a flat colour by a few levels.
    return qAbs(seen.red() - expected.red()) <= 40 && qAbs(seen.green() - expected.green()) <= 40 &&
           qAbs(seen.blue() - expected.blue()) <= 40;
}

QByteArray drawing()
{
    QImage image(8, 8, QImage::Format_ARGB32);
    image.fill(Qt::blue);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return R"({"d":{"u":"data:image/png;base64,)" + png.toBase64() + R"("}})";
}
} // namespace

class tst_QuickSession : public QObject
{
    Q_OBJECT

private:
    template<class T>
    static T *resolve()
    {
        return Kit::container().resolve<T>();
    }
    static QString currentVisit()
    {
        return resolve<ApplicationConfigWrapper>()->config().visitConfig.visitId.value_or(
            QString());
    }
    QString startSession()
    {
        Orvane::vistrel()->start();
        const QString visit = currentVisit();
        return service.waitForVisitOpen(visit, patience) ? visit : QString();
    }
    bool waitForEnd(const QString &visit)
    {
        using State = VistrelService::Visit::State;
        return service.waitFor([&] { return service.visit(visit)->state() == State::Ended; },
                               patience);
    }
    /// The newest screenshot of the visit that passes test, decoded as the agent sees it.
    QImage waitForScreenshot(const QString &visit,
                             const std::function<bool(const QImage &)> &test = {})
    {
        QImage found;
        service.waitFor(
            [&] {
                const VistrelService::Visit *v = service.visit(visit);
                for (const auto &report : v ? v->reports() : QList<VistrelService::Report>()) {
                    for (const auto &event : report.message.screenshotevent()) {
                        const QImage image =
                            QImage::fromData(QByteArray::fromStdString(event.image()), "JPEG");
                        if (!image.isNull() && (!test || test(image)))
                            found = image;
                    }
                }
                return !found.isNull();
            },
            patience);
        return found;
    }
    /// The visit's clicks and page changes in order, as "click x,y" and "page name".
    QStringList events(const QString &visit) const
    {
        QStringList result;
        for (const auto &report : service.visit(visit)->reports()) {
            for (const auto &click : report.message.clickevent())
                result.append(u"click %1,%2"_s.arg(click.x()).arg(click.y()));
            if (report.message.has_pagechange())
                result.append(u"page "_s + QString::fromStdString(report.message.pagechange()));
        }
        return result;
    }
    QQuickItem *item(const char *objectName) const
    {
        return m_window->findChild<QQuickItem *>(QString::fromLatin1(objectName));
    }
    /// A user's tap on the middle of item, through the window.
    void click(const QQuickItem *item)
    {
        const QPointF centre = item->mapToScene(item->boundingRect().center());
        QTest::mouseClick(m_window, Qt::LeftButton, {}, centre.toPoint());
    }
    /// The stack's page on top, once the list is pushed and still.
    QQuickItem *listPage()
    {
        QMetaObject::invokeMethod(m_window, "showList");
        QObject *stack = item("stack");
        if (!QTest::qWaitFor([&] { return !stack->property("busy").toBool(); }))
            return nullptr;
        return qvariant_cast<QQuickItem *>(stack->property("currentItem"));
    }

    LocalService service;
    QStringList heard; // what the host heard from the facades' signals, in order
    QTemporaryDir m_dir;
    QQmlApplicationEngine m_engine;
    QQuickWindow *m_window = nullptr;
    QImage m_shot;

private Q_SLOTS:
    void initTestCase()
    {
        QCOMPARE(qGuiApp->devicePixelRatio(), 2.0);
        QVERIFY(m_dir.isValid());
        for (const auto &file : Files) {
            QFile out(m_dir.filePath(QString::fromLatin1(file[0])));
            QVERIFY(out.open(QIODevice::WriteOnly));
            out.write(file[1]);
        }
        m_engine.load(QUrl::fromLocalFile(m_dir.filePath(u"Main.qml"_s)));
        QVERIFY(!m_engine.rootObjects().isEmpty());
        m_window = qobject_cast<QQuickWindow *>(m_engine.rootObjects().first());
        QVERIFY(m_window && QTest::qWaitForWindowExposed(m_window));

        TestConfig::use(service.start() ? service.hostAndPort() : QString());
        QVERIFY(service.port());
        OrvaneVistrel *v = Orvane::vistrel();
        OrvaneCoBrowsing *c = Orvane::coBrowsing();
        const auto note = [this](const QString &text) { return [this, text] { heard << text; }; };
        connect(v, &OrvaneVistrel::started, this, note(u"started"_s));
        connect(v, &OrvaneVistrel::stopped, this, note(u"stopped"_s));
        connect(v, &OrvaneVistrel::shareIdChanged, this, note(u"shareId"_s));
        connect(c, &OrvaneCoBrowsing::started, this, note(u"co-browsing started"_s));
        connect(c, &OrvaneCoBrowsing::ended, this, note(u"co-browsing ended"_s));
        connect(v, &OrvaneVistrel::connectedChanged, this,
                [this](bool on) { heard << (on ? u"connected true"_s : u"connected false"_s); });
        // Over the WebSocket no report goes with a POST that was in flight: the service decodes
        // every tap and page change the kit sent.
        v->setTransport(OrvaneVistrel::Transport::WebSocket);
        QVERIFY(Orvane::initConfig(u"tenant-1"_s, u"token-1"_s));
    }

    void init()
    {
        service.setMonitoringConfig(LocalService::defaultMonitoringConfig());
        heard.clear();
    }

    void cleanup()
    {
        // Each case leaves the kit idle and the window bare; the host's stop leaves a question.
        if (QQuickItem *dialog = item("vistrelOptInDialog"))
            QMetaObject::invokeMethod(dialog, "rejected");
        const QString visit = currentVisit();
        const bool opened = resolve<Vistrel>()->isRunning() && service.visit(visit);
        Orvane::coBrowsing()->stop(); // and the session
        QVERIFY(!opened || waitForEnd(visit));
        QTRY_VERIFY(!item("vistrelCoBrowsePanel") && !item("vistrelOptInDialog"));
    }

    void screenshot_data()
    {
        QTest::addColumn<QPoint>("logical");
        QTest::addColumn<QColor>("colour");
        QTest::newRow("tag in the service's list") << QPoint(100, 50) << QColor(Qt::black);
        QTest::newRow("QML type in the class list") << QPoint(100, 150) << QColor(Qt::black);
        QTest::newRow("password field") << QPoint(100, 250) << QColor(Qt::black);
        QTest::newRow("vistrelPrivate") << QPoint(100, 350) << QColor(Qt::black);
        QTest::newRow("plain item") << QPoint(300, 50) << QColor(Qt::white);
        QTest::newRow("background") << QPoint(300, 250) << QColor(Qt::red);
    }

    void screenshot()
    {
        QFETCH(QPoint, logical);
        QFETCH(QColor, colour);
        // One session's screenshot serves every row.
        if (m_shot.isNull()) {
            QJsonObject reply =
                QJsonDocument::fromJson(LocalService::defaultMonitoringConfig()).object();
            reply[u"ios"_s] = QJsonObject{{u"blacklist"_s, QJsonArray{u"7"_s}},
                                          {u"blacklistClasses"_s, QJsonArray{u"CardNumber"_s}}};
            service.setMonitoringConfig(QJsonDocument(reply).toJson());
            const QString visit = startSession();
            QVERIFY(!visit.isEmpty());
            m_shot = waitForScreenshot(visit);
            // A third of the device pixels, 800×800 at ratio 2.
            QCOMPARE(m_shot.size(), QSize(266, 266));
        }
        const QColor seen = m_shot.pixelColor(logical * 2 / 3);
        QVERIFY2(near(seen, colour), qPrintable(seen.name()));
    }

    void pageChange()
    {
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        // The monitor's first look only learns the page: a change before it goes unreported.
        QTRY_VERIFY_WITH_TIMEOUT(resolve<ViewMonitor>()->lastView(), patience);
        QVERIFY(listPage());
        QTRY_VERIFY_WITH_TIMEOUT(events(visit).contains(u"page ListPage"_s), patience);
        QCOMPARE(events(visit).filter(u"_QML"_s), QStringList());
    }

    void taps_data()
    {
        QTest::addColumn<bool>("agent");
        QTest::addColumn<QPoint>("logical");
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<int>("expected");
        QTest::newRow("user's tap on the button") << false << QPoint(100, 45) << "clicks"_ba << 1;
        // Exactly once: a press and a release, not a click per event.
        QTest::newRow("agent's tap on the button") << true << QPoint(100, 45) << "clicks"_ba << 1;
        QTest::newRow("agent's tap on a delegate") << true << QPoint(200, 225) << "current"_ba << 2;
    }

    void taps()
    {
        QFETCH(bool, agent);
        QFETCH(QPoint, logical);
        QFETCH(QByteArray, property);
        QFETCH(int, expected);
        QQuickItem *page = listPage();
        QVERIFY(page);
        page->setProperty("clicks", 0);
        page->setProperty("current", 0);
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        QVERIFY(!waitForScreenshot(visit).isNull()); // taps are watched
        const QPoint pixel = logical * 2;
        if (agent)
            QVERIFY(
                service.queueCommand(visit, QJsonObject{{u"x"_s, pixel.x()}, {u"y"_s, pixel.y()}}));
        else
            QTest::mouseClick(m_window, Qt::LeftButton, {}, logical);
        // Reported once, in device pixels; by then the app has had the whole tap.
        const QStringList click{u"click %1,%2"_s.arg(pixel.x()).arg(pixel.y())};
        QTRY_COMPARE_WITH_TIMEOUT(events(visit).filter(u"click"_s), click, patience);
        QCOMPARE(page->property(property.constData()).toInt(), expected);
    }

    void drawing()
    {
        QQuickItem *page = listPage();
        QVERIFY(page);
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        QVERIFY(service.queueCommand(visit, ::drawing()));
        QTRY_VERIFY_WITH_TIMEOUT(item("vistrelDrawing"), patience);
        QPointer<QQuickItem> drawn = item("vistrelDrawing");
        QCOMPARE(drawn->size(), m_window->contentItem()->size());
        // Half transparent over the white page, above it, also in what the agent sees.
        const QColor blend(127, 127, 255);
        QVERIFY(!waitForScreenshot(visit, [&](const QImage &shot) {
                     return near(shot.pixelColor(QPoint(300, 300) * 2 / 3), blend);
                 }).isNull());
        // Taps go through it to the app.
        const int clicks = page->property("clicks").toInt();
        click(item("button"));
        QCOMPARE(page->property("clicks").toInt(), clicks + 1);
        // Gone 5 s after its arrival.
        QTRY_VERIFY_WITH_TIMEOUT(!drawn, 8000);
        QVERIFY(!item("vistrelDrawing"));
    }

    void coBrowsing()
    {
        Orvane::coBrowsing()->start();
        QTRY_COMPARE_WITH_TIMEOUT(heard, coBrowsingUp, patience);
        const QString visit = currentVisit();
        QVERIFY(service.waitForVisitOpen(visit, patience));
        QPointer<QQuickItem> panel = item("vistrelCoBrowsePanel");
        QVERIFY(panel && panel->window() == m_window && panel->isVisible());
        // "Connecting" first, then the running session's share id.
        QQuickItem *shareId = panel->findChild<QQuickItem *>(u"shareId"_s);
        QTRY_COMPARE(shareId->property("text").toString(), Orvane::vistrel()->shareId());
        // The user's tap on close ends co-browsing, the session and its visit.
        click(panel->findChild<QQuickItem *>(u"closeButton"_s));
        QVERIFY(waitForEnd(visit));
        QTRY_VERIFY(!panel);
        QTRY_COMPARE(heard, coBrowsingUp + coBrowsingDown);
        QVERIFY(!resolve<Vistrel>()->isRunning());
    }

    void optIn_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("accept starts co-browsing") << "acceptButton"_ba;
        QTest::newRow("decline leaves the session as it was") << "declineButton"_ba;
    }

    void optIn()
    {
        QFETCH(QByteArray, answer);
        const bool accept = answer == "acceptButton";
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        QVERIFY(service.queueCommand(visit, R"({"co": {"opt": true}})"_ba));
        QTRY_VERIFY_WITH_TIMEOUT(item("vistrelOptInDialog"), patience);
        // The service's texts.
        const auto text = [this](const char *name) {
            return item(name)->property("text").toString();
        };
        QCOMPARE((QStringList{text("title"), text("message"), text("acceptButton"),
                              text("declineButton")}),
                 (QStringList{u"Share your screen?"_s,
                              u"An agent asks to see your screen to help you."_s, u"Allow"_s,
                              u"Decline"_s}));
        QTRY_COMPARE(heard, up);
        click(item(answer.constData()));
        QTRY_VERIFY(!item("vistrelOptInDialog"));
        if (!accept) {
            // The answer is handled in the tap: a start would have begun by now.
            QVERIFY(!resolve<CoBrowsing>()->isStarted());
            QVERIFY(service.visit(visit)->isOpen());
            QCOMPARE(heard, up);
            return;
        }
        // The old session makes way for co-browsing's, on a new visit.
        QTRY_COMPARE_WITH_TIMEOUT(heard, up + down + coBrowsingUp, patience);
        QVERIFY(waitForEnd(visit));
        QVERIFY(service.waitForVisitOpen(currentVisit(), patience));
        QVERIFY(item("vistrelCoBrowsePanel"));
    }

    void wholeSession()
    {
        QVERIFY(listPage());
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        QVERIFY(!waitForScreenshot(visit).isNull());
        // Named at the start after the page on top.
        QCOMPARE(service.visit(visit)->url(), u"ListPage"_s);
        Orvane::vistrel()->stop();
        QVERIFY(waitForEnd(visit));
        QCOMPARE(heard, up + down);
        // Nothing needed widgets: one would have aborted this process long before.
        QVERIFY(!QCoreApplication::instance()->inherits("QApplication"));
    }
};

int main(int argc, char *argv[])
{
    // Device pixels twice the logical ones, so that none is taken for the other.
    qputenv("QT_SCALE_FACTOR", "2");
    QGuiApplication app(argc, argv);
    tst_QuickSession test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_quicksession.moc"
