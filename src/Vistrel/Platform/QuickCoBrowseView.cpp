#include "Platform/QuickCoBrowseView.h"

#include "Quick/QuickViewUtils.h"

namespace VistrelKit {

QuickCoBrowseView::QuickCoBrowseView(QQuickItem *panel)
    : CoBrowseView(panel)
    , m_panel(panel)
{
    // QML signals are known by name only.
    connect(panel, SIGNAL(closeRequested()), this, SLOT(closeClicked()));
    connect(panel, SIGNAL(chatRequested()), this, SLOT(chatClicked()));
}

void QuickCoBrowseView::setShareIdText(const QString &text)
{
    if (m_panel)
        m_panel->setProperty("shareIdText", text);
}

void QuickCoBrowseView::setChatActivated(bool activated)
{
    if (m_panel)
        m_panel->setProperty("chatActivated", activated);
}

void QuickCoBrowseView::setTenantId(const QString &tenantId)
{
    m_tenantId = tenantId;
}

void QuickCoBrowseView::remove()
{
    QuickViewUtils::removeFromWindow(m_panel);
}

QObject *QuickCoBrowseView::visual() const
{
    return m_panel;
}

void QuickCoBrowseView::closeClicked()
{
    Q_EMIT closeRequested();
    // Also when nobody listens: the user asked the panel to go.
    QuickViewUtils::removeFromWindow(m_panel);
}

void QuickCoBrowseView::chatClicked()
{
    if (!m_tenantId)
        qFatal("QuickCoBrowseView: the chat was opened before a tenant was set");
    Q_EMIT chatRequested(*m_tenantId);
}

} // namespace VistrelKit
