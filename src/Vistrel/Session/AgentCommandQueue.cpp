#include "Session/AgentCommandQueue.h"

#include <algorithm>
#include <utility>

namespace VistrelKit {

bool AgentCommandQueue::hasWork(const BidirectionalMessage &message)
{
    return message.drawing || message.stop.value_or(false) || message.optIn.value_or(false) ||
           message.start.value_or(false);
}

void AgentCommandQueue::push(BidirectionalMessage message)
{
    const quint64 number = m_nextNumber++;
    const bool askedForSomething = hasWork(message) || message.click;

    if (message.drawing) {
        m_drawings.push_back(number);
        if (qsizetype(m_drawings.size()) > MaxDrawings) {
            const auto oldest = find(m_drawings.front());
            m_drawings.pop_front();
            oldest->message.drawing.reset();
            ++m_drops.drawings;
            eraseIfSpent(oldest);
        }
    }
    if (message.stop.value_or(false)) {
        if (m_start) {
            const auto started = find(*std::exchange(m_start, std::nullopt));
            started->message.start.reset();
            ++m_drops.starts;
            eraseIfSpent(started);
        }
        if (m_stop) {
            message.stop.reset();
            ++m_drops.stops;
        } else {
            m_stop = number;
        }
    }
    if (message.optIn.value_or(false)) {
        if (m_optIn || m_optInOpen) {
            message.optIn.reset();
            ++m_drops.optIns;
        } else {
            m_optIn = number;
        }
    }
    if (message.start.value_or(false)) {
        if (m_start) {
            message.start.reset();
            ++m_drops.starts;
        } else {
            m_start = number;
        }
    }

    if (askedForSomething && !hasWork(message) && !message.click)
        return; // merged into what waits
    m_entries.push_back({number, std::move(message)});
    enforceLimit();
}

BidirectionalMessage AgentCommandQueue::takeFront()
{
    Entry entry = std::move(m_entries.front());
    m_entries.pop_front();
    if (!m_drawings.empty() && m_drawings.front() == entry.number)
        m_drawings.pop_front();
    for (std::optional<quint64> *waiting : {&m_start, &m_stop, &m_optIn}) {
        if (*waiting == entry.number)
            waiting->reset();
    }
    return std::move(entry.message);
}

AgentCommandQueue::Drops AgentCommandQueue::takeDrops()
{
    return std::exchange(m_drops, Drops());
}

AgentCommandQueue::Entries::iterator AgentCommandQueue::find(quint64 number)
{
    return std::ranges::lower_bound(m_entries, number, {}, &Entry::number);
}

void AgentCommandQueue::eraseIfSpent(Entries::iterator entry)
{
    if (!hasWork(entry->message) && !entry->message.click)
        m_entries.erase(entry);
}

void AgentCommandQueue::enforceLimit()
{
    while (size() > MaxCommands) {
        // Few entries have work (see MaxDrawings and the single start, stop and opt-in), so the
        // first one without is near the front.
        const auto oldest =
            std::ranges::find_if(m_entries, [](const Entry &e) { return !hasWork(e.message); });
        if (oldest == m_entries.end())
            return;
        ++(oldest->message.click ? m_drops.taps : m_drops.idle);
        m_entries.erase(oldest);
    }
}

} // namespace VistrelKit
