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
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QByteArray drawingBody(const QByteArray &bytes)
{
    return R"({"png":"data:image/png;base64,)" + bytes.toBase64() + R"("})";
}

QJsonObject objectOf(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}
} // namespace

class TestServiceConsole : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void refused_data();
    void refused();
    void commandsQueued_data();
    void commandsQueued();
    void liveViewOverBothTransports();
    void pageServed_data();
    void pageServed();

private:
    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {})
    {
        return sendHttp(m_manager, m_service->hostAndPort(), method, pathAndQuery, body);
    }

    std::unique_ptr<LocalService> m_service;
    QNetworkAccessManager m_manager;
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

void TestServiceConsole::cleanup()
{
    m_service.reset();
}

void TestServiceConsole::refused_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");

    const QString click = u"/console/api/visits/V1/click"_s;
    const QString drawing = u"/console/api/visits/V1/drawing"_s;
    const QByteArray tap = R"({"x":3,"y":3})";
    QTest::newRow("unknown visit")
        << QByteArray("POST") << u"/console/api/visits/V2/click"_s << tap << 404;
    QTest::newRow("unknown visit, events")
        << QByteArray("GET") << u"/console/api/visits/V2/events"_s << QByteArray() << 404;
    QTest::newRow("unknown poller")
        << QByteArray("POST") << u"/console/api/pollers/U8/co-browse"_s << QByteArray() << 404;
    QTest::newRow("report not a screenshot")
        << QByteArray("GET") << u"/console/api/visits/V1/screenshots/1"_s << QByteArray() << 404;
    QTest::newRow("unknown action")
        << QByteArray("POST") << u"/console/api/visits/V1/dance"_s << QByteArray() << 404;
    QTest::newRow("unknown asset")
        << QByteArray("GET") << u"/console/app.js"_s << QByteArray() << 404;
    QTest::newRow("bad cursor") << QByteArray("GET") << u"/console/api/visits/V1/events?since=-1"_s
                                << QByteArray() << 400;

    QTest::newRow("malformed JSON") << QByteArray("POST") << click << QByteArray("{\"x\":") << 400;
    QTest::newRow("not an object") << QByteArray("POST") << click << QByteArray("[3,3]") << 400;
    QTest::newRow("y missing") << QByteArray("POST") << click << QByteArray(R"({"x":3})") << 400;
    QTest::newRow("x a string") << QByteArray("POST") << click << QByteArray(R"({"x":"3","y":3})")
                                << 400;
    QTest::newRow("x a fraction") << QByteArray("POST") << click << QByteArray(R"({"x":3.5,"y":3})")
                                  << 400;
    QTest::newRow("negative") << QByteArray("POST") << click << QByteArray(R"({"x":-1,"y":3})")
                              << 400;
    QTest::newRow("x past the screen")
        << QByteArray("POST") << click << QByteArray(R"({"x":300,"y":3})") << 400;
    QTest::newRow("y past the screen")
        << QByteArray("POST") << click << QByteArray(R"({"x":3,"y":150})") << 400;
    QTest::newRow("huge") << QByteArray("POST") << click << QByteArray(R"({"x":1e300,"y":3})")
                          << 400;

    QTest::newRow("drawing not a string")
        << QByteArray("POST") << drawing << QByteArray(R"({"png":7})") << 400;
    QTest::newRow("drawing not base64")
        << QByteArray("POST") << drawing << QByteArray(R"({"png":"iVBOR*w0K"})") << 400;
    QTest::newRow("drawing a JPEG") << QByteArray("POST") << drawing << drawingBody(Jpeg) << 400;
    QTest::newRow("drawing too many bytes")
        << QByteArray("POST") << drawing
        << drawingBody(png(4, 4) + QByteArray(ConsoleEndpoint::MaxDrawingBytes, 'x')) << 413;
    QTest::newRow("drawing too wide")
        << QByteArray("POST") << drawing << drawingBody(png(ConsoleEndpoint::MaxDrawingSide + 1, 1))
        << 413;

    QTest::newRow("GET a command") << QByteArray("GET") << click << QByteArray() << 405;
    QTest::newRow("DELETE a visit")
        << QByteArray("DELETE") << u"/console/api/visits/V1"_s << QByteArray() << 405;
    QTest::newRow("POST the page") << QByteArray("POST") << u"/"_s << QByteArray() << 405;
    QTest::newRow("ended visit") << QByteArray("POST") << u"/console/api/visits/V3/stop"_s
                                 << QByteArray() << 409;
}

