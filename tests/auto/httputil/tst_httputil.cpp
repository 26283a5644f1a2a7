#include "Api/HttpUtil.h"
#include "ClosedPort.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "LogCapture.h"

#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;
using VistrelService::LocalService;
using VistrelService::RecordedRequest;

namespace {
constexpr int ReplyTimeoutMs = 30000;

struct Delivery
{
    std::optional<QByteArray> body;
    std::optional<HttpResponse> response;
    std::optional<NetworkError> error;
};

void send(HttpUtil &http, const QString &verb, const QString &url, const QByteArray &body,
          QList<Delivery> &deliveries)
{
    auto completion = [&deliveries](const std::optional<QByteArray> &replyBody,
                                    const std::optional<HttpResponse> &response,
                                    const std::optional<NetworkError> &error) {
        deliveries.append({replyBody, response, error});
    };
    if (verb == u"POST"_s)
        http.post(url, body, completion);
    else if (verb == u"GET"_s)
        http.get(url, completion);
    else
        http.deleteResource(url, completion);
}
} // namespace

class tst_HttpUtil : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void requestHeaders_data();
    void requestHeaders();
    void requestTimeout();
    void errorStatusIsAReply_data();
    void errorStatusIsAReply();
    void transportError_data();
    void transportError();

private:
    QString url(const QString &pathAndQuery) const
    {
        return u"http://"_s + m_service.hostAndPort() + pathAndQuery;
    }

    LocalService m_service;
};

void tst_HttpUtil::initTestCase()
{
    // newVisit() touches the device identifier.
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_service.start() != 0);
}

void tst_HttpUtil::init()
{
    m_service.clearRequests();
    m_service.clearCannedReplies();
}

void tst_HttpUtil::requestHeaders_data()
{
    QTest::addColumn<QString>("verb");
    QTest::addColumn<bool>("inVisit");
    QTest::addColumn<bool>("jsonContentType");
    for (const bool inVisit : {false, true}) {
        const char *when = inVisit ? "in a visit" : "before a visit";
        QTest::addRow("POST %s", when) << u"POST"_s << inVisit << true;
        QTest::addRow("GET %s", when) << u"GET"_s << inVisit << false;
        QTest::addRow("DELETE %s", when) << u"DELETE"_s << inVisit << false;
    }
}

void tst_HttpUtil::requestHeaders()
{
    QFETCH(QString, verb);
    QFETCH(bool, inVisit);
    QFETCH(bool, jsonContentType);

    ApplicationConfigWrapper wrapper;
    if (inVisit)
        wrapper.newVisit(std::nullopt);
    HttpUtil http(&wrapper);
    const QString target = url(u"/echo/path?x=1"_s);
    const QByteArray body = R"({"key":"välue"})"_ba;

    LogCapture log;
    QList<Delivery> deliveries;
    send(http, verb, target, body, deliveries);
    QTRY_COMPARE_WITH_TIMEOUT(deliveries.size(), 1, ReplyTimeoutMs);

    QCOMPARE(log.lines(), QStringList{u"[DEBUG] HttpUtil: "_s + verb + u' ' + target});
    const QList<RecordedRequest> requests = m_service.requests(u"/echo/path"_s);
    QCOMPARE(requests.size(), 1);
    const RecordedRequest &request = requests.first();
    QCOMPARE(request.method, verb);
    QCOMPARE(request.queryValue(u"x"_s), u"1"_s);
    // The session header is always sent, empty while there is no session.
    QVERIFY(request.hasHeader("X-OV-SSID"_ba));
    const QString sessionId = wrapper.config().visitConfig.sessionId.value_or(QString());
    QCOMPARE(sessionId.isEmpty(), !inVisit);
    QCOMPARE(request.header("X-OV-SSID"_ba), sessionId.toUtf8());
    QCOMPARE(request.hasHeader("Content-Type"_ba), jsonContentType);
    if (jsonContentType) {
        QCOMPARE(request.header("Content-Type"_ba), "application/json"_ba);
        QCOMPARE(request.body, body);
    }
}

