#include "ChildProcess.h"
#include "ClosedPort.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Injection.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "TestConfig.h"
#include "Vistrel/Vistrel.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>
#include <QWidget>
#include <qpa/qwindowsysteminterface.h>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::LocalService;
using VistrelService::RecordedRequest;
using VistrelService::Report;

namespace {
const QString initPath = u"/api/in/im/c"_s;
const QString messagePath = u"/api/ix/m"_s;
const QString freshProcessCase = u"fresh process"_s;
const QString startFailed = u"[ERROR] Vistrel: Error when starting Vistrel: "_s;
const QString alreadyStarted = startFailed + u"StringError(mMsg: \"Vistrel is already started\")"_s;
const QString goesAway = u"[DEBUG] Vistrel: App goes in background"_s;
const QString pingTask = u"[DEBUG] PingSender: Execute ping interval task"_s;

Vistrel *session()
{
    return Injection::getContainer().resolve<Vistrel>();
}

ApplicationConfig &config()
{
    return Injection::getContainer().resolve<ApplicationConfigWrapper>()->config();
}

OrvaneVistrel *facade()
{
    return Orvane::vistrel();
}

void setApplicationState(Qt::ApplicationState state)
{
    QWindowSystemInterface::handleApplicationStateChanged<
        QWindowSystemInterface::SynchronousDelivery>(state);
}

// The service's default init reply with some keys changed; a null value removes the key.
QByteArray reply(const QJsonObject &changes)
{
    QJsonObject object = QJsonDocument::fromJson(LocalService::defaultMonitoringConfig()).object();
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (it->isNull())
            object.remove(it.key());
        else
            object.insert(it.key(), *it);
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QList<RecordedRequest> channelRequests(const LocalService &service, const QString &method,
                                       const QString &visitId)
{
    QList<RecordedRequest> result;
    for (const RecordedRequest &request : service.requests(messagePath)) {
        if (request.method == method && request.queryValue(u"id"_s) == visitId)
            result.append(request);
    }
    return result;
}

bool isPing(const Report &report)
{
    const ProtoMessage &m = report.message;
    return m.has_time() && !m.has_pagechange() && !m.has_tag() && m.screenshotevent_size() == 0 &&
           m.clickevent_size() == 0 && m.usertag_size() == 0;
}

bool isScreenshot(const Report &report)
{
    return report.message.screenshotevent_size() > 0;
}

bool isTag(const Report &report)
{
    return report.message.has_tag();
}

qsizetype countOf(const QList<Report> &reports, bool (*kind)(const Report &))
{
    return std::count_if(reports.begin(), reports.end(), kind);
}

QList<Report> reportsOf(const LocalService &service, const QString &visitId)
{
    const VistrelService::Visit *visit = service.visit(visitId);
    return visit ? visit->reports() : QList<Report>();
}

// Runs in a process of its own, where no session ever ran: prints what the parent checks.
int runFreshProcess()
{
    int argc = 1;
    char name[] = "tst_vistrel";
    char *argv[] = {name, nullptr};
    QApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    LocalService service;
    service.start();
    TestConfig::use(service.hostAndPort());
    QWidget window;
    window.show();
    const auto awayAndBack = [] {
        setApplicationState(Qt::ApplicationSuspended);
        setApplicationState(Qt::ApplicationActive);
    };

    std::printf("shareId=[%s]\n", qPrintable(facade()->shareId()));
    facade()->tag(u"early"_s);
    awayAndBack();

    service.setMonitoringConfig("{}");
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    service.waitFor([] { return !session()->isRunning(); });
    awayAndBack();

    service.setMonitoringConfig(LocalService::defaultMonitoringConfig());
    facade()->start();
    const QString visitId = config().visitConfig.visitId.value_or(QString());
    // The first screenshot comes after the start's completion has run.
    if (!service.waitForReports(
            visitId, [](const QList<Report> &r) { return countOf(r, isScreenshot) > 0; })) {
        return 1;
    }
    std::printf("started\n");
    awayAndBack();
    facade()->stop();
    service.waitFor([&] { return !channelRequests(service, u"DELETE"_s, visitId).isEmpty(); });
    return 0;
}
} // namespace

class tst_Vistrel : public QObject
{
    Q_OBJECT
public:
    static void initMain()
    {
        if (ChildProcess::currentCase() == freshProcessCase)
            std::exit(runFreshProcess());
    }

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void freshProcess();
    void startOpensTheVisit();
    void secondStartAndStop();
    void stopWhileStarting();
    void initReplies_data();
    void initReplies();
    void unreachableServiceFailsTheStart();
    void replyFillsTheConfiguration_data();
    void replyFillsTheConfiguration();
    void applicationStates_data();
    void applicationStates();
    void background_data();
    void background();
    void callbacks();
    void tagsReachTheService();

private:
    QString startAndWaitForScreenshot();
    bool waitForReport(const QString &visitId, bool (*kind)(const Report &));
    // The first request of that method on the visit's message channel, once there is one.
    std::optional<RecordedRequest> waitForChannel(const QString &method, const QString &visitId);

