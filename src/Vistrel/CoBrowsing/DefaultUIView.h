#pragma once

#include "Widgets/PassthroughUIView.h"

#include <Vistrel/vistrel_export.h>

#include <QPointer>

#include <memory>
#include <optional>

class QAbstractButton;
class QLabel;

namespace Ui {
class DefaultUIView;
}

namespace VistrelKit {

class CoBrowseButtonGroup;
class CoBrowseWidget;

/// The co-browse widget: a full-size overlay over the app's topmost window holding a small
/// panel with the share id and hide, show, chat and close buttons. Outside the panel every
/// tap goes through to the app. Built from DefaultUIView.ui.
class VISTREL_AUTOTEST_EXPORT DefaultUIView : public PassthroughUIView
{
    Q_OBJECT
public:
    ~DefaultUIView() override;

    /// Builds the widget and lays it over parent, kept at parent's size on resize and rotation.
    static DefaultUIView *create(QWidget *parent);

    QWidget *parentView() const { return m_parent; }
    CoBrowseWidget *widget() const { return m_widget; }
    QAbstractButton *showButton() const { return m_showButton; }
    QLabel *shareId() const { return m_shareId; }
    QAbstractButton *hideButton() const { return m_hideButton; }
    QAbstractButton *closeButton() const { return m_closeButton; }
    QAbstractButton *chatButton() const { return m_chatButton; }
    CoBrowseButtonGroup *buttonGroup() const { return m_buttonGroup; }

    /// The tenant the chat button opens the chat for.
    std::optional<QString> tenantId() const { return m_tenantId; }
    void setTenantId(const QString &tenantId) { m_tenantId = tenantId; }
    /// Shows the chat button only while the service offers chat.
    void setChatActivated(bool activated);
    /// Writes the share id label.
    void setShareIdText(const QString &text);
    bool chatActivated() const { return m_chatActivated; }

public Q_SLOTS:
    /// Collapses the panel to the show button, or expands it back: each of the show button,
    /// the hide button and the button row takes the opposite of its visibility.
    void hideClicked();
    void showClicked();
    /// Asks to end co-browsing and removes the widget.
    void closeClicked();
    /// Asks for the web chat of the tenant.
    void openChat();

Q_SIGNALS:
    /// The user closed the widget: co-browsing ends.
    void closeRequested();
    /// The user asked for the chat of the tenant.
    void chatRequested(const QString &tenantId);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    DefaultUIView();
    void toggle();
    void attach(QWidget *parent);
    void fitToParent();

    std::unique_ptr<Ui::DefaultUIView> m_ui;
    QPointer<QWidget> m_parent;
    CoBrowseWidget *m_widget = nullptr;
    QAbstractButton *m_showButton = nullptr;
    QLabel *m_shareId = nullptr;
    QAbstractButton *m_hideButton = nullptr;
    QAbstractButton *m_closeButton = nullptr;
    QAbstractButton *m_chatButton = nullptr;
    CoBrowseButtonGroup *m_buttonGroup = nullptr;
    std::optional<QString> m_tenantId;
    bool m_chatActivated = false;
};

} // namespace VistrelKit
