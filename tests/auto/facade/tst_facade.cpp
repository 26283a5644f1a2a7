#include "ChildProcess.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "TestConfig.h"
#include "User/User.h"
#include "WebChat/WebChat.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneConfiguration.h>
#include <Vistrel/OrvaneUser.h>
#include <Vistrel/OrvaneVistrel.h>
#include <Vistrel/OrvaneWebChat.h>

#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
// Runs in a child process (see initMain): a fresh container in which one type cannot be built,
// then every facade call that needs it. The log lines and the results go to standard output.
void runCase(const QString &name, int &argc, char **argv)
{
    QCoreApplication app(argc, argv);
    TestConfig::use(u"127.0.0.1:1"_s);
    Injection &container = Kit::container();
    const auto print = [](const QString &line) { std::printf("%s\n", qPrintable(line)); };
    if (name == u"session"_s) {
        container.registerSingleton<Vistrel>([](Injection &) { return nullptr; });
        OrvaneVistrel *vistrel = Orvane::vistrel();
        vistrel->start();
        vistrel->start(u"tenant"_s, u"token"_s);
        vistrel->tag(u"tag"_s);
        vistrel->registerCallbacks({}, {});
        vistrel->stop();
        print(u"connected "_s + (vistrel->connected() ? u"true"_s : u"false"_s));
        print(u"shareId \""_s + vistrel->shareId() + u'"');
    } else if (name == u"co-browsing"_s) {
        container.registerSingleton<CoBrowsing>([](Injection &) { return nullptr; });
        OrvaneCoBrowsing *coBrowsing = Orvane::coBrowsing();
        coBrowsing->start();
        coBrowsing->stop();
        print(u"shown "_s + (coBrowsing->isShown() ? u"true"_s : u"false"_s));
    } else if (name == u"user and web chat"_s) {
        container.registerSingleton<User>([](Injection &) { return nullptr; });
        container.registerSingleton<WebChat>([](Injection &) { return nullptr; });
        Orvane::user()->tag(ActiveUser{});
        Orvane::user()->clear();
        Orvane::webChat()->open(u"chat"_s);
        print(u"open "_s + (Orvane::webChat()->isOpen() ? u"true"_s : u"false"_s));
    } else if (name == u"log handler"_s) {
        container.registerSingleton<Vistrel>([](Injection &) { return nullptr; });
        Orvane::setLogHandler(
            [print](const QString &level, const QString &source, const QString &message) {
                print(u"handled "_s + level + u'|' + source + u'|' + message);
            });
        Orvane::vistrel()->stop();
        Orvane::setLogHandler({});
        Orvane::vistrel()->stop();
    } else {
        container.registerSingleton<ApplicationConfigWrapper>([](Injection &) { return nullptr; });
        print(u"initConfig "_s + (Orvane::initConfig(u"t"_s, u"k"_s) ? u"given"_s : u"none"_s));
    }
}
} // namespace

class tst_Facade : public QObject
{
    Q_OBJECT
public:
    static void initMain() { ChildProcess::runCaseAndExit("tst_facade", runCase); }

private:
    static ApplicationConfig &config()
    {
        return Kit::container().resolve<ApplicationConfigWrapper>()->config();
    }

    QTemporaryDir m_dir;

private Q_SLOTS:
    // Also QStandardPaths' test mode: the kit may reach for the device identifier.
    void initTestCase() { TestConfig::use(u"assist.example:8443"_s); }

    void initConfig()
    {
        VisitConfig &visit = config().visitConfig;
        visit = {u"old-visitor"_s, u"old-visit"_s, std::nullopt, std::nullopt};
        // Each call binds the tenant and renews the visit id; the session stays once there is one.
        for (const QString &tenant : {u"tenant-1"_s, u"tenant-2"_s}) {
            const VisitConfig before = visit;
            QVERIFY(Orvane::initConfig(tenant, tenant + u"-token"_s));
            QCOMPARE(config().tenantId, tenant);
            QCOMPARE(config().token, tenant + u"-token"_s);
            QVERIFY(visit.visitId && visit.visitId != before.visitId);
            QVERIFY(visit.sessionId && (!before.sessionId || visit.sessionId == before.sessionId));
        }
    }

