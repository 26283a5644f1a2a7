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

Q_DECLARE_METATYPE(CannedReply)

namespace {
struct Delivery
{
    std::optional<QByteArray> body;
    std::optional<HttpResponse> response;
    std::optional<NetworkError> error;
};

CannedReply canned(int status, const QByteArray &body)
{
    CannedReply reply;
    reply.status = status;
    reply.body = body;
    reply.contentType = "text/x-test"_ba;
    return reply;
}
} // namespace

class tst_HttpUtil : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        // newVisit() touches the device identifier.
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_service.start() != 0);
    }
    void request_data();
    void request();

private:
    VistrelService::LocalService m_service;
};

void tst_HttpUtil::request_data()
{
    QTest::addColumn<QString>("verb");
    QTest::addColumn<bool>("inVisit");
    QTest::addColumn<CannedReply>("reply");
    // Zero when an HTTP reply must arrive; refused connections go to a closed port.
    QTest::addColumn<int>("errorCode");
    // Qt files 400 and 418 under another error class than the other 4xx.
    QTest::newRow("POST before a visit, 400")
        << u"POST"_s << false << canned(400, R"({"error":"bad"})"_ba) << 0;
    QTest::newRow("GET in a visit, 418") << u"GET"_s << true << canned(418, "tea"_ba) << 0;
    QTest::newRow("DELETE in a visit, 404") << u"DELETE"_s << true << canned(404, "none"_ba) << 0;
    QTest::newRow("POST in a visit, 500") << u"POST"_s << true << canned(500, "boom"_ba) << 0;
    QTest::newRow("GET before a visit, 407") << u"GET"_s << false << canned(407, "proxy"_ba) << 0;
    QTest::newRow("DELETE before a visit, 204 without body")
        << u"DELETE"_s << false << canned(204, {}) << 0;
    QTest::newRow("closed port") << u"GET"_s << false << CannedReply()
                                 << int(QNetworkReply::ConnectionRefusedError);
    QTest::newRow("connection dropped") << u"POST"_s << false << CannedReply::dropped()
                                        << int(QNetworkReply::RemoteHostClosedError);
    // Aborted while it downloads, so the client never holds more than the limit.
    QTest::newRow("reply above the size limit")
        << u"GET"_s << false << canned(200, QByteArray(HttpUtil::MaxReplyBytes + 1, 'x'))
        << int(QNetworkReply::OperationCanceledError);
}

void tst_HttpUtil::request()
{
    QFETCH(QString, verb);
    QFETCH(bool, inVisit);
    QFETCH(CannedReply, reply);
    QFETCH(int, errorCode);
    const bool portClosed = errorCode == QNetworkReply::ConnectionRefusedError;
    m_service.clearRequests();
    m_service.setCannedReply(verb, u"/status"_s, reply);
    const QString host =
        portClosed ? u"127.0.0.1:"_s + QString::number(closedPort()) : m_service.hostAndPort();
    const QString target = u"http://"_s + host + u"/status?x=1"_s;
    ApplicationConfigWrapper wrapper;
    if (inVisit)
        wrapper.newVisit(std::nullopt);
    HttpUtil http(&wrapper);
    const QByteArray sent = R"({"key":"välue"})"_ba;
    QList<Delivery> deliveries;
    auto completion = [&deliveries](const auto &body, const auto &response, const auto &error) {
        deliveries.append({body, response, error});
    };
    LogCapture log;
    if (verb == u"POST"_s)
        http.post(target, sent, completion);
    else if (verb == u"GET"_s)
        http.get(target, completion);
    else
        http.deleteResource(target, completion);
    // Further calls could only come from the same reply handler, so none can follow.
    QTRY_VERIFY_WITH_TIMEOUT(!deliveries.isEmpty(), 30000);
    QCOMPARE(deliveries.size(), 1);
    QCOMPARE(log.lines(), QStringList{u"[DEBUG] HttpUtil: "_s + verb + u' ' + target});
    const Delivery &delivery = deliveries.first();
    if (errorCode) {
        QVERIFY(delivery.error);
        QCOMPARE(int(delivery.error->code()), errorCode);
        if (reply.body.size() > HttpUtil::MaxReplyBytes)
            QCOMPARE(delivery.error->description(),
                     u"Reply larger than %1 bytes"_s.arg(HttpUtil::MaxReplyBytes));
        QVERIFY(!delivery.body && !delivery.response);
        return;
    }
    // An error status is a reply like any other.
    QVERIFY2(!delivery.error, qPrintable(delivery.error ? delivery.error->description() : u""_s));
    QVERIFY(delivery.response);
    QCOMPARE(delivery.response->statusCode, reply.status);
    QCOMPARE(delivery.response->header("content-type"_ba), "text/x-test"_ba);
    // An empty body counts as none.
    QCOMPARE(delivery.body.has_value(), !reply.body.isEmpty());
    QCOMPARE(delivery.body.value_or(QByteArray()), reply.body);

    const auto requests = m_service.requests(u"/status"_s);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().method, verb);
    QCOMPARE(requests.first().queryValue(u"x"_s), u"1"_s);
    // Sent before a visit too, then empty.
    QVERIFY(requests.first().hasHeader("X-OV-SSID"_ba));
    const QString sessionId = wrapper.config().visitConfig.sessionId.value_or(QString());
    QCOMPARE(sessionId.isEmpty(), !inVisit);
    QCOMPARE(requests.first().header("X-OV-SSID"_ba), sessionId.toUtf8());
    const bool post = verb == u"POST"_s;
    QCOMPARE(requests.first().hasHeader("Content-Type"_ba), post);
    QCOMPARE(requests.first().header("Content-Type"_ba), post ? "application/json"_ba : ""_ba);
    QCOMPARE(requests.first().body, post ? sent : QByteArray());
}

QTEST_GUILESS_MAIN(tst_HttpUtil)
#include "tst_httputil.moc"
