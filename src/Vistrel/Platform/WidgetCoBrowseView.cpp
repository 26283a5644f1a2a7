#include "Platform/WidgetCoBrowseView.h"

#include "CoBrowsing/DefaultUIView.h"
#include "Widgets/ViewUtils.h"

namespace VistrelKit {

WidgetCoBrowseView::WidgetCoBrowseView(DefaultUIView *view)
    : CoBrowseView(view)
    , m_view(view)
{
    connect(view, &DefaultUIView::closeRequested, this, &CoBrowseView::closeRequested);
    connect(view, &DefaultUIView::chatRequested, this, &CoBrowseView::chatRequested);
}

void WidgetCoBrowseView::setShareIdText(const QString &text)
{
    if (m_view)
        m_view->setShareIdText(text);
}

void WidgetCoBrowseView::setChatActivated(bool activated)
{
    if (m_view)
        m_view->setChatActivated(activated);
}

void WidgetCoBrowseView::setTenantId(const QString &tenantId)
{
    if (m_view)
        m_view->setTenantId(tenantId);
}

void WidgetCoBrowseView::remove()
{
    if (m_view)
        ViewUtils::removeFromWindow(m_view);
}

QObject *WidgetCoBrowseView::visual() const
{
    return m_view;
}

} // namespace VistrelKit
