#include "LocalService.h"
#include "ServiceTestSupport.h"

#include <QBuffer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QWebSocket>

#include <memory>

using namespace Qt::StringLiterals;
using namespace ServiceTest;
using VistrelService::ConsoleEndpoint;
using VistrelService::LocalService;

namespace {
const QString Channel = u"/api/ix/m?id=V1&sId=S1&tId=T1&vId=U1&url=Form&fsTy=l"_s;
// The frame header of a 100×50 JPEG: what the console reads the screen size from.
const QByteArray Jpeg = QByteArray::fromHex("ffd8ffe000104a46494600010100000100010000"
                                            "ffc00011080032006403012200021101031101ffd9");

QByteArray png(int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return buffer.data();
}

QByteArray drawingBody(const QByteArray &bytes)
{
    return R"({"png":"data:image/png;base64,)" + bytes.toBase64() + R"("})";
}
} // namespace

class TestServiceConsole : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void refused_data();
    void refused();
    void commandsQueued_data();
    void commandsQueued();
    void commandsReachAWebSocketVisit();
    void pageServed_data();
    void pageServed();
    void visitsEnd_data();
    void visitsEnd();
    void conversations_data();
    void conversations();
    void commandStates_data();
    void commandStates();
    void liveFeed();

private:
    std::unique_ptr<LocalService> m_service;
    QNetworkAccessManager m_manager;

    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {})
    {
        return sendHttp(m_manager, m_service->hostAndPort(), method, pathAndQuery, body);
    }
    QJsonObject getObject(const QString &path)
    {
        return QJsonDocument::fromJson(send("GET", u"/console/api/"_s + path).body).object();
    }
    /// The conversation's time line events as "kind:text" lines, delivery and results included.
    QStringList timeline(const QString &conversationId);
};

void TestServiceConsole::init()
{
    m_service = std::make_unique<LocalService>();
    QVERIFY(m_service->start() != 0);
    // An open visit over HTTP whose screen is 300×150 device pixels, an ended one, and a device
    // polling without a visit.
    QCOMPARE(send("GET", Channel).status, 200);
    QCOMPARE(send("POST", Channel, listBytes({screenshot(Jpeg)})).status, 200);
    QCOMPARE(send("GET", u"/api/ix/m?id=V3&vId=U3"_s).status, 200);
    QCOMPARE(send("DELETE", u"/api/ix/m?id=V3&vId=U3"_s).status, 200);
    QCOMPARE(send("POST", u"/api/in/co?tId=T1&vId=U9&sId=&cId"_s, R"({"channels":["SCB"]})").status,
             200);
}

void TestServiceConsole::refused_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");

    const auto row = [](const char *name, const QByteArray &method, const QString &action,
                        const QByteArray &body, int status) {
        QTest::newRow(name) << method << u"/console/api/visits/"_s + action << body << status;
    };
    row("unknown visit", "POST", u"V2/click"_s, R"({"x":3,"y":3})", 404);
    row("malformed JSON", "POST", u"V1/click"_s, "{\"x\":", 400);
    row("x past the screen", "POST", u"V1/click"_s, R"({"x":300,"y":3})", 400);
    row("drawing too many bytes", "POST", u"V1/drawing"_s,
        drawingBody(png(4, 4) + QByteArray(ConsoleEndpoint::MaxDrawingBytes, 'x')), 413);
    row("drawing too wide", "POST", u"V1/drawing"_s,
        drawingBody(png(ConsoleEndpoint::MaxDrawingSide + 1, 1)), 413);
    row("GET a command", "GET", u"V1/click"_s, {}, 405);
    row("ended visit", "POST", u"V3/stop"_s, {}, 409);
}

void TestServiceConsole::refused()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    const HttpResult result = send(method, path, body);
    QCOMPARE(result.status, status);
    QVERIFY2(!QJsonDocument::fromJson(result.body).object().value(u"error"_s).toString().isEmpty(),
             result.body.constData());
    QVERIFY(m_service->visit(u"V1"_s)->pendingCommands().isEmpty());
    QVERIFY(!m_service->visit(u"V2"_s));
}

