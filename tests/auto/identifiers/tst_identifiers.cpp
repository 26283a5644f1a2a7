#include "ChildProcess.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
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
const QString PrintVendorId = u"print-vendor-id"_s;

std::optional<ActiveUser> user(const std::optional<QString> &id)
{
    ActiveUser user;
    user.id = id;
    user.email = u"ada@example.com"_s;
    return user;
}

void printVendorId(const QString &, int &argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    const QString id = IdUtils::vendorId();
    QFile file(IdUtils::vendorIdFile());
    const QByteArray stored = file.open(QIODevice::ReadOnly) ? file.readAll() : "none"_ba;
    std::printf("%s\n%s", qPrintable(id), stored.trimmed().constData());
}
} // namespace

class tst_Identifiers : public QObject
{
    Q_OBJECT
public:
    // Only a fresh process shows the device identifier before it is cached.
    static void initMain() { ChildProcess::runCaseAndExit("tst_identifiers", printVendorId); }

private Q_SLOTS:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void shareIdAndStartTime();
    void newVisit_data();
    void newVisit();
    void vendorId_data();
    void vendorId();
};

void tst_Identifiers::shareIdAndStartTime()
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

    // Two starts within one second share their start time (tried again across a second's end).
    for (;;) {
        const qint64 second = QDateTime::currentSecsSinceEpoch();
        config.newShareIdAndStartTime();
        const qint64 first = *config.startTime;
        config.newShareIdAndStartTime();
        if (QDateTime::currentSecsSinceEpoch() == second) {
            QCOMPARE(*config.startTime, first);
            break;
        }
    }
}

void tst_Identifiers::newVisit_data()
{
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

void tst_Identifiers::newVisit()
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

void tst_Identifiers::vendorId_data()
{
    QTest::addColumn<QByteArray>("stored");
    // Empty when any fresh identifier will do.
    QTest::addColumn<QString>("expected");
    QTest::newRow("created on first use") << QByteArray() << QString();
    QTest::newRow("read from an earlier run") << "{0f8fad5b-d9cb-469f-a165-70867728950e}\n"_ba
                                              << u"0F8FAD5B-D9CB-469F-A165-70867728950E"_s;
    QTest::newRow("unreadable file replaced") << "not an identifier"_ba << QString();
}

void tst_Identifiers::vendorId()
{
    QFETCH(QByteArray, stored);
    QFETCH(QString, expected);
    // Test mode keeps the data location under $HOME: each row is an installation of its own.
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, home.path());
    if (!stored.isEmpty()) {
        const QString path =
            home.filePath(IdUtils::vendorIdFile().mid(QDir::homePath().size() + 1));
        QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(stored) == stored.size());
    }
    const ChildProcess::Outcome outcome = ChildProcess::run(PrintVendorId, environment);
    QVERIFY2(outcome.succeeded(), outcome.standardError.constData());
    const QStringList lines = QString::fromUtf8(outcome.standardOutput).split(u'\n');
    QCOMPARE(lines.size(), 2);
    QVERIFY2(RandomUuid.match(lines[0]).hasMatch(), qPrintable(lines[0]));
    if (!expected.isEmpty())
        QCOMPARE(lines[0], expected);
    // What was handed out is what the installation keeps for the next run.
    QCOMPARE(QUuid::fromString(lines[1]), QUuid::fromString(lines[0]));
}

QTEST_GUILESS_MAIN(tst_Identifiers)
#include "tst_identifiers.moc"
