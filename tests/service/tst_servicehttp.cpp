#include "LocalService.h"
#include "ServiceTestSupport.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace ServiceTest;
using VistrelService::LocalService;
using VistrelService::Visit;

namespace {
const QString Channel = u"/api/ix/m?id=V1&sId=S1&tId=T1&vId=U1&url=Form&fsTy=l"_s;
// The replies carrying {"a":"c"} and {"x":5,"y":6}, exactly as the device reads them.
const QByteArray CloseReply = "[\"[{\\\"a\\\":\\\"c\\\"}]\"]";
const QByteArray TapReply = "[\"[{\\\"x\\\":5,\\\"y\\\":6}]\"]";

struct HttpResult
{
    int status = 0;
    QByteArray body;
};
} // namespace

class TestServiceHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void endpointsAnswer_data();
    void endpointsAnswer();
    void rejectedPostsChangeNothing_data();
    void rejectedPostsChangeNothing();
    void deleteEndsVisitUntilReopened();

private:
    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {});

    std::unique_ptr<LocalService> m_service;
    QNetworkAccessManager m_manager;
};

void TestServiceHttp::init()
{
    m_service = std::make_unique<LocalService>();
    QVERIFY(m_service->start() != 0);
}

void TestServiceHttp::cleanup()
{
    m_service.reset();
}

HttpResult TestServiceHttp::send(const QByteArray &method, const QString &pathAndQuery,
                                 const QByteArray &body)
{
    QNetworkRequest request(QUrl(u"http://"_s + m_service->hostAndPort() + pathAndQuery));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    std::unique_ptr<QNetworkReply> reply(m_manager.sendCustomRequest(request, method, body));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!finished.wait(5000))
        return {};
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll()};
}

void TestServiceHttp::endpointsAnswer_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("init") << QByteArray("POST") << u"/api/in/im/c"_s << 200
                          << QByteArray(R"({"shouldStartMonitoring":false})");
    QTest::newRow("strings") << QByteArray("GET") << u"/api/in/i18n?lang=en"_s << 200
                             << QByteArray(R"({"ui":{"a":"b"}})");
    QTest::newRow("channel open") << QByteArray("GET") << Channel << 200 << QByteArray();
    QTest::newRow("unknown path") << QByteArray("GET") << u"/nope"_s << 404 << QByteArray();
    QTest::newRow("channel prefix") << QByteArray("POST") << u"/api/ix"_s << 404 << QByteArray();
    QTest::newRow("channel without id")
        << QByteArray("GET") << u"/api/ix/m?sId=S1"_s << 400 << QByteArray();
    QTest::newRow("channel, other verb") << QByteArray("PUT") << Channel << 405 << QByteArray();
    QTest::newRow("socket path, no upgrade")
        << QByteArray("GET") << u"/api/in/imws?id=V1"_s << 426 << QByteArray();
}

void TestServiceHttp::endpointsAnswer()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    m_service->setMonitoringConfig(QByteArray(R"({"shouldStartMonitoring":false})"));
    m_service->setStrings(QByteArray(R"({"ui":{"a":"b"}})"));

    const HttpResult result = send(method, path);
    QCOMPARE(result.status, status);
    if (status == 200)
        QCOMPARE(result.body, body);
    const auto recorded = m_service->requests();
    QCOMPARE(recorded.size(), 1);
    QCOMPARE(recorded.first().method, QString::fromLatin1(method));
    QCOMPARE(recorded.first().status, status);
}

