#include "CoBrowsing/DefaultUIView.h"

#include "CoBrowsing/CoBrowseButtonGroup.h"
#include "ui_DefaultUIView.h"

#include <QEvent>
#include <QLabel>
#include <QScreen>

using namespace Qt::StringLiterals;

namespace VistrelKit {

DefaultUIView::DefaultUIView()
    : m_ui(std::make_unique<Ui::DefaultUIView>())
{
    m_ui->setupUi(this);
    m_widget = m_ui->widget;
    m_showButton = m_ui->showButton;
    m_shareId = m_ui->shareId;
    m_hideButton = m_ui->hideButton;
    m_closeButton = m_ui->closeButton;
    m_chatButton = m_ui->chatButton;
    m_buttonGroup = m_ui->buttonGroup;
    m_buttonGroup->insertBackdrop();
}

DefaultUIView::~DefaultUIView() = default;

DefaultUIView *DefaultUIView::create(QWidget *parent)
{
    auto *view = new DefaultUIView;
    view->attach(parent);
    return view;
}

void DefaultUIView::attach(QWidget *parent)
{
    m_parent = parent;
    setParent(parent);
    raise();
    fitToParent();
    show();
    // A rotation changes the window's size too, but not always before the screen reports it.
    parent->installEventFilter(this);
    if (QScreen *screen = parent->screen())
        connect(screen, &QScreen::orientationChanged, this, &DefaultUIView::fitToParent);
}

void DefaultUIView::fitToParent()
{
    if (m_parent)
        setGeometry(m_parent->rect());
}

bool DefaultUIView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_parent && event->type() == QEvent::Resize)
        fitToParent();
    return PassthroughUIView::eventFilter(watched, event);
}

void DefaultUIView::setChatActivated(bool activated)
{
    m_chatActivated = activated;
    if (m_chatButton)
        m_chatButton->setVisible(activated);
}

void DefaultUIView::setShareIdText(const QString &text)
{
    if (m_shareId)
        m_shareId->setText(text);
}

void DefaultUIView::hideClicked()
{
    toggle();
}

void DefaultUIView::showClicked()
{
    toggle();
}

void DefaultUIView::toggle()
{
    if (!m_showButton || !m_hideButton || !m_buttonGroup)
        qFatal("DefaultUIView: the panel lacks its show button, hide button or button row");
    m_showButton->setVisible(m_showButton->isHidden());
    m_hideButton->setVisible(m_hideButton->isHidden());
    m_buttonGroup->setVisible(m_buttonGroup->isHidden());
}

void DefaultUIView::closeClicked()
{
    Q_EMIT closeRequested();
    // Also when nobody listens: the user asked the widget to go.
    hide();
    setParent(nullptr);
    deleteLater();
}

void DefaultUIView::openChat()
{
    if (!m_tenantId)
        qFatal("DefaultUIView: the chat was opened before a tenant was set");
    Q_EMIT chatRequested(*m_tenantId);
}

} // namespace VistrelKit