    LocalService m_service;
    QWidget m_window;
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
    const bool transportUp = session()->isRunning() && session()->messageSender();
    facade()->stop();
    if (transportUp)
        QVERIFY(waitForChannel(u"DELETE"_s, config().visitConfig.visitId.value_or(QString())));
    config().activeUserTag.reset();
    TestConfig::use(m_service.hostAndPort());
}

// Starts through the facade; returns the visit id once a screenshot of it reached the service.
QString tst_Vistrel::startAndWaitForScreenshot()
{
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    const QString visitId = config().visitConfig.visitId.value_or(QString());
    return waitForReport(visitId, isScreenshot) ? visitId : QString();
}

bool tst_Vistrel::waitForReport(const QString &visitId, bool (*kind)(const Report &))
{
    return m_service.waitForReports(
        visitId, [kind](const QList<Report> &r) { return countOf(r, kind) > 0; });
}

std::optional<RecordedRequest> tst_Vistrel::waitForChannel(const QString &method,
                                                           const QString &visitId)
{
    if (!m_service.waitFor([&] { return !channelRequests(m_service, method, visitId).isEmpty(); }))
        return std::nullopt;
    return channelRequests(m_service, method, visitId).first();
}

void tst_Vistrel::freshProcess()
{
    const ChildProcess::Outcome outcome = ChildProcess::run(freshProcessCase);
    QVERIFY(outcome.finished);
    QVERIFY2(!outcome.crashed() && outcome.exitCode == 0, outcome.standardError.constData());
    const QStringList lines = QString::fromUtf8(outcome.standardOutput).split(u'\n');

    QVERIFY(lines.contains(u"shareId=[]"_s));
    QVERIFY(lines.contains(u"[ERROR] Vistrel: Cannot tag session: StringError(mMsg: \"Cannot "
                           u"tag session without message sender\")"_s));
    // Leaving the foreground matters only once a start succeeded: not before any start, nor
    // after a failed one.
    QVERIFY(!lines.filter(startFailed).isEmpty());
    const qsizetype started = lines.indexOf(u"started"_s);
    QVERIFY(started > 0);
    QCOMPARE(lines.filter(goesAway).size(), 1);
    QVERIFY(lines.indexOf(goesAway) > started);
}

void tst_Vistrel::startOpensTheVisit()
{
    const VisitConfig before = config().visitConfig;
    facade()->start(u"tenant-e2e"_s, u"token-e2e"_s);
    QVERIFY(m_service.waitForRequests(initPath, 1));

    const VisitConfig &visit = config().visitConfig;
    QVERIFY(visit.visitId && visit.visitId != before.visitId);
    QVERIFY(visit.sessionId && visit.sessionId != before.sessionId);
    const RecordedRequest initRequest = m_service.requests(initPath).first();
    const QJsonObject dto = QJsonDocument::fromJson(initRequest.body).object();
    QCOMPARE(dto.value(u"visitId"_s).toString(), *visit.visitId);
    QCOMPARE(dto.value(u"sessionId"_s).toString(), *visit.sessionId);
    QCOMPARE(dto.value(u"visitorId"_s).toString(), *visit.visitorId);
    QCOMPARE(dto.value(u"tenantId"_s).toString(), u"tenant-e2e"_s);
    QCOMPARE(dto.value(u"initialize"_s), QJsonValue(true));
    QCOMPARE(dto.value(u"optIn"_s), QJsonValue(false));
    QCOMPARE(dto.value(u"start"_s).toInteger(), *config().vistrelConfig.startTime);
    const QString shareId = facade()->shareId();
    QVERIFY2(QRegularExpression(u"^[1-9][0-9]{4}$"_s).match(shareId).hasMatch(),
             qPrintable(shareId));
    QCOMPARE(dto.value(u"shareId"_s).toString(), shareId);

    // The channel opens on the same visit once the reply is in.
    const QString visitId = *visit.visitId;
    const auto get = waitForChannel(u"GET"_s, visitId);
    QVERIFY(get);
    QCOMPARE(get->queryValue(u"sId"_s), *visit.sessionId);
    QCOMPARE(get->queryValue(u"vId"_s), *visit.visitorId);
    QCOMPARE(get->queryValue(u"tId"_s), u"tenant-e2e"_s);
    QVERIFY(m_log.contains(u"[DEBUG] Vistrel: Selected message sender: XhrMessageSender"_s));

    QVERIFY(waitForReport(visitId, isScreenshot));
    QVERIFY(!channelRequests(m_service, u"POST"_s, visitId).isEmpty());
    QVERIFY(facade()->connected());

    // About one ping a second: three more take clearly longer than two seconds.
    const auto pings = [&] { return countOf(reportsOf(m_service, visitId), isPing); };
    QVERIFY(waitForReport(visitId, isPing));
    const qsizetype first = pings();
    QElapsedTimer clock;
    clock.start();
    QVERIFY(m_service.waitFor([&] { return pings() >= first + 3; }, 5000));
    QVERIFY2(clock.elapsed() > 2000, qPrintable(QString::number(clock.elapsed())));
}

void tst_Vistrel::secondStartAndStop()
{
    const QString visitId = startAndWaitForScreenshot();
    QVERIFY(!visitId.isEmpty());
    const VisitConfig visit = config().visitConfig;
    const QString shareId = facade()->shareId();

    facade()->start();
    QCOMPARE(m_log.count(alreadyStarted), 1);
    QCOMPARE(config().visitConfig.visitId.value_or(QString()), visitId);
    QCOMPARE(facade()->shareId(), shareId);

    facade()->stop();
    QVERIFY(!facade()->connected());
    QVERIFY(!session()->isRunning());
    const auto deletion = waitForChannel(u"DELETE"_s, visitId);
    QVERIFY(deletion);
    QCOMPARE(deletion->queryValue(u"sId"_s), *visit.sessionId);
    QCOMPARE(deletion->queryValue(u"vId"_s), *visit.visitorId);
    QCOMPARE(deletion->queryValue(u"tId"_s), u"tenant-1"_s);

    // Co-browsing is told to stop too, and its stop finds the session already stopped.
    QCOMPARE(m_log.count(u"[WARNING] Vistrel: Already stopped"_s), 1);
    m_log.clear();
    facade()->stop();
    QCOMPARE(m_log.lines(), QStringList{u"[WARNING] Vistrel: Already stopped"_s});

    // Stopped means stopped: no ping fires any more, and the refused start sent no init.
    m_log.clear();
    QTest::qWait(1300);
    QVERIFY(!m_log.contains(pingTask));
    QCOMPARE(m_service.requests(initPath).size(), 1);
}

void tst_Vistrel::stopWhileStarting()
{
    int started = 0;
    facade()->registerCallbacks([&] { ++started; }, {});
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    const QString visitId = config().visitConfig.visitId.value_or(QString());
    facade()->stop(); // before the init reply is in

    // The reply of the abandoned start must not bring the session up again behind the host's
    // back, where no stop() could end it.
    QTest::qWait(1300);
    QVERIFY(!facade()->connected());
    QVERIFY(channelRequests(m_service, u"GET"_s, visitId).isEmpty());
    QVERIFY(!m_log.contains(pingTask));
    QCOMPARE(started, 0);
    QVERIFY(!startAndWaitForScreenshot().isEmpty());
}

void tst_Vistrel::initReplies_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("transport");
    QTest::addColumn<bool>("recording");
    QTest::addColumn<bool>("running");
    QTest::addColumn<QString>("logLine");

