#pragma once

#include "Screen/CoBrowseView.h"

#include <Vistrel/vistrel_export.h>

#include <QPointer>

namespace VistrelKit {

class DefaultUIView;

/// The co-browse widget (DefaultUIView) as the co-browsing controller sees it. It lives as the
/// widget's child and goes with it.
class VISTREL_AUTOTEST_EXPORT WidgetCoBrowseView : public CoBrowseView
{
    Q_OBJECT
public:
    explicit WidgetCoBrowseView(DefaultUIView *view);

    void setShareIdText(const QString &text) override;
    void setChatActivated(bool activated) override;
    void setTenantId(const QString &tenantId) override;
    void remove() override;
    QObject *visual() const override;

private:
    QPointer<DefaultUIView> m_view;
};

} // namespace VistrelKit
