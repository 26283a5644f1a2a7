#include "ChildProcess.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
#include "Config/VistrelConfig.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
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

QString storedId()
{
    QFile file(IdUtils::vendorIdFile());
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromLatin1(file.readAll().trimmed());
}
} // namespace

class tst_Identifiers : public QObject
{
    Q_OBJECT
public:
    // A fresh process is the only way to see the device identifier before it is cached.
    static void initMain()
    {
        if (ChildProcess::currentCase() != PrintVendorId)
            return;
        QByteArray output;
        {
            int argc = 1;
            char name[] = "tst_identifiers";
            char *argv[] = {name, nullptr};
            QCoreApplication app(argc, argv);
            QStandardPaths::setTestModeEnabled(true);
            const QString id = IdUtils::vendorId();
            output = (id + u'\n' + storedId()).toUtf8();
        }
        std::fwrite(output.constData(), 1, size_t(output.size()), stdout);
        std::exit(0);
    }

private Q_SLOTS:
    void initTestCase();
    void shareIdIsFiveDigits();
    void startTimeIsWholeSeconds();
    void startTimeSameWithinASecond();
    void uuidForm_data();
    void uuidForm();
    void newVisitSessionId();
    void visitorId_data();
    void visitorId();
    void vendorIdStable();
    void vendorIdAcrossRuns_data();
    void vendorIdAcrossRuns();
};

void tst_Identifiers::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void tst_Identifiers::shareIdIsFiveDigits()
{
    const QRegularExpression fiveDigits(u"^[1-9][0-9]{4}$"_s);
    QSet<QString> seen;
    QSet<QChar> firstDigits;
    constexpr int Draws = 20000;
    VistrelConfig config;
    for (int i = 0; i < Draws; ++i) {
        config.newShareIdAndStartTime();
        QVERIFY(config.shareId);
        const QString id = *config.shareId;
        QVERIFY2(fiveDigits.match(id).hasMatch(), qPrintable(id));
        seen.insert(id);
        firstDigits.insert(id.front());
    }
    // The whole range is drawn from: every leading digit shows up, and repeats stay rare
    // (about 18000 distinct values are expected from 20000 draws out of 90000).
    QCOMPARE(firstDigits.size(), 9);
    QVERIFY2(seen.size() > 15000, qPrintable(QString::number(seen.size())));
}

void tst_Identifiers::startTimeIsWholeSeconds()
{
    VistrelConfig config;
    const qint64 before = QDateTime::currentSecsSinceEpoch() * 1000;
    config.newShareIdAndStartTime();
    const qint64 after = QDateTime::currentSecsSinceEpoch() * 1000;
    QVERIFY(config.startTime);
    QCOMPARE(*config.startTime % 1000, 0);
    QVERIFY(*config.startTime >= before);
    QVERIFY(*config.startTime <= after);
}

void tst_Identifiers::startTimeSameWithinASecond()
{
    // Retried when the pair happened to straddle a second boundary.
    for (int attempt = 0; attempt < 10; ++attempt) {
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        VistrelConfig first;
        VistrelConfig later;
        first.newShareIdAndStartTime();
        later.newShareIdAndStartTime();
        if (QDateTime::currentSecsSinceEpoch() != now)
            continue;
        QCOMPARE(first.startTime, later.startTime);
        return;
    }
    QFAIL("No two calls fell within the same second");
}

void tst_Identifiers::uuidForm_data()
{
    QTest::addColumn<QString>("id");
    ApplicationConfigWrapper wrapper;
    wrapper.newVisit(std::nullopt);
    QTest::newRow("newUuid") << IdUtils::newUuid();
    QTest::newRow("visit id") << *wrapper.config().visitConfig.visitId;
    QTest::newRow("session id") << *wrapper.config().visitConfig.sessionId;
    QTest::newRow("device identifier") << IdUtils::vendorId();
}

void tst_Identifiers::uuidForm()
{
    QFETCH(QString, id);
    QCOMPARE(id.size(), 36);
    QVERIFY2(RandomUuid.match(id).hasMatch(), qPrintable(id));
}

