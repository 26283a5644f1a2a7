#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "Session/Vistrel.h"
#include "TestConfig.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <qpa/qwindowsysteminterface.h>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::LocalService;
using VistrelService::Report;

namespace {
// Waits end as soon as their condition holds; a loaded machine under a sanitizer is slow.
constexpr int patience = 30000;
const QString initPath = u"/api/in/im/c"_s;
const QString alreadyStarted =
    u"[ERROR] OrvaneVistrel: Error when starting Vistrel: StringError(mMsg: "
    u"\"Vistrel is already started\")"_s;
const QString pingTask = u"[DEBUG] PingSender: Execute ping interval task"_s;

void setApplicationState(Qt::ApplicationState state)
{
    QWindowSystemInterface::handleApplicationStateChanged<
        QWindowSystemInterface::SynchronousDelivery>(state);
}

// The service's default init reply with some keys changed.
QByteArray reply(const QJsonObject &changes)
{
    QJsonObject object = QJsonDocument::fromJson(LocalService::defaultMonitoringConfig()).object();
    for (auto it = changes.begin(); it != changes.end(); ++it)
        object.insert(it.key(), *it);
    return QJsonDocument(object).toJson();
}

bool isScreenshot(const Report &report)
{
    return report.message.screenshotevent_size() > 0;
}
} // namespace

class tst_Vistrel : public QObject
{
    Q_OBJECT
public:
    // Screenshots are a third of the window in device pixels, not in units.
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void startAndStop();
    void stopWhileStarting_data();
    void stopWhileStarting();
    void initReplies_data();
    void initReplies();
    void background_data();
    void background();
    void activeUser_data();
    void activeUser();

private:
    static Vistrel *session() { return Kit::container().resolve<Vistrel>(); }
    static OrvaneVistrel *facade() { return Orvane::vistrel(); }
    static ApplicationConfig &config()
    {
        return Kit::container().resolve<ApplicationConfigWrapper>()->config();
    }
    static QString currentVisit() { return config().visitConfig.visitId.value_or(QString()); }
    /// Until the device deleted the visit it opened.
    bool waitForEnd(const QString &visitId, int timeoutMs = patience)
    {
        return m_service.waitFor(
            [&] {
                const VistrelService::Visit *visit = m_service.visit(visitId);
                return visit && visit->state() == VistrelService::Visit::State::Ended;
            },
            timeoutMs);
    }
    bool waitForScreenshot(const QString &visitId, int timeoutMs = patience)
    {
        return m_service.waitForReports(
            visitId,
            [](const QList<Report> &r) { return std::any_of(r.begin(), r.end(), isScreenshot); },
            timeoutMs);
    }
    QString startAndWaitForScreenshot();

    LocalService m_service;
    QWidget m_window;
    QLabel *m_label = new QLabel(&m_window);
    LogCapture m_log;
};

void tst_Vistrel::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_service.start() != 0);
    // Before the container is built: its configuration reads the host once.
    TestConfig::use(m_service.hostAndPort());
    m_window.resize(320, 240);
    m_window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&m_window));
    QVERIFY(session());
    // No session ran in this process yet.
    QCOMPARE(facade()->shareId(), QString());
    facade()->tag(u"early"_s);
    QVERIFY(m_log.contains(
        u"[ERROR] OrvaneVistrel: Cannot tag session: StringError(mMsg: \"Cannot tag session without message sender\")"_s));
}

void tst_Vistrel::init()
{
    m_service.clearRequests();
    m_service.setMonitoringConfig(LocalService::defaultMonitoringConfig());
    setApplicationState(Qt::ApplicationActive);
    m_log.clear();
}

void tst_Vistrel::cleanup()
{
    // The session outlives every case: leave it idle, in front, with nothing of this case.
    setApplicationState(Qt::ApplicationActive);
    facade()->registerCallbacks({}, {});
    const QString visitId = currentVisit();
    const bool opened = session()->isRunning() && m_service.visit(visitId);
    facade()->stop();
    // The next start reuses the transport: its close goes out first.
    if (opened)
        QVERIFY(waitForEnd(visitId));
}

