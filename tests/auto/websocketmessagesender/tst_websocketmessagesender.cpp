#include "LogCapture.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "TransportFixture.h"
#include "WebSocketEndpoint.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::WebSocketEndpoint;

namespace {
/// A WebSocket sender against the local service, counting the callbacks of its start().
struct Fixture : TransportFixture
{
    void start()
    {
        sender.start(
            u"Main"_s, [this] { ++successes; }, [this] { ++errors; });
    }
    bool startAndWaitOpen()
    {
        start();
        return service.waitFor([this] { return sender.wasSuccessfulOnce(); });
    }
    /// What send() completed with: empty on success.
    QString send(const QString &tag)
    {
        QString result = u"completion not called"_s;
        sender.send(u"Main"_s, MessageSender::tagReport(tag, 0),
                    [&result](const std::optional<Error> &error) {
                        result = error ? error->description() : QString();
                    });
        return result;
    }

    WebSocketMessageSender sender{config.get(), initSender.get(), api.get(), http.get(),
                                  parser.get()};
    LogCapture log;
    int successes = 0;
    int errors = 0;
};
} // namespace

class tst_WebSocketMessageSender : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void sendsOneFramePerReportWhileOpen();
    void reconnectsAfterADrop_data();
    void reconnectsAfterADrop();
    void stopCancelsAPendingReconnect();
    void noRetryWhenTheFirstConnectionFails_data();
    void noRetryWhenTheFirstConnectionFails();
    void screenNameThatBreaksTheUrl();
    void textFrames_data();
    void textFrames();
};

void tst_WebSocketMessageSender::sendsOneFramePerReportWhileOpen()
{
    Fixture f;
    const ApplicationConfig &config = f.config->config();
    const VisitConfig &visit = config.visitConfig;
    QCOMPARE(
        f.sender.buildUrl(u"Main"_s),
        u"ws://%1/api/in/imws?tId=tenant-1&sId=%2&vId=%3&t=token-1&id=%4&shrId=%5&vsId=%2&url=Main&fsTy=l"_s
            .arg(f.service.hostAndPort(), *visit.sessionId, *visit.visitorId, *visit.visitId,
                 *config.vistrelConfig.shareId));
    QCOMPARE(f.send(u"early"_s), u"StringError(mMsg: \"No socket found\")"_s);
    const QString senderClosed = u"StringError(mMsg: \"Sender is closed\")"_s;
    f.start();
    QCOMPARE(f.send(u"early"_s), senderClosed);

    QVERIFY(f.service.waitFor([&f] { return f.sender.wasSuccessfulOnce(); }));
    QCOMPARE(f.successes, 1);
    QCOMPARE(f.errors, 0);
    const auto handshakes = f.service.requests(WebSocketEndpoint::Path.toString());
    QCOMPARE(handshakes.size(), 1);
    QCOMPARE(handshakes.first().header("X-OV-SSID"), visit.sessionId->toUtf8());

    QSignalSpy frames(f.service.webSockets(), &WebSocketEndpoint::frameReceived);
    for (const QString &text : {u"a"_s, u"b"_s, u"c"_s})
        QCOMPARE(f.send(text), QString());
    QVERIFY(f.service.waitForReports(f.visitId(), 3));
    QCOMPARE(frames.size(), 3);
    for (const auto &frame : frames)
        QCOMPARE(frame.at(1).toInt(), 1);
    const auto reports = f.service.visit(f.visitId())->reports();
    QCOMPARE(reports.size(), 3);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(reports.at(i).transport, VistrelService::Transport::WebSocket);
        QCOMPARE(QString::fromStdString(reports.at(i).message.tag()), QString(QChar(u'a' + i)));
    }

    QSignalSpy disconnected(&f.service, &VistrelService::LocalService::webSocketDisconnected);
    f.sender.stop();
    QTRY_COMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(1).value<QWebSocketProtocol::CloseCode>(),
             QWebSocketProtocol::CloseCodeNormal);
    // Our own close is no error: nothing logged about it, no reconnect.
    QTest::qWait(300);
    QVERIFY(!f.log.contains(u"Connection closed"_s));
    QVERIFY(!f.log.contains(u"Connect again"_s));
    QCOMPARE(f.send(u"after stop"_s), senderClosed);
}

void tst_WebSocketMessageSender::reconnectsAfterADrop_data()
{
    QTest::addColumn<int>("closeCode"); // 0: the connection breaks without a close frame
    QTest::addColumn<QString>("logLine");
    const QString prefix = u"WebSocketMessageSender: Connection closed"_s;
    QTest::newRow("network failure") << 0 << u"[WARNING] "_s + prefix + u" with unknown error"_s;
    QTest::newRow("normal close") << 1000 << u"[DEBUG] "_s + prefix;
    QTest::newRow("going away") << 1001 << u"[WARNING] "_s + prefix + u": 1001"_s;
}

void tst_WebSocketMessageSender::reconnectsAfterADrop()
{
    QFETCH(int, closeCode);
    QFETCH(QString, logLine);
    Fixture f;
    QVERIFY(f.startAndWaitOpen());
    QSignalSpy connected(&f.service, &VistrelService::LocalService::webSocketConnected);

    auto *endpoint = f.service.webSockets();
    QCOMPARE(closeCode
                 ? endpoint->closeConnections(f.visitId(), QWebSocketProtocol::CloseCode(closeCode))
                 : endpoint->dropConnections(f.visitId()),
             1);
    QTRY_VERIFY(f.log.contains(logLine));
    QTRY_VERIFY(f.log.contains(u"[DEBUG] WebSocketMessageSender: Connect again"_s));
    // Both ends must see the new connection before a frame can travel on it.
    QTRY_VERIFY_WITH_TIMEOUT(connected.size() == 1 &&
                                 f.sender.socket()->state() == QAbstractSocket::ConnectedState,
                             30000);
    // The callbacks of that start were used up by the first connection.
    QCOMPARE(f.successes, 1);
    QCOMPARE(f.errors, 0);
    QCOMPARE(f.send(u"after"_s), QString());
    QVERIFY(f.service.waitForReports(f.visitId(), 1, 30000));
}

