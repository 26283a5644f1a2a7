#include "LocalService.h"
#include "ServiceTestSupport.h"

#include <QBuffer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPdfDocument>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace ServiceTest;
using VistrelService::ChatEndpoint;
using VistrelService::ChatMessage;
using VistrelService::LocalService;

namespace {
const QString Messages = u"/api/in/wc/m?tId=T1&vId=U1"_s;
const QString TagPath = u"/rest/v1/customerstatus/tag/byVisitor/U1"_s;

QJsonObject object(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}
} // namespace

class TestServiceChat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void configuration_data();
    void configuration();
    void pageServed();
    void messagesBothWays();
    void document_data();
    void document();
    void tagRecorded();
    void tagRefused_data();
    void tagRefused();
    void consoleShowsUser_data();
    void consoleShowsUser();
    void consoleChat();

private:
    std::unique_ptr<LocalService> m_service;
    QNetworkAccessManager m_manager;

    HttpResult send(const QByteArray &method, const QString &pathAndQuery,
                    const QByteArray &body = {})
    {
        return sendHttp(m_manager, m_service->hostAndPort(), method, pathAndQuery, body);
    }
};

void TestServiceChat::init()
{
    m_service = std::make_unique<LocalService>();
    QVERIFY(m_service->start() != 0);
}

void TestServiceChat::configuration_data()
{
    QTest::addColumn<QByteArray>("replacement");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("default, any chat id")
        << QByteArray() << u"/api/in/wc/c/support"_s << 200 << ChatEndpoint::defaultConfiguration();
    const QByteArray replaced = R"({"params":{"title":"Hi & bye"}})";
    QTest::newRow("replaced") << replaced << u"/api/in/wc/c/x"_s << 200 << replaced;
    QTest::newRow("no chat id") << QByteArray() << u"/api/in/wc/c/"_s << 404 << QByteArray();
}

void TestServiceChat::configuration()
{
    QFETCH(QByteArray, replacement);
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    if (!replacement.isEmpty())
        m_service->setChatConfiguration(replacement);
    const HttpResult result = send("GET", path);
    QCOMPARE(result.status, status);
    if (!body.isEmpty())
        QCOMPARE(result.body, body);
}

void TestServiceChat::pageServed()
{
    const HttpResult result = send("GET", u"/cdn/chat/chat.html?1700000000"_s);
    QCOMPARE(result.status, 200);
    QVERIFY(result.contentType.startsWith("text/html"));
    // The chat page itself, not the console's: it talks to the message endpoint.
    QVERIFY(result.body.contains("/api/in/wc/m?"));
    QVERIFY(result.body.contains("messageHandlers.jsError"));
}

void TestServiceChat::messagesBothWays()
{
    QList<ChatMessage> signalled;
    connect(m_service.get(), &LocalService::chatMessagePosted, this,
            [&](const QString &tenant, const QString &visitor, const ChatMessage &message) {
                QCOMPARE(tenant, u"T1"_s);
                QCOMPARE(visitor, u"U1"_s);
                signalled.append(message);
            });
    QCOMPARE(send("POST", Messages, R"({"type":"opened"})").status, 200);
    QCOMPARE(send("POST", Messages, R"({"type":"text","text":"Hello?"})").status, 200);
    const qint64 agentId = m_service->chat()->sendAgentMessage(u"T1"_s, u"U1"_s, u"Hi Alex"_s);
    QCOMPARE(send("POST", Messages, R"({"type":"text","text":"  "})").status, 400);
    QCOMPARE(send("POST", u"/api/in/wc/m?tId=T1"_s, R"({"type":"opened"})").status, 400);

    QList<ChatMessage> kept = m_service->chat()->messages(u"T1"_s, u"U1"_s);
    QCOMPARE(signalled.size(), 3);
    QCOMPARE(kept.size(), 3);
    QCOMPARE(kept.at(0).from, u"system"_s);
    QCOMPARE(kept.at(1).text, u"Hello?"_s);
    QCOMPARE(kept.at(2).id, agentId);
    QVERIFY(!kept.at(2).isDelivered());

    // The page's poll from its cursor: only what is newer, and the agent's message is delivered.
    const QJsonObject polled =
        object(send("GET", Messages + u"&since="_s + QString::number(kept.at(1).id)).body);
    const QJsonArray list = polled.value(u"messages"_s).toArray();
    QCOMPARE(list.size(), 1);
    QCOMPARE(list.at(0)[u"from"_s].toString(), u"agent"_s);
    QCOMPARE(list.at(0)[u"text"_s].toString(), u"Hi Alex"_s);
    QCOMPARE(polled.value(u"next"_s).toInteger(), agentId);
    QVERIFY(m_service->chat()->messages(u"T1"_s, u"U1"_s).at(2).isDelivered());
    // Chats are per tenant and visitor.
    QVERIFY(object(send("GET", u"/api/in/wc/m?tId=T2&vId=U1"_s).body)[u"messages"_s]
                .toArray()
                .isEmpty());
}

void TestServiceChat::document_data()
{
    QTest::addColumn<ChatEndpoint::DocumentKind>("kind");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArray>("disposition");

    QTest::newRow("pdf, default name")
        << ChatEndpoint::DocumentKind::Pdf << QString() << "application/pdf"_ba
        << R"(attachment; filename="statement.pdf")"_ba;
    QTest::newRow("png, own name")
        << ChatEndpoint::DocumentKind::Png << u"May chart.png"_s << "image/png"_ba
        << R"(attachment; filename="May chart.png")"_ba;
}

