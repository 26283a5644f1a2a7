#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "Api/UIStrings.h"
#include "ChildProcess.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "Network/MessageSender.h"
#include "TestConfig.h"

#include <QDateTime>
#include <QGuiApplication>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;

Q_DECLARE_METATYPE(CannedReply)
Q_DECLARE_METATYPE(OrvaneAPI::QueryItems)

namespace {
CannedReply canned(int status, const QByteArray &body)
{
    return {{status, body, "application/json"_ba}, false};
}

// One word per completion call, so a whole sequence of calls compares at once.
QString describe(const std::optional<Error> &error)
{
    return !error ? u"ok"_s : error->networkError() ? u"transport error"_s : error->description();
}

// Every key of the init reply, in the order the service writes them.
const QString Complete =
    uR"({"shouldStartMonitoring":true,"startMonitoringType":"u","htmlExists":true,)"
    uR"("ip":"10.1.2.3","ios":{"blacklist":["7","12"],"blacklistClasses":["QLineEdit","Pin"]},)"
    uR"("storageType":"s","ignoreIp":false,"disableWebSocket":true,"chatActivated":false})"_s;
const QString RequiredOnly = uR"({"shouldStartMonitoring":false,"htmlExists":false,"ip":"::1",)"
                             uR"("ios":{"blacklist":[],"blacklistClasses":[]},"ignoreIp":true})"_s;

// Complete with one key replaced (moved to the end), or removed when value is absent.
CannedReply with(const char *key, const std::optional<Json> &value)
{
    Json object = *JsonUtils::parse(Complete.toUtf8());
    object.erase(key);
    if (value)
        object[key] = *value;
    return canned(200, JsonUtils::dump(object));
}

// Runs in a child process (see initMain) and returns only if nothing stopped it.
void runCase(const QString &name, int &argc, char **argv)
{
    if (name == u"screen size out of range"_s) {
        qputenv("QT_QPA_PLATFORM",
                "offscreen:configfile=" QT_TESTCASE_SOURCEDIR "/broken-screen.json");
        QGuiApplication app(argc, argv);
        InitSender::screenSize();
        return;
    }
    QCoreApplication app(argc, argv);
    ApplicationConfigWrapper wrapper;
    if (name.startsWith(u"URL "_s)) {
        HttpUtil(&wrapper).buildRequest(name.mid(4));
    } else if (name == u"no screen"_s) {
        InitSender::screenSize();
    } else if (name == u"negative report time"_s) {
        MessageSender::pingReport((QDateTime::currentSecsSinceEpoch() + 3600) * 1000);
    }
}
} // namespace

class tst_Api : public QObject
{
    Q_OBJECT
public:
    static void initMain()
    {
        ChildProcess::runCaseAndExit("tst_api", runCase);
        // A phone-sized screen with a fractional pixel ratio, so points and pixels differ.
        qputenv("QT_QPA_PLATFORM",
                "offscreen:configfile=" QT_TESTCASE_SOURCEDIR "/phone-screen.json");
    }

private Q_SLOTS:
    void initTestCase()
    {
        // A visit touches the device identifier.
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_service.start() != 0);
    }
    void init()
    {
        TestConfig::use(m_service.hostAndPort());
        m_service.clearCannedReplies();
        m_service.clearRequests();
        m_wrapper.config() = ApplicationConfig();
        // Long enough for the largest reply under the sanitizers, short enough for a test.
        m_http.setTimeoutMs(5000);
    }
    void request_data();
    void request();
    void cutShort_data();
    void cutShort();
    void buildUrl_data();
    void buildUrl();
    void mobileInit_data();
    void mobileInit();
    void closeXhr();
    void initBody();
    void strings_data();
    void strings();
    void stringsOwnerGone();
    void language_data();
    void language();
    void stopsTheProcess_data();
    void stopsTheProcess();

private:
    VistrelService::LocalService m_service;
    // Shared by every test: each request reads the configuration anew.
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http, TestConfig::serviceHost()};
};

