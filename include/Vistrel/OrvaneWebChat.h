#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QString>

namespace VistrelKit {

/// The service's web chat, shown in a web view over the app's topmost window. Reached through
/// Orvane::webChat().
///
/// \code
/// connect(Orvane::webChat(), &OrvaneWebChat::closed, this, &Panel::chatClosed);
/// Orvane::webChat()->open(QStringLiteral("tenant"));
/// \endcode
///
/// The chat fetches its texts and colour from the service, then loads the chat page. A tap in
/// the top fifth of the window closes it. Documents the agent sends open in an in-app preview
/// (PDF and images) or in the system's viewer. The user must be identified first
/// (Orvane::user()->tag()): the chat needs a visitor id.
class VISTREL_EXPORT OrvaneWebChat : public QObject
{
    Q_OBJECT
public:
    /// Opens the chat chatId over the topmost window (waiting for one to be shown); nothing
    /// when a chat is already open there. Failures are logged.
    void open(const QString &chatId);
    /// Whether a chat view is on screen.
    bool isOpen() const;

Q_SIGNALS:
    /// A chat view was put on screen.
    void opened();
    /// The chat view went: closed by the user, by an error page, or with its window.
    void closed();

private:
    friend class Orvane;
    OrvaneWebChat() = default;
};

} // namespace VistrelKit
