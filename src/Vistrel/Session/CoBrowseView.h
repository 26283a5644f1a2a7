#pragma once

#include "Widgets/PassthroughUIView.h"

#include <Vistrel/vistrel_export.h>

#include <functional>

namespace VistrelKit {

/// What the co-browsing controller needs of the widget that shows the share id: the widget
/// itself lives above the session, and tells it of the user's taps by signals.
class VISTREL_AUTOTEST_EXPORT CoBrowseView : public PassthroughUIView
{
    Q_OBJECT
public:
    /// Builds the widget over parent; null when it cannot.
    using Factory = std::function<CoBrowseView *(QWidget *parent)>;

    using PassthroughUIView::PassthroughUIView;

    /// Writes the share id label.
    virtual void setShareIdText(const QString &text) = 0;
    /// Shows the chat button only while the service offers chat.
    virtual void setChatActivated(bool activated) = 0;
    /// The tenant the chat button opens the chat for.
    virtual void setTenantId(const QString &tenantId) = 0;

Q_SIGNALS:
    /// The user closed the widget: co-browsing ends.
    void closeRequested();
    /// The user asked for the chat of the tenant.
    void chatRequested(const QString &tenantId);
};

} // namespace VistrelKit