    QTest::newRow("monitoring not wanted")
        << reply({{u"shouldStartMonitoring"_s, false}}) << true << false << true
        << u"[DEBUG] Vistrel: Should start monitoring: false"_s;
    QTest::newRow("type u forces monitoring")
        << reply({{u"shouldStartMonitoring"_s, false}, {u"startMonitoringType"_s, u"u"_s}}) << true
        << true << true << u"[DEBUG] Vistrel: Should start or force is set"_s;
    QTest::newRow("ignored address") << reply({{u"ignoreIp"_s, true}}) << false << false << true
                                     << u"[DEBUG] Vistrel: Ignoring"_s;
    QTest::newRow("undecodable") << reply({{u"ip"_s, QJsonValue()}}) << false << false << false
                                 << startFailed;
}

void tst_Vistrel::initReplies()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, transport);
    QFETCH(bool, recording);
    QFETCH(bool, running);
    QFETCH(QString, logLine);

    m_service.setMonitoringConfig(reply);
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    const QString visitId = config().visitConfig.visitId.value_or(QString());
    QVERIFY(m_service.waitForRequests(initPath, 1));
    QTRY_VERIFY(m_log.contains(logLine));

    if (transport) {
        // A screenshot, when there is one, is taken well before the first ping goes out.
        QVERIFY(waitForReport(visitId, isPing));
        QCOMPARE(countOf(reportsOf(m_service, visitId), isScreenshot) > 0, recording);
    } else {
        QTest::qWait(1300); // a ping would have fired by now
        QVERIFY(channelRequests(m_service, u"GET"_s, visitId).isEmpty());
        QVERIFY(!m_log.contains(pingTask));
    }
    QCOMPARE(facade()->connected(), recording);
    QCOMPARE(session()->isRunning(), running);

    if (running) {
        facade()->start();
        QCOMPARE(m_log.count(alreadyStarted), 1);
    } else {
        // A failed start leaves the way open for the next one.
        m_service.setMonitoringConfig(LocalService::defaultMonitoringConfig());
        QVERIFY(!startAndWaitForScreenshot().isEmpty());
        QVERIFY(facade()->connected());
    }
}

