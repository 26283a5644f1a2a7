#include "Core/JsonUtils.h"
#include "LogCapture.h"
#include "Network/PingSender.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Network/Xhr/XhrSender.h"
#include "TransportFixture.h"
#include "WebSocketEndpoint.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using Message = BidirectionalMessage;
using Click = BidirectionalMessage::Click;
using VistrelService::WebSocketEndpoint;

Q_DECLARE_METATYPE(VistrelKit::ProtoMessage)
Q_DECLARE_METATYPE(VistrelKit::BidirectionalMessage)

// Rows name only the command fields they expect; every other field is meant to be absent.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {
const QString messagePath = u"/api/ix/m"_s;
const QString webSocketPath = WebSocketEndpoint::Path.toString();
const QString senderClosed = u"StringError(mMsg: \"Sender is closed\")"_s;

/// A transport against the local service, counting the callbacks of its start().
template<typename Sender>
struct Fixture : TransportFixture
{
    void start(const QString &screen = u"Main"_s)
    {
        sender.start(
            screen, [this] { ++successes; }, [this] { ++errors; });
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
    QList<VistrelService::RecordedRequest> requests(const QString &method) const
    {
        auto all = service.requests(messagePath);
        all.removeIf([&method](const auto &request) { return request.method != method; });
        return all;
    }
    QStringList tags() const
    {
        QStringList result;
        const VistrelService::Visit *visit = service.visit(visitId());
        if (!visit)
            return result;
        for (const auto &report : visit->reports())
            result.append(QString::fromStdString(report.message.tag()));
        return result;
    }

    Sender sender{config.get(), initSender.get(), api.get(), http.get(), parser.get(), &platform};
    LogCapture log;
    int successes = 0;
    int errors = 0;
};
using Xhr = Fixture<XhrMessageSender>;
using WebSocket = Fixture<WebSocketMessageSender>;
} // namespace

