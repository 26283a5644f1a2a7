#include "CoBrowsing/CoBrowseButtonGroup.h"

#include "CoBrowsing/CornerMask.h"

namespace VistrelKit {

CoBrowseButtonGroup::CoBrowseButtonGroup(QWidget *parent)
    : QWidget(parent)
{}

void CoBrowseButtonGroup::insertBackdrop()
{
    if (m_backdrop)
        return;
    m_backdrop = new QWidget(this);
    m_backdrop->setObjectName(QStringLiteral("backdrop"));
    QPalette palette = m_backdrop->palette();
    palette.setColor(QPalette::Window, QColor::fromRgbF(0.19f, 0.19f, 0.19f, 1.0f));
    m_backdrop->setPalette(palette);
    m_backdrop->setAutoFillBackground(true);
    m_backdrop->setAttribute(Qt::WA_TransparentForMouseEvents);
    fitBackdrop();
    m_backdrop->lower();
    m_backdrop->show();
}

void CoBrowseButtonGroup::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    fitBackdrop();
    CornerMask::apply(this, CornerMask::BottomLeft, 15);
}

void CoBrowseButtonGroup::fitBackdrop()
{
    if (m_backdrop)
        m_backdrop->setGeometry(0, 0, width() + 5, height());
}

} // namespace VistrelKit