void tst_Vistrel::unreachableServiceFailsTheStart()
{
    TestConfig::use(u"127.0.0.1:%1"_s.arg(closedPort()));
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    QTRY_COMPARE(m_log.count(startFailed), 2);
    // The transport error first, then the missing body of the same reply.
    const QStringList errors = m_log.matching(startFailed);
    QVERIFY2(errors.at(0).contains(u"refused"_s, Qt::CaseInsensitive), qPrintable(errors.at(0)));
    QCOMPARE(errors.at(1), startFailed + u"StringError(mMsg: \"Data is nil\")"_s);
    QVERIFY(!session()->isRunning());
    QVERIFY(!facade()->connected());
}

void tst_Vistrel::replyFillsTheConfiguration_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("storageType");
    QTest::addColumn<QVariant>("chat"); // invalid: absent
    QTest::addColumn<QStringList>("blacklist");
    QTest::addColumn<QStringList>("classes");

    const QJsonObject masked{{u"blacklist"_s, QJsonArray{u"7"_s, u"12"_s}},
                             {u"blacklistClasses"_s, QJsonArray{u"QLineEdit"_s}}};
    QTest::newRow("all given")
        << reply({{u"storageType"_s, u"s"_s}, {u"chatActivated"_s, true}, {u"ios"_s, masked}})
        << u"s"_s << QVariant(true) << QStringList{u"7"_s, u"12"_s} << QStringList{u"QLineEdit"_s};
    QTest::newRow("chat off") << reply({{u"chatActivated"_s, false}}) << u"l"_s << QVariant(false)
                              << QStringList() << QStringList();
    QTest::newRow("optional keys absent")
        << reply({{u"storageType"_s, QJsonValue()}, {u"chatActivated"_s, QJsonValue()}}) << u"l"_s
        << QVariant() << QStringList() << QStringList();
}

