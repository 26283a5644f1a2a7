#include "Api/HealthCheck.h"
#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "ClosedPort.h"
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
constexpr int ReplyTimeoutMs = 30000;
const QString FakeHost = u"assist.example:8443"_s;

enum class Failure { None, ClosedPort, DroppedConnection };

// One word per completion call, so a whole sequence of calls compares at once.
template<class T>
QString outcome(const Result<T> &result)
{
    if (result.isOk())
        return u"ok"_s;
    if (result.error().networkError())
        return u"transport error"_s;
    return result.error().stringError()->message();
}
} // namespace

Q_DECLARE_METATYPE(Failure)
Q_DECLARE_METATYPE(OrvaneAPI::QueryItems)

class tst_OrvaneAPI : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void buildUrl_data();
    void buildUrl();
    void closeXhrQueryRoundTrip();
    void healthCheckUrl_data();
    void healthCheckUrl();
    void completions_data();
    void completions();
    void strings_data();
    void strings();

private:
    void failWith(Failure failure, const QString &method, const QString &path);

    LocalService m_service;
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http};
};

void tst_OrvaneAPI::initTestCase()
{
    QVERIFY(m_service.start() != 0);
}

void tst_OrvaneAPI::init()
{
    m_service.clearRequests();
    m_service.clearCannedReplies();
    TestConfig::use(m_service.hostAndPort());
}

void tst_OrvaneAPI::failWith(Failure failure, const QString &method, const QString &path)
{
    if (failure == Failure::ClosedPort) {
        TestConfig::use(u"127.0.0.1:"_s + QString::number(closedPort()));
    } else if (failure == Failure::DroppedConnection) {
        CannedReply drop;
        drop.dropConnection = true;
        m_service.setCannedReply(method, path, drop);
    }
}

void tst_OrvaneAPI::buildUrl_data()
{
    QTest::addColumn<std::optional<QString>>("httpProtocol");
    QTest::addColumn<QString>("path");
    QTest::addColumn<OrvaneAPI::QueryItems>("query");
    QTest::addColumn<QString>("expected");

    const std::optional<QString> http = u"http"_s;
    const std::optional<QString> https = u"https"_s;
    const std::optional<QString> none;
    QTest::newRow("scheme from the config file")
        << https << u"api/in/im/c"_s << OrvaneAPI::QueryItems{}
        << u"https://assist.example:8443/api/in/im/c"_s;
    QTest::newRow("no HttpProtocol key") << none << u"api/in/im/c"_s << OrvaneAPI::QueryItems{}
                                         << u"://assist.example:8443/api/in/im/c"_s;
    QTest::newRow("no HttpProtocol key, with query")
        << none << u"api/in/i18n"_s << OrvaneAPI::QueryItems{{u"lang"_s, u"en"_s}}
        << u"://assist.example:8443/api/in/i18n?lang=en"_s;
    QTest::newRow("query items in the given order")
        << http << u"api/ix/m"_s
        << OrvaneAPI::QueryItems{{u"id"_s, u"1"_s},  {u"sId"_s, u"S"_s},    {u"tId"_s, u"T"_s},
                                 {u"vId"_s, u"V"_s}, {u"url"_s, u"Main"_s}, {u"fsTy"_s, u"l"_s}}
        << u"http://assist.example:8443/api/ix/m?id=1&sId=S&tId=T&vId=V&url=Main&fsTy=l"_s;
    QTest::newRow("query delimiters in values")
        << http << u"api/in/i18n"_s << OrvaneAPI::QueryItems{{u"lang"_s, u"a b&c=d"_s}}
        << u"http://assist.example:8443/api/in/i18n?lang=a%20b%26c%3Dd"_s;
    QTest::newRow("plus, percent, hash, slash, question mark")
        << http << u"api/in/i18n"_s << OrvaneAPI::QueryItems{{u"url"_s, u"x+y%z#w/v?"_s}}
        << u"http://assist.example:8443/api/in/i18n?url=x%2By%25z%23w%2Fv%3F"_s;
    QTest::newRow("non-ASCII value and key")
        << http << u"api/in/i18n"_s << OrvaneAPI::QueryItems{{u"schlüssel"_s, u"Übersicht"_s}}
        << u"http://assist.example:8443/api/in/i18n?schl%C3%BCssel=%C3%9Cbersicht"_s;
    QTest::newRow("empty value") << http << u"api/ix/m"_s
                                 << OrvaneAPI::QueryItems{{u"url"_s, QString()}}
                                 << u"http://assist.example:8443/api/ix/m?url="_s;
    QTest::newRow("path with an identifier")
        << http << u"rest/v1/customerstatus/tag/byVisitor/ABC-1"_s
        << OrvaneAPI::QueryItems{{u"tId"_s, u"t1"_s}}
        << u"http://assist.example:8443/rest/v1/customerstatus/tag/byVisitor/ABC-1?tId=t1"_s;
}