void TestServiceConsole::commandsQueued_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QByteArray>("body");
    // The command the visit gets; empty when a co-browsing start goes to the channel instead.
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QString>("visitor");

    const auto row = [](const char *name, const QString &action, const QByteArray &body,
                        const QByteArray &command, const QString &visitor = {}) {
        QTest::newRow(name) << action << body << command << visitor;
    };
    const QByteArray drawing = png(30, 15);
    const QByteArray corner = R"({"x":299,"y":149})";
    row("tap, last device pixel", u"visits/V1/click"_s, corner, corner);
    row("drawing", u"visits/V1/drawing"_s, drawingBody(drawing),
        R"({"d":{"u":"data:image/png;base64,)" + drawing.toBase64() + "\"}}");
    row("stop", u"visits/V1/stop"_s, {}, R"({"a":"c"})");
    row("faster polling", u"visits/V1/faster"_s, {}, R"({"co":{"b":true}})");
    row("opt-in", u"visits/V1/opt-in"_s, {}, R"({"co":{"opt":true}})");
    row("restart", u"visits/V1/start"_s, {}, R"({"co":{"s":true}})");
    row("co-browse the visit's visitor", u"visits/V1/co-browse"_s, {}, {}, u"U1"_s);
    row("co-browse a device without a visit", u"pollers/U9/co-browse"_s, {}, {}, u"U9"_s);
}

void TestServiceConsole::commandsQueued()
{
    QFETCH(QString, action);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, command);
    QFETCH(QString, visitor);

    QCOMPARE(send("POST", u"/console/api/"_s + action, body).status, 200);
    const auto pending = m_service->visit(u"V1"_s)->pendingCommands();
    if (command.isEmpty()) {
        QVERIFY(pending.isEmpty());
        QCOMPARE(m_service->queuedChannelMessages(visitor),
                 (QList<VistrelService::ChannelMessage>{{u"SCB"_s, QString()}}));
        return;
    }
    // The device reads it on its next post.
    const HttpResult reply = send("POST", Channel, listBytes({ping(2000)}));
    const QJsonArray elements = QJsonDocument::fromJson(reply.body).array();
    QCOMPARE(elements.size(), 1);
    QCOMPARE(QJsonDocument::fromJson(elements.first().toString().toUtf8()).array(),
             QJsonArray{QJsonDocument::fromJson(command).object()});
}

void TestServiceConsole::commandsReachAWebSocketVisit()
{
    QWebSocket socket;
    QStringList frames;
    connect(&socket, &QWebSocket::textMessageReceived, this,
            [&frames](const QString &frame) { frames.append(frame); });
    socket.open(QUrl(u"ws://"_s + m_service->hostAndPort() +
                     u"/api/in/imws?tId=T2&sId=S2&vId=U2&t=x&id=W1&shrId=54321&vsId=S2&url=Chat"
                     u"&fsTy=l"_s));
    QVERIFY(m_service->waitForVisitOpen(u"W1"_s));
    socket.sendBinaryMessage(listBytes({screenshot(Jpeg)}));
    QVERIFY(m_service->waitForReports(u"W1"_s, 1));
    QCOMPARE(send("POST", u"/console/api/visits/W1/click"_s, R"({"x":3,"y":6})").status, 200);
    QVERIFY(m_service->waitFor([&frames] { return !frames.isEmpty(); }));
    QCOMPARE(frames, QStringList{uR"({"x":3,"y":6})"_s});
}

void TestServiceConsole::pageServed_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArray>("mark");

    QTest::newRow("page") << u"/"_s << "text/html"_ba
                          << "screen-image"_ba;
    QTest::newRow("style") << u"/console/console.css"_s << "text/css"_ba
                           << "#drawing-canvas"_ba;
    QTest::newRow("script") << u"/console/console.js"_s << "text/javascript"_ba
                            << "/console/api"_ba;
}

void TestServiceConsole::pageServed()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, contentType);
    QFETCH(QByteArray, mark);
    const HttpResult result = send("GET", path);
    QCOMPARE(result.status, 200);
    QVERIFY(result.contentType.startsWith(contentType));
    QVERIFY(result.body.contains(mark));
}

