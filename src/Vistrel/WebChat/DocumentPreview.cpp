#include "WebChat/DocumentPreview.h"

#include "Widgets/ViewUtils.h"

#include <QDesktopServices>
#include <QEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QMimeDatabase>
#include <QPdfDocument>
#include <QPdfView>
#include <QPushButton>
#include <QScrollArea>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace VistrelKit {

DocumentPreview::Kind DocumentPreview::kindOf(const QString &path)
{
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchDefault);
    if (type.inherits(u"application/pdf"_s))
        return Kind::Pdf;
    if (type.name().startsWith(u"image/"_s) && QImageReader(path).canRead())
        return Kind::Image;
    return Kind::Other;
}

DocumentPreview *DocumentPreview::show(const QString &path, QWidget *parent)
{
    const Kind kind = kindOf(path);
    if (kind == Kind::Other || !parent) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(path));
        return nullptr;
    }
    // One preview at a time, as the newest document is the one the user asked for.
    for (DocumentPreview *old : parent->findChildren<DocumentPreview *>(Qt::FindDirectChildrenOnly))
        old->close();
    auto *preview = new DocumentPreview(path, kind, parent);
    preview->setGeometry(parent->rect());
    preview->QWidget::show();
    preview->raise();
    return preview;
}

DocumentPreview::DocumentPreview(const QString &path, Kind kind, QWidget *parent)
    : QWidget(parent)
    , m_path(path)
    , m_kind(kind)
{
    setAttribute(Qt::WA_StyledBackground);
    setAutoFillBackground(true);

    auto *title = new QLabel(QFileInfo(path).fileName(), this);
    title->setObjectName(u"documentTitle"_s);
    title->setTextFormat(Qt::PlainText);
    title->setStyleSheet(u"font-weight: bold;"_s);
    auto *done = new QPushButton(tr("Done"), this);
    done->setObjectName(u"documentDone"_s);
    connect(done, &QPushButton::clicked, this, &DocumentPreview::close);
    auto *bar = new QHBoxLayout;
    bar->addWidget(title, 1);

    QWidget *content = nullptr;
    if (kind == Kind::Pdf) {
        m_pdf = new QPdfDocument(this);
        m_pdf->load(path);
        auto *pages = new QLabel(tr("%n page(s)", nullptr, m_pdf->pageCount()), this);
        pages->setObjectName(u"documentPages"_s);
        bar->addWidget(pages);
        auto *view = new QPdfView(this);
        view->setDocument(m_pdf);
        view->setPageMode(QPdfView::PageMode::MultiPage);
        view->setZoomMode(QPdfView::ZoomMode::FitToWidth);
        content = view;
    } else {
        auto *image = new QLabel(this);
        image->setObjectName(u"documentImage"_s);
        image->setAlignment(Qt::AlignCenter);
        QImageReader reader(path);
        reader.setAutoTransform(true);
        image->setPixmap(QPixmap::fromImageReader(&reader));
        auto *scroll = new QScrollArea(this);
        scroll->setWidget(image);
        scroll->setWidgetResizable(true);
        content = scroll;
    }
    bar->addWidget(done);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(bar);
    layout->addWidget(content, 1);
    // Follows the window's size, as the chat view does.
    parent->installEventFilter(this);
}

int DocumentPreview::pageCount() const
{
    return m_pdf && m_pdf->status() == QPdfDocument::Status::Ready ? m_pdf->pageCount() : 0;
}

bool DocumentPreview::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}

void DocumentPreview::close()
{
    ViewUtils::removeFromWindow(this);
}

} // namespace VistrelKit
