#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/MobileInitDTO.h"
#include "Api/OrvaneAPI.h"
#include "ChildProcess.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
#include "Network/MessageSender.h"
#include "TestConfig.h"

#include <QDateTime>
#include <QGuiApplication>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
// Runs in a child process (see initMain) and returns only if nothing stopped it.
void runCase(const QString &name, int &argc, char **argv)
{
    if (name == u"screen size out of range"_s) {
        QGuiApplication app(argc, argv);
        InitSender::screenSize();
        return;
    }
    QCoreApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    ApplicationConfigWrapper wrapper;
    HttpUtil http(&wrapper);
    OrvaneAPI api(&http, TestConfig::serviceHost());
    if (name == u"unparsable URL"_s) {
        http.buildRequest(u"http://exa mple.com/api"_s);
    } else if (name == u"config file without HttpProtocol"_s) {
        TestConfig::use(u"127.0.0.1:1"_s, std::nullopt);
        api.mobileInit(MobileInitDTO{}, [](const auto &) {});
    } else if (name == u"no screen"_s) {
        InitSender::screenSize();
    } else if (name == u"negative report time"_s) {
        // A start time in the future.
        MessageSender::pingReport((QDateTime::currentSecsSinceEpoch() + 3600) * 1000);
    } else {
        std::printf("%s\n", qPrintable(IdUtils::vendorId()));
    }
}
} // namespace

class tst_Fatal : public QObject
{
    Q_OBJECT
public:
    static void initMain() { ChildProcess::runCaseAndExit("tst_fatal", runCase); }

private Q_SLOTS:
    void stopsTheProcess_data();
    void stopsTheProcess();
};

void tst_Fatal::stopsTheProcess_data()
{
    QTest::addColumn<bool>("homeIsAFile");
    // The offscreen platform's screens, when the case needs a GUI.
    QTest::addColumn<QByteArray>("screens");
    // Empty when the case must end normally.
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("unparsable URL")
        << false << QByteArray()
        << R"(Cannot build a request for the URL "http://exa mple.com/api")"_ba;
    QTest::newRow("config file without HttpProtocol")
        << false << QByteArray()
        << R"(Cannot build a request for the URL "://127.0.0.1:1/api/in/im/c")"_ba;
    QTest::newRow("screen size out of range")
        << false << R"({"screens":[{"name":"Broken","width":-4,"height":800}]})"_ba
        << "Screen size out of range: -4x800"_ba;
    QTest::newRow("no screen") << false << QByteArray() << "Cannot read the screen size"_ba;
    QTest::newRow("negative report time") << false << QByteArray() << "Report time is negative"_ba;
    // Test mode keeps the data location under $HOME: below a plain file nothing can be created,
    // not even by root.
    QTest::newRow("device identifier, location unwritable")
        << true << QByteArray() << "Cannot store the device identifier"_ba;
    QTest::newRow("device identifier, location writable") << false << QByteArray() << QByteArray();
}

void tst_Fatal::stopsTheProcess()
{
    QFETCH(bool, homeIsAFile);
    QFETCH(QByteArray, screens);
    QFETCH(QByteArray, message);
    QTemporaryDir dir;
    QString home = dir.path();
    if (homeIsAFile) {
        home = dir.filePath(u"plain-file"_s);
        QFile file(home);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, home);
    if (!screens.isEmpty()) {
        QFile file(dir.filePath(u"screens.json"_s));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(screens) == screens.size());
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen:configfile="_s + file.fileName());
    }
    const ChildProcess::Outcome outcome =
        ChildProcess::run(QString::fromLatin1(QTest::currentDataTag()), environment);
    QVERIFY(outcome.finished);
    if (message.isEmpty()) {
        QVERIFY2(outcome.succeeded(), outcome.standardError.constData());
        QVERIFY(!outcome.standardOutput.trimmed().isEmpty());
        return;
    }
    QVERIFY2(outcome.crashed(), outcome.standardError.constData());
    QVERIFY2(outcome.standardError.contains(message), outcome.standardError.constData());
}

QTEST_GUILESS_MAIN(tst_Fatal)
#include "tst_fatal.moc"
