#include "Api/UIStrings.h"
#include "ClosedPort.h"
#include "CoBrowsing/CoBrowseButtonGroup.h"
#include "CoBrowsing/CoBrowseWidget.h"
#include "CoBrowsing/DefaultUIView.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Session/AgentCommandQueue.h"
#include "Session/BidirectionalMessageHandler.h"
#include "SessionFixture.h"
#include "Widgets/PassthroughUIImageView.h"

#include <Vistrel/OrvaneConfiguration.h>

#include <QApplication>
#include <QBuffer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageBox>
#include <QPushButton>
#include <QSet>
#include <QSignalSpy>
#include <qpa/qwindowsysteminterface.h>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::LocalService;

namespace {
const QString initPath = u"/api/in/im/c"_s;
const QString pingTask = u"[DEBUG] PingSender: Execute ping interval task"_s;
// What the host hears of a start and of a stop (see SessionFixture::heard).
const QStringList up{u"shareId"_s, u"connected true"_s, u"started"_s};
const QStringList coBrowsingUp = up + QStringList{u"co-browsing started"_s};
const QStringList down{u"connected false"_s, u"stopped"_s};
const QStringList coBrowsingDown = down + QStringList{u"co-browsing ended"_s};

void setApplicationState(Qt::ApplicationState state)
{
    QWindowSystemInterface::handleApplicationStateChanged<
        QWindowSystemInterface::SynchronousDelivery>(state);
}

QByteArray reply(const QJsonObject &changes)
{
    QJsonObject object = QJsonDocument::fromJson(LocalService::defaultMonitoringConfig()).object();
    for (auto it = changes.begin(); it != changes.end(); ++it)
        object.insert(it.key(), *it);
    return QJsonDocument(object).toJson();
}

QMessageBox *optInDialog()
{
    return qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
}

/// The commands as one element of a POST reply: they reach the device together.
QByteArray together(const QByteArray &command, int count)
{
    QByteArray text = command;
    for (int i = 1; i < count; ++i)
        text += ',' + command;
    return '[' + text + ']';
}

QByteArray drawing(const QSize &size)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::red);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return R"({"d":{"u":")" + png.toBase64() + R"("}})";
}

/// A queue's commands in one letter each: s start, c stop, t tap, d drawing, o opt-in.
QString letters(const BidirectionalMessage &m)
{
    QString text;
    const std::pair<bool, char16_t> parts[] = {{m.drawing.has_value(), u'd'},
                                               {m.click.has_value(), u't'},
                                               {m.stop.value_or(false), u'c'},
                                               {m.optIn.value_or(false), u'o'},
                                               {m.start.value_or(false), u's'}};
    for (const auto &[present, letter] : parts) {
        if (present)
            text += letter;
    }
    return text;
}
} // namespace

class tst_Session : public QObject, SessionFixture
{
    Q_OBJECT
public:
    // Device pixels are not units: the kit must not mix them up, at a ratio of 2 it shows.
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private:
    QPushButton *m_button = new QPushButton(u"App"_s, &window);

private Q_SLOTS:
    void initTestCase()
    {
        m_button->setGeometry(10, 10, 100, 40); // where the co-browse panel never is
        QVERIFY(setUp());
        Orvane::vistrel()->tag(u"early"_s);
        QVERIFY(log.contains(u"Cannot tag session without message sender"_s)); // no crash
    }

    void init()
    {
        service.clearRequests();
        service.setMonitoringConfig(LocalService::defaultMonitoringConfig());
        setApplicationState(Qt::ApplicationActive);
        log.clear();
        heard.clear();
    }

