#pragma once

#include "Core/NetworkError.h"
#include "Core/StringError.h"

#include <functional>
#include <optional>
#include <variant>

namespace VistrelKit {

/// What a completion handler receives on failure: the kit's own StringError or a transport error.
class VISTREL_PRIVATE_EXPORT Error
{
public:
    Error(StringError error)
        : m_value(std::move(error))
    {}
    Error(NetworkError error)
        : m_value(std::move(error))
    {}

    const StringError *stringError() const { return std::get_if<StringError>(&m_value); }
    const NetworkError *networkError() const { return std::get_if<NetworkError>(&m_value); }
    /// The text a log line appends for this error.
    QString description() const
    {
        return std::visit([](const auto &error) { return error.description(); }, m_value);
    }

    bool operator==(const Error &other) const = default;

private:
    std::variant<StringError, NetworkError> m_value;
};

/// A completion that receives an error, or nothing on success.
using ErrorCompletion = std::function<void(const std::optional<Error> &error)>;

} // namespace VistrelKit
