#include "SessionFixture.h"

#include <Vistrel/OrvaneUser.h>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;

Q_DECLARE_METATYPE(ActiveUser)

class tst_User : public QObject, public SessionFixture
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(setUp()); }

    void init()
    {
        service.clearRequests();
        service.clearCannedReplies();
        log.clear();
        heard.clear();
    }

    void cleanup()
    {
        config().activeUserTag.reset();
        const QString visit = currentVisit();
        const bool opened = running() && service.visit(visit);
        Orvane::vistrel()->stop();
        QVERIFY(!opened || waitForEnd(visit));
    }

    void tag_data()
    {
        QTest::addColumn<ActiveUser>("user");
        QTest::addColumn<QByteArray>("body");
        ActiveUser full{u"42"_s,
                        u"Ada"_s,
                        u"Lovelace"_s,
                        u"ada@example.com"_s,
                        QStringList{u"vip"_s, u"beta"_s},
                        u"agent-7"_s};
        QTest::newRow("with an id, every field")
            << full
            << R"({"id":"42","firstname":"Ada","lastname":"Lovelace","email":"ada@example.com",)"
               R"("tags":["vip","beta"],"assignedUser":"agent-7"})"_ba;
        ActiveUser anonymous;
        anonymous.firstname = u"Bo"_s;
        anonymous.tags = QStringList();
        QTest::newRow("without an id") << anonymous << R"({"firstname":"Bo","tags":[]})"_ba;
    }
    void tag()
    {
        QFETCH(ActiveUser, user);
        QFETCH(QByteArray, body);
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        const VisitConfig before = config().visitConfig;
        config().vistrelConfig.optIn = true;

        Orvane::user()->tag(user);
        const VisitConfig after = config().visitConfig;
        QCOMPARE(config().activeUserTag, std::optional(user));
        QCOMPARE(config().vistrelConfig.optIn, std::optional(false));
        // The user's id is the visitor; someone without one is a new visitor on a new visit.
        QCOMPARE(after.visitorId, user.id ? user.id : after.visitorId);
        QCOMPARE(after.visitorId != before.visitorId, true);
        QCOMPARE(after.visitId == before.visitId, bool(user.id));
        QCOMPARE(after.sessionId == before.sessionId, bool(user.id));

        const QString path = u"/rest/v1/customerstatus/tag/byVisitor/"_s + *after.visitorId;
        QVERIFY(service.waitForRequests(path, 1, patience));
        const auto request = service.requests(path).first();
        QCOMPARE(request.method, u"POST"_s);
        QCOMPARE(request.query.toString(), u"tId=tenant-1"_s);
        QCOMPARE(request.body, body);

        // Then the session restarts on a new visit of that visitor. (The stop before it deletes
        // the visit the configuration names, so only a kept visit id ends the old one.)
        if (user.id)
            QVERIFY(waitForEnd(visit));
        const auto restarted = [&] {
            const QString now = currentVisit();
            return now != visit && now != after.visitId && service.visit(now) &&
                   service.visit(now)->state() == VistrelService::Visit::State::Open;
        };
        QVERIFY(service.waitFor(restarted, patience));
        QCOMPARE(service.visit(currentVisit())->visitorId(), *after.visitorId);
        QVERIFY(running());
    }

    void laterStartsSendTheUser()
    {
        ActiveUser user;
        user.id = u"u-7"_s;
        user.email = u"x@example.com"_s;
        user.tags = QStringList{u"gold"_s};
        Orvane::user()->tag(user);
        // Tagging restarts the session even when none ran; then the host's own start.
        QTRY_VERIFY_WITH_TIMEOUT(running(), patience);
        Orvane::vistrel()->stop();
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        QVERIFY(service.waitForReports(
            visit,
            [](const QList<Report> &reports) {
                return std::ranges::any_of(
                    reports, [](const Report &r) { return r.message.usertag_size(); });
            },
            patience));
        const auto reports = service.visit(visit)->reports();
        const auto it =
            std::ranges::find_if(reports, [](const Report &r) { return r.message.usertag_size(); });
        const auto &sent = it->message.usertag(0);
        QCOMPARE(sent.id(), "u-7");
        QCOMPARE(sent.email(), "x@example.com");
        QCOMPARE(sent.label_size(), 1);
        QCOMPARE(sent.label(0), "gold");
        QVERIFY(!sent.has_firstname());
    }

    void tagFails()
    {
        const QString visit = startSession();
        QVERIFY(!visit.isEmpty());
        const QString path = u"/rest/v1/customerstatus/tag/byVisitor/9"_s;
        service.setCannedReply(u"POST"_s, path, CannedReply::dropped());
        ActiveUser user;
        user.id = u"9"_s;
        Orvane::user()->tag(user);
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(u"[WARNING] User: Cannot send tag: "_s), patience);
        // The user and ids stay; the session goes on as it was.
        QCOMPARE(config().visitConfig.visitorId, std::optional(u"9"_s));
        QTest::qWait(500);
        QCOMPARE(currentVisit(), visit);
        QVERIFY(!heard.contains(u"stopped"_s));
    }

    void clear()
    {
        config().activeUserTag = ActiveUser{u"1"_s, {}, {}, {}, {}, {}};
        Orvane::user()->clear();
        QCOMPARE(config().activeUserTag, std::nullopt);
        QVERIFY(log.contains(u"[WARNING] Vistrel: Already stopped"_s));
    }
};

QTEST_MAIN(tst_User)
#include "tst_user.moc"