    void cleanup()
    {
        // The kit outlives every case: leave it idle, in front, with nothing of this case.
        if (QMessageBox *box = optInDialog())
            box->reject();
        setApplicationState(Qt::ApplicationActive);
        Orvane::vistrel()->registerCallbacks({}, {});
        config().vistrelConfig.increasedPollingFrequency = false;
        config().activeUserTag.reset();
        const QString visit = currentVisit();
        const bool opened = running() && service.visit(visit);
        Orvane::coBrowsing()->stop(); // and the session
        Orvane::vistrel()->setTransport(OrvaneVistrel::Transport::Http);
        service.webSockets()->setAdmission(VistrelService::WebSocketEndpoint::Admission::Accept);
        // The next start reuses the transport: its close goes out first.
        QVERIFY(!opened || waitForEnd(visit));
        QTRY_VERIFY(window.findChildren<DefaultUIView *>().isEmpty());
        qDeleteAll(window.findChildren<PassthroughUIImageView *>()); // drawings go in 5 s
    }

    void startAndStop()
    {
        Orvane::vistrel()->registerCallbacks([this] { heard << u"on start"_s; },
                                             [this] { heard << u"on stop"_s; });
        const QJsonObject masked{{u"blacklist"_s, QJsonArray{u"7"_s}},
                                 {u"blacklistClasses"_s, QJsonArray{u"QLineEdit"_s}}};
        service.setMonitoringConfig(reply({{u"storageType"_s, u"s"_s}, {u"ios"_s, masked}}));
        const VisitConfig before = config().visitConfig;
        const QString visitId = startSession();
        QVERIFY(!visitId.isEmpty());
        const QStringList start{u"shareId"_s, u"connected true"_s, u"on start"_s, u"started"_s};
        QTRY_COMPARE(heard, start);
        QCOMPARE(config().vistrelConfig.iosConfig->blacklistClasses, QStringList{u"QLineEdit"_s});
        // The init announced the new visit, and the channel opened on it.
        const VisitConfig visit = config().visitConfig;
        QVERIFY(visit.visitId != before.visitId && visit.sessionId != before.sessionId);
        const QString shareId = Orvane::vistrel()->shareId();
        const auto init = service.deviceInit(visitId);
        const VistrelService::Visit *opened = service.visit(visitId);
        QVERIFY(init);
        QCOMPARE(
            (QStringList{init->sessionId, init->shareId, opened->sessionId(), opened->visitorId(),
                         opened->storageType()}),
            (QStringList{*visit.sessionId, shareId, *visit.sessionId, *visit.visitorId, u"s"_s}));

        Orvane::vistrel()->start(); // refused, and changes nothing
        QCOMPARE(currentVisit(), visitId);
        QCOMPARE(Orvane::vistrel()->shareId(), shareId);

        // Off co-browsing, a restart is a new visit in the same session (no widget: see heard).
        resolve<CoBrowsing>()->restart();
        QVERIFY(waitForEnd(visitId));
        const QString restarted = currentVisit();
        QVERIFY(restarted != visitId);
        QCOMPARE(config().visitConfig.sessionId, visit.sessionId);
        QVERIFY(service.waitForVisitOpen(restarted, patience));
        QTRY_COMPARE(heard.count(u"started"_s), 2);

        Orvane::vistrel()->stop();
        QVERIFY(waitForEnd(restarted));
        Orvane::vistrel()->stop();
        // Stopped means stopped: no ping fires any more, and the refused start sent no init.
        QTest::qWait(1500);
        QVERIFY(!log.contains(pingTask));
        QCOMPARE(service.requests(initPath).size(), 2);
        const QStringList stop{u"connected false"_s, u"on stop"_s, u"stopped"_s};
        const QStringList refused{u"failed StringError(mMsg: \"Vistrel is already started\")"_s};
        QCOMPARE(heard, start + refused + stop + start.mid(1) + stop);
    }