void tst_Vistrel::replyFillsTheConfiguration()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, storageType);
    QFETCH(QVariant, chat);
    QFETCH(QStringList, blacklist);
    QFETCH(QStringList, classes);

    // Leftovers of an earlier visit, all to be replaced.
    config().vistrelConfig.storageType = u"stale"_s;
    config().vistrelConfig.iosConfig = IOSConfig{{u"99"_s}, {u"QLabel"_s}};
    config().chatAvailable = true;

    m_service.setMonitoringConfig(reply);
    const QString visitId = startAndWaitForScreenshot();
    QVERIFY(!visitId.isEmpty());
    const ApplicationConfig &app = config();
    QCOMPARE(app.vistrelConfig.storageType.value_or(QString()), storageType);
    QCOMPARE(app.chatAvailable.has_value(), chat.isValid());
    if (chat.isValid())
        QCOMPARE(*app.chatAvailable, chat.toBool());
    QVERIFY(app.vistrelConfig.iosConfig);
    QCOMPARE(app.vistrelConfig.iosConfig->blacklist, blacklist);
    QCOMPARE(app.vistrelConfig.iosConfig->blacklistClasses, classes);
    // The channel is opened with the storage type of this reply.
    const auto gets = channelRequests(m_service, u"GET"_s, visitId);
    QCOMPARE(gets.size(), 1);
    QCOMPARE(gets.first().queryValue(u"fsTy"_s), storageType);
}

void tst_Vistrel::applicationStates_data()
{
    QTest::addColumn<Qt::ApplicationState>("state");
    QTest::addColumn<bool>("background");

    // A desktop platform: an unfocused window is still in front of its user.
    QTest::newRow("inactive") << Qt::ApplicationInactive << false;
    QTest::newRow("hidden") << Qt::ApplicationHidden << true;
    QTest::newRow("suspended") << Qt::ApplicationSuspended << true;
}

void tst_Vistrel::applicationStates()
{
    QFETCH(Qt::ApplicationState, state);
    QFETCH(bool, background);

    QCOMPARE(QGuiApplication::platformName(), u"offscreen"_s);
    QCOMPARE(Vistrel::isBackground(state), background);
    QVERIFY(!startAndWaitForScreenshot().isEmpty());
    setApplicationState(state);
    QCOMPARE(m_log.contains(goesAway), background);
}

void tst_Vistrel::background_data()
{
    QTest::addColumn<int>("awayMs");
    QTest::addColumn<bool>("closes");

    // The grace period is 5 s.
    QTest::newRow("4 s keeps the transport") << 4000 << false;
    QTest::newRow("6 s closes it") << 6000 << true;
}