void tst_Identifiers::newVisitSessionId()
{
    ApplicationConfigWrapper wrapper;
    const VisitConfig &visit = wrapper.config().visitConfig;
    wrapper.newVisit(std::nullopt);
    const VisitConfig first = visit;
    wrapper.newVisit(std::nullopt);
    QVERIFY(visit.sessionId);
    QVERIFY(*visit.sessionId != *first.sessionId);
    QVERIFY(*visit.visitId != *first.visitId);

    const VisitConfig second = visit;
    wrapper.newVisit(u"kept-session"_s);
    QCOMPARE(visit.sessionId, u"kept-session"_s);
    QVERIFY(*visit.visitId != *second.visitId);
    QVERIFY(!visit.customerId);
}

void tst_Identifiers::visitorId_data()
{
    QTest::addColumn<std::optional<ActiveUser>>("user");
    // Empty means the device identifier.
    QTest::addColumn<QString>("expected");
    ActiveUser withId;
    withId.id = u"customer-42"_s;
    withId.firstname = u"Ada"_s;
    ActiveUser withoutId;
    withoutId.email = u"ada@example.com"_s;
    ActiveUser emptyId;
    emptyId.id = u""_s;
    QTest::newRow("no active user") << std::optional<ActiveUser>() << QString();
    QTest::newRow("user without id") << std::optional(withoutId) << QString();
    QTest::newRow("user with id") << std::optional(withId) << u"customer-42"_s;
    // An empty id is still an id.
    QTest::newRow("user with empty id") << std::optional(emptyId) << u"<empty>"_s;
}

void tst_Identifiers::visitorId()
{
    QFETCH(std::optional<ActiveUser>, user);
    QFETCH(QString, expected);
    ApplicationConfigWrapper wrapper;
    wrapper.config().activeUserTag = user;
    wrapper.newVisit(std::nullopt);
    const QString want = expected.isEmpty()         ? IdUtils::vendorId()
                         : expected == u"<empty>"_s ? QString()
                                                    : expected;
    QCOMPARE(wrapper.config().visitConfig.visitorId, want);
}

void tst_Identifiers::vendorIdStable()
{
    const QString id = IdUtils::vendorId();
    QCOMPARE(IdUtils::vendorId(), id);
    QVERIFY(QFile::exists(IdUtils::vendorIdFile()));
    QCOMPARE(QUuid::fromString(storedId()), QUuid::fromString(id));
}

void tst_Identifiers::vendorIdAcrossRuns_data()
{
    QTest::addColumn<QByteArray>("stored");
    // Empty when any fresh identifier will do.
    QTest::addColumn<QString>("expected");
    QTest::newRow("created on first use") << QByteArray() << QString();
    QTest::newRow("read from an earlier run") << "{0f8fad5b-d9cb-469f-a165-70867728950e}\n"_ba
                                              << u"0F8FAD5B-D9CB-469F-A165-70867728950E"_s;
    QTest::newRow("unreadable file replaced") << "not an identifier"_ba << QString();
}

void tst_Identifiers::vendorIdAcrossRuns()
{
    QFETCH(QByteArray, stored);
    QFETCH(QString, expected);

    // Test mode keeps the data location under $HOME, so each row gets an installation of its own.
    QTemporaryDir home;
    QVERIFY(home.isValid());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, home.path());
    if (!stored.isEmpty()) {
        const QString path =
            home.filePath(IdUtils::vendorIdFile().mid(QDir::homePath().size() + 1));
        QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(stored);
    }

    QStringList ids;
    for (int run = 0; run < 2; ++run) {
        const ChildProcess::Outcome outcome = ChildProcess::run(PrintVendorId, environment);
        QVERIFY2(outcome.finished && !outcome.crashed() && outcome.exitCode == 0,
                 outcome.standardError.constData());
        const QStringList lines = QString::fromUtf8(outcome.standardOutput).split(u'\n');
        QCOMPARE(lines.size(), 2);
        QVERIFY2(RandomUuid.match(lines[0]).hasMatch() || lines[0] == expected,
                 qPrintable(lines[0]));
        // What was handed out is what the installation keeps.
        QCOMPARE(QUuid::fromString(lines[1]), QUuid::fromString(lines[0]));
        ids.append(lines[0]);
    }
    QCOMPARE(ids[1], ids[0]);
    if (!expected.isEmpty())
        QCOMPARE(ids[0], expected);
}

QTEST_GUILESS_MAIN(tst_Identifiers)
#include "tst_identifiers.moc"
