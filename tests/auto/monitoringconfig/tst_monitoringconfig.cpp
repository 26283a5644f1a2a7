#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Init/MobileInitDTO.h"
#include "Init/MonitoringConfigDTO.h"
#include "LocalService.h"
#include "TestConfig.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;
using VistrelService::LocalService;

namespace {
constexpr int ReplyTimeoutMs = 60000;

// Every key, in the order the service writes them.
const QByteArray Complete =
    R"({"shouldStartMonitoring":true,"startMonitoringType":"u","htmlExists":true,)"
    R"("ip":"10.1.2.3","ios":{"blacklist":["7","12"],"blacklistClasses":["QLineEdit","Pin"]},)"
    R"("storageType":"s","ignoreIp":false,"disableWebSocket":true,"chatActivated":false})"_ba;
const QByteArray RequiredOnly =
    R"({"shouldStartMonitoring":false,"htmlExists":false,"ip":"::1",)"
    R"("ios":{"blacklist":[],"blacklistClasses":[]},"ignoreIp":true})"_ba;

Json complete()
{
    return Json::parse(Complete.constBegin(), Complete.constEnd());
}

QByteArray with(const char *key, const Json &value)
{
    Json object = complete();
    object[key] = value;
    return JsonUtils::dump(object);
}

QByteArray without(const char *key)
{
    Json object = complete();
    object.erase(key);
    return JsonUtils::dump(object);
}
} // namespace

class tst_MonitoringConfig : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void decode_data();
    void decode();

private:
    LocalService m_service;
};

void tst_MonitoringConfig::initTestCase()
{
    QVERIFY(m_service.start() != 0);
    TestConfig::use(m_service.hostAndPort());
}

