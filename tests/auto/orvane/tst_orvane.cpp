#include "ChildProcess.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "TestConfig.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneConfiguration.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QStandardPaths>
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
    QStandardPaths::setTestModeEnabled(true);
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

class tst_Orvane : public QObject
{
    Q_OBJECT
public:
    static void initMain() { ChildProcess::runCaseAndExit("tst_orvane", runCase); }

private Q_SLOTS:
    void initTestCase()
    {
        // The kit's services may reach for the device identifier.
        QStandardPaths::setTestModeEnabled(true);
        m_wrapper = Kit::container().resolve<ApplicationConfigWrapper>();
        QVERIFY(m_wrapper && m_dir.isValid());
    }
    void init()
    {
        TestConfig::use(u"assist.example:8443"_s);
        config() = ApplicationConfig();
    }
    void initConfig();
    void customServers_data();
    void customServers();
    void serverAndCdnFromConfigFile_data();
    void serverAndCdnFromConfigFile();
    void facadeWithoutItsObject_data();
    void facadeWithoutItsObject();

private:
    ApplicationConfig &config() { return m_wrapper->config(); }

    ApplicationConfigWrapper *m_wrapper = nullptr;
    QTemporaryDir m_dir;
};

void tst_Orvane::initConfig()
{
    QCOMPARE(Orvane::vistrel(), Orvane::vistrel());
    VisitConfig &visit = config().visitConfig;
    visit = {u"old-visitor"_s, u"old-visit"_s, std::nullopt, std::nullopt};
    config().activeUserTag = ActiveUser();
    config().activeUserTag->id = u"customer-7"_s;
    // Each call renews the visitor and visit ids; the session stays once there is one.
    for (const QString &tenant : {u"tenant-1"_s, u"tenant-2"_s}) {
        const VisitConfig before = visit;
        QVERIFY(Orvane::initConfig(tenant, tenant + u"-token"_s));
        QCOMPARE(config().tenantId, tenant);
        QCOMPARE(config().token, tenant + u"-token"_s);
        QCOMPARE(visit.visitorId, u"customer-7"_s);
        QVERIFY(visit.visitId && visit.visitId != before.visitId);
        QVERIFY(visit.sessionId && (!before.sessionId || visit.sessionId == before.sessionId));
    }
}

void tst_Orvane::customServers_data()
{
    QTest::addColumn<std::optional<QString>>("httpProtocol");
    QTest::addColumn<std::optional<QString>>("cdnPath");
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<QString>("expectedCdnPath");
    const std::optional<QString> http = u"http"_s;
    const std::optional<QString> none;
    const QStringList server{u"server"_s};
    const QStringList cdn{u"cdn"_s};
    // A custom server fills the CDN path only while it is unset.
    QTest::newRow("server, CDN path unset") << http << none << server << u"custom.example:9"_s;
    QTest::newRow("server, CDN path empty") << http << std::optional(u""_s) << server << u""_s;
    QTest::newRow("CDN server") << std::optional(u"https"_s) << none << cdn
                                << u"https://cdn.example:7/cdn"_s;
    QTest::newRow("CDN server, no HttpProtocol key")
        << none << none << cdn << u"://cdn.example:7/cdn"_s;
    QTest::newRow("CDN server, then server")
        << http << none << (cdn + server) << u"http://cdn.example:7/cdn"_s;
}

void tst_Orvane::customServers()
{
    QFETCH(std::optional<QString>, httpProtocol);
    QFETCH(std::optional<QString>, cdnPath);
    QFETCH(QStringList, calls);
    QFETCH(QString, expectedCdnPath);
    TestConfig::use(u"assist.example:8443"_s, httpProtocol);
    config().hostname = u"old.example"_s;
    config().cdnPath = cdnPath;
    auto init = Orvane::initConfig(u"tenant"_s, u"token"_s);
    QVERIFY(init);
    for (const QString &call : calls) {
        InitConfiguration &chained = call == u"server"_s
                                         ? init->withCustomServer(u"custom.example:9"_s)
                                         : init->withCustomCdnServer(u"cdn.example:7"_s);
        QCOMPARE(&chained, &*init);
    }
    QCOMPARE(config().hostname,
             calls.contains(u"server"_s) ? u"custom.example:9"_s : u"old.example"_s);
    QCOMPARE(config().cdnPath, expectedCdnPath);
}

