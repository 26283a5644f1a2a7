#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QString>

namespace VistrelKit {

/// The co-browse panel as the co-browsing controller sees it, whatever draws it: a widget over a
/// widget window, or a QML item over a Qt Quick one. It tells of the user's taps by signals.
class VISTREL_AUTOTEST_EXPORT CoBrowseView : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Writes the share id label.
    virtual void setShareIdText(const QString &text) = 0;
    /// Shows the chat button only while the service offers chat.
    virtual void setChatActivated(bool activated) = 0;
    /// The tenant the chat button opens the chat for.
    virtual void setTenantId(const QString &tenantId) = 0;
    /// Takes the panel off its window at once and deletes it (and this) once the events under
    /// way are done.
    virtual void remove() = 0;
    /// What is on screen: the widget or the QML item.
    virtual QObject *visual() const = 0;

Q_SIGNALS:
    /// The user closed the panel: co-browsing ends.
    void closeRequested();
    /// The user asked for the chat of the tenant.
    void chatRequested(const QString &tenantId);
};

} // namespace VistrelKit