void tst_Vistrel::background()
{
    QFETCH(int, awayMs);
    QFETCH(bool, closes);

    const QString visitId = startAndWaitForScreenshot();
    QVERIFY(!visitId.isEmpty());
    const VisitConfig before = config().visitConfig;
    const QString shareId = facade()->shareId();
    const auto deletes = [&] { return channelRequests(m_service, u"DELETE"_s, visitId); };

    QElapsedTimer away;
    away.start();
    setApplicationState(Qt::ApplicationSuspended);
    if (closes)
        QVERIFY(m_service.waitFor([&] { return !deletes().isEmpty(); }, awayMs));
    else
        QTest::qWait(awayMs);
    setApplicationState(Qt::ApplicationActive);
    const QDateTime back = QDateTime::currentDateTimeUtc();

    if (!closes) {
        // Reports go on into the same visit, and the grace period passes without a close.
        QVERIFY(m_service.waitForReports(visitId, [&](const QList<Report> &r) {
            return !r.isEmpty() && r.last().receivedAt > back;
        }));
        QTest::qWait(std::max(0, int(5600 - away.elapsed())));
        QVERIFY(deletes().isEmpty());
        QVERIFY(!m_log.contains(u"Timeout; Close sender"_s));
        QCOMPARE(m_service.requests(initPath).size(), 1);
        QCOMPARE(config().visitConfig.visitId.value_or(QString()), visitId);
        return;
    }

    QVERIFY(m_log.contains(u"[DEBUG] Vistrel: Timeout; Close sender"_s));
    QCOMPARE(deletes().first().queryValue(u"sId"_s), *before.sessionId);
    // Back after the close: a new init on a new visit and session of the same visitor.
    QVERIFY(m_service.waitForRequests(initPath, 2));
    const QJsonObject dto =
        QJsonDocument::fromJson(m_service.requests(initPath).at(1).body).object();
    const VisitConfig &now = config().visitConfig;
    QVERIFY(now.visitId && now.visitId != before.visitId);
    QVERIFY(now.sessionId && now.sessionId != before.sessionId);
    QVERIFY(now.visitorId == before.visitorId);
    QCOMPARE(dto.value(u"visitId"_s).toString(), *now.visitId);
    QCOMPARE(dto.value(u"sessionId"_s).toString(), *now.sessionId);
    QCOMPARE(dto.value(u"visitorId"_s).toString(), *before.visitorId);
    QCOMPARE(dto.value(u"initialize"_s), QJsonValue(true));
    QCOMPARE(dto.value(u"shareId"_s).toString(), shareId);

    const auto get = waitForChannel(u"GET"_s, *now.visitId);
    QVERIFY(get);
    QCOMPARE(get->queryValue(u"sId"_s), *now.sessionId);
    QVERIFY(m_service.waitForReports(*now.visitId, 1));
    QVERIFY(session()->isRunning());
}

void tst_Vistrel::callbacks()
{
    int started = 0;
    int stopped = 0;
    bool connectedAtStart = false;
    facade()->registerCallbacks(
        [&] {
            ++started;
            connectedAtStart = facade()->connected();
        },
        [&] { ++stopped; });

    m_service.setMonitoringConfig("not json");
    facade()->start(u"tenant-1"_s, u"token-1"_s);
    QTRY_VERIFY(!session()->isRunning());
    QCOMPARE(started, 0);

    m_service.setMonitoringConfig(LocalService::defaultMonitoringConfig());
    facade()->start();
    QTRY_COMPARE(started, 1);
    QVERIFY(connectedAtStart);
    QCOMPARE(stopped, 0);

    facade()->stop();
    QCOMPARE(stopped, 1);
    facade()->stop(); // already idle
    QCOMPARE(stopped, 1);
    QCOMPARE(started, 1);
}

void tst_Vistrel::tagsReachTheService()
{
    ActiveUser user;
    user.id = u"user-7"_s;
    user.firstname = u"Ada"_s;
    user.lastname = u"Lovelace"_s;
    user.email = u"ada@example.com"_s;
    user.tags = QStringList{u"vip"_s, u"beta"_s};
    user.assignedUser = u"agent-3"_s;
    config().activeUserTag = user;

    const QString visitId = startAndWaitForScreenshot();
    QVERIFY(!visitId.isEmpty());
    facade()->tag(u"x"_s);
    QVERIFY(waitForReport(visitId, isTag));
    // The user's tag went out once with the start; the free tag counts its time from the start.
    QStringList tags;
    for (const Report &report : reportsOf(m_service, visitId)) {
        for (const ProtoUserTag &tag : report.message.usertag())
            tags.append(QString::fromStdString(tag.ShortDebugString()));
        if (isTag(report)) {
            tags.append(QString::fromStdString(report.message.tag()));
            QVERIFY2(report.message.time() < 60000,
                     qPrintable(QString::number(report.message.time())));
        }
    }
    QCOMPARE(tags, (QStringList{uR"(id: "user-7" email: "ada@example.com" firstname: "Ada" )"
                                uR"(lastname: "Lovelace" label: "vip" label: "beta" )"
                                uR"(assignedUser: "agent-3")"_s,
                                u"x"_s}));
    QVERIFY(!m_log.contains(u"Cannot tag session"_s));
    // The user also names the visitor.
    QCOMPARE(channelRequests(m_service, u"GET"_s, visitId).first().queryValue(u"vId"_s),
             u"user-7"_s);
}

QTEST_MAIN(tst_Vistrel)
#include "tst_vistrel.moc"
