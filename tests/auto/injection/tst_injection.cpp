#include "Api/HealthCheck.h"
#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "Api/UIStrings.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Injection.h"
#include "LogCapture.h"
#include "TestConfig.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
// The API needs the HTTP utility, which needs the configuration; the strings and the init
// sender need each other, so neither can be built.
void registerTypes(Injection &container, int *built)
{
    container.registerSingleton<ApplicationConfigWrapper>([built](Injection &) {
        ++*built;
        return std::make_unique<ApplicationConfigWrapper>();
    });
    container.registerSingleton<HttpUtil>([](Injection &c) -> std::unique_ptr<HttpUtil> {
        auto *config = c.resolve<ApplicationConfigWrapper>();
        return config ? std::make_unique<HttpUtil>(config) : nullptr;
    });
    container.registerSingleton<OrvaneAPI>([](Injection &c) -> std::unique_ptr<OrvaneAPI> {
        auto *http = c.resolve<HttpUtil>();
        return http ? std::make_unique<OrvaneAPI>(http, TestConfig::serviceHost()) : nullptr;
    });
    container.registerSingleton<UIStrings>([](Injection &c) -> std::unique_ptr<UIStrings> {
        return c.resolve<InitSender>() ? std::make_unique<UIStrings>(nullptr) : nullptr;
    });
    container.registerSingleton<InitSender>([](Injection &c) -> std::unique_ptr<InitSender> {
        return c.resolve<UIStrings>() ? std::make_unique<InitSender>(nullptr, nullptr) : nullptr;
    });
}
} // namespace

using Resolver = std::function<QObject *(Injection &)>;
Q_DECLARE_METATYPE(Resolver)

class tst_Injection : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void singletons();
    void failedResolve_data();
    void failedResolve();
};

void tst_Injection::singletons()
{
    QStringList destroyed;
    const auto watch = [&destroyed](QObject *object, const QString &name) {
        QObject::connect(object, &QObject::destroyed, [&destroyed, name] { destroyed << name; });
    };
    {
        Injection container;
        int built = 0;
        registerTypes(container, &built);
        QCOMPARE(built, 0);
        // Built on first resolve, once, and handed to dependents.
        auto *api = container.resolve<OrvaneAPI>();
        QVERIFY(api);
        QCOMPARE(api->httpUtil(), container.resolve<HttpUtil>());
        QCOMPARE(container.resolve<OrvaneAPI>(), api);
        auto *config = container.resolve<ApplicationConfigWrapper>();
        QCOMPARE(built, 1);
        watch(api, u"api"_s);
        watch(api->httpUtil(), u"http"_s);
        watch(config, u"config"_s);
    }
    // Dependents go first, so they can still use their dependencies while being destroyed.
    QCOMPARE(destroyed, (QStringList{u"api"_s, u"http"_s, u"config"_s}));
}

void tst_Injection::failedResolve_data()
{
    QTest::addColumn<Resolver>("resolve");
    QTest::addColumn<QString>("typeName");
    QTest::newRow("unregistered") << Resolver([](Injection &c) -> QObject * {
        return c.resolveOrLog<HealthCheck>();
    }) << u"HealthCheck"_s;
    QTest::newRow("cycle") << Resolver([](Injection &c) -> QObject * {
        return c.resolveOrLog<UIStrings>();
    }) << u"UIStrings"_s;
}

void tst_Injection::failedResolve()
{
    QFETCH(Resolver, resolve);
    QFETCH(QString, typeName);
    Injection container;
    int built = 0;
    registerTypes(container, &built);
    LogCapture log;
    QCOMPARE(resolve(container), nullptr);
    // Named without the namespace, from this file, where the resolve was asked for.
    QCOMPARE(log.lines(),
             QStringList{u"[ERROR] tst_injection: Cannot find instance of "_s + typeName});
    // Nothing half built is left behind: asking again fails the same way.
    QCOMPARE(resolve(container), nullptr);
    QCOMPARE(log.lines().size(), 2);
    QVERIFY(container.resolve<OrvaneAPI>());
}

QTEST_GUILESS_MAIN(tst_Injection)
#include "tst_injection.moc"
