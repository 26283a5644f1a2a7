#pragma once

#include "Core/Error.h"

#include <variant>

namespace VistrelKit {

/// A value or the error that prevented it.
template<class T>
class Result
{
public:
    Result(T value)
        : m_value(std::move(value))
    {}
    Result(Error error)
        : m_value(std::move(error))
    {}
    Result(StringError error)
        : m_value(Error(std::move(error)))
    {}
    Result(NetworkError error)
        : m_value(Error(std::move(error)))
    {}

    bool isOk() const { return std::holds_alternative<T>(m_value); }
    const T &value() const { return std::get<T>(m_value); }
    const Error &error() const { return std::get<Error>(m_value); }

private:
    std::variant<T, Error> m_value;
};

} // namespace VistrelKit