void TestServiceConsole::refused()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    const HttpResult result = send(method, path, body);
    QCOMPARE(result.status, status);
    QVERIFY2(!objectOf(result.body).value(u"error"_s).toString().isEmpty(),
             result.body.constData());
    QVERIFY(m_service->visit(u"V1"_s)->pendingCommands().isEmpty());
    QVERIFY(m_service->queuedChannelMessages(u"U1"_s).isEmpty());
    QVERIFY(m_service->queuedChannelMessages(u"U8"_s).isEmpty());
    QVERIFY(m_service->visit(u"V3"_s)->pendingCommands().isEmpty());
    QVERIFY(!m_service->visit(u"V2"_s));
}

void TestServiceConsole::commandsQueued_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QByteArray>("body");
    // The command the visit gets; empty when a co-browsing start goes to the channel instead.
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QString>("visitor");

    const QByteArray drawing = png(30, 15);
    QTest::newRow("tap, last device pixel")
        << u"visits/V1/click"_s << QByteArray(R"({"x":299,"y":149})")
        << QByteArray(R"({"x":299,"y":149})") << QString();
    QTest::newRow("drawing, data URL")
        << u"visits/V1/drawing"_s << drawingBody(drawing)
        << QByteArray(R"({"d":{"u":"data:image/png;base64,)" + drawing.toBase64() + "\"}}")
        << QString();
    QTest::newRow("drawing, bare base64")
        << u"visits/V1/drawing"_s << QByteArray(R"({"png":")" + drawing.toBase64() + "\"}")
        << QByteArray(R"({"d":{"u":"data:image/png;base64,)" + drawing.toBase64() + "\"}}")
        << QString();
    QTest::newRow("stop") << u"visits/V1/stop"_s << QByteArray() << QByteArray(R"({"a":"c"})")
                          << QString();
    QTest::newRow("faster polling")
        << u"visits/V1/faster"_s << QByteArray() << QByteArray(R"({"co":{"b":true}})") << QString();
    QTest::newRow("opt-in") << u"visits/V1/opt-in"_s << QByteArray()
                            << QByteArray(R"({"co":{"opt":true}})") << QString();
    QTest::newRow("restart") << u"visits/V1/start"_s << QByteArray()
                             << QByteArray(R"({"co":{"s":true}})") << QString();
    QTest::newRow("co-browse the visit's visitor")
        << u"visits/V1/co-browse"_s << QByteArray() << QByteArray() << u"U1"_s;
    QTest::newRow("co-browse a device without a visit")
        << u"pollers/U9/co-browse"_s << QByteArray() << QByteArray() << u"U9"_s;
}

void TestServiceConsole::commandsQueued()
{
    QFETCH(QString, action);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, command);
    QFETCH(QString, visitor);

    const HttpResult result = send("POST", u"/console/api/"_s + action, body);
    QCOMPARE(result.status, 200);
    const auto pending = m_service->visit(u"V1"_s)->pendingCommands();
    if (command.isEmpty()) {
        QVERIFY(pending.isEmpty());
        QCOMPARE(m_service->queuedChannelMessages(visitor),
                 (QList<VistrelService::ChannelMessage>{{u"SCB"_s, QString()}}));
        return;
    }
    QCOMPARE(pending.size(), 1);
    QCOMPARE(QJsonDocument::fromJson(pending.first().text).object(),
             QJsonDocument::fromJson(command).object());
    QCOMPARE(objectOf(result.body).value(u"queued"_s).toObject(),
             QJsonDocument::fromJson(command).object());
    // The device reads it on its next post.
    const HttpResult reply = send("POST", Channel, listBytes({ping(2000)}));
    const QJsonArray elements = QJsonDocument::fromJson(reply.body).array();
    QCOMPARE(elements.size(), 1);
    QCOMPARE(QJsonDocument::fromJson(elements.first().toString().toUtf8()).array().first(),
             QJsonDocument::fromJson(command).object());
}

