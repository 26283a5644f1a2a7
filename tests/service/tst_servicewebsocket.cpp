#include "LocalService.h"
#include "ServiceTestSupport.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QWebSocket>

#include <memory>

using namespace Qt::StringLiterals;
using namespace ServiceTest;
using VistrelService::LocalService;
using VistrelService::WebSocketEndpoint;
using CloseCode = QWebSocketProtocol::CloseCode;

namespace {
const QString Socket =
    u"/api/in/imws?tId=T1&sId=S1&vId=U1&t=token&id=V1&shrId=12345&vsId=S1&url=Form&fsTy=l"_s;

/// A device's socket with everything it received.
struct Client
{
    std::unique_ptr<QWebSocket> socket = std::make_unique<QWebSocket>();
    QStringList frames;
    QList<QAbstractSocket::SocketError> errors;
    bool everConnected = false;
    bool closed = false;
};
} // namespace

class TestServiceWebSocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void framesRecordedWithIdentifiers();
    void badFramesDropped_data();
    void badFramesDropped();
    void oversizedFrameClosesConnection();
    void commandsSentAsTextFramesOnce_data();
    void commandsSentAsTextFramesOnce();
    void wrongPathOrIdClosed_data();
    void wrongPathOrIdClosed();
    void serviceSideDisconnect_data();
    void serviceSideDisconnect();
    void admission_data();
    void admission();

private:
    /// Opens a socket and waits until it is open or closed.
    std::unique_ptr<Client> open(const QString &pathAndQuery);

    std::unique_ptr<LocalService> m_service;
};

void TestServiceWebSocket::init()
{
    m_service = std::make_unique<LocalService>();
    QVERIFY(m_service->start() != 0);
}

void TestServiceWebSocket::cleanup()
{
    m_service.reset();
}

std::unique_ptr<Client> TestServiceWebSocket::open(const QString &pathAndQuery)
{
    auto client = std::make_unique<Client>();
    Client *raw = client.get();
    connect(raw->socket.get(), &QWebSocket::textMessageReceived, this,
            [raw](const QString &frame) { raw->frames.append(frame); });
    connect(raw->socket.get(), &QWebSocket::connected, this, [raw] { raw->everConnected = true; });
    connect(raw->socket.get(), &QWebSocket::disconnected, this, [raw] { raw->closed = true; });
    connect(raw->socket.get(), qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this,
            [raw](QAbstractSocket::SocketError error) { raw->errors.append(error); });
    QNetworkRequest request(QUrl(u"ws://"_s + m_service->hostAndPort() + pathAndQuery));
    request.setRawHeader("X-OV-SSID", "S1");
    raw->socket->open(request);
    m_service->waitFor([raw] { return raw->everConnected || raw->closed; });
    return client;
}

void TestServiceWebSocket::framesRecordedWithIdentifiers()
{
    auto client = open(Socket);
    QVERIFY(client->everConnected);
    const VistrelService::Visit *visit = m_service->visit(u"V1"_s);
    QVERIFY(visit);
    QVERIFY(visit->isOpen());
    QCOMPARE(visit->transport(), VistrelService::Transport::WebSocket);
    QCOMPARE(visit->shareId(), u"12345"_s);
    QCOMPARE(visit->tenantId(), u"T1"_s);
    const auto handshakes = m_service->requests(u"/api/in/imws"_s);
    QCOMPARE(handshakes.size(), 1);
    QCOMPARE(handshakes.first().status, 101);
    QCOMPARE(handshakes.first().header("x-ov-ssid"), QByteArray("S1"));
    QCOMPARE(handshakes.first().queryValue(u"t"_s), u"token"_s);

    // The device sends each report as its own frame.
    client->socket->sendBinaryMessage(listBytes({pageChange(u"Form"_s)}));
    client->socket->sendBinaryMessage(listBytes({click(3, 4), pageChange(u"List"_s)}));
    QVERIFY(m_service->waitForReports(u"V1"_s, 3));
    const auto &reports = visit->reports();
    QCOMPARE(pageOf(reports[0].message), u"Form"_s);
    QCOMPARE(reports[1].message.clickevent(0).x(), 3.0f);
    QCOMPARE(pageOf(reports[2].message), u"List"_s);
    for (const auto &report : reports) {
        QCOMPARE(report.transport, VistrelService::Transport::WebSocket);
        QCOMPARE(report.sessionId, u"S1"_s);
        QCOMPARE(report.visitorId, u"U1"_s);
        QCOMPARE(report.url, u"Form"_s);
    }
}

