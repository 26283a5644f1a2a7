#include "Api/HealthCheck.h"
#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/UIStrings.h"
#include "Core/Injection.h"
#include "Init/InitSender.h"
#include "LogCapture.h"
#include "Network/Bidirectional/BidirectionalMessageHandler.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/MessageSenderManager.h"
#include "Network/PingSender.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"

#include <QPointer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace Fixture {

// Counts its instances, so tests see when the container builds and destroys.
class Leaf : public QObject
{
    Q_OBJECT
public:
    Leaf()
    {
        ++built;
        ++alive;
    }
    ~Leaf() override { --alive; }
    static inline int built = 0;
    static inline int alive = 0;
};

class Branch : public QObject
{
    Q_OBJECT
public:
    explicit Branch(Leaf *leaf)
        : leaf(leaf)
    {
        ++built;
    }
    ~Branch() override { leafAliveAtDestruction = Leaf::alive > 0; }
    Leaf *leaf;
    static inline int built = 0;
    static inline bool leafAliveAtDestruction = false;
};

class Unregistered : public QObject
{
    Q_OBJECT
};

class CycleA : public QObject
{
    Q_OBJECT
};
class CycleB : public QObject
{
    Q_OBJECT
};
class NeedsUnregistered : public QObject
{
    Q_OBJECT
};
class NeedsItself : public QObject
{
    Q_OBJECT
};
class Refused : public QObject
{
    Q_OBJECT
};

// A factory that builds T only when Dep resolves, as the kit's registrations do.
template<class T, class Dep>
Injection::Factory<T> needing()
{
    return [](Injection &container) -> std::unique_ptr<T> {
        if (!container.resolve<Dep>())
            return nullptr;
        return std::make_unique<T>();
    };
}

void registerAll(Injection &container)
{
    container.registerSingleton<Leaf>([](Injection &) { return std::make_unique<Leaf>(); });
    container.registerSingleton<Branch>([](Injection &c) -> std::unique_ptr<Branch> {
        Leaf *leaf = c.resolve<Leaf>();
        return leaf ? std::make_unique<Branch>(leaf) : nullptr;
    });
    container.registerSingleton<CycleA>(needing<CycleA, CycleB>());
    container.registerSingleton<CycleB>(needing<CycleB, CycleA>());
    container.registerSingleton<NeedsUnregistered>(needing<NeedsUnregistered, Unregistered>());
    container.registerSingleton<NeedsItself>(needing<NeedsItself, NeedsItself>());
    container.registerSingleton<Refused>([](Injection &) { return std::unique_ptr<Refused>(); });
}

} // namespace Fixture

using namespace Fixture;
using Resolver = std::function<QObject *(Injection &)>;
Q_DECLARE_METATYPE(Resolver)

class tst_Injection : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void singletonBuiltOnceOnFirstResolve();
    void dependenciesAreTheSingletons();
    void kitRegistrations();
    void failedResolve_data();
    void failedResolve();
    void destroysItsObjects();
};

void tst_Injection::init()
{
    Leaf::built = 0;
    Branch::built = 0;
}

void tst_Injection::singletonBuiltOnceOnFirstResolve()
{
    Injection container;
    registerAll(container);
    QCOMPARE(Leaf::built, 0);
    Leaf *first = container.resolve<Leaf>();
    QVERIFY(first);
    QCOMPARE(container.resolve<Leaf>(), first);
    QCOMPARE(Leaf::built, 1);
    QCOMPARE(Branch::built, 0);
}

void tst_Injection::dependenciesAreTheSingletons()
{
    Injection container;
    registerAll(container);
    Branch *branch = container.resolve<Branch>();
    QVERIFY(branch);
    QCOMPARE(branch->leaf, container.resolve<Leaf>());
    QCOMPARE(container.resolve<Branch>(), branch);
    QCOMPARE(Leaf::built, 1);
}

