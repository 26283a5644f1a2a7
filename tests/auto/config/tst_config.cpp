#include "ChildProcess.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"
#include "Config/IdUtils.h"
#include "Config/ServiceHost.h"
#include "Config/VistrelConfig.h"

#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
const QRegularExpression
    RandomUuid(u"^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"_s);

QString write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!QDir().mkpath(QFileInfo(path).absolutePath()) || !file.open(QIODevice::WriteOnly) ||
        file.write(bytes) != bytes.size())
        qFatal("Cannot write %s", qPrintable(path));
    return path;
}
} // namespace

class tst_Config : public QObject
{
    Q_OBJECT
public:
    // Only a fresh process shows the device identifier before it is cached.
    static void initMain()
    {
        ChildProcess::runCaseAndExit("tst_config", [](const QString &, int &argc, char **argv) {
            QCoreApplication app(argc, argv);
            QStandardPaths::setTestModeEnabled(true);
            std::printf("%s", qPrintable(IdUtils::vendorId()));
        });
    }

private Q_SLOTS:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void configFile();
    void shareIdAndStartTime();
    void newVisit_data();
    void newVisit();
    void vendorId_data();
    void vendorId();
};

void tst_Config::configFile()
{
    QTemporaryDir dir;
    const QString given = dir.filePath(u"given.json"_s);
    qputenv("VISTREL_CONFIG",
            write(dir.filePath(u"env.json"_s), R"({"Hostname":"env"})"_ba).toLocal8Bit());
    // A file given goes before the environment's, and is looked for again while it is missing.
    ConstantUtils::setConfigFile(given);
    QCOMPARE(ServiceHost().server(), QString());
    write(given, R"({"Hostname":"given"})"_ba);
    QCOMPARE(ServiceHost().server(), u"given"_s);
    ConstantUtils::setConfigFile({});
    QCOMPARE(ServiceHost().server(), u"env"_s);
    qunsetenv("VISTREL_CONFIG");
}

void tst_Config::shareIdAndStartTime()
{
    const QRegularExpression fiveDigits(u"^[1-9][0-9]{4}$"_s);
    const qint64 before = QDateTime::currentSecsSinceEpoch() * 1000;
    QSet<QString> seen;
    VistrelConfig config;
    for (int i = 0; i < 20000; ++i) {
        config.newShareIdAndStartTime();
        QVERIFY2(fiveDigits.match(*config.shareId).hasMatch(), qPrintable(*config.shareId));
        seen.insert(*config.shareId);
    }
    // The whole range is drawn from: about 18000 distinct values are expected.
    QVERIFY2(seen.size() > 15000, qPrintable(QString::number(seen.size())));
    // Whole seconds, in milliseconds.
    QCOMPARE(*config.startTime % 1000, 0);
    QVERIFY(*config.startTime >= before);
    QVERIFY(*config.startTime <= QDateTime::currentSecsSinceEpoch() * 1000);
}

void tst_Config::newVisit_data()
{
    const auto user = [](const std::optional<QString> &id) {
        ActiveUser user;
        user.id = id;
        return std::optional(user);
    };
    QTest::addColumn<std::optional<ActiveUser>>("activeUser");
    QTest::addColumn<std::optional<QString>>("sessionId");
    // Absent for the device identifier.
    QTest::addColumn<std::optional<QString>>("visitor");
    QTest::newRow("no active user, new session")
        << std::optional<ActiveUser>() << std::optional<QString>() << std::optional<QString>();
    QTest::newRow("user without id, session kept")
        << user(std::nullopt) << std::optional(u"kept"_s) << std::optional<QString>();
    QTest::newRow("user with id") << user(u"customer-42"_s) << std::optional<QString>()
                                  << std::optional(u"customer-42"_s);
    // An empty id is still an id.
    QTest::newRow("user with empty id")
        << user(u""_s) << std::optional(u"kept"_s) << std::optional(u""_s);
}

void tst_Config::newVisit()
{
    QFETCH(std::optional<ActiveUser>, activeUser);
    QFETCH(std::optional<QString>, sessionId);
    QFETCH(std::optional<QString>, visitor);
    ApplicationConfigWrapper wrapper;
    wrapper.config().activeUserTag = activeUser;
    wrapper.newVisit(std::nullopt);
    const VisitConfig first = wrapper.config().visitConfig;
    wrapper.newVisit(sessionId);
    const VisitConfig &visit = wrapper.config().visitConfig;
    QVERIFY(*visit.visitId != *first.visitId);
    QVERIFY(sessionId ? visit.sessionId == sessionId : *visit.sessionId != *first.sessionId);
    QCOMPARE(visit.visitorId, visitor.value_or(IdUtils::vendorId()));
    // Upper-case random UUIDs.
    for (const QString &id : {*first.sessionId, *visit.visitId, IdUtils::newUuid()})
        QVERIFY2(RandomUuid.match(id).hasMatch(), qPrintable(id));
}

void tst_Config::vendorId_data()
{
    QTest::addColumn<QByteArray>("stored");
    // Empty when any fresh identifier will do; for a process that must stop, its message.
    QTest::addColumn<QString>("expected");
    QTest::newRow("created on first use") << QByteArray() << QString();
    QTest::newRow("read from an earlier run") << "{0f8fad5b-d9cb-469f-a165-70867728950e}\n"_ba
                                              << u"0F8FAD5B-D9CB-469F-A165-70867728950E"_s;
    QTest::newRow("unreadable file replaced") << "not an identifier"_ba << QString();
    // Below a plain file nothing can be created, not even by root.
    QTest::newRow("location unwritable") << QByteArray() << u"Cannot store the device identifier"_s;
}

void tst_Config::vendorId()
{
    QFETCH(QByteArray, stored);
    QFETCH(QString, expected);
    const bool fatal = expected.startsWith(u"Cannot"_s);
    // Test mode keeps the data location under $HOME: each row is an installation of its own.
    QTemporaryDir home;
    const QString file = home.filePath(IdUtils::vendorIdFile().mid(QDir::homePath().size() + 1));
    if (!stored.isEmpty())
        write(file, stored);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, fatal ? write(home.filePath(u"file"_s), {}) : home.path());
    const ChildProcess::Outcome outcome = ChildProcess::run(u"vendorId"_s, environment);
    const QString output = QString::fromUtf8(outcome.standardOutput);
    if (fatal) {
        QVERIFY2(outcome.crashed() && outcome.standardError.contains(expected.toUtf8()),
                 outcome.standardError.constData());
        return;
    }
    QVERIFY2(outcome.succeeded(), outcome.standardError.constData());
    QVERIFY2(RandomUuid.match(output).hasMatch(), qPrintable(output));
    QVERIFY(expected.isEmpty() || output == expected);
    // What was handed out is what the installation keeps for the next run.
    QFile kept(file);
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(QUuid::fromString(kept.readAll().trimmed()), QUuid::fromString(output));
    // Other local users can read neither the identifier nor its folder (also one left readable).
    const auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup |
                        QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;
    QCOMPARE(kept.permissions() & others, QFileDevice::Permissions());
    QCOMPARE(QFile::permissions(QFileInfo(file).absolutePath()) & others,
             QFileDevice::Permissions());
}

QTEST_GUILESS_MAIN(tst_Config)
#include "tst_config.moc"
