#include "LogCapture.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "TransportFixture.h"
#include "WebSocketEndpoint.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::WebSocketEndpoint;

namespace {
ProtoMessage tag(const QString &text)
{
    return MessageSender::tagReport(text, 0);
}

// Calls of onSuccess and onError given to one start().
struct Callbacks
{
    int successes = 0;
    int errors = 0;
    MessageSender::Callback onSuccess()
    {
        return [this] { ++successes; };
    }
    MessageSender::Callback onError()
    {
        return [this] { ++errors; };
    }
};

std::optional<Error> sendNow(WebSocketMessageSender &sender, const ProtoMessage &message)
{
    std::optional<Error> result = StringError(u"completion not called"_s);
    sender.send(u"Main"_s, message,
                [&result](const std::optional<Error> &error) { result = error; });
    return result;
}
} // namespace

class tst_WebSocketMessageSender : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void urlAndHandshake();
    void sendBeforeTheConnectionOpened_data();
    void sendBeforeTheConnectionOpened();
    void oneFramePerReport();
    void reconnectsAfterADrop_data();
    void reconnectsAfterADrop();
    void noRetryWhenTheFirstConnectionFails();
    void textFrames_data();
    void textFrames();
    void binaryFramesAreDropped();
    void stopClosesNormally();
    void invalidUrlConnectsNothing();

private:
    bool waitOpen(Callbacks &callbacks);

    std::unique_ptr<TransportFixture> f;
    std::unique_ptr<WebSocketMessageSender> sender;
};

void tst_WebSocketMessageSender::init()
{
    f = std::make_unique<TransportFixture>();
    sender = std::make_unique<WebSocketMessageSender>(f->config.get(), f->initSender.get(),
                                                      f->api.get(), f->http.get(), f->parser.get());
}

void tst_WebSocketMessageSender::cleanup()
{
    sender.reset();
    f.reset();
}

bool tst_WebSocketMessageSender::waitOpen(Callbacks &callbacks)
{
    sender->start(u"Main"_s, callbacks.onSuccess(), callbacks.onError());
    return f->service.waitFor([&] { return sender->wasSuccessfulOnce(); });
}

void tst_WebSocketMessageSender::urlAndHandshake()
{
    const ApplicationConfig &config = f->config->config();
    const VisitConfig &visit = config.visitConfig;
    QCOMPARE(
        sender->buildUrl(u"Main"_s),
        u"ws://%1/api/in/imws?tId=tenant-1&sId=%2&vId=%3&t=token-1&id=%4&shrId=%5&vsId=%2&url=Main&fsTy=l"_s
            .arg(f->service.hostAndPort(), *visit.sessionId, *visit.visitorId, *visit.visitId,
                 *config.vistrelConfig.shareId));

    Callbacks callbacks;
    QVERIFY(waitOpen(callbacks));
    QCOMPARE(callbacks.successes, 1);
    QCOMPARE(callbacks.errors, 0);
    const auto handshakes = f->service.requests(WebSocketEndpoint::Path.toString());
    QCOMPARE(handshakes.size(), 1);
    QCOMPARE(handshakes.first().header("X-OV-SSID"), visit.sessionId->toUtf8());
    QCOMPARE(handshakes.first().queryValue(u"shrId"_s), *config.vistrelConfig.shareId);
}

void tst_WebSocketMessageSender::sendBeforeTheConnectionOpened_data()
{
    QTest::addColumn<bool>("started");
    QTest::addColumn<QString>("message");
    QTest::newRow("before start") << false << u"No socket found"_s;
    QTest::newRow("before the connection opened") << true << u"Sender is closed"_s;
}

void tst_WebSocketMessageSender::sendBeforeTheConnectionOpened()
{
    QFETCH(bool, started);
    QFETCH(QString, message);
    if (started)
        sender->start(u"Main"_s, nullptr, nullptr);
    const auto error = sendNow(*sender, tag(u"early"_s));
    QVERIFY(error && error->stringError());
    QCOMPARE(error->stringError()->message(), message);
}

void tst_WebSocketMessageSender::oneFramePerReport()
{
    Callbacks callbacks;
    QVERIFY(waitOpen(callbacks));
    for (const QString &text : {u"a"_s, u"b"_s, u"c"_s})
        QVERIFY(!sendNow(*sender, tag(text)));
    QVERIFY(f->service.waitForReports(f->visitId(), 3));
    const auto reports = f->service.visit(f->visitId())->reports();
    QCOMPARE(reports.size(), 3);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(reports.at(i).transport, VistrelService::Transport::WebSocket);
        QCOMPARE(QString::fromStdString(reports.at(i).message.tag()), QString(QChar(u'a' + i)));
    }
}

void tst_WebSocketMessageSender::reconnectsAfterADrop_data()
{
    QTest::addColumn<bool>("withCloseFrame");
    QTest::addColumn<int>("closeCode");
    QTest::addColumn<QString>("logLine");
    QTest::newRow("network failure")
        << false << 0
        << u"[WARNING] WebSocketMessageSender: Connection closed with unknown error"_s;
    QTest::newRow("normal close") << true << 1000
                                  << u"[DEBUG] WebSocketMessageSender: Connection closed"_s;
    QTest::newRow("going away") << true << 1001
                                << u"[WARNING] WebSocketMessageSender: Connection closed: 1001"_s;
}