void tst_Injection::kitRegistrations()
{
    Injection container;
    Injection::registerKit(container);
    auto *api = container.resolve<OrvaneAPI>();
    QVERIFY(api);
    QVERIFY(container.resolve<ApplicationConfigWrapper>());
    QVERIFY(container.resolve<InitSender>());
    QVERIFY(container.resolve<HealthCheck>());
    QVERIFY(container.resolve<UIStrings>());
    // Every service shares the one HTTP utility and one configuration.
    QCOMPARE(api->httpUtil(), container.resolve<HttpUtil>());
    QCOMPARE(container.resolve<OrvaneAPI>(), api);
    // Transports: the manager holds the container's own two senders.
    auto *manager = container.resolve<MessageSenderManager>();
    QVERIFY(manager);
    QCOMPARE(manager->xhrSender(), container.resolve<XhrMessageSender>());
    QCOMPARE(manager->webSocketSender(), container.resolve<WebSocketMessageSender>());
    QCOMPARE(manager->healthCheck(), container.resolve<HealthCheck>());
    QVERIFY(container.resolve<PingSender>());
    QVERIFY(container.resolve<BidirectionalMessageParser>());
    QVERIFY(container.resolve<BidirectionalMessageHandler>());
}

void tst_Injection::failedResolve_data()
{
    QTest::addColumn<Resolver>("resolve");
    QTest::addColumn<QString>("typeName");
    QTest::newRow("unregistered") << Resolver([](Injection &c) -> QObject * {
        return c.resolveOrLog<Unregistered>();
    }) << u"Unregistered"_s;
    QTest::newRow("missing dependency")
        << Resolver([](Injection &c) -> QObject * { return c.resolveOrLog<NeedsUnregistered>(); })
        << u"NeedsUnregistered"_s;
    QTest::newRow("cycle of two") << Resolver([](Injection &c) -> QObject * {
        return c.resolveOrLog<CycleA>();
    }) << u"CycleA"_s;
    QTest::newRow("depends on itself")
        << Resolver([](Injection &c) -> QObject * { return c.resolveOrLog<NeedsItself>(); })
        << u"NeedsItself"_s;
    QTest::newRow("factory refuses")
        << Resolver([](Injection &c) -> QObject * { return c.resolveOrLog<Refused>(); })
        << u"Refused"_s;
    // Kit types are named without their namespace.
    QTest::newRow("kit type") << Resolver([](Injection &c) -> QObject * {
        return c.resolveOrLog<ApplicationConfigWrapper>();
    }) << u"ApplicationConfigWrapper"_s;
}

void tst_Injection::failedResolve()
{
    QFETCH(Resolver, resolve);
    QFETCH(QString, typeName);

    Injection container;
    registerAll(container);
    LogCapture log;
    QCOMPARE(resolve(container), nullptr);
    // The line names this file, where the resolve was asked for.
    QCOMPARE(log.lines(),
             QStringList{u"[ERROR] tst_injection: Cannot find instance of "_s + typeName});
    // A failure leaves nothing half built behind: asking again fails the same way.
    QCOMPARE(resolve(container), nullptr);
    QCOMPARE(log.lines().size(), 2);
    QVERIFY(container.resolve<Leaf>());
}

void tst_Injection::destroysItsObjects()
{
    QPointer<Leaf> leaf;
    QPointer<Branch> branch;
    {
        Injection container;
        registerAll(container);
        branch = container.resolve<Branch>();
        leaf = container.resolve<Leaf>();
        QVERIFY(branch && leaf);
        QCOMPARE(Leaf::alive, 1);
        Branch::leafAliveAtDestruction = false;
    }
    QVERIFY(!branch);
    QVERIFY(!leaf);
    QCOMPARE(Leaf::alive, 0);
    // Dependents go first, so they can still use their dependencies while being destroyed.
    QVERIFY(Branch::leafAliveAtDestruction);
}

QTEST_GUILESS_MAIN(tst_Injection)
#include "tst_injection.moc"
