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

private:
    std::unique_ptr<LocalService> m_service;
    QNetworkAccessManager m_manager;

    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {})
    {
        return sendHttp(m_manager, m_service->hostAndPort(), method, pathAndQuery, body);
    }
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

QTEST_GUILESS_MAIN(TestServiceConsole)
#include "tst_serviceconsole.moc"