void tst_OrvaneAPI::buildUrl()
{
    QFETCH(std::optional<QString>, httpProtocol);
    QFETCH(QString, path);
    QFETCH(OrvaneAPI::QueryItems, query);
    QFETCH(QString, expected);

    TestConfig::use(FakeHost, httpProtocol);
    QCOMPARE(m_api.buildUrl(path, query.isEmpty() ? std::nullopt : std::optional(query)), expected);
}

void tst_OrvaneAPI::closeXhrQueryRoundTrip()
{
    // What the service decodes must be exactly what the kit was given.
    const QStringList values{u"conn 1"_s, u"S+1"_s,          u"t&1=2"_s,
                             u"V%41"_s,   u"Über/Sicht?#"_s, u"l"_s};
    QList<QString> outcomes;
    m_api.closeXhr(
        values[0], values[1], values[2], values[3], values[4], values[5],
        [&outcomes](const Result<VoidReply> &result) { outcomes.append(outcome(result)); });
    QTRY_COMPARE_WITH_TIMEOUT(outcomes, QStringList{u"ok"_s}, ReplyTimeoutMs);

    const auto requests = m_service.requests(u"/api/ix/m"_s);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().method, u"DELETE"_s);
    const auto items = requests.first().query.queryItems(QUrl::FullyDecoded);
    QStringList keys;
    QStringList decoded;
    for (const auto &[key, value] : items) {
        keys.append(key);
        decoded.append(value);
    }
    QCOMPARE(keys, (QStringList{u"id"_s, u"sId"_s, u"tId"_s, u"vId"_s, u"url"_s, u"fsTy"_s}));
    QCOMPARE(decoded, values);
}

void tst_OrvaneAPI::healthCheckUrl_data()
{
    QTest::addColumn<std::optional<QString>>("httpProtocol");
    QTest::addColumn<QString>("expected");
    QTest::newRow("http") << std::optional(u"http"_s) << u"http://health.example:81/api/ic/h"_s;
    QTest::newRow("no HttpProtocol key")
        << std::optional<QString>() << u"://health.example:81/api/ic/h"_s;
}

void tst_OrvaneAPI::healthCheckUrl()
{
    QFETCH(std::optional<QString>, httpProtocol);
    QFETCH(QString, expected);

    // The probe follows the configuration's hostname, not the API server.
    TestConfig::use(FakeHost, httpProtocol);
    ApplicationConfigWrapper wrapper;
    wrapper.setHostname(u"health.example:81"_s);
    const HealthCheck check(&wrapper, &m_api);
    QCOMPARE(check.url(), expected);
    QCOMPARE(check.successResponseCode(), 200);
    QCOMPARE(check.retryDelay(), 1.0);
    QVERIFY(!check.isRunning());
}

void tst_OrvaneAPI::completions_data()
{
    QTest::addColumn<bool>("mobileInit");
    QTest::addColumn<Failure>("failure");
    QTest::addColumn<QStringList>("expected");

    // A transport error is reported, and the call then goes on as if nothing had come.
    const QStringList initFailed{u"transport error"_s, u"Data is nil"_s};
    const QStringList closeFailed{u"transport error"_s, u"ok"_s};
    QTest::newRow("mobileInit, closed port") << true << Failure::ClosedPort << initFailed;
    QTest::newRow("mobileInit, connection dropped")
        << true << Failure::DroppedConnection << initFailed;
    QTest::newRow("mobileInit, answered") << true << Failure::None << QStringList{u"ok"_s};
    QTest::newRow("closeXhr, closed port") << false << Failure::ClosedPort << closeFailed;
    QTest::newRow("closeXhr, connection dropped")
        << false << Failure::DroppedConnection << closeFailed;
    QTest::newRow("closeXhr, answered") << false << Failure::None << QStringList{u"ok"_s};
}

