#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Init/InitSender.h"
#include "LocalService.h"
#include "TestConfig.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::LocalService;
using VistrelService::RecordedRequest;

namespace {
constexpr int ReplyTimeoutMs = 30000;

// Enough JSON string escaping for the texts used here.
QString escaped(const std::optional<QString> &text)
{
    return text.value_or(QString()).replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s);
}

// The body with every key in the service's order; the page is the phone screen of
// phone-screen.json, in points (its pixels would be 1081 x 2401).
QByteArray expectedBody(const ApplicationConfig &config, const QString &url, bool initialize)
{
    const VisitConfig &visit = config.visitConfig;
    const VistrelConfig &vistrel = config.vistrelConfig;
    return uR"({"shareId":"%1","redirectId":"","url":"%2","start":%3,"initialize":%4,)"
           uR"("page":{"width":412,"height":915,"docHeight":0,"docWidth":0},)"
           uR"("visitorId":"%5","sessionId":"%6","visitId":"%7","tenantId":"%8","optIn":%9})"_s
               .arg(escaped(vistrel.shareId), escaped(url),
                    QString::number(vistrel.startTime.value_or(0)),
                    initialize ? u"true"_s : u"false"_s, escaped(visit.visitorId),
                    escaped(visit.sessionId), escaped(visit.visitId), escaped(config.tenantId),
                    vistrel.optIn.value_or(false) ? u"true"_s : u"false"_s)
               .toUtf8();
}
} // namespace

class tst_InitSender : public QObject
{
    Q_OBJECT
public:
    static void initMain()
    {
        // A phone-sized screen with a fractional pixel ratio, so points and pixels differ.
        qputenv("QT_QPA_PLATFORM",
                "offscreen:configfile=" QT_TESTCASE_SOURCEDIR "/phone-screen.json");
    }

private Q_SLOTS:
    void initTestCase();
    void init();
    void requestBody_data();
    void requestBody();
    void readsTheLiveConfiguration();

private:
    RecordedRequest sendAndRecord(InitSender &sender, const QString &url, bool initialize);

    LocalService m_service;
};

void tst_InitSender::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_service.start() != 0);
    TestConfig::use(m_service.hostAndPort());
    QCOMPARE(QGuiApplication::primaryScreen()->name(), u"Phone"_s);
}

void tst_InitSender::init()
{
    m_service.clearRequests();
}

RecordedRequest tst_InitSender::sendAndRecord(InitSender &sender, const QString &url,
                                              bool initialize)
{
    QList<Result<MonitoringConfigDTO>> results;
    sender.send(url, initialize,
                [&results](const Result<MonitoringConfigDTO> &result) { results.append(result); });
    if (!QTest::qWaitFor([&results] { return !results.isEmpty(); }, ReplyTimeoutMs)) {
        QTest::qFail("The init request got no reply", __FILE__, __LINE__);
        return {};
    }
    // The service's default reply decodes.
    if (!results.first().isOk() || !results.first().value().shouldStartMonitoring) {
        QTest::qFail("The init reply did not decode", __FILE__, __LINE__);
        return {};
    }
    const auto requests = m_service.requests(u"/api/in/im/c"_s);
    return requests.isEmpty() ? RecordedRequest() : requests.last();
}

void tst_InitSender::requestBody_data()
{
    QTest::addColumn<bool>("visit");
    QTest::addColumn<std::optional<QString>>("tenantId");
    QTest::addColumn<std::optional<bool>>("optIn");
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("initialize");

    QTest::newRow("nothing set") << false << std::optional<QString>() << std::optional<bool>()
                                 << QString() << true;
    QTest::newRow("in a visit, opted in")
        << true << std::optional(u"tenant-1"_s) << std::optional(true) << u"LoginForm"_s << true;
    QTest::newRow("in a visit, opt-in refused")
        << true << std::optional(u"tenant-1"_s) << std::optional(false) << u"ListView"_s << false;
    QTest::newRow("text needing escapes")
        << true << std::optional(u"ten\"ant"_s) << std::optional<bool>() << u"Ä/\\b"_s << true;
}

void tst_InitSender::requestBody()
{
    QFETCH(bool, visit);
    QFETCH(std::optional<QString>, tenantId);
    QFETCH(std::optional<bool>, optIn);
    QFETCH(QString, url);
    QFETCH(bool, initialize);

    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http);
    InitSender sender(&wrapper, &api);
    ApplicationConfig &config = wrapper.config();
    if (visit) {
        wrapper.newVisit(std::nullopt);
        config.vistrelConfig.newShareIdAndStartTime();
    }
    config.tenantId = tenantId;
    config.vistrelConfig.optIn = optIn;

    const RecordedRequest request = sendAndRecord(sender, url, initialize);
    QCOMPARE(request.method, u"POST"_s);
    QCOMPARE(request.header("Content-Type"_ba), "application/json"_ba);
    QCOMPARE(request.header("X-OV-SSID"_ba),
             config.visitConfig.sessionId.value_or(QString()).toUtf8());
    QCOMPARE(request.body, expectedBody(config, url, initialize));
}

void tst_InitSender::readsTheLiveConfiguration()
{
    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http);
    InitSender sender(&wrapper, &api);
    ApplicationConfig &config = wrapper.config();
    wrapper.newVisit(std::nullopt);
    config.vistrelConfig.newShareIdAndStartTime();
    QCOMPARE(sendAndRecord(sender, u"A"_s, true).body, expectedBody(config, u"A"_s, true));

    // Nothing is kept from the first request.
    wrapper.newVisit(u"other-session"_s);
    config.vistrelConfig.shareId = u"54321"_s;
    config.vistrelConfig.optIn = true;
    config.tenantId = u"tenant-2"_s;
    QCOMPARE(sendAndRecord(sender, u"B"_s, true).body, expectedBody(config, u"B"_s, true));
}

QTEST_MAIN(tst_InitSender)
#include "tst_initsender.moc"