void tst_Api::request_data()
{
    QTest::addColumn<QString>("verb");
    QTest::addColumn<bool>("inVisit");
    QTest::addColumn<CannedReply>("reply");
    // Zero when an HTTP reply must arrive.
    QTest::addColumn<int>("errorCode");
    // Qt files 400 and 407 under other error classes than the other 4xx.
    QTest::newRow("POST before a visit, 400")
        << u"POST"_s << false << canned(400, R"({"error":"bad"})"_ba) << 0;
    QTest::newRow("DELETE in a visit, 404") << u"DELETE"_s << true << canned(404, "none"_ba) << 0;
    QTest::newRow("POST in a visit, 500") << u"POST"_s << true << canned(500, "boom"_ba) << 0;
    QTest::newRow("GET before a visit, 407") << u"GET"_s << false << canned(407, "proxy"_ba) << 0;
    QTest::newRow("DELETE before a visit, 204") << u"DELETE"_s << false << canned(204, {}) << 0;
    QTest::newRow("GET, reply at the size limit")
        << u"GET"_s << true << canned(200, QByteArray(HttpUtil::MaxReplyBytes, 'x')) << 0;
    // Aborted while it downloads, so the client never holds more than the limit.
    QTest::newRow("reply above the size limit")
        << u"GET"_s << false << canned(200, QByteArray(HttpUtil::MaxReplyBytes + 1, 'x'))
        << int(QNetworkReply::OperationCanceledError);
    QTest::newRow("connection dropped") << u"POST"_s << false << CannedReply::dropped()
                                        << int(QNetworkReply::RemoteHostClosedError);
    // Closed cleanly half-way through the announced body: never handed on as a reply.
    QTest::newRow("body cut short")
        << u"GET"_s << true
        << CannedReply::delivered(CannedReply::Delivery::CutShort, QByteArray(4000, 'x'))
        << int(QNetworkReply::RemoteHostClosedError);
    // Never silent for long, so only a deadline from the start ends it.
    QTest::newRow("reply trickles")
        << u"POST"_s << false
        << CannedReply::delivered(CannedReply::Delivery::Trickle, QByteArray(100, 'x'))
        << int(QNetworkReply::TimeoutError);
}

void tst_Api::cutShort_data()
{
    QTest::addColumn<QByteArray>("headers"); // name:value pairs, one per line
    QTest::addColumn<qsizetype>("bodySize");
    QTest::addColumn<bool>("cutShort");
    QTest::newRow("whole") << "Content-Length: 10"_ba << qsizetype(10) << false;
    QTest::newRow("short") << "content-length: 10"_ba << qsizetype(9) << true;
    QTest::newRow("no length") << "Content-Type: text/plain"_ba << qsizetype(0) << false;
    // Qt hands over the decoded body, whose size has nothing to do with the announced one.
    QTest::newRow("gzip") << "Content-Length: 10\nContent-Encoding: gzip"_ba << qsizetype(5)
                          << false;
}

void tst_Api::cutShort()
{
    QFETCH(QByteArray, headers);
    QFETCH(qsizetype, bodySize);
    QFETCH(bool, cutShort);
    QList<QPair<QByteArray, QByteArray>> pairs;
    for (const QByteArray &line : headers.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        pairs.append({line.left(colon), line.mid(colon + 1)});
    }
    QCOMPARE(HttpUtil::isCutShort(pairs, bodySize), cutShort);
}

void tst_Api::request()
{
    QFETCH(QString, verb);
    QFETCH(bool, inVisit);
    QFETCH(CannedReply, reply);
    QFETCH(int, errorCode);
    m_service.setCannedReply(verb, u"/status"_s, reply);
    if (inVisit)
        m_wrapper.newVisit(std::nullopt);
    const QString target = u"http://"_s + m_service.hostAndPort() + u"/status?x=1"_s;
    const QByteArray sent = R"({"key":"välue"})"_ba;
    int calls = 0;
    std::optional<QByteArray> body;
    std::optional<HttpResponse> response;
    std::optional<NetworkError> error;
    auto completion = [&](const auto &b, const auto &r, const auto &e) {
        ++calls, body = b, response = r, error = e;
    };
    if (verb == u"POST"_s)
        m_http.post(target, sent, completion);
    else if (verb == u"GET"_s)
        m_http.get(target, completion);
    else
        m_http.deleteResource(target, completion);
    // Further calls could only come from the same reply handler, so none can follow.
    QTRY_VERIFY_WITH_TIMEOUT(calls > 0, 30000);
    QCOMPARE(calls, 1);
    QCOMPARE(error ? int(error->code()) : 0, errorCode);
    // An error status is a reply like any other; an empty body counts as none.
    QCOMPARE(response ? response->statusCode : 0, errorCode ? 0 : reply.status);
    QVERIFY(body == (errorCode || reply.body.isEmpty() ? std::nullopt : std::optional(reply.body)));
    if (errorCode)
        return;
    const auto requests = m_service.requests(u"/status"_s);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().method + u' ' + requests.first().query.toString(), verb + u" x=1"_s);
    // Sent before a visit too, then empty.
    QVERIFY(requests.first().hasHeader("X-OV-SSID"_ba));
    QCOMPARE(requests.first().header("X-OV-SSID"_ba),
             m_wrapper.config().visitConfig.sessionId.value_or(QString()).toUtf8());
    const bool post = verb == u"POST"_s;
    QCOMPARE(requests.first().header("Content-Type"_ba), post ? "application/json"_ba : ""_ba);
    QCOMPARE(requests.first().body, post ? sent : QByteArray());
}