void TestServiceWebSocket::badFramesDropped_data()
{
    QTest::addColumn<bool>("binary");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("log");

    QTest::newRow("truncated field") << true << QByteArray::fromHex("0a106162") << u"undecodable"_s;
    QTest::newRow("JSON as binary") << true << QByteArray(R"({"x":1})") << u"undecodable"_s;
    QTest::newRow("text") << false << QByteArray(R"({"x":1})") << u"text frame"_s;
}

void TestServiceWebSocket::badFramesDropped()
{
    QFETCH(bool, binary);
    QFETCH(QByteArray, frame);
    QFETCH(QString, log);
    QSignalSpy rejected(m_service.get(), &LocalService::webSocketFrameRejected);
    auto client = open(Socket);
    QVERIFY(client->everConnected);

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(log));
    if (binary)
        client->socket->sendBinaryMessage(frame);
    else
        client->socket->sendTextMessage(QString::fromUtf8(frame));
    // Frames are handled in order: once the next one is recorded the bad one was dropped.
    client->socket->sendBinaryMessage(listBytes({pageChange(u"Form"_s)}));
    QVERIFY(m_service->waitForReports(u"V1"_s, 1));
    QCOMPARE(m_service->visit(u"V1"_s)->reports().size(), 1);
    QCOMPARE(rejected.size(), 1);
    QVERIFY(!client->closed);
}

void TestServiceWebSocket::oversizedFrameClosesConnection()
{
    m_service->setMaxBodySize(1024);
    auto client = open(Socket);
    QVERIFY(client->everConnected);
    client->socket->sendBinaryMessage(listBytes({screenshot(QByteArray(4096, 'j'))}));
    QVERIFY(m_service->waitFor([&] { return client->closed; }));
    QCOMPARE(client->socket->closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    QVERIFY(m_service->visit(u"V1"_s)->reports().isEmpty());

    auto next = open(Socket);
    QVERIFY(next->everConnected);
}

void TestServiceWebSocket::commandsSentAsTextFramesOnce_data()
{
    QTest::addColumn<bool>("queueFirst");
    QTest::newRow("queued before the socket opens") << true;
    QTest::newRow("queued while open") << false;
}

void TestServiceWebSocket::commandsSentAsTextFramesOnce()
{
    QFETCH(bool, queueFirst);
    const QStringList expected{uR"({"x":300,"y":600})"_s, u"not json"_s};
    const auto queue = [this] {
        const bool queued = m_service->queueCommand(u"V1"_s, QByteArray(R"({"x":300,"y":600})"));
        m_service->queueRawCommand(u"V1"_s, "not json");
        return queued;
    };
    if (queueFirst)
        QVERIFY(queue());
    auto first = open(Socket);
    QVERIFY(first->everConnected);
    if (!queueFirst)
        QVERIFY(queue());
    QVERIFY(m_service->waitFor([&] { return first->frames.size() >= expected.size(); }));
    QCOMPARE(first->frames, expected);

    // A reconnection gets only what was queued since, on the newest socket.
    auto second = open(Socket);
    QVERIFY(second->everConnected);
    QVERIFY(m_service->queueCommand(u"V1"_s, QByteArray(R"({"a":"c"})")));
    QVERIFY(m_service->waitFor([&] { return !second->frames.isEmpty(); }));
    QCOMPARE(second->frames, QStringList{uR"({"a":"c"})"_s});
    QCOMPARE(first->frames, expected);
    QVERIFY(m_service->visit(u"V1"_s)->pendingCommands().isEmpty());
}

void TestServiceWebSocket::wrongPathOrIdClosed_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("unknown path") << u"/socket?id=V1"_s;
    QTest::newRow("below the endpoint") << u"/api/in/imws/x?id=V1"_s;
    QTest::newRow("the HTTP channel") << u"/api/ix/m?id=V1"_s;
    QTest::newRow("no visit id") << u"/api/in/imws?tId=T1&sId=S1"_s;
}