void TestServiceConsole::liveViewOverBothTransports()
{
    // Over HTTP only the init request names the share id.
    QCOMPARE(send("POST", u"/api/in/im/c"_s,
                  R"({"shareId":"12345","redirectId":"","url":"Form","visitId":"V1",)"
                  R"("visitorId":"U1","tenantId":"T1"})")
                 .status,
             200);
    VistrelKit::ProtoMessage tagged = ping(3000);
    tagged.set_tag("vip");
    VistrelKit::ProtoUserTag *user = tagged.add_usertag();
    user->set_email("ada@example.com");
    user->add_label("gold");
    QCOMPARE(send("POST", Channel,
                  listBytes({pageChange(u"List"_s, 2000), click(30.5f, 60), tagged,
                             screenshot("not a jpeg")}))
                 .status,
             200);

    QJsonObject list = objectOf(send("GET", u"/console/api/visits"_s).body);
    const QJsonObject visit = list.value(u"visits"_s).toArray().first().toObject();
    QCOMPARE(visit.value(u"id"_s).toString(), u"V1"_s);
    QCOMPARE(visit.value(u"shareId"_s).toString(), u"12345"_s);
    QCOMPARE(visit.value(u"tenantId"_s).toString(), u"T1"_s);
    QCOMPARE(visit.value(u"visitorId"_s).toString(), u"U1"_s);
    QCOMPARE(visit.value(u"screen"_s).toString(), u"List"_s);
    QCOMPARE(visit.value(u"transport"_s).toString(), u"xhr"_s);
    QCOMPARE(visit.value(u"state"_s).toString(), u"open"_s);
    QVERIFY(visit.value(u"lastReportAt"_s).toDouble() > 0);
    // The unreadable screenshot does not replace the last good one.
    QCOMPARE(visit.value(u"screenshot"_s).toObject(),
             (QJsonObject{{u"index"_s, 0}, {u"width"_s, 100}, {u"height"_s, 50}}));
    const QJsonObject poller = list.value(u"pollers"_s).toArray().first().toObject();
    QCOMPARE(poller.value(u"visitorId"_s).toString(), u"U9"_s);
    QCOMPARE(poller.value(u"hasLiveVisit"_s).toBool(), false);

    const HttpResult image = send("GET", u"/console/api/visits/V1/screenshots/0"_s);
    QCOMPARE(image.contentType, QByteArray("image/jpeg"));
    QCOMPARE(image.body, Jpeg);

    const QJsonObject events =
        objectOf(send("GET", u"/console/api/visits/V1/events?since=1"_s).body);
    QCOMPARE(events.value(u"next"_s).toInt(), 5);
    QStringList kinds;
    for (const QJsonValue &event : events.value(u"events"_s).toArray())
        kinds.append(event.toObject().value(u"kind"_s).toString());
    QCOMPARE(kinds, (QStringList{u"page"_s, u"tap"_s, u"tag"_s, u"userTag"_s}));
    const QJsonArray eventList = events.value(u"events"_s).toArray();
    QCOMPARE(eventList.at(0).toObject().value(u"screen"_s).toString(), u"List"_s);
    QCOMPARE(eventList.at(1).toObject().value(u"x"_s).toDouble(), 30.5);
    QCOMPARE(eventList.at(3).toObject().value(u"user"_s).toObject().value(u"label"_s).toArray(),
             QJsonArray{u"gold"_s});
    QCOMPARE(objectOf(send("GET", u"/console/api/visits/V1/events?since=5"_s).body)
                 .value(u"events"_s)
                 .toArray()
                 .size(),
             0);

    // Over WebSocket the query carries the share id, and commands go out as frames.
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
    const QJsonObject live = objectOf(send("GET", u"/console/api/visits/W1"_s).body);
    QCOMPARE(live.value(u"shareId"_s).toString(), u"54321"_s);
    QCOMPARE(live.value(u"transport"_s).toString(), u"websocket"_s);
    QCOMPARE(live.value(u"screen"_s).toString(), u"Chat"_s);
    QCOMPARE(send("POST", u"/console/api/visits/W1/click"_s, R"({"x":3,"y":6})").status, 200);
    QVERIFY(m_service->waitFor([&frames] { return !frames.isEmpty(); }));
    QCOMPARE(frames, QStringList{uR"({"x":3,"y":6})"_s});
    list = objectOf(send("GET", u"/console/api/visits"_s).body);
    QCOMPARE(list.value(u"visits"_s).toArray().size(), 3);
}

void TestServiceConsole::pageServed_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArray>("mark");

    QTest::newRow("page") << u"/"_s << QByteArray("text/html") << QByteArray("screen-image");
    QTest::newRow("style") << u"/console/console.css"_s << QByteArray("text/css")
                           << QByteArray("#drawing-canvas");
    QTest::newRow("script") << u"/console/console.js"_s << QByteArray("text/javascript")
                            << QByteArray("/console/api");
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

QTEST_GUILESS_MAIN(TestServiceConsole)
#include "tst_serviceconsole.moc"