void tst_Api::buildUrl_data()
{
    QTest::addColumn<std::optional<QString>>("httpProtocol");
    QTest::addColumn<OrvaneAPI::QueryItems>("query");
    QTest::addColumn<QString>("expected");
    const QString base = u"://assist.example:8443/api/x"_s;
    QTest::newRow("no HttpProtocol key")
        << std::optional<QString>() << OrvaneAPI::QueryItems{{u"lang"_s, u"en"_s}}
        << base + u"?lang=en"_s;
    QTest::newRow("delimiters in values")
        << std::optional(u"https"_s) << OrvaneAPI::QueryItems{{u"a"_s, u"b c&d=e+f%g#h/i?"_s}}
        << u"https"_s + base + u"?a=b%20c%26d%3De%2Bf%25g%23h%2Fi%3F"_s;
    QTest::newRow("non-ASCII key and value")
        << std::optional(u"http"_s) << OrvaneAPI::QueryItems{{u"schlüssel"_s, u"Über"_s}}
        << u"http"_s + base + u"?schl%C3%BCssel=%C3%9Cber"_s;
    // A null value once dropped the "=".
    QTest::newRow("null value") << std::optional(u"http"_s)
                                << OrvaneAPI::QueryItems{{u"url"_s, QString()}, {u"b"_s, u""_s}}
                                << u"http"_s + base + u"?url=&b="_s;
}

void tst_Api::buildUrl()
{
    QFETCH(std::optional<QString>, httpProtocol);
    QFETCH(OrvaneAPI::QueryItems, query);
    QFETCH(QString, expected);
    TestConfig::use(u"assist.example:8443"_s, httpProtocol);
    QCOMPARE(m_api.buildUrl(u"api/x"_s, query), expected);
}

void tst_Api::mobileInit_data()
{
    QTest::addColumn<CannedReply>("reply");
    // The completion calls, joined by " + ": the record re-encoded in the service's key order,
    // or text its error contains (a missing or mistyped key is named).
    QTest::addColumn<QString>("expected");
    // The status code is not looked at.
    QTest::newRow("all keys, status 500") << canned(500, Complete.toUtf8()) << Complete;
    QTest::newRow("optional keys missing") << canned(200, RequiredOnly.toUtf8()) << RequiredOnly;
    QTest::newRow("optional keys null")
        << canned(200,
                  R"({"shouldStartMonitoring":false,"startMonitoringType":null,)"
                  R"("htmlExists":false,"ip":"::1","ios":{"blacklist":[],"blacklistClasses":[]},)"
                  R"("storageType":null,"ignoreIp":true,"disableWebSocket":null})"_ba)
        << RequiredOnly;
    for (const char *key : {"shouldStartMonitoring", "htmlExists", "ip", "ios", "ignoreIp"})
        QTest::addRow("required \"%s\" missing", key)
            << with(key, std::nullopt) << u"missing key \"%1\""_s.arg(QLatin1StringView(key));
    QTest::newRow("boolean as string")
        << with("shouldStartMonitoring", "true") << u"\"shouldStartMonitoring\" is not a boolean"_s;
    QTest::newRow("optional string as number")
        << with("storageType", 5) << u"\"storageType\" is not a string"_s;
    QTest::newRow("ios as array") << with("ios", Json::array()) << u"IOSConfig: not an object"_s;
    QTest::newRow("ios without blacklistClasses")
        << with("ios", Json{{"blacklist", Json::array()}}) << u"\"blacklistClasses\" must be"_s;
    QTest::newRow("ios blacklist with a number")
        << with("ios", Json{{"blacklist", {"7", 12}}, {"blacklistClasses", Json::array()}})
        << u"\"blacklist\" must be"_s;
    // The parser's reason follows the record's name.
    QTest::newRow("not JSON") << canned(200, "<html>busy</html>"_ba)
                              << u"MonitoringConfigDTO: [json.exception"_s;
    // A transport error is reported, and the call then goes on as if nothing had come.
    QTest::newRow("connection dropped")
        << CannedReply::dropped() << u"transport error + StringError(mMsg: \"Data is nil\")"_s;
}

