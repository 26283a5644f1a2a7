#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

/// The error value for every failure the kit reports itself.
class VISTREL_PRIVATE_EXPORT StringError
{
public:
    explicit StringError(QString message)
        : m_msg(std::move(message))
    {}

    QString message() const { return m_msg; }
    /// The textual form used in log lines: StringError(mMsg: "...").
    QString description() const;

    bool operator==(const StringError &other) const = default;

private:
    QString m_msg;
};

} // namespace VistrelKit
