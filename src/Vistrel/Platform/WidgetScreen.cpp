#include "Platform/WidgetScreen.h"

#include "CoBrowsing/DefaultUIView.h"
#include "Monitoring/ScreenCapture.h"
#include "Platform/WidgetCoBrowseView.h"
#include "Widgets/ClickUtil.h"
#include "Widgets/PassthroughUIImageView.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QGraphicsOpacityEffect>
#include <QMessageBox>
#include <QPushButton>
#include <QWidget>
#include <QWindow>
#include <QtMath>

#include <memory>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
bool hasWidgets()
{
    return qobject_cast<QApplication *>(QCoreApplication::instance()) != nullptr;
}
} // namespace

WidgetScreen::WidgetScreen(QObject *parent)
    : ScreenPlatform(parent)
{
    connect(&m_changes, &ScreenChangeTracker::pageShown, this, &ScreenPlatform::pageShown);
    connect(&m_taps, &WidgetTapWatcher::tapped, this, &ScreenPlatform::tapped);
}

QWidget *WidgetScreen::widgetOf(QWindow *window)
{
    if (!window || !hasWidgets())
        return nullptr;
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *widget : windows) {
        if (widget->windowHandle() == window)
            return widget;
    }
    return nullptr;
}

QWindow *WidgetScreen::topWindow() const
{
    if (!hasWidgets())
        return nullptr;
    QWidget *top = ViewUtils::topViewController();
    return top ? top->windowHandle() : nullptr;
}

QString WidgetScreen::viewName(QWindow *window) const
{
    QWidget *widget = widgetOf(window);
    return widget ? ViewUtils::viewName(widget) : QString();
}

QImage WidgetScreen::capture(QWindow *window, const std::optional<IOSConfig> &config,
                             QSet<QString> *warned)
{
    QWidget *widget = widgetOf(window);
    return widget ? ScreenCapture::capture(widget, config, warned) : QImage();
}

ScreenPlatform::Caret WidgetScreen::caret(QWindow *window) const
{
    QWidget *root = widgetOf(window);
    QWidget *focus = QApplication::focusWidget();
    if (!root || !focus || focus->window() != root ||
        !focus->testAttribute(Qt::WA_InputMethodEnabled))
        return {};
    const QRect cursor = focus->inputMethodQuery(Qt::ImCursorRectangle).toRect();
    if (cursor.isEmpty())
        return {};
    // A pixel more all round: the scaled pixels at the cursor's edges mix it with its neighbours.
    const QRect rect = ScreenCapture::toThird(root, QRectF(focus->mapTo(root, cursor.topLeft()),
                                                           QSizeF(cursor.size())))
                           .adjusted(-1, -1, 1, 1);
    const size_t text = qHashMulti(0, focus->inputMethodQuery(Qt::ImSurroundingText).toString(),
                                   focus->inputMethodQuery(Qt::ImCursorPosition).toInt(),
                                   focus->inputMethodQuery(Qt::ImAnchorPosition).toInt());
    return {focus, rect, text};
}

void WidgetScreen::startWatching()
{
    m_changes.start();
}

void WidgetScreen::stopWatching()
{
    m_changes.stop();
}

bool WidgetScreen::takeChanged(QWindow *)
{
    // Paints are noted application-wide: popups and tool tips are windows of their own.
    return m_changes.takeChanged();
}

void WidgetScreen::watchTaps(QWindow *window)
{
    m_taps.watch(widgetOf(window));
}

bool WidgetScreen::tap(QWindow *window, const QPointF &devicePixels)
{
    QWidget *controller = widgetOf(window);
    if (!controller)
        return false;
    const QPointF point = devicePixels / controller->devicePixelRatioF();
    // Outside the window nothing is hit; checked first, as far-off numbers don't fit an int.
    if (!QRectF(controller->rect()).contains(point))
        return false;
    // The unit that holds the device pixel: rounding would move half a unit right and down.
    const QPoint position(qFloor(point.x()), qFloor(point.y()));
    // A popup shown over the window is in the agent's picture: it takes the tap.
    const QPoint global = controller->mapToGlobal(position);
    const auto popups = ViewUtils::popupsOver(controller);
    for (auto popup = popups.crbegin(); popup != popups.crend(); ++popup) {
        const QPoint inPopup = (*popup)->mapFromGlobal(global);
        if ((*popup)->windowType() == Qt::Popup && (*popup)->rect().contains(inPopup)) {
            ClickUtil::tapPopup(*popup, inPopup);
            return true;
        }
    }
    QWidget *hit = ClickUtil::hitTest(controller, position);
    if (!hit)
        return false;
    ClickUtil::click(hit, hit->mapFrom(controller, position));
    return true;
}

QObject *WidgetScreen::showDrawing(QWindow *window, const QImage &image)
{
    QWidget *root = widgetOf(window);
    if (!root)
        return nullptr;
    auto *view = new PassthroughUIImageView(image, root);
    view->setScaledContents(true);
    view->setGeometry(root->rect());
    auto *opacity = new QGraphicsOpacityEffect(view);
    opacity->setOpacity(0.5);
    view->setGraphicsEffect(opacity);
    view->show();
    view->raise();
    return view;
}

void WidgetScreen::removeOverlay(QObject *overlay)
{
    if (auto *view = qobject_cast<QWidget *>(overlay))
        ViewUtils::removeFromWindow(view);
}

QObject *WidgetScreen::askOptIn(QWindow *window, const OptInTexts &texts,
                                std::function<void(bool)> answered)
{
    QWidget *top = widgetOf(window);
    if (!top) {
        answered(false);
        return nullptr;
    }
    auto *box = new QMessageBox(top);
    box->setObjectName(u"vistrelOptInDialog"_s);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Question);
    if (texts.title) {
        box->setWindowTitle(*texts.title);
        box->setText(*texts.title);
    }
    if (texts.message)
        box->setInformativeText(*texts.message);
    QPushButton *acceptButton = box->addButton(texts.accept, QMessageBox::AcceptRole);
    QPushButton *declineButton = box->addButton(texts.decline, QMessageBox::RejectRole);
    box->setDefaultButton(acceptButton);
    box->setEscapeButton(declineButton);
    // Answered once: accepted by its button; declined when closed otherwise or gone with its
    // window.
    auto answer = std::make_shared<std::function<void(bool)>>(std::move(answered));
    const auto once = [answer](bool accepted) {
        if (auto call = std::exchange(*answer, nullptr))
            call(accepted);
    };
    connect(box, &QDialog::finished, box,
            [once, box, acceptButton] { once(box->clickedButton() == acceptButton); });
    connect(box, &QObject::destroyed, this, [once] { once(false); });
    box->open();
    return box;
}

void WidgetScreen::withdrawOptIn(QObject *question)
{
    if (auto *box = qobject_cast<QMessageBox *>(question))
        box->reject();
}

bool WidgetScreen::hasCoBrowseView(QWindow *window) const
{
    QWidget *top = widgetOf(window);
    return top && !ViewUtils::subviews(top, DefaultUIView::staticMetaObject.className()).isEmpty();
}

CoBrowseView *WidgetScreen::showCoBrowseView(QWindow *window)
{
    QWidget *top = widgetOf(window);
    return top ? new WidgetCoBrowseView(DefaultUIView::create(top)) : nullptr;
}

} // namespace VistrelKit
