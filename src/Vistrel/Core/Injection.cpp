#include "Core/Injection.h"

namespace VistrelKit {

Injection::~Injection()
{
    // Dependents were created after their dependencies, so they go first.
    for (auto it = m_creationOrder.rbegin(); it != m_creationOrder.rend(); ++it)
        m_entries[*it].instance.reset();
}

void *Injection::resolveEntry(std::type_index type)
{
    const auto it = m_entries.find(type);
    if (it == m_entries.end())
        return nullptr;
    if (it->second.instance)
        return it->second.instance.get();
    if (it->second.building)
        return nullptr; // a dependency cycle: report failure rather than recurse forever
    it->second.building = true;
    std::shared_ptr<void> instance = it->second.factory(*this);
    // The factory may have added entries, so look the entry up again.
    Entry &entry = m_entries[type];
    entry.building = false;
    if (!instance)
        return nullptr;
    entry.instance = std::move(instance);
    m_creationOrder.push_back(type);
    return entry.instance.get();
}

QString Injection::unqualified(const char *className)
{
    const QString name = QString::fromLatin1(className);
    const qsizetype colon = name.lastIndexOf(QLatin1StringView("::"));
    return colon < 0 ? name : name.mid(colon + 2);
}

} // namespace VistrelKit