void TestServiceHttp::rejectedPostsChangeNothing_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("log");

    const int noLimit = 16 * 1024 * 1024;
    const QByteArray valid = listBytes({pageChange(u"Form"_s)});
    // Field 1 announcing 16 bytes of which only 2 follow.
    QTest::newRow("truncated field")
        << Channel << QByteArray::fromHex("0a106162") << noLimit << 400 << u"undecodable"_s;
    QTest::newRow("invalid wire type")
        << Channel << QByteArray("\x0f") << noLimit << 400 << u"undecodable"_s;
    QTest::newRow("JSON body") << Channel << QByteArray(R"({"x":1})") << noLimit << 400
                               << u"undecodable"_s;
    QTest::newRow("no id") << u"/api/ix/m?sId=S1"_s << valid << noLimit << 400
                           << u"without a visit id"_s;
    QTest::newRow("never opened") << u"/api/ix/m?id=V2"_s << valid << noLimit << 404
                                  << u"unknown visit"_s;
    QTest::newRow("too large") << Channel << listBytes({screenshot(QByteArray(2048, 'j'))}) << 1024
                               << 413 << u"Refused a body"_s;
    // Two bytes per empty message: a small body that would decode into a huge list.
    QTest::newRow("too many reports") << Channel << QByteArray::fromHex("0a00").repeated(100001)
                                      << noLimit << 413 << u"too many reports"_s;
}

void TestServiceHttp::rejectedPostsChangeNothing()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, limit);
    QFETCH(int, status);
    QFETCH(QString, log);
    m_service->setMaxBodySize(limit);
    QCOMPARE(send("GET", Channel).status, 200);
    QVERIFY(m_service->queueCommand(u"V1"_s, QByteArray(R"({"a":"c"})")));

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(log));
    QCOMPARE(send("POST", path, body).status, status);
    QCOMPARE(m_service->requests(u"/api/ix/m"_s).last().status, status);
    QVERIFY(m_service->visit(u"V1"_s)->reports().isEmpty());
    QVERIFY(!m_service->visit(u"V2"_s));

    // Still serving, and the rejected post took no command.
    const HttpResult next = send("POST", Channel, listBytes({pageChange(u"Form"_s)}));
    QCOMPARE(next.status, 200);
    QCOMPARE(next.body, CloseReply);
    QCOMPARE(m_service->visit(u"V1"_s)->reports().size(), 1);
}

void TestServiceHttp::deleteEndsVisitUntilReopened()
{
    QSignalSpy ended(m_service.get(), &LocalService::visitEnded);
    QCOMPARE(send("GET", Channel).status, 200);
    QVERIFY(m_service->queueCommand(u"V1"_s, QJsonObject{{u"x"_s, 5}, {u"y"_s, 6}}));

    // The visit id is "id"; "vId" is the visitor, which must not be taken for the visit.
    QCOMPARE(send("DELETE", u"/api/ix/m?id=V1&sId=S1&tId=T1&vId=U1&url=Form&fsTy=l"_s).status, 200);
    const Visit *visit = m_service->visit(u"V1"_s);
    QCOMPARE(visit->state(), Visit::State::Ended);
    QVERIFY(visit->endedAt().isValid());
    QCOMPARE(ended.size(), 1);
    QVERIFY(!m_service->visit(u"U1"_s));

    // The device flushes once more after deleting: recorded, but no command goes to it.
    const HttpResult last = send("POST", Channel, listBytes({pageChange(u"Form"_s)}));
    QCOMPARE(last.status, 200);
    QCOMPARE(last.body, QByteArray("[]"));
    QCOMPARE(visit->reports().size(), 1);

    QCOMPARE(send("GET", Channel).status, 200);
    QVERIFY(visit->isOpen());
    QCOMPARE(send("POST", Channel, listBytes({ping(1000)})).body, TapReply);

    // A device without a visit still deletes; that is answered and creates nothing.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Delete of unknown visit"_s));
    QCOMPARE(send("DELETE", u"/api/ix/m?id=&sId=&tId=&vId=&url=&fsTy="_s).status, 200);
    QCOMPARE(m_service->visits().size(), 1);
    QCOMPARE(ended.size(), 1);
}

QTEST_GUILESS_MAIN(TestServiceHttp)
#include "tst_servicehttp.moc"