void tst_WebSocketMessageSender::stopCancelsAPendingReconnect()
{
    QStringList lines;
    Fixture f;
    QVERIFY(f.startAndWaitOpen());
    // Stopped between the drop and the reopen it queued.
    Log::setListener([&f, &lines](const QString &line) {
        lines.append(line);
        if (line.endsWith(u"Connect again"_s))
            f.sender.stop();
    });
    QCOMPARE(f.service.webSockets()->dropConnections(f.visitId()), 1);
    QTRY_VERIFY(!lines.filter(u"Delete sent"_s).isEmpty());
    QTest::qWait(500);
    QCOMPARE(f.service.requests(WebSocketEndpoint::Path.toString()).size(), 1);
    QVERIFY(lines.filter(u"Connection opened"_s).isEmpty());
    QCOMPARE(f.send(u"after stop"_s), u"StringError(mMsg: \"Sender is closed\")"_s);
}

void tst_WebSocketMessageSender::noRetryWhenTheFirstConnectionFails_data()
{
    QTest::addColumn<bool>("silentPeer");
    QTest::newRow("handshake refused") << false;
    // Accepts the connection and never answers the handshake.
    QTest::newRow("handshake times out") << true;
}

void tst_WebSocketMessageSender::noRetryWhenTheFirstConnectionFails()
{
    QFETCH(bool, silentPeer);
    Fixture f;
    QTcpServer silent;
    if (silentPeer) {
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        f.config->config().hostname = u"127.0.0.1:"_s + QString::number(silent.serverPort());
        f.sender.setConnectTimeout(300);
    } else {
        f.service.webSockets()->setAdmission(WebSocketEndpoint::Admission::Refuse);
    }
    f.start();
    QTRY_COMPARE(f.errors, 1);
    if (silentPeer)
        QVERIFY(f.log.contains(u"Connection closed with unknown error"_s));
    QTest::qWait(500);
    QCOMPARE(f.errors, 1);
    QCOMPARE(f.successes, 0);
    QVERIFY(!f.log.contains(u"Connect again"_s));
    QCOMPARE(f.service.requests(WebSocketEndpoint::Path.toString()).size(), silentPeer ? 0 : 1);
}

void tst_WebSocketMessageSender::screenNameThatBreaksTheUrl()
{
    Fixture f;
    // Inserted unescaped, a space makes the URL invalid: nothing connects, no callback runs.
    f.sender.start(
        u"Main screen"_s, [&f] { ++f.successes; }, [&f] { ++f.errors; });
    QVERIFY(f.log.contains(u"[WARNING] WebSocketMessageSender: Cannot construct URL"_s));
    QTest::qWait(300);
    QCOMPARE(f.successes + f.errors, 0);
    QCOMPARE(f.service.requests(WebSocketEndpoint::Path.toString()).size(), 0);
    QCOMPARE(f.send(u"lost"_s), u"StringError(mMsg: \"No socket found\")"_s);
}

void tst_WebSocketMessageSender::textFrames_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("logLine");
    QTest::addColumn<int>("handled");
    const QString notDict = u"[ERROR] WebSocketMessageSender: Cannot convert to dict: "_s;
    const QString notJson =
        u"[ERROR] WebSocketMessageSender: Cannot parse JSON of WebSocket response: "_s;
    QTest::newRow("command") << R"({"x":300,"y":600})"_ba << QString() << 1;
    QTest::newRow("empty array") << "[]"_ba << notDict + u"[]"_s << 0;
    QTest::newRow("number") << "42"_ba << notDict + u"42"_s << 0;
    QTest::newRow("not JSON") << "{oops"_ba << notJson + u"{oops"_s << 0;
    QTest::newRow("deeply nested") << QByteArray(5000, '[') << notJson + u"[[["_s << 0;
    // Read in time linear in its size (an ordered reader would take minutes).
    QByteArray manyKeys = "{";
    for (int i = 0; i < 200'000; ++i)
        manyKeys += "\"k" + QByteArray::number(i) + "\":0,";
    QTest::newRow("200 000 keys") << manyKeys + R"("x":3})"_ba << QString() << 1;
}

void tst_WebSocketMessageSender::textFrames()
{
    QFETCH(QByteArray, frame);
    QFETCH(QString, logLine);
    QFETCH(int, handled);
    Fixture f;
    QVERIFY(f.startAndWaitOpen());
    f.service.queueRawCommand(f.visitId(), frame);
    // A good command after it shows the frame before was dealt with and the socket lives on.
    QVERIFY(f.service.queueCommand(f.visitId(), R"({"a":"c"})"_ba));
    QTRY_COMPARE(f.commands.size(), handled + 1);
    QVERIFY(f.commands.last().stop.value_or(false));
    if (!logLine.isEmpty())
        QVERIFY2(f.log.contains(logLine), qPrintable(f.log.lines().join(u'\n')));
}

QTEST_MAIN(tst_WebSocketMessageSender)
#include "tst_websocketmessagesender.moc"
