#pragma once

#include "Network/Bidirectional/BidirectionalMessage.h"

#include <Vistrel/vistrel_export.h>

#include <deque>
#include <optional>

namespace VistrelKit {

/// The agent commands that wait to be carried out, in arrival order, kept small whatever the
/// service sends. A command joins behind the others, and what it asks for is merged with what
/// already waits:
/// - drawings: only the newest MaxDrawings wait; an older one could only be shown to be pushed
///   off the screen at once, so it goes.
/// - start and stop: a start while a start waits is dropped (it would start the same session
///   again). A stop while a start waits takes that start away (the stop would end whatever it
///   began), and is dropped itself when a stop already waits before it. So at most a stop and a
///   start wait, in that order (a restart), and one burst of commands starts one session at most.
/// - opt-in: dropped while another waits or its dialog is open (see setOptInOpen()).
/// - anything else keeps its place. Over MaxCommands waiting, the oldest command that asks for
///   nothing but a tap (or for nothing at all) goes: at most a few others can wait, so there is
///   always such a command.
/// A command whose every part was merged away does not join at all.
class VISTREL_AUTOTEST_EXPORT AgentCommandQueue
{
public:
    static constexpr qsizetype MaxCommands = 10000;
    static constexpr qsizetype MaxDrawings = 3;

    /// What went since the last takeDrops().
    struct Drops
    {
        qint64 taps = 0;
        /// Commands that asked for nothing to be done.
        qint64 idle = 0;
        qint64 drawings = 0;
        qint64 starts = 0;
        qint64 stops = 0;
        qint64 optIns = 0;
        bool operator==(const Drops &other) const = default;
    };

    void push(BidirectionalMessage message);
    bool isEmpty() const { return m_entries.empty(); }
    qsizetype size() const { return qsizetype(m_entries.size()); }
    const BidirectionalMessage &front() const { return m_entries.front().message; }
    BidirectionalMessage takeFront();

    /// Whether an opt-in dialog is being prepared or shown: further opt-ins are dropped until it
    /// is closed.
    void setOptInOpen(bool open) { m_optInOpen = open; }
    bool isOptInOpen() const { return m_optInOpen; }

    Drops takeDrops();

    /// Whether the command asks for more than a tap: a drawing, a stop, an opt-in or a start.
    static bool hasWork(const BidirectionalMessage &message);

private:
    struct Entry
    {
        quint64 number;
        BidirectionalMessage message;
    };
    using Entries = std::deque<Entry>;

    Entries::iterator find(quint64 number);
    /// Erases the entry when nothing is left to do in it.
    void eraseIfSpent(Entries::iterator entry);
    void enforceLimit();

    Entries m_entries; // ascending numbers
    quint64 m_nextNumber = 0;
    // The numbers of the entries that hold each kind of waiting part.
    std::deque<quint64> m_drawings; // oldest first, at most MaxDrawings
    std::optional<quint64> m_start;
    std::optional<quint64> m_stop;
    std::optional<quint64> m_optIn;
    bool m_optInOpen = false;
    Drops m_drops;
};

} // namespace VistrelKit
