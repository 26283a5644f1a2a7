#include "Widgets/PassthroughUIImageView.h"

#include <QPixmap>

namespace VistrelKit {

PassthroughUIImageView::PassthroughUIImageView(QWidget *parent)
    : QLabel(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setScaledContents(true);
}

PassthroughUIImageView::PassthroughUIImageView(const QImage &image, QWidget *parent)
    : PassthroughUIImageView(parent)
{
    setPixmap(QPixmap::fromImage(image));
}

} // namespace VistrelKit