// Starts through the facade; the visit id once a screenshot of it reached the service.
QString tst_Vistrel::startAndWaitForScreenshot()
{
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    const QString visitId = currentVisit();
    // A report queued while a ping's post is under way is dropped with it, and an unchanged
    // screen is not sent again: a changed one is.
    for (int attempt = 0; attempt < 5 && session()->isRunning(); ++attempt) {
        if (waitForScreenshot(visitId, patience / 5))
            return visitId;
        m_label->setText(QString::number(attempt));
    }
    return QString();
}

void tst_Vistrel::startAndStop()
{
    int started = 0;
    int stopped = 0;
    facade()->registerCallbacks([&] { ++started; }, [&] { ++stopped; });
    QSignalSpy startedSignal(facade(), &OrvaneVistrel::started);
    QSignalSpy stoppedSignal(facade(), &OrvaneVistrel::stopped);
    QSignalSpy connectedSignal(facade(), &OrvaneVistrel::connectedChanged);
    QSignalSpy shareIdSignal(facade(), &OrvaneVistrel::shareIdChanged);
    QSignalSpy failedSignal(facade(), &OrvaneVistrel::startFailed);
    const QJsonObject masked{{u"blacklist"_s, QJsonArray{u"7"_s}},
                             {u"blacklistClasses"_s, QJsonArray{u"QLineEdit"_s}}};
    m_service.setMonitoringConfig(reply({{u"storageType"_s, u"s"_s}, {u"ios"_s, masked}}));
    const VisitConfig before = config().visitConfig;
    const QString visitId = startAndWaitForScreenshot();
    QVERIFY(!visitId.isEmpty());
    QCOMPARE(started, 1);
    QVERIFY(facade()->connected());
    // A third of the window in device pixels, as the service decoded it.
    const QList<Report> &sent = m_service.visit(visitId)->reports();
    const auto shot = std::find_if(sent.cbegin(), sent.cend(), isScreenshot);
    const QImage image = QImage::fromData(
        QByteArray::fromStdString(shot->message.screenshotevent(0).image()), "JPEG");
    QCOMPARE(image.size(), QSize(640 / 3, 480 / 3));
    QCOMPARE(config().vistrelConfig.iosConfig->blacklistClasses, QStringList{u"QLineEdit"_s});

    // The init announced the new visit, and the channel opened on it.
    const VisitConfig visit = config().visitConfig;
    QVERIFY(visit.visitId != before.visitId && visit.sessionId != before.sessionId);
    const auto announced = m_service.deviceInit(visitId);
    QVERIFY(announced);
    QCOMPARE(announced->sessionId, *visit.sessionId);
    const QString shareId = facade()->shareId();
    QVERIFY(!shareId.isEmpty());
    QCOMPARE(announced->shareId, shareId);
    QCOMPARE(shareIdSignal.size(), 1);
    QCOMPARE(shareIdSignal.first().first().toString(), shareId);
    QCOMPARE(connectedSignal.size(), 1);
    QCOMPARE(connectedSignal.first().first().toBool(), true);
    const VistrelService::Visit *opened = m_service.visit(visitId);
    QCOMPARE(opened->sessionId(), *visit.sessionId);
    QCOMPARE(opened->visitorId(), *visit.visitorId);
    QCOMPARE(opened->storageType(), u"s"_s);

    facade()->start();
    QCOMPARE(m_log.count(alreadyStarted), 1);
    QCOMPARE(failedSignal.size(), 1);
    QCOMPARE(failedSignal.first().first().toString(),
             u"StringError(mMsg: \"Vistrel is already started\")"_s);
    QCOMPARE(currentVisit(), visitId);
    QCOMPARE(facade()->shareId(), shareId);

    // A restart ends the visit and opens a new one in the same session; the host hears of both.
    session()->restart();
    QCOMPARE(stopped, 1);
    QVERIFY(waitForEnd(visitId));
    const QString restarted = currentVisit();
    QVERIFY(restarted != visitId);
    QCOMPARE(config().visitConfig.sessionId, visit.sessionId);
    QVERIFY(m_service.waitFor([&] { return m_service.visit(restarted) != nullptr; }, patience));
    QTRY_COMPARE(started, 2);

    facade()->stop();
    QCOMPARE(stopped, 2);
    QVERIFY(!facade()->connected());
    QCOMPARE(connectedSignal.last().first().toBool(), false);
    QVERIFY(waitForEnd(restarted));
    m_log.clear();
    facade()->stop();
    QCOMPARE(m_log.lines(), QStringList{u"[WARNING] Vistrel: Already stopped"_s});
    QCOMPARE(stopped, 2);

    // Stopped means stopped: no ping fires any more, and the refused start sent no init.
    QTest::qWait(1500);
    QVERIFY(!m_log.contains(pingTask));
    QCOMPARE(m_service.requests(initPath).size(), 2);
    QCOMPARE(started, 2);
    // The signals tell what the callbacks tell.
    QCOMPARE(startedSignal.size(), started);
    QCOMPARE(stoppedSignal.size(), stopped);
}

