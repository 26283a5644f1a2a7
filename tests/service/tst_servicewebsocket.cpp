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

namespace {
const QString Socket =
    u"/api/in/imws?tId=T1&sId=S1&vId=U1&t=token&id=V1&shrId=12345&vsId=S1&url=Form&fsTy=l"_s;
}

class TestServiceWebSocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void badFrames_data();
    void badFrames();
    void wrongPathOrIdClosed_data();
    void wrongPathOrIdClosed();

private:
    /// A device's socket, once it is open or closed.
    std::unique_ptr<QWebSocket> open(const QString &pathAndQuery)
    {
        auto socket = std::make_unique<QWebSocket>();
        socket->open(QUrl(u"ws://"_s + m_service->hostAndPort() + pathAndQuery));
        m_service->waitFor([&] { return socket->state() != QAbstractSocket::ConnectingState; });
        return socket;
    }
    bool waitClosed(QWebSocket *socket)
    {
        return m_service->waitFor(
            [socket] { return socket->state() == QAbstractSocket::UnconnectedState; });
    }

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

void TestServiceWebSocket::badFrames_data()
{
    QTest::addColumn<bool>("binary");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("log"); // empty when the frame closes the connection

    QTest::newRow("truncated field") << true << QByteArray::fromHex("0a106162") << u"undecodable"_s;
    QTest::newRow("JSON as binary") << true << R"({"x":1})"_ba << u"undecodable"_s;
    QTest::newRow("text") << false << R"({"x":1})"_ba << u"text frame"_s;
    QTest::newRow("oversized") << true << listBytes({screenshot(QByteArray(4096, 'j'))})
                               << QString();
}

void TestServiceWebSocket::badFrames()
{
    QFETCH(bool, binary);
    QFETCH(QByteArray, frame);
    QFETCH(QString, log);
    m_service->setMaxBodySize(1024);
    QSignalSpy rejected(m_service.get(), &LocalService::webSocketFrameRejected);
    auto socket = open(Socket);
    QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);

    if (!log.isEmpty())
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(log));
    if (binary)
        socket->sendBinaryMessage(frame);
    else
        socket->sendTextMessage(QString::fromUtf8(frame));
    if (log.isEmpty()) {
        QVERIFY(waitClosed(socket.get()));
        QCOMPARE(socket->closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
        QVERIFY(m_service->visit(u"V1"_s)->reports().isEmpty());
        socket = open(Socket);
    }
    // Frames are handled in order: once the next one is recorded the bad one was dropped.
    socket->sendBinaryMessage(listBytes({pageChange(u"Form"_s)}));
    QVERIFY(m_service->waitForReports(u"V1"_s, 1));
    QCOMPARE(m_service->visit(u"V1"_s)->reports().size(), 1);
    QCOMPARE(rejected.size(), log.isEmpty() ? 0 : 1);
    QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);
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
    auto socket = open(path);
    QVERIFY(waitClosed(socket.get()));
    QCOMPARE(socket->closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    QVERIFY(m_service->visits().isEmpty());
    QCOMPARE(m_service->webSockets()->connectionCount(), 0);
}

QTEST_GUILESS_MAIN(TestServiceWebSocket)
#include "tst_servicewebsocket.moc"