void TestServiceChat::document()
{
    QFETCH(ChatEndpoint::DocumentKind, kind);
    QFETCH(QString, fileName);
    QFETCH(QByteArray, contentType);
    QFETCH(QByteArray, disposition);

    const qint64 id = m_service->chat()->sendAgentDocument(u"T1"_s, u"U1"_s, kind, fileName);
    QVERIFY(id > 0);
    const ChatMessage message = m_service->chat()->messages(u"T1"_s, u"U1"_s).constLast();
    QVERIFY(message.hasDocument());
    // The link must not look like the chat page, or the app would navigate to it.
    QVERIFY(!message.documentUrl.contains(u"chat.html"_s));

    std::unique_ptr<QNetworkReply> reply(m_manager.get(QNetworkRequest(QUrl(message.documentUrl))));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    QVERIFY(finished.wait(10000));
    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
    QCOMPARE(reply->rawHeader("Content-Type"), contentType);
    QCOMPARE(reply->rawHeader("Content-Disposition"), disposition);
    const QByteArray bytes = reply->readAll();

    if (kind == ChatEndpoint::DocumentKind::Png) {
        QVERIFY(!QImage::fromData(bytes, "PNG").isNull());
        return;
    }
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QPdfDocument pdf;
    pdf.load(&buffer);
    QTRY_COMPARE(pdf.status(), QPdfDocument::Status::Ready);
    QCOMPARE(pdf.pageCount(), 2);
}

void TestServiceChat::tagRecorded()
{
    // Key order is the device's and must survive as sent.
    const QByteArray first = R"({"id":"U1","firstname":"Alex","tags":["premium"]})";
    const QByteArray second = R"({"id":"U1","lastname":"Morgan","email":"a@example.com"})";
    const HttpResult reply = send("POST", TagPath + u"?tId=T1"_s, first);
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.body, "{}"_ba);
    QCOMPARE(send("POST", TagPath + u"?tId=T1"_s, second).status, 200);
    QCOMPARE(m_service->taggedUserBody(u"U1"_s), std::optional<QByteArray>(second));
    QVERIFY(!m_service->taggedUserBody(u"U2"_s));
}

void TestServiceChat::tagRefused_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("not JSON") << R"({"id":"U1",)"_ba;
    QTest::newRow("not an object") << R"(["U1"])"_ba;
    QTest::newRow("tags not strings") << R"({"id":"U1","tags":[1]})"_ba;
}

void TestServiceChat::tagRefused()
{
    QFETCH(QByteArray, body);
    QCOMPARE(send("POST", TagPath + u"?tId=T1"_s, body).status, 400);
    QVERIFY(!m_service->taggedUserBody(u"U1"_s));
}

void TestServiceChat::consoleShowsUser_data()
{
    QTest::addColumn<bool>("report");
    QTest::addColumn<QString>("source");
    QTest::newRow("tag record of the visitor") << false << u"tag"_s;
    QTest::newRow("UserTag report of the visit") << true << u"report"_s;
}

void TestServiceChat::consoleShowsUser()
{
    QFETCH(bool, report);
    QFETCH(QString, source);
    const QString channel = u"/api/ix/m?id=V1&sId=S1&tId=T1&vId=U1&url=Form&fsTy=l"_s;
    QCOMPARE(send("GET", channel).status, 200);
    QCOMPARE(send("POST", TagPath + u"?tId=T1"_s,
                  R"({"id":"U1","firstname":"Tag","email":"t@example.com"})")
                 .status,
             200);
    if (report) {
        VistrelKit::ProtoMessage message = ping(1000);
        VistrelKit::ProtoUserTag *tag = message.add_usertag();
        tag->set_id("U1");
        tag->set_firstname("Report");
        tag->add_label("premium");
        QCOMPARE(send("POST", channel, listBytes({message})).status, 200);
    }
    const QJsonObject user =
        object(send("GET", u"/console/api/visits/V1"_s).body)[u"user"_s].toObject();
    QCOMPARE(user[u"source"_s].toString(), source);
    QCOMPARE(user[u"firstname"_s].toString(), report ? u"Report"_s : u"Tag"_s);
    QCOMPARE(user[u"tags"_s].toArray(), report ? QJsonArray{u"premium"_s} : QJsonArray());
}

void TestServiceChat::consoleChat()
{
    QCOMPARE(send("GET", u"/api/ix/m?id=V1&sId=S1&tId=T1&vId=U1"_s).status, 200);
    QCOMPARE(send("POST", u"/console/api/visits/V1/chat"_s, R"({"text":"Hi"})").status, 200);
    QCOMPARE(send("POST", u"/console/api/visits/V1/chat/document"_s, R"({"kind":"doc"})").status,
             400);
    QCOMPARE(send("POST", u"/console/api/visits/V1/chat/document"_s, R"({"kind":"png"})").status,
             200);
    const QJsonArray messages =
        object(send("GET", u"/console/api/visits/V1/chat"_s).body)[u"messages"_s].toArray();
    QCOMPARE(messages.size(), 2);
    QCOMPARE(messages.at(0)[u"text"_s].toString(), u"Hi"_s);
    QCOMPARE(messages.at(1)[u"document"_s][u"name"_s].toString(), u"chart.png"_s);
}

QTEST_MAIN(TestServiceChat)
#include "tst_servicechat.moc"