void tst_Vistrel::stopWhileStarting_data()
{
    QTest::addColumn<bool>("onInitRequest");
    QTest::newRow("before the init request") << false;
    QTest::newRow("while the init reply is on its way") << true;
}

void tst_Vistrel::stopWhileStarting()
{
    QFETCH(bool, onInitRequest);
    int started = 0;
    facade()->registerCallbacks([&] { ++started; }, {});
    // The service records a request before it answers it.
    const auto stopper = connect(&m_service, &LocalService::requestRecorded, this,
                                 [&](const VistrelService::RecordedRequest &r) {
                                     if (onInitRequest && r.path == initPath)
                                         facade()->stop();
                                 });
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    const QString visitId = currentVisit();
    if (!onInitRequest)
        facade()->stop();
    QVERIFY(m_service.waitFor([] { return !session()->isRunning(); }, patience));
    disconnect(stopper);

    // The abandoned start must not bring the session up behind the host's back, where no
    // stop() could end it.
    QTest::qWait(1500);
    QVERIFY(!facade()->connected());
    QVERIFY(!session()->isRunning());
    QCOMPARE(m_service.requests(initPath).size(), onInitRequest ? 1 : 0);
    QVERIFY(!m_service.visit(visitId)); // no channel opened
    QVERIFY(!m_log.contains(pingTask));
    QCOMPARE(started, 0);

    QVERIFY(!startAndWaitForScreenshot().isEmpty());
    QCOMPARE(started, 1);
}

void tst_Vistrel::initReplies_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("transport");
    QTest::addColumn<bool>("recording");
    QTest::addColumn<QString>("logLine");

    QTest::newRow("monitoring not wanted") << reply({{u"shouldStartMonitoring"_s, false}}) << true
                                           << false << u"Should start monitoring: false"_s;
    QTest::newRow("type u forces monitoring")
        << reply({{u"shouldStartMonitoring"_s, false}, {u"startMonitoringType"_s, u"u"_s}}) << true
        << true << u"Should start or force is set"_s;
    QTest::newRow("ignored address")
        << reply({{u"ignoreIp"_s, true}}) << false << false << u"Ignoring"_s;
}

void tst_Vistrel::initReplies()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, transport);
    QFETCH(bool, recording);
    QFETCH(QString, logLine);
    int started = 0;
    facade()->registerCallbacks([&] { ++started; }, {});

    m_service.setMonitoringConfig(reply);
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    const QString visitId = currentVisit();
    QTRY_VERIFY_WITH_TIMEOUT(m_log.contains(logLine), patience);
    if (transport) {
        // The first ping comes well after the first screenshot would have.
        QVERIFY(recording ? waitForScreenshot(visitId)
                          : m_service.waitForReports(visitId, 1, patience));
        const QList<Report> sent = m_service.visit(visitId)->reports();
        QCOMPARE(std::any_of(sent.begin(), sent.end(), isScreenshot), recording);
    } else {
        QTest::qWait(1500); // a ping would have fired by now
        QVERIFY(!m_service.visit(visitId));
        QVERIFY(!m_log.contains(pingTask));
    }
    QCOMPARE(facade()->connected(), recording);
    QCOMPARE(started, transport ? 1 : 0);
    // Even an ignored start counts as running.
    facade()->start();
    QCOMPARE(m_log.count(alreadyStarted), 1);
}

void tst_Vistrel::background_data()
{
    QTest::addColumn<Qt::ApplicationState>("state");
    QTest::addColumn<int>("awayMs");
    QTest::addColumn<bool>("closes");

    // The grace period is 5 s. On a desktop an unfocused window is still in front of its user.
    QTest::newRow("suspended 4 s keeps the transport") << Qt::ApplicationSuspended << 4000 << false;
    QTest::newRow("suspended 6 s closes it") << Qt::ApplicationSuspended << 6000 << true;
    QTest::newRow("inactive is not away") << Qt::ApplicationInactive << 6000 << false;
}

