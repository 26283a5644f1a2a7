#include "LocalService.h"
#include "ServiceTestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace ServiceTest;
using VistrelService::LocalService;

namespace {
const QString Poll = u"/api/in/co?tId=T1&vId=U1&sId=S1&cId"_s;
const QByteArray Alex = R"({"firstName":"Alex","email":"alex@example.com"})";

// The kit's two clients each add "cId=…&joinedTimestamp=…", back to back, after another
// client's parameters.
QByteArray pollBody(const QString &channels, const QString &customerId)
{
    const QString parameters = u"cId="_s + customerId + u"&joinedTimestamp=1700000000000"_s;
    return (u"{\"channels\":["_s + channels + u"],\"additionalProperties\":\"x=1"_s + parameters +
            parameters + u"\"}"_s)
        .toUtf8();
}
} // namespace

class TestServiceConference : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void joinQueuesCustomers();
    void initAnswersCallSettings();
    void pollHearsQueuePosition();
    void meetingServedOnlyOverTls_data();
    void meetingServedOnlyOverTls();
    void meetingReportedAndEnded();

private:
    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {})
    {
        return sendHttp(m_manager, m_service->hostAndPort(), method, pathAndQuery, body);
    }
    HttpResult sendTls(const QByteArray &method, const QString &pathAndQuery,
                       const QByteArray &body = {});
    // The COQS payloads answered to a poll of the customer.
    QStringList positions(const QString &customerId, const QString &channels = u"\"S\",\"COQS\""_s);

    QString m_tlsDir;
    std::unique_ptr<LocalService> m_service;
    QNetworkAccessManager m_manager;
};

void TestServiceConference::initTestCase()
{
    m_tlsDir = qEnvironmentVariable("VISTREL_TEST_TLS_DIR");
    if (m_tlsDir.isEmpty())
        QSKIP("VISTREL_TEST_TLS_DIR is not set (run through CTest)");
    // Trusts the test authority as tests of the kit do: by adding it, not by ignoring errors.
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificates(m_tlsDir + u"/ca.pem"_s);
    QSslConfiguration::setDefaultConfiguration(configuration);
}

void TestServiceConference::init()
{
    m_service = std::make_unique<LocalService>();
    QVERIFY(m_service->start() != 0);
    QVERIFY(m_service->startTlsFromDirectory(m_tlsDir) != 0);
}

void TestServiceConference::cleanup()
{
    // The client's kept-alive TLS connections go first, and every socket the service scheduled
    // for deletion is deleted before the next test (or the exit): none leaks its TLS state.
    m_manager.clearConnectionCache();
    QTest::qWait(20);
    m_service.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

HttpResult TestServiceConference::sendTls(const QByteArray &method, const QString &pathAndQuery,
                                          const QByteArray &body)
{
    QNetworkRequest request(QUrl(u"https://"_s + m_service->tlsHostAndPort() + pathAndQuery));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json"_ba);
    std::unique_ptr<QNetworkReply> reply(m_manager.sendCustomRequest(request, method, body));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!finished.wait(10000) || reply->error() == QNetworkReply::SslHandshakeFailedError)
        return {};
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll(),
            reply->header(QNetworkRequest::ContentTypeHeader).toByteArray()};
}

QStringList TestServiceConference::positions(const QString &customerId, const QString &channels)
{
    const HttpResult result = send("POST", Poll, pollBody(channels, customerId));
    QStringList payloads;
    const QJsonObject reply = QJsonDocument::fromJson(result.body).object();
    for (const QJsonValue message : reply.value(u"messages"_s).toArray()) {
        if (message[u"channel"_s] == u"COQS"_s)
            payloads.append(message[u"payload"_s].toString());
    }
    return payloads;
}

void TestServiceConference::joinQueuesCustomers()
{
    QCOMPARE(send("POST", u"/cr/join/T1/c1"_s, Alex).body, "{}"_ba);
    QCOMPARE(send("POST", u"/cr/join/T1/c2"_s, "{}").status, 200);
    // A rejoin (or Qt's silent resend) keeps the place and takes the newer body.
    QCOMPARE(send("POST", u"/cr/join/T1/c1"_s, Alex).status, 200);
    QCOMPARE(send("POST", u"/cr/join/T1/c3"_s, "[]").status, 400);
    QCOMPARE(send("GET", u"/cr/join/T1/c3"_s).status, 405);
    QCOMPARE(send("POST", u"/cr/join/T1"_s, "{}").status, 404);

    const auto queue = m_service->queue(u"T1"_s);
    QCOMPARE(queue.size(), 2);
    QCOMPARE(queue.at(0).customerId, u"c1"_s);
    QCOMPARE(queue.at(0).body, Alex);
    QCOMPARE(queue.at(0).position, 1);
    QCOMPARE(queue.at(1).position, 2);
    QVERIFY(m_service->queue(u"T2"_s).isEmpty());
}

