#include "CoBrowsing/RoundedButton.h"

#include "CoBrowsing/CornerMask.h"

namespace VistrelKit {

RoundedButton::RoundedButton(QWidget *parent)
    : QPushButton(parent)
{
    setFlat(true);
    setAutoFillBackground(true);
}

void RoundedButton::resizeEvent(QResizeEvent *event)
{
    QPushButton::resizeEvent(event);
    // Set on every layout pass, so a style or palette change cannot take the colour away.
    QPalette palette = this->palette();
    palette.setColor(QPalette::Button, QColor(48, 48, 48));
    palette.setColor(QPalette::ButtonText, Qt::white);
    setPalette(palette);
    CornerMask::apply(this, CornerMask::BottomLeft | CornerMask::TopLeft, 50);
}

} // namespace VistrelKit