QStringList TestServiceConsole::timeline(const QString &conversationId)
{
    QStringList lines;
    const QJsonObject answer = getObject(u"conversations/"_s + conversationId + u"/events"_s);
    for (const QJsonValue &value : answer.value(u"events"_s).toArray()) {
        const QJsonObject event = value.toObject();
        const QString kind = event.value(u"kind"_s).toString();
        QString detail;
        if (kind == u"visit"_s)
            detail = event.value(u"visitId"_s).toString();
        else if (kind == u"ended"_s)
            detail =
                event.value(u"visitId"_s).toString() + u' ' + event.value(u"reason"_s).toString();
        else if (kind == u"page"_s)
            detail = event.value(u"screen"_s).toString();
        else if (kind == u"delivered"_s)
            detail = event.value(u"transport"_s).toString();
        else
            detail = event.value(u"text"_s).toString();
        lines.append(kind + u':' + detail);
    }
    return lines;
}

void TestServiceConsole::visitsEnd_data()
{
    QTest::addColumn<bool>("deleted");
    QTest::addColumn<bool>("speaksAgain");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("reason");

    // A killed app never deletes its visit: without the silence rule it stays live forever.
    QTest::newRow("silent") << false << false << u"ended"_s << u"silent"_s;
    // Held reports after a network stall must bring the visit back, not land on a dead one.
    QTest::newRow("silent, then reports again") << false << true << u"open"_s << QString();
    // A deleted visit stays ended even if the device flushes once more.
    QTest::newRow("deleted") << true << true << u"ended"_s << u"deleted"_s;
}

void TestServiceConsole::visitsEnd()
{
    QFETCH(bool, deleted);
    QFETCH(bool, speaksAgain);
    QFETCH(QString, state);
    QFETCH(QString, reason);

    m_service->setSilenceTimeout(300);
    if (deleted)
        QCOMPARE(send("DELETE", Channel).status, 200);
    else
        QVERIFY(m_service->waitFor([this] { return !m_service->visit(u"V1"_s)->isOpen(); }, 3000));
    if (speaksAgain)
        QCOMPARE(send("POST", Channel, listBytes({ping(3000)})).status, 200);
    const QJsonObject visit = getObject(u"visits/V1"_s);
    QCOMPARE(visit.value(u"state"_s).toString(), state);
    QCOMPARE(visit.value(u"endReason"_s).toString(), reason);
    const QJsonObject list = getObject(u"conversations"_s);
    const QJsonObject first = list.value(u"conversations"_s).toArray().first().toObject();
    QCOMPARE(first.value(u"state"_s).toString(), state == u"open"_s ? u"live"_s : u"ended"_s);
}

void TestServiceConsole::conversations_data()
{
    QTest::addColumn<QString>("next");
    QTest::addColumn<int>("conversationCount");

    // init() opened V1 (visitor U1, session S1) and V3 (visitor U3, no session).
    QTest::newRow("restart: same visitor, new session")
        << u"/api/ix/m?id=V4&sId=S4&tId=T1&vId=U1&url=Form"_s << 2;
    QTest::newRow("user identified: new visitor, same session")
        << u"/api/ix/m?id=V4&sId=S1&tId=T1&vId=alex&url=List"_s << 2;
    QTest::newRow("another device") << u"/api/ix/m?id=V4&sId=S4&tId=T1&vId=U4&url=Form"_s << 3;
}

void TestServiceConsole::conversations()
{
    QFETCH(QString, next);
    QFETCH(int, conversationCount);

    QCOMPARE(send("GET", next).status, 200);
    const QJsonArray list = getObject(u"conversations"_s).value(u"conversations"_s).toArray();
    QCOMPARE(list.size(), conversationCount);
    const QJsonObject v1 = list.first().toObject();
    QCOMPARE(v1.value(u"id"_s).toString(), u"V1"_s);
    const bool joined = conversationCount == 2;
    QCOMPARE(v1.value(u"visitCount"_s).toInt(), joined ? 2 : 1);
    // The console works on the newest open visit of the conversation.
    QCOMPARE(v1.value(u"visit"_s).toObject().value(u"id"_s).toString(), joined ? u"V4"_s : u"V1"_s);
    if (joined)
        QCOMPARE(timeline(u"V1"_s), (QStringList{u"visit:V1"_s, u"visit:V4"_s}));
}

