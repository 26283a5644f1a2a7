#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
#include "Core/Injection.h"
#include "TestConfig.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConfiguration.h>

#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

class tst_Orvane : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void initConfig_data();
    void initConfig();
    void withCustomServer_data();
    void withCustomServer();
    void withCustomCdnServer_data();
    void withCustomCdnServer();
    void serverAndCdnFromConfigFile_data();
    void serverAndCdnFromConfigFile();

private:
    QString writeConfig(const QByteArray &json);

    ApplicationConfig &config() { return m_wrapper->config(); }

    ApplicationConfigWrapper *m_wrapper = nullptr;
    QTemporaryDir m_dir;
    int m_files = 0;
};

void tst_Orvane::initTestCase()
{
    // initConfig() may fall back to the device identifier.
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_dir.isValid());
    m_wrapper = Injection::getContainer().resolve<ApplicationConfigWrapper>();
    QVERIFY(m_wrapper);
}

void tst_Orvane::init()
{
    TestConfig::use(u"assist.example:8443"_s);
    config() = ApplicationConfig();
}

QString tst_Orvane::writeConfig(const QByteArray &json)
{
    const QString path = m_dir.filePath(u"Config-%1.json"_s.arg(++m_files));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size())
        qFatal("Cannot write %s", qPrintable(path));
    return path;
}

void tst_Orvane::initConfig_data()
{
    QTest::addColumn<std::optional<QString>>("sessionId");
    QTest::addColumn<std::optional<QString>>("userId");
    QTest::newRow("no session yet") << std::optional<QString>() << std::optional<QString>();
    QTest::newRow("session kept") << std::optional(u"SESSION-1"_s) << std::optional<QString>();
    QTest::newRow("visitor from the active user")
        << std::optional(u"SESSION-2"_s) << std::optional(u"customer-7"_s);
}

void tst_Orvane::initConfig()
{
    QFETCH(std::optional<QString>, sessionId);
    QFETCH(std::optional<QString>, userId);

    VisitConfig &visit = config().visitConfig;
    visit.sessionId = sessionId;
    visit.visitId = u"old-visit"_s;
    visit.visitorId = u"old-visitor"_s;
    if (userId) {
        ActiveUser user;
        user.id = userId;
        config().activeUserTag = user;
    }
    const QString expectedVisitor = userId.value_or(IdUtils::vendorId());

    QVERIFY(Orvane::initConfig(u"tenant-1"_s, u"token-1"_s));
    QCOMPARE(config().tenantId, u"tenant-1"_s);
    QCOMPARE(config().token, u"token-1"_s);
    QCOMPARE(visit.visitorId, expectedVisitor);
    QVERIFY(visit.visitId && *visit.visitId != u"old-visit"_s);
    QVERIFY(visit.sessionId);
    if (sessionId)
        QCOMPARE(visit.sessionId, sessionId);
    const QString session = *visit.sessionId;
    const QString firstVisit = *visit.visitId;

    // Again: new tenant, token and visit; the session stays.
    QVERIFY(Orvane::initConfig(u"tenant-2"_s, u"token-2"_s));
    QCOMPARE(config().tenantId, u"tenant-2"_s);
    QCOMPARE(config().token, u"token-2"_s);
    QCOMPARE(visit.sessionId, session);
    QVERIFY(*visit.visitId != firstVisit);
    QCOMPARE(visit.visitorId, expectedVisitor);
}

void tst_Orvane::withCustomServer_data()
{
    QTest::addColumn<std::optional<QString>>("cdnPath");
    QTest::addColumn<QString>("expectedCdnPath");
    QTest::newRow("CDN path absent") << std::optional<QString>() << u"custom.example:9000"_s;
    QTest::newRow("CDN path set") << std::optional(u"http://cdn.example/cdn"_s)
                                  << u"http://cdn.example/cdn"_s;
    QTest::newRow("CDN path empty") << std::optional(QString()) << QString();
}

void tst_Orvane::withCustomServer()
{
    QFETCH(std::optional<QString>, cdnPath);
    QFETCH(QString, expectedCdnPath);

    config().hostname = u"old.example"_s;
    config().cdnPath = cdnPath;
    auto init = Orvane::initConfig(u"tenant"_s, u"token"_s);
    QVERIFY(init);
    InitConfiguration &chained = init->withCustomServer(u"custom.example:9000"_s);
    QCOMPARE(&chained, &*init);
    QCOMPARE(config().hostname, u"custom.example:9000"_s);
    QCOMPARE(config().cdnPath, expectedCdnPath);
}

void tst_Orvane::withCustomCdnServer_data()
{
    QTest::addColumn<std::optional<QString>>("httpProtocol");
    QTest::addColumn<bool>("cdnFirst");
    QTest::addColumn<QString>("expectedCdnPath");
    QTest::newRow("https") << std::optional(u"https"_s) << false << u"https://cdn.example:7/cdn"_s;
    QTest::newRow("no HttpProtocol key")
        << std::optional<QString>() << false << u"://cdn.example:7/cdn"_s;
    // Once the CDN path is set, a custom server does not replace it.
    QTest::newRow("CDN server before the server")
        << std::optional(u"http"_s) << true << u"http://cdn.example:7/cdn"_s;
}

void tst_Orvane::withCustomCdnServer()
{
    QFETCH(std::optional<QString>, httpProtocol);
    QFETCH(bool, cdnFirst);
    QFETCH(QString, expectedCdnPath);

    TestConfig::use(u"assist.example:8443"_s, httpProtocol);
    auto init = Orvane::initConfig(u"tenant"_s, u"token"_s);
    QVERIFY(init);
    if (cdnFirst)
        init->withCustomCdnServer(u"cdn.example:7"_s).withCustomServer(u"custom.example"_s);
    else
        QCOMPARE(&init->withCustomCdnServer(u"cdn.example:7"_s), &*init);
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
    QTest::newRow("neither key") << "{}"_ba << u":///cdn"_s;
    QTest::newRow("no config file") << QByteArray() << u":///cdn"_s;
}

void tst_Orvane::serverAndCdnFromConfigFile()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, expectedCdnPath);
    const QString path = file.isNull() ? m_dir.filePath(u"missing.json"_s) : writeConfig(file);
    OrvaneConfiguration *configuration = Orvane::configuration();

    // setServer() takes the host it is given and the CDN path from the file.
    Orvane::setConfigFile(path);
    configuration->setServer(u"api.example:2"_s);
    QCOMPARE(configuration->server(), u"api.example:2"_s);
    QCOMPARE(configuration->cdnPath(), expectedCdnPath);

    // setCdnServer() reads the file again and ignores its argument.
    Orvane::setConfigFile(writeConfig(R"({"HttpProtocol":"http","CdnHostname":"before"})"_ba));
    configuration->setServer(u"api.example:2"_s);
    QCOMPARE(configuration->cdnPath(), u"http://before/cdn"_s);
    Orvane::setConfigFile(path);
    Orvane::configuration()->setCdnServer(u"ignored.example"_s);
    QCOMPARE(configuration->cdnPath(), expectedCdnPath);
    QCOMPARE(configuration->server(), u"api.example:2"_s);
}

QTEST_GUILESS_MAIN(tst_Orvane)
#include "tst_orvane.moc"
