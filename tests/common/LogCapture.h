#pragma once

#include "Core/Log.h"

#include <QStringList>

/// Collects the kit's log lines while it lives.
class LogCapture
{
public:
    LogCapture()
    {
        VistrelKit::Log::setListener([this](const QString &line) { m_lines.append(line); });
    }
    ~LogCapture() { VistrelKit::Log::setListener({}); }

    QStringList lines() const { return m_lines; }
    void clear() { m_lines.clear(); }
    /// Lines that contain text.
    QStringList matching(const QString &text) const { return m_lines.filter(text); }
    bool contains(const QString &text) const { return !matching(text).isEmpty(); }
    int count(const QString &text) const { return int(matching(text).size()); }

private:
    QStringList m_lines;
};