void TestServiceConsole::commandStates_data()
{
    QTest::addColumn<QString>("action");
    // What the device does after fetching: a report, a new visit, a delete, or nothing.
    QTest::addColumn<QString>("deviceDoes");
    QTest::addColumn<QStringList>("expected");

    const QString tap = u"command:Tap at (10, 20)"_s;
    QTest::newRow("tap answered by a page change")
        << u"visits/V1/click"_s << u"page"_s
        << QStringList{tap, u"delivered:xhr"_s, u"page:List"_s, u"result:Page List"_s};
    QTest::newRow("restart answered by the new visit")
        << u"visits/V1/start"_s << u"visit"_s
        << QStringList{u"command:Restart session"_s, u"delivered:xhr"_s, u"visit:V5"_s,
                       u"result:New visit, share id 777"_s};
    QTest::newRow("stop answered by the delete")
        << u"visits/V1/stop"_s << u"delete"_s
        << QStringList{u"command:Stop"_s, u"delivered:xhr"_s, u"ended:V1 deleted"_s,
                       u"result:Visit ended by the device"_s};
    // Nothing comes back for it: it must stay delivered, not pick up the next report.
    QTest::newRow("faster polling stays delivered")
        << u"visits/V1/faster"_s << u"page"_s
        << QStringList{u"command:Faster polling"_s, u"delivered:xhr"_s, u"page:List"_s};
    QTest::newRow("co-browsing start over the channel poll")
        << u"visits/V1/co-browse"_s << u"poll+visit"_s
        << QStringList{u"command:Start co-browsing"_s, u"delivered:poll"_s, u"visit:V5"_s,
                       u"result:New visit, share id 777"_s};
}

void TestServiceConsole::commandStates()
{
    QFETCH(QString, action);
    QFETCH(QString, deviceDoes);
    QFETCH(QStringList, expected);

    const HttpResult queued = send("POST", u"/console/api/"_s + action, R"({"x":10,"y":20})");
    QCOMPARE(queued.status, 200);
    QVERIFY(QJsonDocument::fromJson(queued.body).object().value(u"commandId"_s).toInteger() > 0);
    QCOMPARE(timeline(u"V1"_s).constLast(), expected.constFirst());

    if (deviceDoes.startsWith(u"poll"_s)) {
        QCOMPARE(send("POST", u"/api/in/co?tId=T1&vId=U1&sId=S1&cId"_s, R"({"channels":["SCB"]})")
                     .status,
                 200);
    } else {
        QCOMPARE(send("POST", Channel, listBytes({ping(2000)})).status, 200);
    }
    if (deviceDoes == u"page"_s) {
        QCOMPARE(send("POST", Channel, listBytes({pageChange(u"List"_s)})).status, 200);
    } else if (deviceDoes.endsWith(u"visit"_s)) {
        // Over HTTP the share id comes with the init request, before the channel opens.
        QCOMPARE(send("POST", u"/api/in/im/c"_s, R"({"visitId":"V5","shareId":"777"})").status,
                 200);
        QCOMPARE(send("GET", u"/api/ix/m?id=V5&sId=S5&tId=T1&vId=U1&url=Form"_s).status, 200);
    } else if (deviceDoes == u"delete"_s) {
        QCOMPARE(send("DELETE", Channel).status, 200);
    }
    const QStringList lines = timeline(u"V1"_s);
    QCOMPARE(lines.mid(lines.indexOf(expected.constFirst())), expected);
}

void TestServiceConsole::liveFeed()
{
    // The devices' WebSocket being refused must not cut the console off.
    m_service->webSockets()->setAdmission(VistrelService::WebSocketEndpoint::Admission::Refuse);
    QWebSocket console;
    QStringList frames;
    connect(&console, &QWebSocket::textMessageReceived, this,
            [&frames](const QString &frame) { frames.append(frame); });
    console.open(QUrl(u"ws://"_s + m_service->hostAndPort() + u"/console/api/live"_s));
    QVERIFY(m_service->waitFor([&] { return m_service->consoleFeed()->connectionCount() == 1; }));

    // Three reports in one request are one change to read, not three.
    QCOMPARE(
        send("POST", Channel, listBytes({screenshot(Jpeg), pageChange(u"List"_s), ping(5)})).status,
        200);
    QVERIFY(m_service->waitFor([&frames] { return !frames.isEmpty(); }));
    QTest::qWait(50);
    QCOMPARE(frames,
             QStringList{uR"({"calls":false,"chat":false,"conversations":["V1"],"list":true})"_s});
}

QTEST_GUILESS_MAIN(TestServiceConsole)
#include "tst_serviceconsole.moc"