    void transports_data()
    {
        QTest::addColumn<bool>("preferred");
        QTest::addColumn<bool>("disabled"); // by the init reply
        QTest::addColumn<bool>("refused");  // the service answers the upgrade with 503
        QTest::addColumn<bool>("webSocket");
        QTest::newRow("HTTP by default") << false << false << false << false;
        QTest::newRow("WebSocket when preferred") << true << false << false << true;
        QTest::newRow("HTTP when the service disables WebSocket") << true << true << false << false;
        QTest::newRow("HTTP when the WebSocket cannot open") << true << false << true << false;
    }
    void transports()
    {
        QFETCH(bool, preferred);
        QFETCH(bool, disabled);
        QFETCH(bool, refused);
        QFETCH(bool, webSocket);
        using Admission = VistrelService::WebSocketEndpoint::Admission;
        Orvane::vistrel()->setTransport(preferred ? OrvaneVistrel::Transport::WebSocket
                                                  : OrvaneVistrel::Transport::Http);
        service.setMonitoringConfig(reply({{u"disableWebSocket"_s, disabled}}));
        service.webSockets()->setAdmission(refused ? Admission::Refuse : Admission::Accept);
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        QVERIFY(waitForScreenshot(visit));
        // The agent's tap comes back the same way and is carried out.
        QSignalSpy clicked(m_button, &QPushButton::clicked);
        const QPoint pixel = m_button->geometry().center() * 2;
        QVERIFY(service.queueCommand(visit, QJsonObject{{u"x"_s, pixel.x()}, {u"y"_s, pixel.y()}}));
        QTRY_COMPARE_WITH_TIMEOUT(clicked.count(), 1, patience);
        const auto expected =
            webSocket ? VistrelService::Transport::WebSocket : VistrelService::Transport::Xhr;
        const auto reports = service.visit(visit)->reports();
        QVERIFY(std::all_of(reports.cbegin(), reports.cend(),
                            [&](const Report &r) { return r.transport == expected; }));
        QCOMPARE(log.contains(u"Cannot open the WebSocket: reports go over HTTP"_s), refused);
        Orvane::vistrel()->stop();
        QVERIFY(waitForEnd(visit));
    }

