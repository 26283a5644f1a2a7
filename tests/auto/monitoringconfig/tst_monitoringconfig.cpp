#include "Api/HttpUtil.h"
#include "Api/MobileInitDTO.h"
#include "Api/MonitoringConfigDTO.h"
#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "TestConfig.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
// Every key, in the order the service writes them.
const QByteArray Complete =
    R"({"shouldStartMonitoring":true,"startMonitoringType":"u","htmlExists":true,)"
    R"("ip":"10.1.2.3","ios":{"blacklist":["7","12"],"blacklistClasses":["QLineEdit","Pin"]},)"
    R"("storageType":"s","ignoreIp":false,"disableWebSocket":true,"chatActivated":false})"_ba;
const QByteArray RequiredOnly =
    R"({"shouldStartMonitoring":false,"htmlExists":false,"ip":"::1",)"
    R"("ios":{"blacklist":[],"blacklistClasses":[]},"ignoreIp":true})"_ba;

// Complete with one key replaced, or removed when value is absent.
QByteArray with(const char *key, const std::optional<Json> &value)
{
    Json object = Json::parse(Complete.constBegin(), Complete.constEnd());
    if (value)
        object[key] = *value;
    else
        object.erase(key);
    return JsonUtils::dump(object);
}
} // namespace

class tst_MonitoringConfig : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_service.start() != 0);
        TestConfig::use(m_service.hostAndPort());
    }
    void decode_data();
    void decode();

private:
    VistrelService::LocalService m_service;
};

void tst_MonitoringConfig::decode_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    // The record re-encoded in the service's key order, or empty when decoding must fail.
    QTest::addColumn<QByteArray>("decoded");
    // For failures: text the error must contain (a missing or mistyped key is named).
    QTest::addColumn<QString>("error");

    QTest::newRow("all keys") << 200 << Complete << Complete << QString();
    QTest::newRow("optional keys missing") << 200 << RequiredOnly << RequiredOnly << QString();
    Json nulls = Json::parse(RequiredOnly.constBegin(), RequiredOnly.constEnd());
    for (const char *key : {"startMonitoringType", "storageType", "disableWebSocket"})
        nulls[key] = nullptr;
    QTest::newRow("optional keys null")
        << 200 << JsonUtils::dump(nulls) << RequiredOnly << QString();
    // The status code is not looked at.
    QTest::newRow("error status") << 500 << Complete << Complete << QString();

    for (const char *key : {"shouldStartMonitoring", "htmlExists", "ip", "ios", "ignoreIp"})
        QTest::addRow("required \"%s\" missing", key)
            << 200 << with(key, std::nullopt) << QByteArray() << QString::fromLatin1(key);
    QTest::newRow("required key null") << 200 << with("ip", nullptr) << QByteArray() << u"ip"_s;
    QTest::newRow("boolean as string") << 200 << with("shouldStartMonitoring", "true")
                                       << QByteArray() << u"shouldStartMonitoring"_s;
    QTest::newRow("optional string as number")
        << 200 << with("storageType", 5) << QByteArray() << u"storageType"_s;
    QTest::newRow("ios as array") << 200 << with("ios", Json::array()) << QByteArray()
                                  << u"IOSConfig: not an object"_s;
    QTest::newRow("ios without blacklistClasses")
        << 200 << with("ios", Json{{"blacklist", Json::array()}}) << QByteArray()
        << u"blacklistClasses"_s;
    QTest::newRow("ios blacklist with a number")
        << 200 << with("ios", Json{{"blacklist", {"7", 12}}, {"blacklistClasses", Json::array()}})
        << QByteArray() << u"blacklist"_s;

    const QString undecodable = u"Cannot decode MonitoringConfigDTO: "_s;
    QTest::newRow("not JSON") << 200 << "<html>busy</html>"_ba << QByteArray() << undecodable;
    QTest::newRow("JSON array") << 200 << QByteArray("[" + Complete + "]") << QByteArray()
                                << undecodable + u"not a JSON object"_s;
    QTest::newRow("empty body") << 200 << QByteArray() << QByteArray() << u"Data is nil"_s;
    QTest::newRow("invalid UTF-8")
        << 200 << QByteArray(Complete).replace("10.1.2.3", "10.\xff\xfe.3") << QByteArray()
        << undecodable;
    QTest::newRow("deeply nested") << 200 << QByteArray(100000, '[') << QByteArray() << undecodable;
    // Several megabytes of class names: decoded in full.
    Json classes = Json::array();
    for (int i = 0; i < 250000; ++i)
        classes.push_back("GeneratedClassName" + std::to_string(i));
    const QByteArray huge =
        with("ios", Json{{"blacklist", Json::array()}, {"blacklistClasses", classes}});
    QTest::newRow("very large") << 200 << huge << huge << QString();
}

void tst_MonitoringConfig::decode()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, decoded);
    QFETCH(QString, error);

    VistrelService::CannedReply reply;
    reply.status = status;
    reply.body = body;
    m_service.setCannedReply(u"POST"_s, u"/api/in/im/c"_s, reply);
    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http, TestConfig::serviceHost());
    QList<Result<MonitoringConfigDTO>> results;
    api.mobileInit(MobileInitDTO{}, [&results](const auto &result) { results.append(result); });
    QTRY_COMPARE_WITH_TIMEOUT(results.size(), 1, 60000);

    const Result<MonitoringConfigDTO> &result = results.first();
    if (!decoded.isEmpty()) {
        QVERIFY2(result.isOk(),
                 qPrintable(result.isOk() ? QString() : result.error().description()));
        QCOMPARE(JsonUtils::dump(result.value().toJson()), decoded);
        return;
    }
    QVERIFY(!result.isOk() && result.error().stringError());
    const QString message = result.error().stringError()->message();
    QVERIFY2(message.contains(error), qPrintable(message));
}

QTEST_GUILESS_MAIN(tst_MonitoringConfig)
#include "tst_monitoringconfig.moc"
