#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Communication/Communication.h"
#include "Conference.h"
#include "ConferenceCallSettingsDTO.h"
#include "ConferenceView.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "TestConfig.h"

#include <QSignalSpy>
#include <QTest>
#include <QWebEngineView>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;

Q_DECLARE_METATYPE(QWebEnginePage::Feature)

namespace {
constexpr int patience = 30000;

ConferenceProperties customer(const QString &id)
{
    ConferenceProperties properties;
    properties.customerId = id;
    properties.firstname = u"Ada"_s;
    properties.displayName = u"Ada L."_s;
    properties.email = u"ada@example.com"_s;
    return properties;
}
} // namespace

class tst_Conference : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        TestConfig::use(m_service.start() ? m_service.hostAndPort() : QString());
        QVERIFY(m_service.port());
        const QString tls = qEnvironmentVariable("VISTREL_TEST_TLS_DIR");
        QVERIFY2(!tls.isEmpty(), "the test authority's directory is not set");
        QVERIFY(m_service.startTlsFromDirectory(tls));
        m_wrapper.config().visitConfig.sessionId = u"session-1"_s;
        m_window.resize(480, 640);
        m_window.show();
        QVERIFY(QTest::qWaitForWindowActive(&m_window));
        // The co-browsing start listener polls every few seconds; a quicker one keeps the
        // conference's own 3000 s polls from waiting (the smallest rate wins).
        m_communication.registerClient(
            RegisteredClient{u"quick"_s, CommunicationChannel::SCB, 0.2, {}, {}, {}});
    }

    void init()
    {
        m_wrapper.config().tenantId = u"t1"_s;
        m_service.clearRequests();
        m_service.clearCannedReplies();
        m_service.setCallSettings({});
        m_log.clear();
    }

    void cleanup()
    {
        m_conference.conferenceTerminated();
        m_communication.unregisterClient(m_conference.coStatusId());
        m_communication.unregisterClient(m_conference.coQueueId());
        QTRY_VERIFY(m_window.findChildren<ConferenceView *>().isEmpty());
    }

    void newCustomerJson_data()
    {
        QTest::addColumn<NewCustomerFromConferenceDTO>("record");
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("only an e-mail") << NewCustomerFromConferenceDTO{{}, {}, u"a@b.c"_s, {}, {}}
                                        << R"({"email":"a@b.c"})"_ba;
        QTest::newRow("every field, in order")
            << NewCustomerFromConferenceDTO{u"A"_s, u"B"_s, u"a@b.c"_s, u"+1"_s, u"17"_s}
            << R"({"firstName":"A","lastName":"B","email":"a@b.c","phoneNumber":"+1",)"
               R"("joinedTimestamp":"17"})"_ba;
    }
    void newCustomerJson()
    {
        QFETCH(NewCustomerFromConferenceDTO, record);
        QFETCH(QByteArray, json);
        QCOMPARE(JsonUtils::dump(record.toJson()), json);
    }

    void settingsJson_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<std::optional<QString>>("subject");
        QTest::newRow("no i18n") << R"({"domain":"m.example","token":"j"})"_ba << true
                                 << std::optional<QString>();
        QTest::newRow("a null title")
            << R"({"i18n":{"page.title":null}})"_ba << true << std::optional<QString>();
        QTest::newRow("a title, an unknown key")
            << R"({"i18n":{"x":"y","page.title":"Help"},"extra":[1]})"_ba << true
            << std::optional(u"Help"_s);
        QTest::newRow("a domain that is no text")
            << R"({"domain":7})"_ba << false << std::optional<QString>();
    }
    void settingsJson()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        QFETCH(std::optional<QString>, subject);
        const auto settings = ConferenceCallSettingsDTO::fromJson(*JsonUtils::parse(json));
        QCOMPARE(settings.isOk(), decodes);
        if (decodes)
            QCOMPARE(settings.value().subject(), subject);
    }

    void hostPageScripts_data()
    {
        QTest::addColumn<QString>("text"); // from the service or the host
        QTest::newRow("a script end") << u"</script><script>alert(1)</script>"_s;
        // After "<!--", "<script" makes the browser skip the next "</script>".
        QTest::newRow("a comment start") << u"<!--<script>"_s;
    }
    void hostPageScripts()
    {
        QFETCH(QString, text);
        ConferenceView::Options options;
        options.serverUrl = QUrl(u"https://m.example/"_s);
        options.room = text;
        options.token = text;
        options.displayName = text;
        options.email = text;
        options.subject = text;
        const QString page = ConferenceView::hostPage(options);
        // The page's own three scripts, and nothing the text could open or close.
        QCOMPARE(page.count(u"<script"_s), 3);
        QCOMPARE(page.count(u"</script"_s), 3);
        QVERIFY(!page.contains(u"<!--"_s));
    }

    void join()
    {
        const VisitConfig before = m_wrapper.config().visitConfig;
        m_conference.join(customer(u"c9"_s));
        // A new visit of the same session, for this customer.
        const VisitConfig &visit = m_wrapper.config().visitConfig;
        QVERIFY(visit.visitId != before.visitId);
        QCOMPARE(visit.sessionId, before.sessionId);
        QCOMPARE(visit.customerId, std::optional(u"c9"_s));

        QVERIFY(m_service.waitForRequests(u"/cr/join/t1/c9"_s, 1, patience));
        const auto request = m_service.requests(u"/cr/join/t1/c9"_s).first();
        const auto timestamp = m_conference.newCustomerDTO().joinedTimestamp.value_or(QString());
        QVERIFY(qAbs(timestamp.toLongLong() - QDateTime::currentMSecsSinceEpoch()) < 60000);
        QCOMPARE(request.body,
                 uR"({"firstName":"Ada","email":"ada@example.com","joinedTimestamp":"%1"})"_s
                     .arg(timestamp)
                     .toUtf8());
        QTRY_VERIFY(m_log.contains(u"[DEBUG] Conference: joinConference successfull"_s));

        const ClientRegistry &registry = m_communication.registry();
        const RegisteredClient *status = registry.client(u"co-status"_s);
        const RegisteredClient *queue = registry.client(u"co-queue-id"_s);
        QVERIFY(status && queue);
        QVERIFY(status->channel == CommunicationChannel::S);
        QVERIFY(queue->channel == CommunicationChannel::COQS);
        QCOMPARE(status->rate, 3000.0);
        QCOMPARE(queue->rate, 3000.0);
        QCOMPARE(status->payload, u"{}"_s);
        QCOMPARE(queue->payload, QString());
        QVERIFY(status->additionalParams.startsWith(u"cId=c9&joinedTimestamp="_s));
        QCOMPARE(queue->additionalParams, status->additionalParams);
        // Both clients' parameters go out back to back, as the service reads them.
        const QString twice = status->additionalParams + status->additionalParams;
        QVERIFY(m_service.waitFor(
            [&] {
                const auto polls = m_service.requests(u"/api/in/co"_s);
                return !polls.isEmpty() &&
                       JsonUtils::parse(polls.last().body)->value("additionalProperties", "") ==
                           twice.toStdString();
            },
            patience));
    }

    void joinRefused_data()
    {
        QTest::addColumn<bool>("tenant");
        QTest::addColumn<QString>("line");
        QTest::newRow("no tenant") << false << u"[ERROR] Conference: Missing tenantId"_s;
        QTest::newRow("no customer") << true << u"[ERROR] Conference: Missing customerId"_s;
    }
    void joinRefused()
    {
        QFETCH(bool, tenant);
        QFETCH(QString, line);
        if (!tenant)
            m_wrapper.config().tenantId.reset();
        m_conference.join(tenant ? ConferenceProperties{} : customer(u"c9"_s));
        QVERIFY(m_log.contains(line));
        QVERIFY(!m_communication.registry().client(u"co-status"_s));
        QTest::qWait(200);
        const auto requests = m_service.requests();
        QVERIFY(std::ranges::none_of(requests,
                                     [](const auto &r) { return r.path.startsWith(u"/cr/"_s); }));
    }

    void queuePosition()
    {
        // Asked for before the join: kept, then called with what the polls deliver.
        QList<int> positions;
        m_conference.setQueueStatusCallback(u"c5"_s, [&](int n) { positions << n; });
        m_conference.join(customer(u"c5"_s));
        QTRY_VERIFY_WITH_TIMEOUT(!positions.isEmpty(), patience);
        const int place = positions.first(); // in the service's queue
        QVERIFY(place >= 1);
        // Not a number: nothing is called, and polling goes on.
        const QString visitor = *m_wrapper.config().visitConfig.visitorId;
        QVERIFY(m_service.queueChannelMessage(visitor, u"COQS"_s, u"abc"_s));
        QVERIFY(m_service.waitFor(
            [&] { return m_service.queuedChannelMessages(visitor).isEmpty(); }, patience));
        QTest::qWait(300);
        QVERIFY(std::ranges::all_of(positions, [place](int n) { return n == place; }));
        QVERIFY(m_communication.registry().client(u"co-queue-id"_s));
        // Out of the queue: -1 reaches the callback, then both polls go.
        QVERIFY(m_service.conference()->remove(u"t1"_s, u"c5"_s));
        QTRY_COMPARE_WITH_TIMEOUT(positions.last(), -1, patience);
        QVERIFY(!m_communication.registry().client(u"co-status"_s));
        QVERIFY(!m_communication.registry().client(u"co-queue-id"_s));
        const qsizetype heard = positions.size();
        QTest::qWait(500);
        QCOMPARE(positions.size(), heard);
    }

    void startRefused_data()
    {
        QTest::addColumn<bool>("tenant");
        QTest::addColumn<CannedReply>("reply");
        QTest::addColumn<QString>("line");
        const CannedReply settings{{200, R"({"domain":"x"})"_ba, "application/json"_ba}};
        QTest::newRow("no tenant")
            << false << settings << u"[ERROR] Conference: Missing tenantId"_s;
        QTest::newRow("settings not JSON")
            << true << CannedReply{{200, "<html>"_ba, "text/html"_ba}}
            << u"[ERROR] Conference: Could not receive conference settings"_s;
        QTest::newRow("no reply") << true << CannedReply::dropped()
                                  << u"[ERROR] Conference: Connection closed"_s;
    }
    void startRefused()
    {
        QFETCH(bool, tenant);
        QFETCH(CannedReply, reply);
        QFETCH(QString, line);
        if (!tenant)
            m_wrapper.config().tenantId.reset();
        m_service.setCannedReply(u"POST"_s, u"/cr/init/t1/c9"_s, reply);
        m_conference.start(customer(u"c9"_s));
        QTRY_VERIFY_WITH_TIMEOUT(m_log.contains(line), patience);
        QTest::qWait(200);
        QVERIFY(!m_conference.view());
    }

    void call_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QString>("room");
        QTest::addColumn<std::optional<QString>>("subject");
        // The call is the one the settings name.
        QTest::newRow("with a subject")
            << R"({"customerId":"c9","token":"jwt-1","domain":"%1","i18n":{"page.title":"Help"}})"_ba
            << u"t1xovxc9"_s << std::optional(u"Help"_s);
        QTest::newRow("no title") << R"({"customerId":"c7","token":"jwt-1","domain":"%1"})"_ba
                                  << u"t1xovxc7"_s << std::optional<QString>();
    }
    void call()
    {
        QFETCH(QByteArray, settings);
        QFETCH(QString, room);
        QFETCH(std::optional<QString>, subject);
        m_service.setCallSettings(
            QString::fromUtf8(settings).arg(m_service.tlsHostAndPort()).toUtf8());
        m_conference.join(customer(u"c9"_s));
        QSignalSpy started(&m_conference, &Conference::callStarted);
        QSignalSpy ended(&m_conference, &Conference::callEnded);
        m_conference.start(customer(u"c9"_s));
        QVERIFY(started.wait(patience));
        ConferenceView *view = m_conference.view();
        QVERIFY(view);
        QCOMPARE(view->parentWidget(), &m_window);
        QCOMPARE(view->geometry(), m_window.rect());

        // The meeting page reports what it was created with.
        const auto joined = [&] {
            const auto meetings = m_service.meetings();
            return std::ranges::any_of(meetings, [&](const auto &m) { return m.room == room; });
        };
        QVERIFY(m_service.waitFor(joined, patience));
        const auto meetings = m_service.meetings();
        const auto meeting =
            *std::ranges::find_if(meetings, [&](const auto &m) { return m.room == room; });
        QCOMPARE(meeting.jwt, u"jwt-1"_s);
        QCOMPARE(meeting.displayName, u"Ada L."_s);
        QCOMPARE(meeting.email, u"ada@example.com"_s);
        QCOMPARE(meeting.subject, subject);

        // Its end closes the view and stops both polls.
        m_service.endMeeting(room);
        QVERIFY(ended.wait(patience));
        QTRY_VERIFY(m_window.findChildren<ConferenceView *>().isEmpty());
        QVERIFY(!m_communication.registry().client(u"co-status"_s));
        QVERIFY(!m_communication.registry().client(u"co-queue-id"_s));
    }

    void terminatedWithoutCall()
    {
        m_conference.join(customer(u"c9"_s));
        QSignalSpy ended(&m_conference, &Conference::callEnded);
        m_conference.conferenceTerminated();
        QCOMPARE(ended.size(), 0);
        QVERIFY(m_communication.registry().client(u"co-status"_s));
        QVERIFY(m_communication.registry().client(u"co-queue-id"_s));
    }

    void permissions_data()
    {
        QTest::addColumn<QString>("origin");
        QTest::addColumn<QWebEnginePage::Feature>("feature");
        QTest::addColumn<bool>("granted");
        const QString meeting = u"https://meet.example:8443"_s;
        QTest::newRow("camera and microphone, meeting")
            << meeting << QWebEnginePage::MediaAudioVideoCapture << true;
        QTest::newRow("camera, meeting") << meeting << QWebEnginePage::MediaVideoCapture << true;
        QTest::newRow("microphone, another origin")
            << u"https://evil.example"_s << QWebEnginePage::MediaAudioCapture << false;
        QTest::newRow("same host, another port")
            << u"https://meet.example"_s << QWebEnginePage::MediaAudioCapture << false;
        QTest::newRow("same host, plain HTTP")
            << u"http://meet.example:8443"_s << QWebEnginePage::MediaAudioCapture << false;
        QTest::newRow("location, meeting") << meeting << QWebEnginePage::Geolocation << false;
        QTest::newRow("the screen, meeting")
            << meeting << QWebEnginePage::DesktopVideoCapture << false;
    }
    void permissions()
    {
        QFETCH(QString, origin);
        QFETCH(QWebEnginePage::Feature, feature);
        QFETCH(bool, granted);
        QCOMPARE(
            ConferenceView::grants(QUrl(origin), feature, QUrl(u"https://meet.example:8443/"_s)),
            granted);
    }

private:
    VistrelService::LocalService m_service;
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http, TestConfig::serviceHost()};
    Communication m_communication{&m_api, &m_wrapper};
    Conference m_conference{&m_api, &m_wrapper, &m_communication};
    QWidget m_window;
    LogCapture m_log;
};

QTEST_MAIN(tst_Conference)
#include "tst_conference.moc"