    void startOutcomes_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("stopAt"); // 0: never, 1: right after start(), 2: at the init
        QTest::addColumn<QStringList>("hears");
        const QByteArray normal = LocalService::defaultMonitoringConfig();
        const QStringList stopped{u"shareId"_s, u"stopped"_s};
        QTest::newRow("monitoring not wanted") << reply({{u"shouldStartMonitoring"_s, false}}) << 0
                                               << QStringList{u"shareId"_s, u"started"_s};
        QTest::newRow("type u forces monitoring")
            << reply({{u"shouldStartMonitoring"_s, false}, {u"startMonitoringType"_s, u"u"_s}}) << 0
            << up;
        QTest::newRow("ignored address")
            << reply({{u"ignoreIp"_s, true}}) << 0 << QStringList{u"shareId"_s};
        // An abandoned start must not come up behind the host's back, where no stop() ends it.
        QTest::newRow("stopped before the init request") << normal << 1 << stopped;
        QTest::newRow("stopped while the init reply is on its way") << normal << 2 << stopped;
    }
    void startOutcomes()
    {
        QFETCH(QByteArray, reply);
        QFETCH(int, stopAt);
        QFETCH(QStringList, hears);
        service.setMonitoringConfig(reply);
        // The service records a request before it answers it.
        const auto stopper = connect(&service, &LocalService::requestRecorded, this,
                                     [&](const VistrelService::RecordedRequest &r) {
                                         if (stopAt == 2 && r.path == initPath)
                                             Orvane::vistrel()->stop();
                                     });
        Orvane::vistrel()->start();
        const QString visitId = currentVisit();
        if (stopAt == 1)
            Orvane::vistrel()->stop();
        const bool transport = hears.contains(u"started"_s);
        const bool recording = hears.contains(u"connected true"_s);
        if (transport) {
            // The first ping comes well after the first screenshot would have.
            QVERIFY(recording ? waitForScreenshot(visitId)
                              : service.waitForReports(visitId, 1, patience));
            QCOMPARE(std::ranges::any_of(service.visit(visitId)->reports(), isScreenshot),
                     recording);
        } else {
            QTest::qWait(1500); // a ping would have fired by now
            QVERIFY(!service.visit(visitId) && !log.contains(pingTask));
        }
        disconnect(stopper);
        QCOMPARE(heard, hears);
        QCOMPARE(service.requests(initPath).size(), stopAt == 1 ? 0 : 1);
        // Even an ignored start runs until a stop; whatever came of it, the next one works.
        QCOMPARE((QList{running(), Orvane::vistrel()->connected()}),
                 (QList{stopAt == 0, recording}));
        service.setMonitoringConfig(LocalService::defaultMonitoringConfig());
        Orvane::vistrel()->stop();
        QVERIFY(!transport || waitForEnd(visitId));
        QVERIFY(!startSession().isEmpty());
    }

    void startFailsOnAnUnreachableService()
    {
        Orvane::configuration()->setServer(u"127.0.0.1:%1"_s.arg(closedPort()));
        Orvane::vistrel()->start();
        QTRY_VERIFY_WITH_TIMEOUT(heard.size() >= 2, patience);
        Orvane::configuration()->setServer(service.hostAndPort());
        QCOMPARE(heard.first(2), (QStringList{u"shareId"_s, u"failed Connection refused"_s}));
        QVERIFY(!startSession().isEmpty());
    }

    void background_data()
    {
        QTest::addColumn<Qt::ApplicationState>("state");
        QTest::addColumn<int>("awayMs");
        QTest::addColumn<bool>("closes");
        // The grace period is 5 s. On a desktop an unfocused window is still before its user.
        QTest::newRow("suspended 4 s keeps the transport")
            << Qt::ApplicationSuspended << 4000 << false;
        QTest::newRow("suspended 6 s closes it") << Qt::ApplicationSuspended << 6000 << true;
        QTest::newRow("inactive is not away") << Qt::ApplicationInactive << 6000 << false;
    }
    void background()
    {
        QFETCH(Qt::ApplicationState, state);
        QFETCH(int, awayMs);
        QFETCH(bool, closes);
        const QString visitId = startSession();
        QVERIFY(!visitId.isEmpty());
        const VisitConfig before = config().visitConfig;
        setApplicationState(state);
        QTest::qWait(awayMs);
        QCOMPARE(waitForEnd(visitId, closes ? patience : 0), closes);
        setApplicationState(Qt::ApplicationActive);
        if (!closes) {
            QTest::qWait(6500 - awayMs);
            QVERIFY(service.visit(visitId)->isOpen());
            QCOMPARE(service.requests(initPath).size(), 1);
            QCOMPARE(currentVisit(), visitId);
            return;
        }
        // Back after the close: a new visit and session of the same visitor, opened again.
        const VisitConfig now = config().visitConfig;
        QVERIFY(now.visitId != before.visitId && now.sessionId != before.sessionId);
        QVERIFY(service.waitForVisitOpen(*now.visitId, patience));
        const auto init = service.deviceInit(*now.visitId);
        QVERIFY(init);
        QCOMPARE((QStringList{init->sessionId, init->visitorId, init->shareId,
                              service.visit(*now.visitId)->sessionId()}),
                 (QStringList{*now.sessionId, *before.visitorId, Orvane::vistrel()->shareId(),
                              *now.sessionId}));
        QVERIFY(service.waitForReports(*now.visitId, 1, patience));
    }

    // Agent commands; the opt-in first, as the first question fetches the texts.
    void optIn_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<int>("fetches");
        QTest::newRow("accept, texts not loaded") << u"Allow"_s << 1;
        QTest::newRow("decline, texts loaded") << u"Decline"_s << 0;
        // A question whose session stopped must not stay up to start co-browsing later.
        QTest::newRow("the agent stops first") << u"agent stop"_s << 0;
        QTest::newRow("the host stops first") << u"host stop"_s << 0;
    }
    void optIn()
    {
        QFETCH(QString, answer);
        QFETCH(int, fetches);
        const bool accept = answer == u"Allow"_s;
        QCOMPARE(resolve<UIStrings>()->isLoaded(), fetches == 0);
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        service.clearRequests();
        // One question at a time, also while its texts load: a dialog each would bury the app.
        service.queueRawCommand(visit, together(R"({"co": {"opt": true}})", 2));
        QTRY_VERIFY(optInDialog());
        QVERIFY(service.queueCommand(visit, R"({"co": {"opt": true}})"_ba));
        QTRY_COMPARE(log.count(u"Opt-in dialog already shown; requests dropped: 1"_s), 2);
        QCOMPARE(window.findChildren<QMessageBox *>().size(), 1);
        QMessageBox *box = optInDialog();
        QCOMPARE(box->text(), u"Share your screen?"_s);
        QCOMPARE(box->informativeText(), u"An agent asks to see your screen to help you."_s);
        QCOMPARE(service.requests(u"/api/in/i18n"_s).size(), fetches);
        if (answer.endsWith(u" stop"_s)) {
            if (answer == u"agent stop"_s)
                QVERIFY(service.queueCommand(visit, R"({"a": "c"})"_ba));
            else
                Orvane::vistrel()->stop();
            QTRY_VERIFY(!optInDialog());
            QTRY_VERIFY(!running());
            QTest::qWait(300);
            QCOMPARE(service.requests(initPath).size(), 0);
            return;
        }
        const auto buttons = box->buttons();
        const auto choice = std::ranges::find(buttons, answer, &QAbstractButton::text);
        QVERIFY(choice != buttons.end());
        QTest::mouseClick(*choice, Qt::LeftButton);
        QTRY_VERIFY(!optInDialog());
        if (!accept) {
            QTest::qWait(300);
            QCOMPARE(service.requests(initPath).size(), 0);
            QCOMPARE(heard, up);
            return;
        }
        // Co-browsing, on a new visit whose session id is the tenant id, as the service reads it.
        QTRY_COMPARE_WITH_TIMEOUT(heard, up + down + coBrowsingUp, patience);
        QVERIFY(service.waitForVisitOpen(currentVisit()));
        QCOMPARE(config().visitConfig.sessionId, u"tenant-1"_s);
        QCOMPARE(service.visit(currentVisit())->sessionId(), u"tenant-1"_s);
        QCOMPARE(service.requests(initPath).last().header("X-OV-SSID"), "tenant-1");
        // The agent's stop ends co-browsing and the session.
        QVERIFY(service.queueCommand(currentVisit(), R"({"a": "c"})"_ba));
        QTRY_VERIFY(heard.endsWith(u"co-browsing ended"_s) && !running());
    }

    void agentCommands()
    {
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        // Drawings stack, and go 5 s after their arrival; bytes that are no image give one too.
        const QByteArray redPixel =
            "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAIAAACQd1PeAAAADElEQVR4nGP4z8AA"
            "AAMBAQDJ/pLvAAAAAElFTkSuQmCC"; // as PNG
        QVERIFY(service.queueCommand(visit,
                                     R"({"d":{"u":"data:image/png;base64,)" + redPixel + R"("}})"));
        QVERIFY(service.queueCommand(visit, R"({"d":{"u":"AAAA"}})"_ba));
        const auto drawings = [this] { return window.findChildren<PassthroughUIImageView *>(); };
        QTRY_COMPARE(drawings().size(), 2);
        QCOMPARE(drawings().first()->geometry(), window.rect());
        QVERIFY(drawings().first()->testAttribute(Qt::WA_TransparentForMouseEvents));
        // Half transparent: the red drawing over the grey window.
        const QColor seen = window.grab().toImage().pixelColor(5, 5);
        QVERIFY2(seen.red() > seen.green() + 60 && seen.red() < 250, qPrintable(seen.name()));
        QTRY_COMPARE_WITH_TIMEOUT(drawings().size(), 0, 8000);

        // Whatever "b" says, the transport posts faster from its next flush on.
        auto *sender = resolve<XhrMessageSender>();
        QCOMPARE(sender->currentInterval(), 0.1);
        QVERIFY(service.queueCommand(visit, R"({"co": {"b": false}})"_ba));
        QTRY_COMPARE(sender->currentInterval(), 0.03);

        // A start opens a new visit of the same session, with monitoring forced.
        const auto session = config().visitConfig.sessionId;
        QVERIFY(service.queueCommand(visit, R"({"co": {"s": true}})"_ba));
        QVERIFY(service.waitFor([&] { return currentVisit() != visit; }));
        QCOMPARE(config().visitConfig.sessionId, session);
        QVERIFY(waitForScreenshot(currentVisit()));
    }

    void drawingsOnScreen_data()
    {
        QTest::addColumn<QList<QSize>>("sent");
        QTest::addColumn<bool>("oneByOne");      // each shown before the next is sent
        QTest::addColumn<QList<QSize>>("shown"); // in order of arrival
        const QSize a(1, 1), b(2, 2), c(3, 3), d(4, 4), e(5, 5);
        // Overlays pile up without end, or the newest one is turned away.
        QTest::newRow("the fourth pushes the first off")
            << QList{a, b, c, d} << true << QList{b, c, d};
        // A burst shows its oldest drawings, each only to be pushed off at once.
        QTest::newRow("a burst shows its newest three")
            << QList{a, b, c, d, e} << false << QList{c, d, e};
        // The window is 720 x 1280 device pixels: compared in units, this one would be refused.
        QTest::newRow("as large as the window")
            << QList{QSize(720, 1280)} << true << QList{QSize(720, 1280)};
        // Decoded before its size was checked; the log does not say why it is missing.
        QTest::newRow("one pixel wider than the window")
            << QList{QSize(721, 1280)} << false << QList<QSize>();
    }
    void drawingsOnScreen()
    {
        QFETCH(QList<QSize>, sent);
        QFETCH(bool, oneByOne);
        QFETCH(QList<QSize>, shown);
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        const auto onScreen = [this] {
            QList<QSize> sizes;
            for (const auto *view : window.findChildren<PassthroughUIImageView *>())
                sizes.append(view->pixmap().size());
            return sizes;
        };
        QByteArray burst;
        for (const QSize &size : sent) {
            if (!oneByOne) {
                burst += (burst.isEmpty() ? "" : ",") + drawing(size);
                continue;
            }
            QVERIFY(service.queueCommand(visit, drawing(size)));
            QTRY_VERIFY(onScreen().endsWith(size));
        }
        if (!oneByOne)
            service.queueRawCommand(visit, '[' + burst + ']');
        QTRY_VERIFY(log.contains(u"Handle message: "_s));
        QTRY_COMPARE(resolve<BidirectionalMessageHandler>()->pendingCommands(), 0);
        QCOMPARE(onScreen(), shown);
        QCOMPARE(log.contains(u"[WARNING] BidirectionalMessageHandler: Drawing refused: 721x1280 "
                              u"image is larger than the 720x1280 window"_s),
                 shown.isEmpty());
    }

    void sessionCommandsTogether_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("inits");
        const QByteArray start = R"({"co": {"s": true}})", stop = R"({"a": "c"})";
        // Each start runs an init of its own: a reply of starts floods the service.
        QTest::newRow("a thousand starts start once") << together(start, 1000) << 1;
        // The stop must end what the start began, not leave it to come up afterwards.
        QTest::newRow("start, then stop") << '[' + start + ',' + stop + ']' << 0;
        // Merging must not swallow the start that follows a stop: that is a restart.
        QTest::newRow("stop, then starts") << '[' + stop + ',' + together(start, 3).mid(1) << 1;
    }
    void sessionCommandsTogether()
    {
        QFETCH(QByteArray, reply);
        QFETCH(int, inits);
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        service.clearRequests();
        service.queueRawCommand(visit, reply);
        QTRY_VERIFY(log.contains(u"Handle message: "_s));
        QTRY_COMPARE(resolve<BidirectionalMessageHandler>()->pendingCommands(), 0);
        QTRY_COMPARE(service.requests(initPath).size(), inits);
        QTest::qWait(1000); // no init follows
        QCOMPARE(service.requests(initPath).size(), inits);
    }

    void manyTaps()
    {
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        // 90 000 taps off the window, then 10 000 on the button: only the newest 10 000 wait.
        const QByteArray off = R"({"x": -1, "y": -1})", on = R"({"x": 50, "y": 50})";
        const int kept = int(AgentCommandQueue::MaxCommands);
        int clicks = 0;
        int clicksAtNextTurn = -1;
        QObject counting; // its connections end with this case
        connect(m_button, &QPushButton::clicked, &counting, [&] {
            if (++clicks == 1)
                QMetaObject::invokeMethod(
                    &counting, [&] { clicksAtNextTurn = clicks; }, Qt::QueuedConnection);
        });
        service.queueRawCommand(visit, together(off, 100000 - kept).chopped(1) + ',' +
                                           together(on, kept).mid(1));
        QTRY_COMPARE_WITH_TIMEOUT(clicks, kept, patience);
        QTRY_VERIFY(clicksAtNextTurn > 0);
        // The event loop turned while the taps were worked off, not once they were all done.
        QVERIFY2(clicksAtNextTurn < kept, qPrintable(QString::number(clicksAtNextTurn)));
        QTRY_VERIFY(log.contains(u"Dropped the oldest 90000 taps: over 10000 agent commands "
                                 u"were waiting"_s));
        QVERIFY(!log.contains(u"View not found"_s));
    }

    // The rules of what waits, command by command, in the letters of letters().
    void commandQueue_data()
    {
        QTest::addColumn<QString>("arriving");
        QTest::addColumn<QString>("waiting");
        const QString taps = QString(AgentCommandQueue::MaxCommands, u't');
        // A stop must take away the start before it, and only that.
        QTest::newRow("stop after start") << u"tsct"_s << u"tct"_s;
        // A restart is a stop and a start: both stay, in their order, however often repeated.
        QTest::newRow("restarts") << u"cscscs"_s << u"cs"_s;
        // Over the limit a waiting start, drawing or opt-in must stay; the oldest tap goes.
        QTest::newRow("full of taps") << u"sdo"_s + taps + u't' << u"sdo"_s + taps.mid(3);
    }
    void commandQueue()
    {
        QFETCH(QString, arriving);
        QFETCH(QString, waiting);
        AgentCommandQueue queue;
        for (const QChar letter : arriving) {
            BidirectionalMessage m;
            switch (letter.unicode()) {
            case u's':
                m.start = true;
                break;
            case u'c':
                m.stop = true;
                break;
            case u'd':
                m.drawing = QByteArray("x");
                break;
            case u'o':
                m.optIn = true;
                break;
            default:
                m.click = BidirectionalMessage::Click{1, 2};
            }
            queue.push(m);
        }
        QString left;
        while (!queue.isEmpty())
            left += letters(queue.takeFront());
        QCOMPARE(left, waiting);
    }

    void activeUser_data()
    {
        QTest::addColumn<bool>("coBrowsing");
        QTest::addColumn<int>("userTags");
        QTest::newRow("the host's start names the user") << false << 1;
        // Co-browsing's start is the session start alone.
        QTest::newRow("a co-browsing start does not") << true << 0;
    }
    void activeUser()
    {
        QFETCH(bool, coBrowsing);
        QFETCH(int, userTags);
        config().activeUserTag.emplace().id = u"user-1"_s;
        coBrowsing ? Orvane::coBrowsing()->start() : Orvane::vistrel()->start();
        QTRY_VERIFY_WITH_TIMEOUT(heard.contains(u"started"_s), patience);
        const QString visit = currentVisit();
        QVERIFY(waitForScreenshot(visit));
        // Counted once per content and time: Qt may resend a POST whose connection closed
        // before the reply (see protocol.md), which the service must take as one.
        const auto sent = [&] {
            QSet<QByteArray> tags;
            for (const Report &report : service.visit(visit)->reports()) {
                if (report.message.usertag_size())
                    tags.insert(QByteArray::fromStdString(report.message.SerializeAsString()));
            }
            return int(tags.size());
        };
        if (!userTags)
            QTest::qWait(1500); // the user tag goes right after the start succeeds
        QTRY_COMPARE_WITH_TIMEOUT(sent(), userTags, patience);
    }

    void coBrowsing()
    {
        // initConfig registered the start channel: an agent starts co-browsing through it.
        QVERIFY(service.queueChannelMessage(*config().visitConfig.visitorId, u"SCB"_s, QString()));
        QTRY_COMPARE_WITH_TIMEOUT(heard, coBrowsingUp, patience);
        QPointer<DefaultUIView> view =
            qobject_cast<DefaultUIView *>(resolve<CoBrowsing>()->view()->visual());
        QVERIFY(view && view->parentWidget() == &window);
        // "Connecting" first, then the share id of the new session.
        QTRY_COMPARE(view->shareId()->text(), Orvane::vistrel()->shareId());
        log.clear();
        Orvane::coBrowsing()->start();
        QCOMPARE(log.lines(),
                 QStringList{u"[ERROR] OrvaneCoBrowsing: Error while starting CoBrowsing: "
                             u"StringError(mMsg: \"CoBrowsing is already started\")"_s});
        QCOMPARE(resolve<CoBrowsing>()->view()->visual(), view.data());

        const auto shown = [&view] {
            return QList{view->showButton()->isVisible(), view->hideButton()->isVisible(),
                         view->buttonGroup()->isVisible()};
        };
        QCOMPARE(shown(), (QList{false, true, true}));
        QTest::mouseClick(view->hideButton(), Qt::LeftButton);
        QCOMPARE(shown(), (QList{true, false, false}));
        QTest::mouseClick(view->showButton(), Qt::LeftButton);
        QCOMPARE(shown(), (QList{false, true, true}));
        // A user's tap outside the panel reaches the app; the panel's buttons take theirs.
        QSignalSpy clicked(m_button, &QPushButton::clicked);
        QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, m_button->geometry().center());
        QCOMPARE(clicked.size(), 1);
        QAbstractButton *hide = view->hideButton();
        QCOMPARE(window.childAt(hide->mapTo(&window, hide->rect().center())), hide);
        // The service offers chat: the button asks for the tenant's chat.
        QTRY_VERIFY(view->chatButton()->isVisible());
        QTest::mouseClick(view->chatButton(), Qt::LeftButton);
        QVERIFY(service.waitForRequests(u"/api/in/wc/c/tenant-1"_s, 1, patience));
        // It covers its window, also through a rotation, the panel against the right edge.
        const QSize size = window.size();
        window.resize(size.transposed());
        QTRY_COMPARE(view->geometry(), window.rect());
        QCOMPARE(view->widget()->geometry().right(), window.width() - 1);
        window.resize(size);
        QTRY_COMPARE(view->geometry(), window.rect());

        // A restart ends the widget once and shows a new one, with a session on a new visit.
        const QString visit = currentVisit();
        QPointer<DefaultUIView> old = view;
        resolve<CoBrowsing>()->restart();
        QTRY_COMPARE_WITH_TIMEOUT(heard, coBrowsingUp + coBrowsingDown + coBrowsingUp, patience);
        view = qobject_cast<DefaultUIView *>(resolve<CoBrowsing>()->view()->visual());
        QVERIFY(!old && view && view->isVisible() && currentVisit() != visit);
        QVERIFY(service.waitForVisitOpen(currentVisit()));

        const QString last = currentVisit();
        QTest::mouseClick(view->closeButton(), Qt::LeftButton);
        QTRY_VERIFY(!view);
        QVERIFY(waitForEnd(last));
        QCOMPARE(heard, coBrowsingUp + coBrowsingDown + coBrowsingUp + coBrowsingDown);
    }

    void widgetLeftOnScreenRefusesAStart()
    {
        std::unique_ptr<DefaultUIView> leftOver(DefaultUIView::create(&window));
        Orvane::coBrowsing()->start();
        QTRY_VERIFY(log.contains(u"[DEBUG] CoBrowsing: Starting UI failed with error: "
                                 u"StringError(mMsg: \"UI is already shown\")"_s));
        QVERIFY(!resolve<CoBrowsing>()->isStarted() && !running());
        QCOMPARE(window.findChildren<DefaultUIView *>(), QList{leftOver.get()});
    }
};

QTEST_MAIN(tst_Session)
#include "tst_session.moc"