void tst_OrvaneAPI::completions()
{
    QFETCH(bool, mobileInit);
    QFETCH(Failure, failure);
    QFETCH(QStringList, expected);

    QStringList outcomes;
    if (mobileInit) {
        failWith(failure, u"POST"_s, u"/api/in/im/c"_s);
        m_api.mobileInit(MobileInitDTO{}, [&outcomes](const Result<MonitoringConfigDTO> &result) {
            outcomes.append(outcome(result));
        });
    } else {
        failWith(failure, u"DELETE"_s, u"/api/ix/m"_s);
        m_api.closeXhr(
            u"1"_s, u"S"_s, u"T"_s, u"V"_s, u"Main"_s, u"l"_s,
            [&outcomes](const Result<VoidReply> &result) { outcomes.append(outcome(result)); });
    }
    // Every call of a completion happens within the one reply handler, so once the count is
    // reached no further call can follow.
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), expected.size(), ReplyTimeoutMs);
    QCOMPARE(outcomes, expected);
}

void tst_OrvaneAPI::strings_data()
{
    QTest::addColumn<Failure>("failure");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("expected");

    const QString notDictionary = u"Cannot use response as dictionary"_s;
    const QString notJson = u"Cannot parse JSON"_s;
    QTest::newRow("object") << Failure::None << 200 << R"({"ui.mobile.error":"Error"})"_ba
                            << u"ok"_s;
    QTest::newRow("nested object")
        << Failure::None << 200 << R"({"ui":{"mobile":{"error":"Error"}},"n":1})"_ba << u"ok"_s;
    QTest::newRow("empty object") << Failure::None << 200 << "{}"_ba << u"ok"_s;
    QTest::newRow("object with error status")
        << Failure::None << 500 << R"({"a":"b"})"_ba << u"ok"_s;
    QTest::newRow("empty array") << Failure::None << 200 << "[]"_ba << notDictionary;
    QTest::newRow("array of objects")
        << Failure::None << 200 << R"([{"a":"b"}])"_ba << notDictionary;
    QTest::newRow("string") << Failure::None << 200 << R"("text")"_ba << notDictionary;
    QTest::newRow("number") << Failure::None << 200 << "42"_ba << notDictionary;
    QTest::newRow("null") << Failure::None << 200 << "null"_ba << notDictionary;
    QTest::newRow("not JSON") << Failure::None << 200 << "<html></html>"_ba << notJson;
    QTest::newRow("truncated JSON") << Failure::None << 200 << R"({"a":)"_ba << notJson;
    QTest::newRow("invalid UTF-8") << Failure::None << 200 << "{\"a\":\"\xff\xfe\"}"_ba << notJson;
    QTest::newRow("deeply nested") << Failure::None << 200 << QByteArray(100000, '[') << notJson;
    QTest::newRow("no body") << Failure::None << 200 << QByteArray() << u"data is nil"_s;
    QTest::newRow("no body, 204") << Failure::None << 204 << QByteArray() << u"data is nil"_s;
    // Transport errors are delivered once, with no follow-up call.
    QTest::newRow("closed port") << Failure::ClosedPort << 200 << QByteArray()
                                 << u"transport error"_s;
    QTest::newRow("connection dropped")
        << Failure::DroppedConnection << 200 << QByteArray() << u"transport error"_s;
}

void tst_OrvaneAPI::strings()
{
    QFETCH(Failure, failure);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, expected);

    CannedReply reply;
    reply.status = status;
    reply.body = body;
    m_service.setCannedReply(u"GET"_s, u"/api/in/i18n"_s, reply);
    failWith(failure, u"GET"_s, u"/api/in/i18n"_s);

    QStringList outcomes;
    std::optional<Json> delivered;
    m_api.strings(u"de"_s, [&](const Result<Json> &result) {
        outcomes.append(outcome(result));
        if (result.isOk())
            delivered = result.value();
    });
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), 1, ReplyTimeoutMs);
    QCOMPARE(outcomes, QStringList{expected});
    if (delivered)
        QCOMPARE(JsonUtils::dump(*delivered), body);
    if (failure != Failure::ClosedPort) {
        // Qt may send a GET again after a dropped connection; the completion still runs once.
        const auto requests = m_service.requests(u"/api/in/i18n"_s);
        QVERIFY(!requests.isEmpty());
        QCOMPARE(requests.first().queryValue(u"lang"_s), u"de"_s);
    }
}

QTEST_GUILESS_MAIN(tst_OrvaneAPI)
#include "tst_orvaneapi.moc"
