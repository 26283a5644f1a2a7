#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>
#include <QStringList>

#include <optional>

namespace VistrelKit {

/// Who the app's user is, as the host tells the service.
struct VISTREL_EXPORT ActiveUser
{
    std::optional<QString> id;
    std::optional<QString> firstname;
    std::optional<QString> lastname;
    std::optional<QString> email;
    std::optional<QStringList> tags;
    /// The agent the user is assigned to.
    std::optional<QString> assignedUser;

    bool operator==(const ActiveUser &other) const = default;
};

} // namespace VistrelKit