void tst_WebSocketMessageSender::reconnectsAfterADrop()
{
    QFETCH(bool, withCloseFrame);
    QFETCH(int, closeCode);
    QFETCH(QString, logLine);
    LogCapture capture;
    Callbacks callbacks;
    QVERIFY(waitOpen(callbacks));
    QSignalSpy connected(&f->service, &VistrelService::LocalService::webSocketConnected);

    if (withCloseFrame)
        QCOMPARE(f->service.webSockets()->closeConnections(
                     f->visitId(), QWebSocketProtocol::CloseCode(closeCode)),
                 1);
    else
        QCOMPARE(f->service.webSockets()->dropConnections(f->visitId()), 1);

    QTRY_VERIFY(capture.contains(logLine));
    QTRY_VERIFY(capture.contains(u"[DEBUG] WebSocketMessageSender: Connect again"_s));
    QTRY_COMPARE(connected.size(), 1);
    // The callbacks of that start were used up by the first connection.
    QCOMPARE(callbacks.successes, 1);
    QCOMPARE(callbacks.errors, 0);
    // The reopened connection carries reports.
    QTRY_COMPARE(f->service.webSockets()->connectionCount(f->visitId()), 1);
    QVERIFY(!sendNow(*sender, tag(u"after"_s)));
    QVERIFY(f->service.waitForReports(f->visitId(), 1));
}

void tst_WebSocketMessageSender::noRetryWhenTheFirstConnectionFails()
{
    LogCapture capture;
    f->service.webSockets()->setAdmission(WebSocketEndpoint::Admission::Refuse);
    Callbacks callbacks;
    sender->start(u"Main"_s, callbacks.onSuccess(), callbacks.onError());
    QTRY_COMPARE(callbacks.errors, 1);
    QTest::qWait(500);
    QCOMPARE(callbacks.errors, 1);
    QCOMPARE(callbacks.successes, 0);
    QVERIFY(!capture.contains(u"Connect again"_s));
    QCOMPARE(capture.count(u"[DEBUG] WebSocketMessageSender: Connect to "_s), 1);
    QVERIFY(!sender->wasSuccessfulOnce());
}

void tst_WebSocketMessageSender::textFrames_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("logLine");
    QTest::addColumn<int>("handled");
    QTest::newRow("command") << R"({"x":300,"y":600})"_ba << QString() << 1;
    QTest::newRow("empty array") << "[]"_ba
                                 << u"[ERROR] WebSocketMessageSender: Cannot convert to dict: []"_s
                                 << 0;
    QTest::newRow("number") << "42"_ba
                            << u"[ERROR] WebSocketMessageSender: Cannot convert to dict: 42"_s << 0;
    QTest::newRow("not JSON")
        << "{oops"_ba
        << u"[ERROR] WebSocketMessageSender: Cannot parse JSON of WebSocket response: {oops"_s << 0;
    QTest::newRow("deeply nested")
        << QByteArray(5000, '[')
        << u"[ERROR] WebSocketMessageSender: Cannot parse JSON of WebSocket response: [[["_s << 0;
}

void tst_WebSocketMessageSender::textFrames()
{
    QFETCH(QByteArray, frame);
    QFETCH(QString, logLine);
    QFETCH(int, handled);
    LogCapture capture;
    Callbacks callbacks;
    QVERIFY(waitOpen(callbacks));
    f->service.queueRawCommand(f->visitId(), frame);
    // A good command after it shows the frame before was dealt with and the socket lives on.
    QVERIFY(f->service.queueCommand(f->visitId(), R"({"a":"c"})"_ba));
    QTRY_COMPARE(f->handler.messages.size(), handled + 1);
    QVERIFY(f->handler.messages.last().stop.value_or(false));
    if (!logLine.isEmpty())
        QVERIFY2(capture.contains(logLine), qPrintable(capture.lines().join(u'\n')));
}

void tst_WebSocketMessageSender::binaryFramesAreDropped()
{
    // The service never sends binary frames; the sender's reaction is checked on its own.
    LogCapture capture;
    Callbacks callbacks;
    QVERIFY(waitOpen(callbacks));
    Q_EMIT sender->socket()->binaryMessageReceived("\x01\x02"_ba);
    QVERIFY(
        capture.contains(u"[WARNING] WebSocketMessageSender: Received unexpected binary data"_s));
    QVERIFY(f->handler.messages.isEmpty());
}

void tst_WebSocketMessageSender::stopClosesNormally()
{
    LogCapture capture;
    Callbacks callbacks;
    QVERIFY(waitOpen(callbacks));
    QSignalSpy closed(&f->service, &VistrelService::LocalService::webSocketDisconnected);
    sender->stop();
    QTRY_COMPARE(closed.size(), 1);
    QCOMPARE(closed.first().at(1).value<QWebSocketProtocol::CloseCode>(),
             QWebSocketProtocol::CloseCodeNormal);
    QVERIFY(f->service.waitForRequests(u"/api/ix/m"_s, 1));
    QCOMPARE(f->service.requests(u"/api/ix/m"_s).first().method, u"DELETE"_s);
    // Our own close is no error: nothing logged about it, no reconnect.
    QTest::qWait(300);
    QVERIFY(!capture.contains(u"Connection closed"_s));
    QVERIFY(!capture.contains(u"Connect again"_s));
    const auto error = sendNow(*sender, tag(u"after stop"_s));
    QVERIFY(error);
    QCOMPARE(error->stringError()->message(), u"Sender is closed"_s);
}

void tst_WebSocketMessageSender::invalidUrlConnectsNothing()
{
    LogCapture capture;
    Callbacks callbacks;
    sender->start(u"Main Window"_s, callbacks.onSuccess(), callbacks.onError());
    QCOMPARE(capture.lines(),
             QStringList{u"[WARNING] WebSocketMessageSender: Cannot construct URL"_s});
    QTest::qWait(200);
    QCOMPARE(callbacks.successes + callbacks.errors, 0);
    QVERIFY(!sender->socket());
    QVERIFY(f->service.requests(WebSocketEndpoint::Path.toString()).isEmpty());
}

QTEST_MAIN(tst_WebSocketMessageSender)
#include "tst_websocketmessagesender.moc"