void tst_Api::mobileInit()
{
    QFETCH(CannedReply, reply);
    QFETCH(QString, expected);
    m_service.setCannedReply(u"POST"_s, u"/api/in/im/c"_s, reply);
    QStringList outcomes;
    m_api.mobileInit(MobileInitDTO{}, [&outcomes](const Result<MonitoringConfigDTO> &result) {
        outcomes << (result.isOk() ? JsonUtils::dumpText(result.value().toJson())
                                   : describe(result.error()));
    });
    // Every call happens within the one reply handler: none can follow once one came.
    QTRY_VERIFY_WITH_TIMEOUT(!outcomes.isEmpty(), 30000);
    QCOMPARE(outcomes.size(), expected.count(u" + "_s) + 1);
    QVERIFY2(outcomes.join(u" + "_s).contains(expected), qPrintable(outcomes.join(u" + "_s)));
}

void tst_Api::closeXhr()
{
    QStringList outcomes;
    const auto close = [this, &outcomes] {
        m_api.closeXhr(
            u"1"_s, u"S"_s, u"T"_s, u"V"_s, u"Main"_s, u"l"_s,
            [&outcomes](const auto &r) { outcomes << (r.isOk() ? u"ok"_s : describe(r.error())); });
    };
    close();
    QTRY_VERIFY_WITH_TIMEOUT(!outcomes.isEmpty(), 30000);
    // Each argument under its own key, in this order.
    const auto requests = m_service.requests(u"/api/ix/m"_s);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().method + u' ' + requests.first().query.toString(),
             u"DELETE id=1&sId=S&tId=T&vId=V&url=Main&fsTy=l"_s);
    // A transport error is reported, and success follows all the same.
    m_service.setCannedReply(u"DELETE"_s, u"/api/ix/m"_s, CannedReply::dropped());
    close();
    QTRY_COMPARE_WITH_TIMEOUT(outcomes, (QStringList{u"ok"_s, u"transport error"_s, u"ok"_s}),
                              30000);
}

void tst_Api::initBody()
{
    ApplicationConfig &config = m_wrapper.config();
    config.visitConfig = {u"vis\"itor"_s, u"V"_s, u"S"_s, std::nullopt};
    config.vistrelConfig.shareId = u"12345"_s;
    config.vistrelConfig.startTime = 1700000000000;
    config.vistrelConfig.optIn = true;
    config.tenantId = u"T"_s;
    InitSender(&m_wrapper, &m_api).send(u"Ä/\\b"_s, true, [](const auto &) {});
    QVERIFY(m_service.waitForRequests(u"/api/in/im/c"_s, 1, 30000));
    const auto requests = m_service.requests(u"/api/in/im/c"_s);
    // Every key in the service's order; the page is the screen in points, not its pixels.
    QCOMPARE(
        requests.first().body,
        R"({"shareId":"12345","redirectId":"","url":"Ä/\\b","start":1700000000000,)"
        R"("initialize":true,"page":{"width":412,"height":915,"docHeight":0,"docWidth":0},)"
        R"("visitorId":"vis\"itor","sessionId":"S","visitId":"V","tenantId":"T","optIn":true})"_ba);

    // Absent values still go out, as empty, zero or false.
    m_wrapper.config() = ApplicationConfig();
    InitSender(&m_wrapper, &m_api).send(QString(), false, [](const auto &) {});
    QVERIFY(m_service.waitForRequests(u"/api/in/im/c"_s, 2, 30000));
    QCOMPARE(m_service.requests(u"/api/in/im/c"_s).last().body,
             R"({"shareId":"","redirectId":"","url":"","start":0,"initialize":false,)"
             R"("page":{"width":412,"height":915,"docHeight":0,"docWidth":0},)"
             R"("visitorId":"","sessionId":"","visitId":"","tenantId":"","optIn":false})"_ba);
}

