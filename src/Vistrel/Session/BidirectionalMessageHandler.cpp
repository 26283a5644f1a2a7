#include "Session/BidirectionalMessageHandler.h"

#include "Api/UIStrings.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "Widgets/ClickUtil.h"
#include "Widgets/PassthroughUIImageView.h"
#include "Widgets/ViewUtils.h"

#include <QGraphicsOpacityEffect>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QWidget>
#include <QtMath>

using namespace Qt::StringLiterals;

namespace VistrelKit {

BidirectionalMessageHandler::BidirectionalMessageHandler(
    ApplicationConfigWrapper *applicationConfig, UIStrings *uiStrings, Vistrel *vistrel,
    CoBrowsing *coBrowsing, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_uiStrings(uiStrings)
    , m_vistrel(vistrel)
    , m_coBrowsing(coBrowsing)
{}

void BidirectionalMessageHandler::handle(const BidirectionalMessage &message)
{
    Log::debug(u"Handle message: "_s + message.toString());
    if (message.drawing)
        showDrawing(*message.drawing);
    if (message.click)
        click(*message.click);
    if (message.stop.value_or(false))
        stop();
    if (message.bidirectional)
        m_applicationConfig->config().vistrelConfig.increasedPollingFrequency = true;
    if (message.optIn.value_or(false))
        askForOptIn();
    if (message.start.value_or(false))
        start();
}

void BidirectionalMessageHandler::showDrawing(const QByteArray &imageBytes)
{
    const int timeoutMs = qRound(m_drawingTimeout * 1000);
    MainQueue::async([imageBytes, timeoutMs] {
        QWidget *root = ViewUtils::topViewController();
        if (!root)
            return;
        // Bytes that are no image still give an (empty) overlay for the same time.
        auto *view = new PassthroughUIImageView(QImage::fromData(imageBytes), root);
        view->setScaledContents(true);
        view->setGeometry(root->rect());
        auto *opacity = new QGraphicsOpacityEffect(view);
        opacity->setOpacity(0.5);
        view->setGraphicsEffect(opacity);
        view->show();
        view->raise();
        // Each drawing keeps its own timer, so drawings in quick succession stack.
        QTimer::singleShot(timeoutMs, view, &QObject::deleteLater);
    });
}

void BidirectionalMessageHandler::click(const BidirectionalMessage::Click &click)
{
    ViewUtils::withTopViewController([click](QWidget *controller) {
        // Device pixels to the window's own units, through single precision as the agent's
        // numbers travel.
        const qreal scale = controller->devicePixelRatioF();
        const QPointF point(qreal(float(click.x)) / scale, qreal(float(click.y)) / scale);
        // Outside the window nothing is hit; checked first, as far-off numbers don't fit an int.
        QWidget *hit = nullptr;
        QPoint position;
        if (QRectF(controller->rect()).contains(point)) {
            // The unit that holds the device pixel: rounding would move half a unit right and
            // down.
            position = QPoint(qFloor(point.x()), qFloor(point.y()));
            hit = ClickUtil::hitTest(controller, position);
        }
        if (!hit) {
            Log::warning(u"View not found"_s);
            return;
        }
        ClickUtil::click(hit, hit->mapFrom(controller, position));
    });
}

void BidirectionalMessageHandler::stop()
{
    if (!m_vistrel || !m_coBrowsing) {
        Log::warning(u"Cannot resolve vistrel or cobrowsing to stop"_s);
        return;
    }
    // Stops the screen session too.
    m_coBrowsing->stop();
}

void BidirectionalMessageHandler::askForOptIn()
{
    if (m_uiStrings->isLoaded()) {
        showOptInDialog();
        return;
    }
    QPointer<BidirectionalMessageHandler> self(this);
    m_uiStrings->load(m_uiStrings->preferredLanguage(), [self](const std::optional<Error> &) {
        // Without texts the question is still asked, with empty ones.
        if (self)
            self->showOptInDialog();
    });
}

void BidirectionalMessageHandler::showOptInDialog()
{
    const std::optional<QString> title = m_uiStrings->find(u"ui.mobile.confirm.title"_s);
    const QString accept = m_uiStrings->find(u"ui.confirm.accept"_s).value_or(QString());
    const QString decline = m_uiStrings->find(u"ui.confirm.decline"_s).value_or(QString());
    const std::optional<QString> message = m_uiStrings->find(u"ui.mobile.confirm.message"_s);
    MainQueue::async(
        [self = QPointer<BidirectionalMessageHandler>(this), title, accept, decline, message] {
            QWidget *top = ViewUtils::topViewController();
            if (!top)
                return;
            auto *box = new QMessageBox(top);
            box->setObjectName(u"vistrelOptInDialog"_s);
            box->setAttribute(Qt::WA_DeleteOnClose);
            box->setIcon(QMessageBox::Question);
            if (title) {
                box->setWindowTitle(*title);
                box->setText(*title);
            }
            if (message)
                box->setInformativeText(*message);
            QPushButton *acceptButton = box->addButton(accept, QMessageBox::AcceptRole);
            QPushButton *declineButton = box->addButton(decline, QMessageBox::RejectRole);
            box->setDefaultButton(acceptButton);
            box->setEscapeButton(declineButton);
            // Declining only closes the box: nothing is sent.
            QObject::connect(acceptButton, &QPushButton::clicked, [self] {
                if (self)
                    self->startCoBrowsing();
            });
            box->open();
        });
}

void BidirectionalMessageHandler::startCoBrowsing()
{
    if (!m_coBrowsing) {
        Log::warning(u"Cannot resolve CoBrowsing"_s);
        return;
    }
    m_coBrowsing->stop();
    // The tenant id goes where co-browsing takes its session id, as the service expects.
    m_coBrowsing->start(m_applicationConfig->config().tenantId,
                        [](const std::optional<Error> &error) {
                            if (error)
                                Log::warning(u"Cannot start CoBrowsing: "_s + error->description());
                        });
}

void BidirectionalMessageHandler::start()
{
    if (!m_vistrel)
        return;
    // A new visit id: the restarted session counts as a new visit.
    m_applicationConfig->config().visitConfig.visitId = IdUtils::newUuid();
    m_vistrel->sessionStart(true, [](const std::optional<Error> &error) {
        if (error)
            Log::error(u"Cannot execute start: "_s + error->description());
    });
}

} // namespace VistrelKit