void TestServiceWebSocket::wrongPathOrIdClosed()
{
    QFETCH(QString, path);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"WebSocket"_s));
    auto client = open(path);
    QVERIFY(m_service->waitFor([&] { return client->closed; }));
    QCOMPARE(client->socket->closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    QVERIFY(m_service->visits().isEmpty());
    QCOMPARE(m_service->webSockets()->connectionCount(), 0);
}

void TestServiceWebSocket::serviceSideDisconnect_data()
{
    QTest::addColumn<bool>("drop");
    QTest::newRow("drop without close frame") << true;
    QTest::newRow("close going away") << false;
}

void TestServiceWebSocket::serviceSideDisconnect()
{
    QFETCH(bool, drop);
    QSignalSpy gone(m_service.get(), &LocalService::webSocketDisconnected);
    auto client = open(Socket);
    QVERIFY(client->everConnected);

    WebSocketEndpoint *sockets = m_service->webSockets();
    QCOMPARE(drop ? sockets->dropConnections(u"V1"_s)
                  : sockets->closeConnections(u"V1"_s, CloseCode::CloseCodeGoingAway),
             1);
    QVERIFY(m_service->waitFor([&] { return client->closed; }));
    // A drop is a network failure to the device; a close is an orderly goodbye.
    if (drop) {
        QCOMPARE(client->errors, {QAbstractSocket::RemoteHostClosedError});
    } else {
        QVERIFY(client->errors.isEmpty());
        QCOMPARE(client->socket->closeCode(), CloseCode::CloseCodeGoingAway);
    }
    QVERIFY(m_service->waitFor([&] { return gone.size() == 1; }));
    QCOMPARE(sockets->connectionCount(u"V1"_s), 0);

    // The device's reconnection is served as before.
    auto again = open(Socket);
    QVERIFY(again->everConnected);
    again->socket->sendBinaryMessage(listBytes({ping(1000)}));
    QVERIFY(m_service->waitForReports(u"V1"_s, 1));
}

void TestServiceWebSocket::admission_data()
{
    QTest::addColumn<WebSocketEndpoint::Admission>("admission");
    QTest::addColumn<bool>("opens");
    QTest::newRow("refuse") << WebSocketEndpoint::Admission::Refuse << false;
    QTest::newRow("close on open") << WebSocketEndpoint::Admission::CloseOnOpen << true;
}

void TestServiceWebSocket::admission()
{
    QFETCH(WebSocketEndpoint::Admission, admission);
    QFETCH(bool, opens);
    m_service->webSockets()->setAdmission(admission);
    if (!opens)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"WebSocket received"_s));

    auto client = open(Socket);
    QVERIFY(m_service->waitFor([&] { return client->closed; }));
    QCOMPARE(client->everConnected, opens);
    if (opens)
        QCOMPARE(client->socket->closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
    QVERIFY(!m_service->visit(u"V1"_s));

    m_service->webSockets()->setAdmission(WebSocketEndpoint::Admission::Accept);
    auto accepted = open(Socket);
    QVERIFY(accepted->everConnected);
    QVERIFY(m_service->visit(u"V1"_s)->isOpen());
}

QTEST_GUILESS_MAIN(TestServiceWebSocket)
#include "tst_servicewebsocket.moc"