void tst_Api::strings_data()
{
    QTest::addColumn<CannedReply>("reply");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("another table") << canned(200, R"({"other":"Other"})"_ba) << u"ok"_s;
    QTest::newRow("array") << canned(200, "[]"_ba)
                           << u"StringError(mMsg: \"Cannot use response as dictionary\")"_s;
    QTest::newRow("connection dropped") << CannedReply::dropped() << u"transport error"_s;
}

void tst_Api::strings()
{
    QFETCH(CannedReply, reply);
    QFETCH(QString, outcome);
    m_service.setStrings(R"({"ui":{"mobile":{"connecting":"Connecting…","count":3}},)"
                         R"("ui.flat":"Flat"})"_ba);
    UIStrings strings(&m_api);
    const auto load = [&strings](const QString &language) {
        QStringList outcomes;
        strings.load(language, [&outcomes](const auto &error) { outcomes << describe(error); });
        const bool came = QTest::qWaitFor([&outcomes] { return !outcomes.isEmpty(); }, 30000);
        return came ? outcomes.join(u" + "_s) : u"no completion"_s;
    };
    const QStringList keys{u"ui.mobile.connecting"_s, u"ui.flat"_s, u"ui.mobile.count"_s,
                           u"other"_s};
    const auto values = [&strings, &keys] {
        QStringList values;
        for (const QString &key : keys)
            values << strings.get(key);
        return values;
    };
    QCOMPARE(values(), keys);
    QCOMPARE(load(u"en"_s), u"ok"_s);
    // Nested objects become dotted keys; what is not a string yields the key itself.
    const QStringList first{u"Connecting…"_s, u"Flat"_s, u"ui.mobile.count"_s, u"other"_s};
    QCOMPARE(values(), first);
    m_service.setCannedReply(u"GET"_s, u"/api/in/i18n"_s, reply);
    QCOMPARE(load(u"de"_s), outcome);
    // A failed load keeps the table it had.
    QCOMPARE(values(), outcome == u"ok"_s ? QStringList{keys.first(3) << u"Other"_s} : first);
    // Qt may send a GET again after a dropped connection.
    QCOMPARE(m_service.requests(u"/api/in/i18n"_s).last().queryValue(u"lang"_s), u"de"_s);
}

void tst_Api::stringsOwnerGone()
{
    bool completed = false;
    auto strings = std::make_unique<UIStrings>(&m_api);
    strings->load(u"en"_s, [&completed](const std::optional<Error> &) { completed = true; });
    strings.reset();
    QTRY_VERIFY_WITH_TIMEOUT(completed, 30000);
}

void tst_Api::language_data()
{
    QTest::addColumn<QStringList>("uiLanguages");
    QTest::addColumn<QString>("expected");
    // The C/POSIX locale names no language, so the default is asked for.
    QTest::newRow("C") << QStringList{u"C"_s} << u"en"_s;
    QTest::newRow("POSIX") << QStringList{u"POSIX"_s} << u"en"_s;
    QTest::newRow("none") << QStringList() << u"en"_s;
    QTest::newRow("region dropped") << QStringList{u"de-CH"_s, u"en"_s} << u"de"_s;
    QTest::newRow("script and region dropped") << QStringList{u"zh-Hans-CN"_s} << u"zh"_s;
}

void tst_Api::language()
{
    QFETCH(QStringList, uiLanguages);
    QFETCH(QString, expected);
    QCOMPARE(UIStrings::languageFor(uiLanguages, u"en"_s), expected);
}

void tst_Api::stopsTheProcess_data()
{
    QTest::addColumn<QByteArray>("message");
    // Unparsable, and without a scheme as OrvaneAPI builds it when there is no HttpProtocol key.
    QTest::newRow("URL http://exa mple.com/api") << "Cannot build a request for the URL"_ba;
    QTest::newRow("URL ://127.0.0.1:1/api") << "Cannot build a request for the URL"_ba;
    QTest::newRow("screen size out of range") << "Screen size out of range: -4x800"_ba;
    QTest::newRow("no screen") << "Cannot read the screen size"_ba;
    // The ping report's, kept here with the other cases that need a process of their own.
    QTest::newRow("negative report time") << "Report time is negative"_ba;
}

void tst_Api::stopsTheProcess()
{
    QFETCH(QByteArray, message);
    const auto outcome = ChildProcess::run(QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY2(outcome.crashed() && outcome.standardError.contains(message),
             outcome.standardError.constData());
}

QTEST_MAIN(tst_Api)
#include "tst_api.moc"
