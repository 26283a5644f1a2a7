#pragma once

#include <Vistrel/ActiveUser.h>
#include <Vistrel/vistrel_export.h>

#include <QObject>

namespace VistrelKit {

/// Who the app's user is, for the service's agents. Reached through Orvane::user().
///
/// \code
/// ActiveUser user;
/// user.id = account.id();
/// user.firstname = account.firstName();
/// user.email = account.email();
/// user.tags = QStringList{QStringLiteral("premium")};
/// Orvane::user()->tag(user);
/// \endcode
class VISTREL_EXPORT OrvaneUser : public QObject
{
    Q_OBJECT
public:
    /// Identifies the user: its id becomes the visitor id (a user without id gets fresh visitor,
    /// visit and session ids), the service's customer record is tagged with it, and the screen
    /// session restarts on a new visit that carries the user. Every later start sends it too.
    /// Failures are logged.
    void tag(const ActiveUser &user);
    /// Forgets the user and stops the screen session.
    void clear();

private:
    friend class Orvane;
    OrvaneUser() = default;
};

} // namespace VistrelKit
