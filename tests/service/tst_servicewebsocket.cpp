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

    void badFramesDropped_data();
    void badFramesDropped();
    void oversizedFrameClosesConnection();
    void wrongPathOrIdClosed_data();
    void wrongPathOrIdClosed();

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

QTEST_GUILESS_MAIN(TestServiceWebSocket)
#include "tst_servicewebsocket.moc"