void tst_Vistrel::background()
{
    QFETCH(Qt::ApplicationState, state);
    QFETCH(int, awayMs);
    QFETCH(bool, closes);
    const QString visitId = startAndWaitForScreenshot();
    QVERIFY(!visitId.isEmpty());
    const VisitConfig before = config().visitConfig;
    const QString shareId = facade()->shareId();

    QElapsedTimer away;
    away.start();
    setApplicationState(state);
    QTest::qWait(awayMs);
    QCOMPARE(waitForEnd(visitId, closes ? patience : 0), closes);
    setApplicationState(Qt::ApplicationActive);
    const QDateTime back = QDateTime::currentDateTimeUtc();
    QCOMPARE(m_log.contains(u"[DEBUG] Vistrel: App goes in background"_s),
             state != Qt::ApplicationInactive);

    if (!closes) {
        // Reports go on into the same visit, and the grace period passes without a close.
        QVERIFY(m_service.waitForReports(
            visitId, [&](const QList<Report> &r) { return r.last().receivedAt > back; }, patience));
        QTest::qWait(std::max(0, int(6000 - away.elapsed())));
        QVERIFY(m_service.visit(visitId)->isOpen());
        QCOMPARE(m_service.requests(initPath).size(), 1);
        QCOMPARE(currentVisit(), visitId);
        return;
    }

    // Back after the close: a new init on a new visit and session of the same visitor, which
    // the transport opens again.
    const VisitConfig now = config().visitConfig;
    QVERIFY(now.visitId != before.visitId && now.sessionId != before.sessionId);
    QVERIFY(m_service.waitForRequests(initPath, 2, patience));
    const auto announced = m_service.deviceInit(*now.visitId);
    QVERIFY(announced);
    QCOMPARE(announced->sessionId, *now.sessionId);
    QCOMPARE(announced->visitorId, *before.visitorId);
    QCOMPARE(announced->shareId, shareId);
    QVERIFY(m_service.waitForVisitOpen(*now.visitId, patience));
    QCOMPARE(m_service.visit(*now.visitId)->sessionId(), *now.sessionId);
    QVERIFY(m_service.waitForReports(*now.visitId, 1, patience));
}

void tst_Vistrel::activeUser_data()
{
    QTest::addColumn<bool>("coBrowsing");
    QTest::addColumn<int>("userTags");
    QTest::newRow("the host's start names the user") << false << 1;
    // Co-browsing's start is the session start alone.
    QTest::newRow("a co-browsing start does not") << true << 0;
}

void tst_Vistrel::activeUser()
{
    QFETCH(bool, coBrowsing);
    QFETCH(int, userTags);
    QSignalSpy coBrowsingStarted(Orvane::coBrowsing(), &OrvaneCoBrowsing::started);
    QSignalSpy coBrowsingEnded(Orvane::coBrowsing(), &OrvaneCoBrowsing::ended);
    ActiveUser user;
    user.id = u"user-1"_s;
    user.email = u"ann@example.com"_s;
    config().activeUserTag = user;
    if (coBrowsing)
        Orvane::coBrowsing()->start(u"tenant-1"_s, u"token-1"_s);
    else
        facade()->start(u"tenant-1"_s, u"token-1"_s);
    QVERIFY(m_service.waitFor([] { return facade()->connected(); }, patience));
    const QString visitId = currentVisit();
    QVERIFY(waitForScreenshot(visitId));
    const auto sentUserTags = [&] {
        int count = 0;
        for (const Report &report : m_service.visit(visitId)->reports())
            count += report.message.usertag_size();
        return count;
    };
    if (userTags)
        QTRY_COMPARE_WITH_TIMEOUT(sentUserTags(), userTags, patience);
    else
        QTest::qWait(1500); // the user tag goes right after the start succeeds
    QCOMPARE(sentUserTags(), userTags);
    config().activeUserTag.reset();
    QCOMPARE(coBrowsingStarted.size(), coBrowsing ? 1 : 0);
    if (coBrowsing) {
        Orvane::coBrowsing()->stop();
        QCOMPARE(coBrowsingEnded.size(), 1);
        QVERIFY(waitForEnd(visitId));
    }
}

QTEST_MAIN(tst_Vistrel)
#include "tst_vistrel.moc"
