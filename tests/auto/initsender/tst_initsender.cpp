#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "TestConfig.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
QString escaped(const std::optional<QString> &text)
{
    return text.value_or(QString()).replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s);
}

// Every key in the service's order; the page is phone-screen.json's screen in points (its pixels
// would be 1081 x 2401).
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
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_service.start() != 0);
        TestConfig::use(m_service.hostAndPort());
        QCOMPARE(QGuiApplication::primaryScreen()->name(), u"Phone"_s);
    }
    void requestBody_data();
    void requestBody();

private:
    VistrelService::LocalService m_service;
    // One sender for every row: it must read the configuration anew at each send.
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http, TestConfig::serviceHost()};
    InitSender m_sender{&m_wrapper, &m_api};
};

void tst_InitSender::requestBody_data()
{
    QTest::addColumn<bool>("inVisit");
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("initialize");
    QTest::newRow("nothing set") << false << QString() << true;
    QTest::newRow("in a visit, text needing escapes") << true << u"Ä/\\b"_s << false;
}

void tst_InitSender::requestBody()
{
    QFETCH(bool, inVisit);
    QFETCH(QString, url);
    QFETCH(bool, initialize);
    ApplicationConfig &config = m_wrapper.config();
    config = ApplicationConfig();
    if (inVisit) {
        m_wrapper.newVisit(std::nullopt);
        config.vistrelConfig.newShareIdAndStartTime();
        config.vistrelConfig.optIn = true;
        config.tenantId = u"ten\"ant"_s;
    }
    m_service.clearRequests();

    QList<Result<MonitoringConfigDTO>> results;
    m_sender.send(url, initialize, [&results](const auto &result) { results.append(result); });
    QTRY_COMPARE_WITH_TIMEOUT(results.size(), 1, 30000);
    // The service's default reply decodes.
    QVERIFY(results.first().isOk() && results.first().value().shouldStartMonitoring);
    const auto requests = m_service.requests(u"/api/in/im/c"_s);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().body, expectedBody(config, url, initialize));
}

QTEST_MAIN(tst_InitSender)
#include "tst_initsender.moc"