void tst_HttpUtil::requestTimeout()
{
    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    const QNetworkRequest request = http.buildRequest(url(u"/a"_s));
    QCOMPARE(request.transferTimeout(), 60000);
    QCOMPARE(request.url(), QUrl(url(u"/a"_s)));
}

void tst_HttpUtil::errorStatusIsAReply_data()
{
    QTest::addColumn<QString>("verb");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("500 with body") << u"POST"_s << 500 << R"({"error":"boom"})"_ba;
    QTest::newRow("503 with body") << u"GET"_s << 503 << "busy"_ba;
    QTest::newRow("400 with body") << u"POST"_s << 400 << R"({"error":"bad"})"_ba;
    QTest::newRow("401 with body") << u"GET"_s << 401 << "who?"_ba;
    QTest::newRow("404 with body") << u"DELETE"_s << 404 << R"({"error":"none"})"_ba;
    QTest::newRow("418 with body") << u"GET"_s << 418 << "teapot"_ba;
    QTest::newRow("200 with body") << u"GET"_s << 200 << "{}"_ba;
    QTest::newRow("204 without body") << u"DELETE"_s << 204 << QByteArray();
    QTest::newRow("500 without body") << u"POST"_s << 500 << QByteArray();
}

void tst_HttpUtil::errorStatusIsAReply()
{
    QFETCH(QString, verb);
    QFETCH(int, status);
    QFETCH(QByteArray, body);

    CannedReply canned;
    canned.status = status;
    canned.body = body;
    canned.contentType = "text/x-test"_ba;
    m_service.setCannedReply(verb, u"/status"_s, canned);
    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    QList<Delivery> deliveries;
    send(http, verb, url(u"/status"_s), "{}"_ba, deliveries);
    QTRY_COMPARE_WITH_TIMEOUT(deliveries.size(), 1, ReplyTimeoutMs);

    const Delivery &delivery = deliveries.first();
    QVERIFY2(!delivery.error, qPrintable(delivery.error ? delivery.error->description() : u""_s));
    QVERIFY(delivery.response);
    QCOMPARE(delivery.response->statusCode, status);
    QCOMPARE(delivery.response->header("content-type"_ba), "text/x-test"_ba);
    QCOMPARE(delivery.body.has_value(), !body.isEmpty());
    if (!body.isEmpty())
        QCOMPARE(*delivery.body, body);
}

void tst_HttpUtil::transportError_data()
{
    QTest::addColumn<QString>("verb");
    QTest::addColumn<bool>("portClosed");
    QTest::addColumn<int>("expectedCode");
    QTest::newRow("GET, closed port")
        << u"GET"_s << true << int(QNetworkReply::ConnectionRefusedError);
    QTest::newRow("POST, closed port")
        << u"POST"_s << true << int(QNetworkReply::ConnectionRefusedError);
    QTest::newRow("POST, connection dropped")
        << u"POST"_s << false << int(QNetworkReply::RemoteHostClosedError);
    QTest::newRow("DELETE, connection dropped")
        << u"DELETE"_s << false << int(QNetworkReply::RemoteHostClosedError);
}

void tst_HttpUtil::transportError()
{
    QFETCH(QString, verb);
    QFETCH(bool, portClosed);
    QFETCH(int, expectedCode);

    CannedReply drop;
    drop.dropConnection = true;
    m_service.setCannedReply(verb, u"/drop"_s, drop);
    const QString target =
        portClosed ? u"http://127.0.0.1:%1/drop"_s.arg(closedPort()) : url(u"/drop"_s);
    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    QList<Delivery> deliveries;
    send(http, verb, target, "{}"_ba, deliveries);
    QTRY_COMPARE_WITH_TIMEOUT(deliveries.size(), 1, ReplyTimeoutMs);

    const Delivery &delivery = deliveries.first();
    QVERIFY(delivery.error);
    QCOMPARE(int(delivery.error->code()), expectedCode);
    QVERIFY(!delivery.error->description().isEmpty());
    QVERIFY(!delivery.body);
    QVERIFY(!delivery.response);
}

QTEST_GUILESS_MAIN(tst_HttpUtil)
#include "tst_httputil.moc"
