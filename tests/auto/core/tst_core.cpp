#include "Api/HealthCheck.h"
#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "Api/UIStrings.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/ServiceHost.h"
#include "Core/Injection.h"
#include "Core/JsonUtils.h"
#include "LogCapture.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
// The API needs HTTP and the host, HTTP the configuration; strings and init sender need each other.
void registerTypes(Injection &container, int *built)
{
    container.registerSingleton<ApplicationConfigWrapper>([built](Injection &) {
        ++*built;
        return std::make_unique<ApplicationConfigWrapper>();
    });
    container.registerSingleton(Injection::from<HttpUtil, ApplicationConfigWrapper>());
    container.registerSingleton(Injection::from<ServiceHost>());
    container.registerSingleton(Injection::from<OrvaneAPI, HttpUtil, ServiceHost>());
    container.registerSingleton<UIStrings>([](Injection &c) {
        return c.resolve<InitSender>() ? std::make_unique<UIStrings>(nullptr) : nullptr;
    });
    container.registerSingleton<InitSender>([](Injection &c) {
        return c.resolve<UIStrings>() ? std::make_unique<InitSender>(nullptr, nullptr) : nullptr;
    });
}
} // namespace

class tst_Core : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void sourceName();
    void oneLine_data();
    void oneLine();
    void bursts();
    void container();
    void parseJson_data();
    void parseJson();
};

void tst_Core::sourceName()
{
    // Other platforms' paths, and names with more than one dot or none.
    QCOMPARE(Log::sourceName("C:\\kit\\Vistrel\\Foo.pb.cc"), u"Foo.pb"_s);
    QCOMPARE(Log::sourceName("dir/Makefile"), u"Makefile"_s);
}

void tst_Core::oneLine_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("line");
    const QString prefix = u"[WARNING] tst_core: "_s;
    // Text from the network cannot make a line of its own.
    QTest::newRow("line breaks") << u"a\n[ERROR] Vistrel: forged\r\tb"_s
                                 << prefix + u"a\\n[ERROR] Vistrel: forged\\r\\tb"_s;
    QTest::newRow("other control characters")
        << u"x\x01y\x7f\u2028z"_s << prefix + u"x\\x01y\\x7f\\x2028z"_s;
    QTest::newRow("long") << QString(Log::MaxMessageLength + 500, u'x')
                          << prefix + QString(Log::MaxMessageLength, u'x') +
                                 u"… (2500 characters)"_s;
}

void tst_Core::oneLine()
{
    QFETCH(QString, message);
    QFETCH(QString, line);
    QString seen;
    Log::setListener([&seen](const QString &text) { seen = text; });
    Log::warning(message);
    Log::setListener({});
    QCOMPARE(seen, line);
}

void tst_Core::bursts()
{
    QStringList seen;
    Log::setListener([&seen](const QString &text) { seen.append(text); });
    // Turns exist while the event loop runs.
    QEventLoop loop;
    QTimer::singleShot(0, &loop, [] {
        // Interleaved, as one reply's commands log.
        for (int i = 0; i < 5; ++i) {
            Log::warning(u"dropped"_s);
            if (i % 3 == 0)
                Log::warning(u"other"_s);
        }
    });
    QTimer::singleShot(100, &loop, [&loop] {
        Log::warning(u"other"_s); // a new turn starts afresh
        loop.quit();
    });
    loop.exec();
    QCoreApplication::processEvents();
    Log::setListener({});
    const QString prefix = u"[WARNING] tst_core: "_s;
    QCOMPARE(seen, (QStringList{prefix + u"dropped"_s, prefix + u"other"_s,
                                prefix + u"(repeated 4 more times: dropped)"_s,
                                prefix + u"(repeated once more: other)"_s, prefix + u"other"_s}));
}

void tst_Core::container()
{
    QList<QObject *> built, destroyed;
    {
        Injection container;
        int configs = 0;
        registerTypes(container, &configs);
        LogCapture log;
        // Asked twice: nothing half built is left behind to change the second answer.
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(container.resolveOrLog<HealthCheck>(), nullptr);
            QCOMPARE(container.resolveOrLog<UIStrings>(), nullptr);
        }
        // Named without the namespace, from this file, where the resolve was asked for.
        const QString line = u"[ERROR] tst_core: Cannot find instance of "_s;
        const QStringList lines{line + u"HealthCheck"_s, line + u"UIStrings"_s};
        QCOMPARE(log.lines(), lines + lines);
        QCOMPARE(configs, 0);
        // Built on first resolve, once, and handed to dependents.
        auto *api = container.resolve<OrvaneAPI>();
        QVERIFY(api);
        QCOMPARE(container.resolve<OrvaneAPI>(), api);
        built = {api, container.resolve<HttpUtil>(), container.resolve<ApplicationConfigWrapper>()};
        QCOMPARE(api->httpUtil(), built[1]);
        QCOMPARE(configs, 1);
        for (QObject *object : built)
            connect(object, &QObject::destroyed, this,
                    [&destroyed](QObject *o) { destroyed << o; });
    }
    // Dependents go first, so they can still use their dependencies while being destroyed.
    QCOMPARE(destroyed, built);
}

// Every reply the kit reads goes through here, so the callers' suites keep one bad reply each.
void tst_Core::parseJson_data()
{
    QTest::addColumn<QByteArray>("text");
    // Written back compactly; empty when parsing must fail.
    QTest::addColumn<QByteArray>("parsed");
    QTest::addColumn<QString>("error");
    const QByteArray deepest =
        QByteArray(JsonUtils::MaxDepth, '[') + QByteArray(JsonUtils::MaxDepth, ']');
    const QString parseError = u"parse error"_s;
    QTest::newRow("not JSON") << "{oops"_ba << QByteArray() << parseError;
    QTest::newRow("empty") << QByteArray() << QByteArray() << parseError;
    QTest::newRow("invalid UTF-8") << "[\"10.\xff\xfe\"]"_ba << QByteArray() << parseError;
    // Whether an array will do is each caller's call.
    QTest::newRow("array at the top") << R"([1,"a"])"_ba
                                      << R"([1,"a"])"_ba << QString();
    QTest::newRow("nested to the limit") << deepest << deepest << QString();
    // One level too deep, after a string whose escaped backslash must not keep it open.
    QTest::newRow("nested past the limit")
        << QByteArray(R"(["\\",)" + deepest + "]") << QByteArray()
        << u"JSON nested deeper than 128 levels"_s;
    // Brackets in a string do not count, after an escaped quote either.
    const QByteArray brackets = R"(["\")" + QByteArray(500, '[') + "\"]";
    QTest::newRow("brackets in a string") << brackets << brackets << QString();
    // Keys in order, so the text comes back as it was.
    QByteArray huge = "{";
    for (int i = 0; i < 300000; ++i)
        huge += "\"key" + QByteArray::number(i).rightJustified(6, '0') +
                "\":" + QByteArray::number(i) + ',';
    huge.back() = '}';
    QTest::newRow("300000 keys") << huge << huge << QString();
}

void tst_Core::parseJson()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, parsed);
    QFETCH(QString, error);
    QString reason;
    QElapsedTimer timer;
    timer.start();
    const std::optional<Json> json = JsonUtils::parse(text, &reason);
    // A parser that looked each key up on insertion would take minutes for the big object.
    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(json ? JsonUtils::dump(*json) : QByteArray(), parsed);
    QVERIFY2(error.isEmpty() ? reason.isEmpty() : reason.contains(error), qPrintable(reason));
}

QTEST_GUILESS_MAIN(tst_Core)
#include "tst_core.moc"