void tst_Orvane::serverAndCdnFromConfigFile_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("expectedCdnPath");
    QTest::newRow("scheme and CDN host")
        << R"({"HttpProtocol":"https","CdnHostname":"cdn.file:1","Hostname":"file.example"})"_ba
        << u"https://cdn.file:1/cdn"_s;
    QTest::newRow("no HttpProtocol key")
        << R"({"CdnHostname":"cdn.file:1"})"_ba << u"://cdn.file:1/cdn"_s;
    QTest::newRow("no config file") << QByteArray() << u":///cdn"_s;
}

void tst_Orvane::serverAndCdnFromConfigFile()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, expectedCdnPath);
    const auto write = [this](const QString &name, const QByteArray &json) {
        QFile out(m_dir.filePath(name));
        if (!json.isNull() && (!out.open(QIODevice::WriteOnly) || out.write(json) != json.size()))
            qFatal("Cannot write %s", qPrintable(out.fileName()));
        return out.fileName();
    };
    OrvaneConfiguration *configuration = Orvane::configuration();
    // setServer() takes the host it is given and the CDN path from the file.
    Orvane::setConfigFile(write(QString::fromLatin1(QTest::currentDataTag()), file));
    configuration->setServer(u"api.example:2"_s);
    QCOMPARE(configuration->server(), u"api.example:2"_s);
    QCOMPARE(configuration->cdnPath(), expectedCdnPath);
    // setCdnServer() reads the file again and ignores its argument.
    Orvane::setConfigFile(write(u"other"_s, R"({"HttpProtocol":"http","CdnHostname":"b"})"_ba));
    configuration->setCdnServer(u"ignored.example"_s);
    QCOMPARE(configuration->cdnPath(), u"http://b/cdn"_s);
    QCOMPARE(configuration->server(), u"api.example:2"_s);
}

void tst_Orvane::facadeWithoutItsObject_data()
{
    QTest::addColumn<QStringList>("output");
    const QString noSession = u"[ERROR] OrvaneVistrel: Cannot find instance of Vistrel"_s;
    // Every call says why it did nothing, and the ones with a result give the empty one.
    QTest::newRow("session") << (QStringList(5, noSession) << noSession << u"connected false"_s
                                                           << noSession << u"shareId \"\""_s);
    const QString noCoBrowsing = u"[ERROR] OrvaneCoBrowsing: Cannot get CoBrowsing instance"_s;
    QTest::newRow("co-browsing") << QStringList{noCoBrowsing, noCoBrowsing, noCoBrowsing,
                                                u"shown false"_s};
    // The host's handler takes the line instead of standard output, until it is removed.
    QTest::newRow("log handler") << QStringList{
        u"handled ERROR|OrvaneVistrel|Cannot find instance of Vistrel"_s, noSession};
    QTest::newRow("configuration") << QStringList{
        u"[ERROR] Orvane: Cannot find instance of Application Config"_s, u"initConfig none"_s};
}

void tst_Orvane::facadeWithoutItsObject()
{
    QFETCH(QStringList, output);
    // The process-wide container cannot be undone: each case gets a process of its own.
    const ChildProcess::Outcome outcome =
        ChildProcess::run(QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY2(outcome.succeeded(), outcome.standardError.constData());
    QCOMPARE(QString::fromUtf8(outcome.standardOutput).split(u'\n', Qt::SkipEmptyParts), output);
}

QTEST_GUILESS_MAIN(tst_Orvane)
#include "tst_orvane.moc"
