#pragma once

#include "Core/Log.h"

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <source_location>
#include <tuple>
#include <typeindex>
#include <unordered_map>
#include <vector>

namespace VistrelKit {

/// A dependency container: one singleton per registered type, built on first resolve
/// with its dependencies resolved recursively. A resolve that cannot succeed returns nullptr.
class VISTREL_PRIVATE_EXPORT Injection
{
public:
    template<class T>
    using Factory = std::function<std::unique_ptr<T>(Injection &)>;

    Injection() = default;
    ~Injection();
    Injection(const Injection &) = delete;
    Injection &operator=(const Injection &) = delete;

    /// Registers (or replaces) the factory of T. A factory returns nullptr when it cannot build.
    template<class T>
    void registerSingleton(Factory<T> factory)
    {
        static_assert(std::is_base_of_v<QObject, T>, "registered types are QObjects");
        Entry entry;
        entry.factory = [factory =
                             std::move(factory)](Injection &container) -> std::shared_ptr<void> {
            return std::shared_ptr<T>(factory(container));
        };
        m_entries[std::type_index(typeid(T))] = std::move(entry);
    }

    /// The one instance of T, or nullptr when T is not registered, a dependency is missing, or
    /// the dependencies form a cycle.
    template<class T>
    T *resolve()
    {
        return static_cast<T *>(resolveEntry(std::type_index(typeid(T))));
    }

    /// resolve(), logging "Cannot find instance of <Type>" at ERROR from the caller when it fails.
    template<class T>
    T *resolveOrLog(std::source_location where = std::source_location::current())
    {
        T *instance = resolve<T>();
        if (!instance)
            Log::log(QStringLiteral("ERROR"),
                     QStringLiteral("Cannot find instance of ") + typeName<T>(), where);
        return instance;
    }

    /// A factory that builds T from its resolved dependencies, in constructor order, followed by
    /// the fixed arguments args; it fails when any dependency cannot be resolved.
    template<class T, class... Deps, class... Args>
    static Factory<T> from(Args... args)
    {
        return [args...](Injection &container) -> std::unique_ptr<T> {
            std::tuple<Deps *...> deps{container.resolve<Deps>()...};
            const bool complete =
                std::apply([](auto *...d) { return ((d != nullptr) && ...); }, deps);
            if (!complete)
                return nullptr;
            return std::apply([&](auto *...d) { return std::make_unique<T>(d..., args...); }, deps);
        };
    }

    /// The class name without its namespace, as log lines name it.
    template<class T>
    static QString typeName()
    {
        return unqualified(T::staticMetaObject.className());
    }

    static QString unqualified(const char *className);

private:
    struct Entry
    {
        std::function<std::shared_ptr<void>(Injection &)> factory;
        std::shared_ptr<void> instance;
        bool building = false;
    };

    void *resolveEntry(std::type_index type);

    std::unordered_map<std::type_index, Entry> m_entries;
    std::vector<std::type_index> m_creationOrder;
};

} // namespace VistrelKit