class tst_Network : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // Bytes worked out by hand: tag = (field << 3) | wire type; varints little-endian base 128.
    void reportBytes_data()
    {
        QTest::addColumn<ProtoMessage>("report");
        QTest::addColumn<QByteArray>("body"); // the report's fields after time

        // The report time is 5000 ms, or 6000 if the clock turns to the next second in between.
        const qint64 start = QDateTime::currentSecsSinceEpoch() * 1000 - 5000;
        QTest::newRow("ping") << MessageSender::pingReport(start) << QByteArray();
        // clickEvent (field 4, length-delimited 0x22) of 10 bytes: x (0x0D) 30.0f, y (0x15) 60.0f
        QTest::newRow("click") << MessageSender::clickReport(30.0, 60.0, start)
                               << "\x22\x0A\x0D\x00\x00\xF0\x41\x15\x00\x00\x70\x42"_ba;
        // pageChange (field 2, 0x12)
        QTest::newRow("page change")
            << MessageSender::pageChangeReport(u"Main"_s, start) << "\x12\x04Main"_ba;
        // screenshotEvent (field 3, 0x1A) holding image (field 1, 0x0A) of 3 bytes
        QTest::newRow("screenshot") << MessageSender::screenshotReport("\xFF\xD8\xFF"_ba, start)
                                    << "\x1A\x05\x0A\x03\xFF\xD8\xFF"_ba;
    }

    void reportBytes()
    {
        QFETCH(ProtoMessage, report);
        QFETCH(QByteArray, body);
        QVERIFY(report.time() == 5000 || report.time() == 6000);
        // time (field 1, varint 0x08): 5000 -> 0x88 0x27, 6000 -> 0xF0 0x2E
        const QByteArray message =
            (report.time() == 5000 ? "\x08\x88\x27"_ba : "\x08\xF0\x2E"_ba) + body;
        // The list's messages field (1, length-delimited 0x0A).
        const QByteArray expected = "\x0A"_ba + char(message.size()) + message;
        ProtoMessageList list;
        *list.add_messages() = report;
        std::string bytes;
        QVERIFY(list.SerializePartialToString(&bytes));
        QCOMPARE(QByteArray::fromStdString(bytes).toHex(' '), expected.toHex(' '));
    }

    void commands_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<Message>("expected");

        QTest::newRow("unknown keys, configuration not an object")
            << R"({"zz": 1, "q": {"s": true}, "co": [true]})"_ba << Message();
        QTest::newRow("close") << R"({"a": "c"})"_ba << Message{.stop = true};
        QTest::newRow("other action is no stop") << R"({"a": "x"})"_ba << Message{.stop = false};
        QTest::newRow("configuration")
            << R"({"co": {"s": true, "b": false, "opt": true}})"_ba
            << Message{.start = true, .bidirectional = false, .optIn = true};
        QTest::newRow("configuration non-boolean")
            << R"({"co": {"s": "yes", "b": 1, "opt": null}})"_ba << Message();

        QTest::newRow("click") << R"({"x": 300, "y": 600})"_ba << Message{.click = Click{300, 600}};
        QTest::newRow("fractions truncated toward zero")
            << R"({"x": 12.7, "y": -0.5})"_ba << Message{.click = Click{12, 0}};
        QTest::newRow("only x") << R"({"x": 5})"_ba << Message();
        QTest::newRow("x beyond 64 bits") << R"({"x": 1e300, "y": 5})"_ba << Message();
        QTest::newRow("unsigned beyond 64 bits signed")
            << R"({"x": 18446744073709551615, "y": 5})"_ba << Message();
        QTest::newRow("largest signed")
            << R"({"x": 9223372036854775807, "y": -9223372036854775808})"_ba
            << Message{.click = Click{std::numeric_limits<qint64>::max(),
                                      std::numeric_limits<qint64>::min()}};

        QTest::newRow("prefix removed wherever it occurs")
            << R"({"d": {"u": "aGVsdata:image/png;base64,bG8=data:image/png;base64,"}})"_ba
            << Message{.drawing = "hello"_ba};
        QTest::newRow("empty drawing") << R"({"d": {"u": ""}})"_ba << Message{.drawing = ""_ba};
        // Base64 is strict: every flaw leaves the drawing out.
        QTest::newRow("missing padding") << R"({"d": {"u": "aGVsbG8"}})"_ba << Message();
        QTest::newRow("pad in the middle") << R"({"d": {"u": "aA==aGk="}})"_ba << Message();
        QTest::newRow("url-safe alphabet") << R"({"d": {"u": "a-_A"}})"_ba << Message();
        QTest::newRow("url not a string") << R"({"d": {"u": 12}})"_ba << Message();

        QTest::newRow("click and stop") << R"({"x": 10, "y": 20, "a": "c"})"_ba
                                        << Message{.stop = true, .click = Click{10, 20}};
    }

    void commands()
    {
        QFETCH(QByteArray, json);
        QFETCH(Message, expected);
        const auto object = JsonUtils::parse(json);
        QVERIFY(object);
        QList<Message> received;
        BidirectionalMessageParser parser;
        connect(&parser, &BidirectionalMessageParser::messageReceived,
                [&received](const Message &m) { received.append(m); });
        parser.parse(*object);
        QCOMPARE(received.value(0).toString(), expected.toString());
        QVERIFY(received == QList<Message>{expected}); // the drawing's bytes too
    }

    void urls_data()
    {
        QTest::addColumn<bool>("webSocket");
        QTest::addColumn<bool>("visit");
        QTest::addColumn<QString>("screen");
        QTest::addColumn<QString>("expected");
        const QString xhr = u"http://host.example:1/api/ix/m?"_s;
        QTest::newRow("xhr") << false << true << u"Main"_s
                             << xhr + u"id=V&sId=S&tId=T&vId=R&url=Main&fsTy=l"_s;
        // The service reads the values as the device wrote them.
        QTest::newRow("xhr screen name unescaped")
            << false << true << u"a&b c%41"_s
            << xhr + u"id=V&sId=S&tId=T&vId=R&url=a&b c%41&fsTy=l"_s;
        QTest::newRow("xhr nothing known")
            << false << false << QString() << xhr + u"id=&sId=&tId=&vId=&url=&fsTy="_s;
        // vsId repeats the session id; a value that looks like a placeholder stays as it is.
        QTest::newRow("websocket")
            << true << true << u"%1"_s
            << u"ws://host.example:1/api/in/imws?tId=T&sId=S&vId=R&t=K&id=V&shrId=H&vsId=S&url=%1&fsTy=l"_s;
    }

    void urls()
    {
        QFETCH(bool, webSocket);
        QFETCH(bool, visit);
        QFETCH(QString, screen);
        QFETCH(QString, expected);
        TestConfig::use(u"host.example:1"_s);
        ApplicationConfigWrapper wrapper;
        ApplicationConfig &config = wrapper.config();
        if (visit) {
            config.tenantId = u"T"_s;
            config.token = u"K"_s;
            config.visitConfig = {u"R"_s, u"V"_s, u"S"_s, std::nullopt};
            config.vistrelConfig.shareId = u"H"_s;
            config.vistrelConfig.storageType = u"l"_s;
        }
        const WebSocketMessageSender sender(&wrapper, nullptr, nullptr, nullptr, nullptr, nullptr);
        QCOMPARE(webSocket ? sender.buildUrl(screen) : XhrSender::buildUrl(config, screen),
                 expected);
    }

    void pingsOncePerSecond()
    {
        Xhr f;
        PingSender ping(f.config.get());
        f.start();
        ping.start(&f.sender);
        QVERIFY(f.service.waitForReports(f.visitId(), 5, 30000));
        ping.stop();

        const auto reports = f.service.visit(f.visitId())->reports();
        for (const auto &report : reports) {
            // Whole seconds since 1970, times 1000, minus the start.
            const qint64 time = qint64(report.message.time());
            QCOMPARE((time + f.startTime()) % 1000, 0);
            const qint64 arrival = report.receivedAt.toMSecsSinceEpoch() - f.startTime();
            QVERIFY(time <= arrival && time > arrival - 60000);
        }
        // n pings span n - 1 s, give or take one (truncation, a timer firing early or late).
        const qint64 span = qint64(reports.last().message.time() - reports.first().message.time());
        QVERIFY2(span >= 1000 * (reports.size() - 2) && span <= 1000 * reports.size(),
                 qPrintable(QString::number(span)));

        // Neither the stopped timer nor a start stopped in the same turn pings again.
        f.log.clear();
        ping.start(&f.sender);
        ping.stop();
        QTest::qWait(1500);
        QCOMPARE(f.log.count(u"Execute ping interval task"_s), 0);
    }

    void xhrFlushLoop()
    {
        Xhr f;
        f.start();
        QTRY_COMPARE(f.sender.currentInterval(), 0.1);
        QTest::qWait(400); // several flush cycles with nothing queued
        QCOMPARE(f.requests(u"POST"_s).size(), 0);

        // Queued in one go, before the next flush: one POST carries all three, in order. A report
        // queued while that POST is under way is dropped with its queue.
        connect(&f.service, &VistrelService::LocalService::requestRecorded, &f.sender,
                [&f](const VistrelService::RecordedRequest &request) {
                    if (request.method == u"POST"_s && f.requests(u"POST"_s).size() == 1)
                        f.send(u"in flight"_s);
                });
        for (const QString &text : {u"first"_s, u"second"_s, u"third"_s})
            f.send(text);
        QVERIFY(f.service.waitForReports(f.visitId(), 3));
        QTRY_COMPARE(f.sender.queueSize(), 0);
        QCOMPARE(f.service.visit(f.visitId())->reports().first().url, u"Main"_s);

        // A flush is armed now; the report queued with stop() still goes out with it.
        f.send(u"last words"_s);
        f.sender.stop();
        QVERIFY(f.service.waitForReports(f.visitId(), 4));
        QTRY_COMPARE(f.requests(u"DELETE"_s).size(), 1);
        QCOMPARE(f.requests(u"DELETE"_s).first().queryValue(u"id"_s), f.visitId());
        f.send(u"too late"_s);
        QTest::qWait(500);
        QCOMPARE(f.requests(u"POST"_s).size(), 2);
        QCOMPARE(f.tags(), (QStringList{u"first"_s, u"second"_s, u"third"_s, u"last words"_s}));
    }

    void xhrLiveScreen()
    {
        Xhr f;
        f.start();
        QTRY_COMPARE(f.sender.currentInterval(), 0.1);
        f.sender.sendScreenshot("jpeg", 0, [](const std::optional<Error> &) {});
        QVERIFY(f.service.waitForReports(f.visitId(), 1));
        // A live screen: every flush asks for commands, so none waits for the next screenshot.
        // Such a post carries nothing, so what is queued during its flight is not dropped.
        bool queued = false;
        connect(&f.service, &VistrelService::LocalService::requestRecorded, &f.sender,
                [&](const VistrelService::RecordedRequest &request) {
                    if (request.method == u"POST"_s && request.body.isEmpty() && !queued)
                        queued = f.send(u"in flight"_s).isEmpty();
                });
        const qsizetype before = f.requests(u"POST"_s).size();
        QTest::qWait(500);
        const qsizetype live = f.requests(u"POST"_s).size() - before;
        QVERIFY2(live >= 3, qPrintable(QString::number(live)));
        QVERIFY(queued);
        QTRY_COMPARE(f.tags().constLast(), u"in flight"_s);
        // A second after the last screenshot the screen is still: no empty posts.
        QTest::qWait(800);
        const qsizetype still = f.requests(u"POST"_s).size();
        QTest::qWait(500);
        QCOMPARE(f.requests(u"POST"_s).size(), still);
    }

    void xhrReplies_data()
    {
        QTest::addColumn<QString>("method");
        // The inner JSON texts' quotes are written ', for the escaped quotes the wire has.
        QTest::addColumn<QByteArray>("body"); // none: the connection drops
        QTest::addColumn<QList<Message>>("expected");
        QTest::addColumn<QStringList>("logLines");
        QTest::addColumn<int>("status");

        const QString post = u"POST"_s;
        const QList<Message> stop{Message{.stop = true}};
        const QStringList unreadable{u"[WARNING] XhrMessageSender: Cannot parse message"_s};
        const QStringList failed{
            u"[ERROR] XhrMessageSender: Request failed"_s,
            u"[WARNING] XhrMessageSender: Connection lost; reports are held while it is retried"_s,
            u"[DEBUG] XhrMessageSender: Retry in 1000 ms"_s};
        QTest::newRow("one click")
            << post << R"(["[{'x':300,'y':600}]"])"_ba
            << QList<Message>{Message{.click = Click{300, 600}}} << QStringList() << 200;
        QTest::newRow("a number ends silently")
            << post << R"([42, "[{'a':'c'}]"])"_ba << QList<Message>() << QStringList() << 200;
        QTest::newRow("not an array")
            << post << R"({"x": "[{'a':'c'}]"})"_ba << QList<Message>() << QStringList() << 200;
        QTest::newRow("non-object ends the rest")
            << post << R"(["[{'a':'c'},7,{'a':'c'}]"])"_ba << stop << QStringList() << 200;
        QTest::newRow("not JSON") << post << "not json"_ba << QList<Message>() << unreadable << 200;
        QTest::newRow("inner text not JSON after a good one")
            << post << R"(["[{'a':'c'}]","nope"])"_ba << stop << unreadable << 200;
        // A transport failure is retried; the reports wait.
        QTest::newRow("channel open fails")
            << u"GET"_s << QByteArray() << QList<Message>() << failed << 200;
        QTest::newRow("post fails") << post << QByteArray() << QList<Message>() << failed << 200;
        // A service that restarted and forgot the visit.
        QTest::newRow("post refused")
            << post << "unknown visit"_ba << QList<Message>()
            << QStringList{u"[ERROR] XhrMessageSender: Request failed: HTTP 404"_s, failed.at(1),
                           failed.at(2)}
            << 404;
    }

    void xhrReplies()
    {
        QFETCH(QString, method);
        QFETCH(QByteArray, body);
        QFETCH(QList<Message>, expected);
        QFETCH(QStringList, logLines);
        QFETCH(int, status);
        Xhr f;
        QSignalSpy lost(&f.sender, &XhrMessageSender::connectionLost);
        QSignalSpy restored(&f.sender, &XhrMessageSender::connectionRestored);
        const bool drop = body.isEmpty();
        const bool failing = drop || status >= 400;
        body.replace('\'', "\\\"");
        f.service.setCannedReply(method, messagePath,
                                 VistrelService::CannedReply{{status, body}, drop});
        f.send(u"x"_s);
        f.start();
        // The reply is read in the same step that empties the queue.
        QTRY_VERIFY(f.sender.queueSize() == 0 || f.log.contains(u"Request failed"_s));
        QCOMPARE(f.commands, expected);
        QCOMPARE(f.log.matching(u"XhrMessageSender"_s), logLines);

        // The service recovers: the loop goes on, after a retry when it failed, with nothing
        // lost.
        f.service.clearCannedReplies();
        f.send(u"y"_s);
        // A canned answer stands in for the service, which then records nothing.
        const QStringList delivered =
            failing || method == u"GET"_s ? QStringList{u"x"_s, u"y"_s} : QStringList{u"y"_s};
        QTRY_COMPARE_WITH_TIMEOUT(f.tags(), delivered, 10000);
        QCOMPARE(lost.size(), failing ? 1 : 0);
        QCOMPARE(restored.size(), failing ? 1 : 0);
        QVERIFY(!f.sender.isConnectionLost());
    }

    void xhrLongReply()
    {
        // One reply of 20 000 taps is read across turns of the event loop, in order.
        Xhr f;
        const int taps = 20000;
        QByteArray body = "[";
        for (int i = 0; i < taps; ++i)
            body += (i ? ",\"[{\\\"x\\\":"_ba : "\"[{\\\"x\\\":"_ba) + QByteArray::number(i) +
                    ",\\\"y\\\":1}]\""_ba;
        body += "]";
        QVERIFY(f.sender.processReply(body));
        QVERIFY(f.sender.hasPendingCommands());
        QVERIFY(!f.commands.isEmpty() && f.commands.size() < taps);
        QTRY_COMPARE(f.commands.size(), taps);
        for (int i = 0; i < taps; ++i)
            QCOMPARE(f.commands.at(i).click->x, i);
        QVERIFY(!f.sender.hasPendingCommands());
    }

    void xhrOutage()
    {
        Xhr f;
        QSignalSpy lost(&f.sender, &XhrMessageSender::connectionLost);
        QSignalSpy restored(&f.sender, &XhrMessageSender::connectionRestored);
        f.start();
        QTRY_COMPARE(f.sender.currentInterval(), 0.1);
        for (const QString &method : {u"GET"_s, u"POST"_s})
            f.service.setCannedReply(method, messagePath, VistrelService::CannedReply::dropped());
        f.send(u"before"_s);
        QTRY_COMPARE(lost.size(), 1);

        // Away for longer than the budget lasts: megabyte screenshots between taps.
        const auto ignore = [](const std::optional<Error> &) {};
        const int frames = 12;
        for (int i = 0; i < frames; ++i) {
            const QByteArray image = QByteArray(1024 * 1024, 'i') + QByteArray::number(i);
            f.sender.send(u"Main"_s, MessageSender::screenshotReport(image, 0), ignore);
            f.sender.send(u"Main"_s, MessageSender::clickReport(i, i, 0), ignore);
        }
        QVERIFY(f.sender.queueBytes() <= f.sender.visitSizeThreshold());
        QCOMPARE(f.log.count(u"the oldest screenshots are dropped"_s), 1);

        // Back: the taps and the tag, and of the screenshots only the newest.
        f.service.clearCannedReplies();
        QTRY_COMPARE_WITH_TIMEOUT(restored.size(), 1, 20000);
        QVERIFY(f.service.waitForReports(f.visitId(), 1 + frames + 1));
        QStringList arrived;
        for (const auto &report : f.service.visit(f.visitId())->reports()) {
            const ProtoMessage &message = report.message;
            if (message.has_tag())
                arrived.append(QString::fromStdString(message.tag()));
            for (const auto &click : message.clickevent())
                arrived.append(u"click %1"_s.arg(click.x()));
            for (const auto &screenshot : message.screenshotevent())
                arrived.append(u"screen "_s + QString::fromStdString(screenshot.image()).right(2));
        }
        QCOMPARE(arrived.size(), 1 + frames + 1);
        QCOMPARE(arrived.first(), u"before"_s);
        QCOMPARE(arrived.filter(u"click"_s).size(), frames);
        QCOMPARE(arrived.filter(u"screen"_s), QStringList{u"screen 11"_s});
        QVERIFY(f.log.contains(u"Dropped 11 screenshots and 0 pings held"_s));
        QCOMPARE(lost.size(), 1);
    }

    void webSocketSession_data()
    {
        QTest::addColumn<int>("closeCode");
        // 0: the connection breaks without a close frame; -1: the service sends too much
        QTest::addColumn<QString>("logLine");
        const QString closed = u"WebSocketMessageSender: Connection closed"_s;
        QTest::newRow("dropped") << 0 << u"[WARNING] "_s + closed + u" with unknown error"_s;
        QTest::newRow("normal close") << 1000 << u"[DEBUG] "_s + closed;
        QTest::newRow("going away") << 1001 << u"[WARNING] "_s + closed + u": 1001"_s;
        QTest::newRow("message too large")
            << -1
            << u"[WARNING] "_s + closed + u": a message from the service was larger than "_s +
                   QString::number(HttpUtil::MaxReplyBytes) + u" bytes"_s;
    }

    void webSocketSession()
    {
        QFETCH(int, closeCode);
        QFETCH(QString, logLine);
        WebSocket f;
        QSignalSpy frames(f.service.webSockets(), &WebSocketEndpoint::frameReceived);
        f.start();
        QTRY_COMPARE(f.successes, 1);
        QCOMPARE(f.service.requests(webSocketPath).first().header("X-OV-SSID"),
                 f.config->config().visitConfig.sessionId->toUtf8());
        QCOMPARE(f.send(u"a"_s), QString());
        QVERIFY(f.service.waitForReports(f.visitId(), 1));
        // The log says where the socket goes, not its token.
        const QStringList connect = f.log.matching(u"Connect to "_s);
        QVERIFY(connect.size() == 1 && connect.first().contains(u"&t=***&id="_s));
        QVERIFY(!connect.first().contains(u"token-1"_s));
        // Text frames that hold no command are logged and skipped; the socket lives on.
        f.service.queueRawCommand(f.visitId(), "[]"_ba);
        f.service.queueRawCommand(f.visitId(), "{oops"_ba);
        QVERIFY(f.service.queueCommand(f.visitId(), R"({"a":"c"})"_ba));
        QTRY_VERIFY(f.commands == QList<Message>{Message{.stop = true}});
        const QString error = u"[ERROR] WebSocketMessageSender: "_s;
        QCOMPARE(f.log.matching(error),
                 (QStringList{error + u"Cannot convert to dict: []"_s,
                              error + u"Cannot parse JSON of WebSocket response: {oops"_s}));

        QSignalSpy connected(&f.service, &VistrelService::LocalService::webSocketConnected);
        auto *endpoint = f.service.webSockets();
        if (closeCode < 0)
            f.service.queueRawCommand(f.visitId(), QByteArray(HttpUtil::MaxReplyBytes + 1, ' '));
        else
            QCOMPARE(closeCode ? endpoint->closeConnections(
                                     f.visitId(), QWebSocketProtocol::CloseCode(closeCode))
                               : endpoint->dropConnections(f.visitId()),
                     1);
        QTRY_VERIFY(f.log.contains(logLine));
        QTRY_VERIFY(f.log.contains(u"[DEBUG] WebSocketMessageSender: Connect again"_s));
        // Both ends must see the new connection before a frame can travel on it.
        QTRY_VERIFY_WITH_TIMEOUT(connected.size() == 1 &&
                                     f.sender.socket()->state() == QAbstractSocket::ConnectedState,
                                 30000);
        // The callbacks of that start were used up by the first connection.
        QCOMPARE(f.successes + f.errors, 1);
        // One frame per report.
        for (const QString &text : {u"b"_s, u"c"_s})
            QCOMPARE(f.send(text), QString());
        QVERIFY(f.service.waitForReports(f.visitId(), 3, 30000));
        QCOMPARE(f.tags(), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
        QCOMPARE(frames.size(), 3);

        f.log.clear();
        QSignalSpy disconnected(&f.service, &VistrelService::LocalService::webSocketDisconnected);
        f.sender.stop();
        QTRY_COMPARE(disconnected.size(), 1);
        QCOMPARE(disconnected.first().at(1).value<QWebSocketProtocol::CloseCode>(),
                 QWebSocketProtocol::CloseCodeNormal);
        // Our own close is no error: nothing logged about it, no reconnect.
        QTest::qWait(300);
        QCOMPARE(f.log.matching(u"WebSocketMessageSender"_s), QStringList());
        QCOMPARE(f.send(u"after stop"_s), senderClosed);
    }

    void webSocketFlood()
    {
        WebSocket f;
        const auto burst = [&f](int taps) {
            for (int i = 0; i < taps; ++i)
                f.sender.handleText(u"{\"x\":%1,\"y\":1}"_s.arg(i));
        };
        // Frames delivered in one go are read across turns of the event loop, in order.
        const int taps = 20000;
        burst(taps);
        QVERIFY(f.sender.pendingFrames() > 0);
        QTRY_COMPARE(f.commands.size(), taps);
        for (int i = 0; i < taps; ++i)
            QCOMPARE(f.commands.at(i).click->x, i);

        // What waits is bounded: frames over the bound push the oldest waiting ones out.
        f.commands.clear();
        burst(taps);
        const qsizetype readAtOnce = f.commands.size();
        for (int i = 0; i < 8; ++i)
            f.sender.handleText(QString(3 * 1024 * 1024, u'x'));
        QTRY_COMPARE(f.sender.pendingFrames(), 0);
        QCOMPARE(f.commands.size(), readAtOnce);
        QCOMPARE(f.log.count(u"Dropped the oldest %1 messages: over 16777216 bytes"_s.arg(
                     taps - readAtOnce + 6)),
                 1);
    }

    void webSocketStopCancelsReconnect()
    {
        WebSocket f;
        f.start();
        QTRY_COMPARE(f.successes, 1);
        // Stopped between the drop and the reopen it queued.
        Log::setListener([&f](const QString &line) {
            if (line.endsWith(u"Connect again"_s))
                f.sender.stop();
        });
        QCOMPARE(f.service.webSockets()->dropConnections(f.visitId()), 1);
        QVERIFY(f.service.waitFor([&f] { return !f.requests(u"DELETE"_s).isEmpty(); }));
        QTest::qWait(500);
        QCOMPARE(f.service.requests(webSocketPath).size(), 1);
    }

    void webSocketNeverOpens_data()
    {
        QTest::addColumn<int>("how"); // 0: refused, 1: a peer that never answers, 2: no valid URL
        QTest::addColumn<QString>("logLine");
        QTest::addColumn<int>("handshakes");
        QTest::addColumn<QString>("sendError");
        const QString failed =
            u"[WARNING] WebSocketMessageSender: Connection closed with unknown error"_s;
        QTest::newRow("handshake refused") << 0 << failed << 1 << senderClosed;
        QTest::newRow("handshake times out") << 1 << failed << 0 << senderClosed;
        // Inserted unescaped, a space makes the URL invalid: nothing connects, and the start
        // fails at once (else a session waiting on it would never stream).
        QTest::newRow("screen name breaks the URL")
            << 2 << u"[WARNING] WebSocketMessageSender: Cannot construct URL"_s << 0
            << u"StringError(mMsg: \"No socket found\")"_s;
    }

    void webSocketNeverOpens()
    {
        QFETCH(int, how);
        QFETCH(QString, logLine);
        QFETCH(int, handshakes);
        QFETCH(QString, sendError);
        WebSocket f;
        QTcpServer silent;
        if (how == 0)
            f.service.webSockets()->setAdmission(WebSocketEndpoint::Admission::Refuse);
        if (how == 1) {
            QVERIFY(silent.listen(QHostAddress::LocalHost));
            f.config->config().hostname = u"127.0.0.1:"_s + QString::number(silent.serverPort());
            f.sender.setConnectTimeout(300);
        }
        f.start(how == 2 ? u"Main screen"_s : u"Main"_s);
        QTRY_VERIFY(f.log.contains(logLine));
        // No retry: a connection that never opened is not reopened.
        QTest::qWait(500);
        QCOMPARE(f.errors, 1);
        QCOMPARE(f.successes, 0);
        QVERIFY(!f.log.contains(u"Connect again"_s));
        QCOMPARE(f.service.requests(webSocketPath).size(), handshakes);
        QCOMPARE(f.send(u"lost"_s), sendError);
    }
};

QTEST_MAIN(tst_Network)
#include "tst_network.moc"
