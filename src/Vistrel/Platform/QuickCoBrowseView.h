#pragma once

#include "Screen/CoBrowseView.h"

#include <Vistrel/vistrel_export.h>

#include <QPointer>
#include <QQuickItem>

#include <optional>

namespace VistrelKit {

/// The co-browse panel of a Qt Quick window (the kit's CoBrowsePanel.qml item) as the co-browsing
/// controller sees it. It lives as the item's child and goes with it.
class VISTREL_AUTOTEST_EXPORT QuickCoBrowseView : public CoBrowseView
{
    Q_OBJECT
public:
    explicit QuickCoBrowseView(QQuickItem *panel);

    void setShareIdText(const QString &text) override;
    void setChatActivated(bool activated) override;
    void setTenantId(const QString &tenantId) override;
    void remove() override;
    QObject *visual() const override;

private Q_SLOTS:
    // The panel's QML signals.
    void closeClicked();
    void chatClicked();

private:
    QPointer<QQuickItem> m_panel;
    std::optional<QString> m_tenantId;
};

} // namespace VistrelKit
