#include "LocalService.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using VistrelService::CannedReply;
using VistrelService::LocalService;
using VistrelService::RecordedRequest;

namespace {
constexpr int ReplyTimeoutMs = 30000;

struct Answer
{
    bool finished = false;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    int status = 0;
    QByteArray contentType;
    QByteArray body;
};
} // namespace

class tst_LocalService : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void unknownEndpoints_data();
    void unknownEndpoints();
    void recordsWhatArrived();
    void cannedReply();
    void droppedConnectionIsRecorded();

private:
    Answer send(const QByteArray &verb, const QString &pathAndQuery, const QByteArray &body = {},
                const QList<QPair<QByteArray, QByteArray>> &headers = {});

    LocalService m_service;
    QNetworkAccessManager m_manager;
};

void tst_LocalService::initTestCase()
{
    QVERIFY(m_service.start() != 0);
}

void tst_LocalService::init()
{
    m_service.clearRequests();
    m_service.clearCannedReplies();
}

Answer tst_LocalService::send(const QByteArray &verb, const QString &pathAndQuery,
                              const QByteArray &body,
                              const QList<QPair<QByteArray, QByteArray>> &headers)
{
    QNetworkRequest request(QUrl(u"http://"_s + m_service.hostAndPort() + pathAndQuery));
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    std::unique_ptr<QNetworkReply> reply(m_manager.sendCustomRequest(request, verb, body));
    Answer answer;
    answer.finished = QTest::qWaitFor([&reply] { return reply->isFinished(); }, ReplyTimeoutMs);
    answer.error = reply->error();
    answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    answer.contentType = reply->rawHeader("Content-Type"_ba);
    answer.body = reply->readAll();
    return answer;
}

void tst_LocalService::unknownEndpoints_data()
{
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<QString>("path");
    QTest::newRow("unknown path") << "GET"_ba << u"/api/in/unknown"_s;
    QTest::newRow("root") << "GET"_ba << u"/"_s;
    QTest::newRow("known path, longer") << "POST"_ba << u"/api/in/im/c/extra"_s;
    QTest::newRow("init, other verb") << "GET"_ba << u"/api/in/im/c"_s;
    QTest::newRow("strings, other verb") << "POST"_ba << u"/api/in/i18n"_s;
    QTest::newRow("custom verb") << "PATCH"_ba << u"/api/in/i18n"_s;
}

void tst_LocalService::unknownEndpoints()
{
    QFETCH(QByteArray, verb);
    QFETCH(QString, path);

    const Answer answer = send(verb, path, "{}"_ba);
    QVERIFY(answer.finished);
    QCOMPARE(answer.status, 404);
    const QList<RecordedRequest> recorded = m_service.requests();
    QCOMPARE(recorded.size(), 1);
    QCOMPARE(recorded.first().method, QString::fromLatin1(verb));
    QCOMPARE(recorded.first().path, path);
    QCOMPARE(recorded.first().status, 404);
}

void tst_LocalService::recordsWhatArrived()
{
    const QByteArray body = R"({"shareId":"12345","text":"ä"})"_ba;
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const Answer answer =
        send("POST"_ba, u"/api/in/im/c?a=1&b=x%20y%26z&a=2"_s, body,
             {{"X-OV-SSID"_ba, "SESSION"_ba}, {"Content-Type"_ba, "application/json"_ba}});
    const QDateTime after = QDateTime::currentDateTimeUtc();
    QVERIFY(answer.finished);
    QCOMPARE(answer.status, 200);
    QCOMPARE(answer.body, LocalService::defaultMonitoringConfig());

    const QList<RecordedRequest> recorded = m_service.requests(u"/api/in/im/c"_s);
    QCOMPARE(recorded.size(), 1);
    const RecordedRequest &request = recorded.first();
    QCOMPARE(request.method, u"POST"_s);
    QCOMPARE(request.path, u"/api/in/im/c"_s);
    QCOMPARE(request.query.allQueryItemValues(u"a"_s), (QStringList{u"1"_s, u"2"_s}));
    QCOMPARE(request.queryValue(u"b"_s), u"x y&z"_s);
    QCOMPARE(request.header("x-ov-ssid"_ba), "SESSION"_ba);
    QCOMPARE(request.header("Content-Type"_ba), "application/json"_ba);
    QVERIFY(!request.hasHeader("X-Missing"_ba));
    QCOMPARE(request.body, body);
    QCOMPARE(request.status, 200);
    QVERIFY(request.time >= before.addMSecs(-1) && request.time <= after.addMSecs(1));
}

void tst_LocalService::cannedReply()
{
    CannedReply canned;
    canned.status = 503;
    canned.body = "maintenance"_ba;
    canned.contentType = "text/plain"_ba;
    m_service.setCannedReply(u"GET"_s, u"/api/in/i18n"_s, canned);

    Answer answer = send("GET"_ba, u"/api/in/i18n?lang=en"_s);
    QCOMPARE(answer.status, 503);
    QCOMPARE(answer.contentType, "text/plain"_ba);
    QCOMPARE(answer.body, "maintenance"_ba);
    QCOMPARE(m_service.requests().last().status, 503);
    // Only that verb and path are answered so.
    QCOMPARE(send("POST"_ba, u"/api/in/im/c"_s).status, 200);

    m_service.clearCannedReplies();
    answer = send("GET"_ba, u"/api/in/i18n?lang=en"_s);
    QCOMPARE(answer.status, 200);
    QCOMPARE(answer.body, LocalService::defaultStrings());
}

void tst_LocalService::droppedConnectionIsRecorded()
{
    CannedReply drop;
    drop.dropConnection = true;
    m_service.setCannedReply(u"POST"_s, u"/api/in/im/c"_s, drop);
    const Answer answer = send("POST"_ba, u"/api/in/im/c"_s, "{}"_ba);
    QVERIFY(answer.finished);
    QCOMPARE(answer.error, QNetworkReply::RemoteHostClosedError);
    QCOMPARE(answer.status, 0);
    const QList<RecordedRequest> recorded = m_service.requests(u"/api/in/im/c"_s);
    QVERIFY(!recorded.isEmpty());
    QCOMPARE(recorded.first().status, 0);
    QCOMPARE(recorded.first().body, "{}"_ba);
}

QTEST_GUILESS_MAIN(tst_LocalService)
#include "tst_localservice.moc"
