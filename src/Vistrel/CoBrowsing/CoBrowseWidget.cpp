#include "CoBrowsing/CoBrowseWidget.h"

#include "CoBrowsing/CornerMask.h"

namespace VistrelKit {

CoBrowseWidget::CoBrowseWidget(QWidget *parent)
    : QFrame(parent)
{}

void CoBrowseWidget::resizeEvent(QResizeEvent *event)
{
    QFrame::resizeEvent(event);
    CornerMask::apply(this, CornerMask::TopLeft | CornerMask::BottomLeft, 5);
}

} // namespace VistrelKit