    void customServers_data()
    {
        QTest::addColumn<std::optional<QString>>("httpProtocol");
        QTest::addColumn<std::optional<QString>>("cdnPath");
        QTest::addColumn<bool>("server"); // withCustomServer(), else withCustomCdnServer()
        QTest::addColumn<QString>("expectedCdnPath");
        const std::optional<QString> http = u"http"_s;
        const std::optional<QString> none;
        // A custom server fills the CDN path only while it is unset (an empty one is set).
        QTest::newRow("server, CDN path unset") << http << none << true << u"custom.example:9"_s;
        QTest::newRow("server, CDN path empty") << http << std::optional(u""_s) << true << u""_s;
        QTest::newRow("CDN server")
            << std::optional(u"https"_s) << none << false << u"https://cdn.example:7/cdn"_s;
        QTest::newRow("CDN server, no HttpProtocol key")
            << none << none << false << u"://cdn.example:7/cdn"_s;
    }
    void customServers()
    {
        QFETCH(std::optional<QString>, httpProtocol);
        QFETCH(std::optional<QString>, cdnPath);
        QFETCH(bool, server);
        QFETCH(QString, expectedCdnPath);
        TestConfig::use(u"assist.example:8443"_s, httpProtocol);
        config().hostname = u"old.example"_s;
        config().cdnPath = cdnPath;
        auto init = Orvane::initConfig(u"tenant"_s, u"token"_s);
        QVERIFY(init);
        QCOMPARE(&(server ? init->withCustomServer(u"custom.example:9"_s)
                          : init->withCustomCdnServer(u"cdn.example:7"_s)),
                 &*init); // for chaining
        QCOMPARE(config().hostname, server ? u"custom.example:9"_s : u"old.example"_s);
        QCOMPARE(config().cdnPath, expectedCdnPath);
    }

    void serverAndCdnFromConfigFile()
    {
        OrvaneConfiguration *configuration = Orvane::configuration();
        // setServer() takes the host it is given and the CDN path from the file, here none.
        Orvane::setConfigFile(m_dir.filePath(u"none"_s));
        configuration->setServer(u"api.example:2"_s);
        QCOMPARE(configuration->server(), u"api.example:2"_s);
        QCOMPARE(configuration->cdnPath(), u":///cdn"_s);
        // setCdnServer() reads the file again and ignores its argument; the file's host is not
        // the server.
        QFile file(m_dir.filePath(u"Config.json"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(
            R"({"HttpProtocol":"https","CdnHostname":"cdn.file:1","Hostname":"file.example"})");
        file.close();
        Orvane::setConfigFile(file.fileName());
        configuration->setCdnServer(u"ignored.example"_s);
        QCOMPARE(configuration->cdnPath(), u"https://cdn.file:1/cdn"_s);
        QCOMPARE(configuration->server(), u"api.example:2"_s);
    }

    void facadeWithoutItsObject_data()
    {
        QTest::addColumn<QStringList>("output");
        const QString noSession = u"[ERROR] OrvaneVistrel: Cannot find instance of Vistrel"_s;
        // Every call says why it did nothing, and the ones with a result give the empty one.
        QTest::newRow("session") << (QStringList(5, noSession) << noSession << u"connected false"_s
                                                               << noSession << u"shareId \"\""_s);
        const QString noCoBrowsing = u"[ERROR] OrvaneCoBrowsing: Cannot get CoBrowsing instance"_s;
        QTest::newRow("co-browsing")
            << QStringList{noCoBrowsing, noCoBrowsing, noCoBrowsing, u"shown false"_s};
        const QString noUser = u"[ERROR] OrvaneUser: Cannot find instance of User"_s;
        const QString noChat = u"[ERROR] OrvaneWebChat: Cannot find instance of WebChat"_s;
        QTest::newRow("user and web chat")
            << QStringList{noUser, noUser, noChat, noChat, u"open false"_s};
        // The host's handler takes the line instead of standard output, until it is removed.
        QTest::newRow("log handler") << QStringList{
            u"handled ERROR|OrvaneVistrel|Cannot find instance of Vistrel"_s, noSession};
        QTest::newRow("configuration") << QStringList{
            u"[ERROR] Orvane: Cannot find instance of Application Config"_s, u"initConfig none"_s};
    }
    void facadeWithoutItsObject()
    {
        QFETCH(QStringList, output);
        // The process-wide container cannot be undone: each case gets a process of its own.
        const ChildProcess::Outcome outcome =
            ChildProcess::run(QString::fromLatin1(QTest::currentDataTag()));
        QVERIFY2(outcome.succeeded(), outcome.standardError.constData());
        QCOMPARE(QString::fromUtf8(outcome.standardOutput).split(u'\n', Qt::SkipEmptyParts),
                 output);
    }
};

QTEST_GUILESS_MAIN(tst_Facade)
#include "tst_facade.moc"