void TestServiceConference::initAnswersCallSettings()
{
    const QJsonObject settings =
        QJsonDocument::fromJson(send("POST", u"/cr/init/T1/c1"_s, Alex).body).object();
    QCOMPARE(settings[u"customerId"_s], u"c1"_s);
    QCOMPARE(settings[u"domain"_s], m_service->tlsHostAndPort());
    QVERIFY(!settings[u"token"_s].toString().isEmpty());
    QVERIFY(settings[u"i18n"_s][u"page.title"_s].isString());

    m_service->setCallSettings(R"({"domain":"example.test"})");
    QCOMPARE(send("POST", u"/cr/init/T1/c1"_s, Alex).body, R"({"domain":"example.test"})"_ba);
    m_service->setCallSettings({});
    QVERIFY(send("POST", u"/cr/init/T1/c1"_s, Alex).body.contains("localhost:"));
}

void TestServiceConference::pollHearsQueuePosition()
{
    send("POST", u"/cr/join/T1/c1"_s, "{}");
    send("POST", u"/cr/join/T1/c2"_s, "{}");
    // One message for the customer, though both of the kit's clients name them.
    QCOMPARE(positions(u"c2"_s), QStringList{u"2"_s});
    QVERIFY(positions(u"c2"_s, u"\"S\""_s).isEmpty());
    QVERIFY(positions(u"stranger"_s).isEmpty());

    QVERIFY(m_service->conference()->move(u"T1"_s, u"c2"_s, -1));
    QCOMPARE(positions(u"c2"_s), QStringList{u"1"_s});
    QCOMPARE(positions(u"c1"_s), QStringList{u"2"_s});
    QVERIFY(m_service->conference()->call(u"T1"_s, u"c1"_s));
    QCOMPARE(positions(u"c1"_s), QStringList{u"0"_s});
    QCOMPARE(positions(u"c2"_s), QStringList{u"1"_s});
    QVERIFY(m_service->conference()->remove(u"T1"_s, u"c2"_s));
    QCOMPARE(positions(u"c2"_s), QStringList{u"-1"_s});
    // Joining again puts them at the end.
    send("POST", u"/cr/join/T1/c2"_s, "{}");
    QCOMPARE(positions(u"c2"_s), QStringList{u"1"_s});
}

void TestServiceConference::meetingServedOnlyOverTls_data()
{
    QTest::addColumn<bool>("secure");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("contains");

    QTest::newRow("api") << true << u"/external_api.js"_s << 200 << "JitsiMeetExternalAPI"_ba;
    QTest::newRow("room") << true << u"/T1xovxc1"_s << 200 << "Hang up"_ba;
    QTest::newRow("room over plain HTTP") << false << u"/T1xovxc1"_s << 404 << QByteArray();
    QTest::newRow("service over TLS") << true << u"/api/in/i18n"_s << 200 << "ui"_ba;
}

void TestServiceConference::meetingServedOnlyOverTls()
{
    QFETCH(bool, secure);
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QByteArray, contains);
    const HttpResult result = secure ? sendTls("GET", path) : send("GET", path);
    QCOMPARE(result.status, status);
    QVERIFY(result.body.contains(contains));
}

void TestServiceConference::meetingReportedAndEnded()
{
    send("POST", u"/cr/join/T1/c1"_s, "{}");
    QSignalSpy joined(m_service.get(), &LocalService::meetingJoined);
    const QByteArray report = R"({"room":"T1xovxc1","jwt":"j","displayName":"Alex Morgan",)"
                              R"("email":"alex@example.com","subject":null})";
    const QJsonObject answer =
        QJsonDocument::fromJson(sendTls("POST", u"/meeting/joined"_s, report).body).object();
    QCOMPARE(joined.size(), 1);
    QCOMPARE(m_service->meetings().size(), 1);
    const VistrelService::Meeting meeting = m_service->meetings().constFirst();
    QCOMPARE(meeting.displayName, u"Alex Morgan"_s);
    QVERIFY(!meeting.subject);
    // The customer in the call has left the queue.
    QCOMPARE(positions(u"c1"_s), QStringList{u"-1"_s});

    const QString state = u"/meeting/state?id="_s + QString::number(answer[u"id"_s].toInt());
    QCOMPARE(sendTls("GET", state).body, R"({"ended":false})"_ba);
    m_service->endMeeting(u"T1xovxc1"_s);
    QCOMPARE(sendTls("GET", state).body, R"({"ended":true})"_ba);
    QVERIFY(m_service->meetings().constFirst().ended);
}

QTEST_GUILESS_MAIN(TestServiceConference)
#include "tst_serviceconference.moc"