void tst_MonitoringConfig::decode_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    // The record re-encoded in the service's key order, or empty when decoding must fail.
    QTest::addColumn<QByteArray>("decoded");
    // For failures: text the error must contain.
    QTest::addColumn<QString>("error");

    QTest::newRow("all keys") << 200 << Complete << Complete << QString();
    QTest::newRow("optional keys missing") << 200 << RequiredOnly << RequiredOnly << QString();
    {
        Json object = Json::parse(RequiredOnly.constBegin(), RequiredOnly.constEnd());
        for (const char *key :
             {"startMonitoringType", "storageType", "disableWebSocket", "chatActivated"})
            object[key] = nullptr;
        QTest::newRow("optional keys null")
            << 200 << JsonUtils::dump(object) << RequiredOnly << QString();
    }
    {
        Json object = Json::object();
        object["extra"] = Json::array({1, 2});
        const Json source = complete();
        for (const auto &[key, value] : source.items())
            object[key] = value;
        QTest::newRow("unknown key") << 200 << JsonUtils::dump(object) << Complete << QString();
    }
    {
        // Rebuilt back to front: the order on the wire does not matter.
        Json object = Json::object();
        const Json source = complete();
        for (auto it = source.rbegin(); it != source.rend(); ++it)
            object[it.key()] = it.value();
        QTest::newRow("keys in another order")
            << 200 << JsonUtils::dump(object) << Complete << QString();
    }
    // The reply's status code is not looked at.
    QTest::newRow("error status with a good body") << 500 << Complete << Complete << QString();

    for (const char *key : {"shouldStartMonitoring", "htmlExists", "ip", "ios", "ignoreIp"}) {
        QTest::addRow("required \"%s\" missing", key)
            << 200 << without(key) << QByteArray() << QString::fromLatin1(key);
    }
    QTest::newRow("required key null") << 200 << with("ip", nullptr) << QByteArray() << u"ip"_s;

    QTest::newRow("boolean as string") << 200 << with("shouldStartMonitoring", "true")
                                       << QByteArray() << u"shouldStartMonitoring"_s;
    QTest::newRow("boolean as number")
        << 200 << with("ignoreIp", 0) << QByteArray() << u"ignoreIp"_s;
    QTest::newRow("string as number") << 200 << with("ip", 127001) << QByteArray() << u"ip"_s;
    QTest::newRow("optional string as number")
        << 200 << with("storageType", 5) << QByteArray() << u"storageType"_s;
    QTest::newRow("optional boolean as string")
        << 200 << with("chatActivated", "yes") << QByteArray() << u"chatActivated"_s;
    QTest::newRow("ios as array") << 200 << with("ios", Json::array()) << QByteArray() << u"ios"_s;
    QTest::newRow("ios without blacklistClasses")
        << 200 << with("ios", Json{{"blacklist", Json::array()}}) << QByteArray()
        << u"blacklistClasses"_s;
    QTest::newRow("ios blacklist with a number")
        << 200 << with("ios", Json{{"blacklist", {"7", 12}}, {"blacklistClasses", Json::array()}})
        << QByteArray() << u"blacklist"_s;
    QTest::newRow("ios blacklistClasses with null")
        << 200
        << with("ios", Json{{"blacklist", Json::array()}, {"blacklistClasses", {"A", nullptr}}})
        << QByteArray() << u"blacklistClasses"_s;
    QTest::newRow("ios blacklist as string")
        << 200 << with("ios", Json{{"blacklist", "7"}, {"blacklistClasses", Json::array()}})
        << QByteArray() << u"blacklist"_s;

    QTest::newRow("not JSON") << 200 << "<html>busy</html>"_ba << QByteArray() << QString();
    QTest::newRow("truncated JSON")
        << 200 << Complete.left(Complete.size() / 2) << QByteArray() << QString();
    QTest::newRow("JSON array") << 200 << QByteArray("[" + Complete + "]") << QByteArray()
                                << QString();
    QTest::newRow("JSON null") << 200 << "null"_ba << QByteArray() << QString();
    QTest::newRow("JSON string") << 200 << R"("ok")"_ba << QByteArray() << QString();
    QTest::newRow("empty body") << 200 << QByteArray() << QByteArray() << u"Data is nil"_s;
    QTest::newRow("invalid UTF-8 in a string")
        << 200 << QByteArray(Complete).replace("10.1.2.3", "10.\xff\xfe.3") << QByteArray()
        << QString();
    QTest::newRow("invalid UTF-8 outside strings")
        << 200 << QByteArray("\xef\xbb" + Complete) << QByteArray() << QString();
    QTest::newRow("deeply nested array")
        << 200 << QByteArray(100000, '[') << QByteArray() << QString();
    QTest::newRow("deeply nested value")
        << 200 << QByteArray(R"({"ios":)" + QByteArray(100000, '{')) << QByteArray() << QString();
    {
        // Several megabytes of class names: decoded in full.
        Json object = complete();
        Json &classes = object["ios"]["blacklistClasses"];
        for (int i = 0; i < 250000; ++i)
            classes.push_back("GeneratedClassName" + std::to_string(i));
        const QByteArray huge = JsonUtils::dump(object);
        QTest::newRow("huge valid body") << 200 << huge << huge << QString();
    }
    {
        const QByteArray hugeIp = with("ip", std::string(4 * 1024 * 1024, 'x'));
        QTest::newRow("huge string value") << 200 << hugeIp << hugeIp << QString();
    }
    QTest::newRow("huge body that is not JSON")
        << 200 << QByteArray(5 * 1024 * 1024, 'x') << QByteArray() << QString();
}

void tst_MonitoringConfig::decode()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, decoded);
    QFETCH(QString, error);

    CannedReply reply;
    reply.status = status;
    reply.body = body;
    m_service.setCannedReply(u"POST"_s, u"/api/in/im/c"_s, reply);
    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http);
    QList<Result<MonitoringConfigDTO>> results;
    api.mobileInit(MobileInitDTO{}, [&results](const Result<MonitoringConfigDTO> &result) {
        results.append(result);
    });
    QTRY_COMPARE_WITH_TIMEOUT(results.size(), 1, ReplyTimeoutMs);

    const Result<MonitoringConfigDTO> &result = results.first();
    if (!decoded.isEmpty()) {
        if (!result.isOk())
            QFAIL(qPrintable(result.error().description()));
        QCOMPARE(JsonUtils::dump(result.value().toJson()), decoded);
        return;
    }
    QVERIFY(!result.isOk());
    const StringError *stringError = result.error().stringError();
    QVERIFY(stringError);
    QVERIFY(!stringError->message().isEmpty());
    if (error == u"Data is nil"_s)
        QCOMPARE(stringError->message(), error);
    else
        QVERIFY2(stringError->message().contains(error, Qt::CaseInsensitive),
                 qPrintable(stringError->message()));
}

QTEST_GUILESS_MAIN(tst_MonitoringConfig)
#include "tst_monitoringconfig.moc"
