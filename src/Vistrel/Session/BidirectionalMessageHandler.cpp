#include "Session/BidirectionalMessageHandler.h"

#include "Api/UIStrings.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/IdUtils.h"
#include "Core/Log.h"
#include "Core/MainQueue.h"
#include "Screen/ScreenPlatform.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"

#include <QBuffer>
#include <QDeadlineTimer>
#include <QImageReader>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace VistrelKit {

BidirectionalMessageHandler::BidirectionalMessageHandler(
    ApplicationConfigWrapper *applicationConfig, UIStrings *uiStrings, Vistrel *vistrel,
    CoBrowsing *coBrowsing, ScreenPlatform *screen, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_uiStrings(uiStrings)
    , m_vistrel(vistrel)
    , m_coBrowsing(coBrowsing)
    , m_screen(screen)
{
    m_workTimer.setSingleShot(true);
    connect(&m_workTimer, &QTimer::timeout, this, &BidirectionalMessageHandler::workOff);
    // The question belongs to the session that asked it: however that session stops (the host,
    // the agent, the background), an answer after it would start co-browsing nobody asked for.
    if (vistrel) {
        connect(vistrel, &Vistrel::stopped, this, [this] {
            if (m_optInDialog)
                m_screen->withdrawOptIn(m_optInDialog);
        });
    }
}

void BidirectionalMessageHandler::handle(const BidirectionalMessage &message)
{
    // A flag, whatever "b" says: nothing to wait for.
    if (message.bidirectional)
        m_applicationConfig->config().vistrelConfig.increasedPollingFrequency = true;
    m_queue.push(message);
    if (!m_workTimer.isActive())
        m_workTimer.start(0);
}

void BidirectionalMessageHandler::workOff()
{
    if (m_working)
        return; // the slice under way goes on once the nested event loop is done
    m_working = true;
    const QDeadlineTimer slice(MainQueue::SliceMs, Qt::PreciseTimer);
    while (!m_queue.isEmpty() && !slice.hasExpired()) {
        if (m_queue.front().click && !m_screen->topWindow()) {
            // A tap waits for a window to land on, and the commands behind it keep their order.
            m_working = false;
            m_workTimer.start(ScreenPlatform::RetryIntervalMs);
            return;
        }
        carryOut(m_queue.takeFront());
    }
    m_working = false;
    if (!m_queue.isEmpty())
        m_workTimer.start(0);
    else
        reportDrops();
}

void BidirectionalMessageHandler::carryOut(const BidirectionalMessage &message)
{
    Log::debug(u"Handle message: "_s + message.toString());
    if (message.drawing)
        showDrawing(*message.drawing);
    if (message.click) {
        if (QWindow *top = m_screen->topWindow())
            click(top, *message.click);
    }
    if (message.stop.value_or(false))
        stop();
    if (message.optIn.value_or(false))
        askForOptIn();
    if (message.start.value_or(false))
        start();
}

void BidirectionalMessageHandler::reportDrops()
{
    const AgentCommandQueue::Drops drops = m_queue.takeDrops();
    const QString limit = QString::number(AgentCommandQueue::MaxCommands);
    if (drops.taps)
        Log::warning(
            u"Dropped the oldest %1 taps: over %2 agent commands were waiting"_s.arg(drops.taps)
                .arg(limit));
    if (drops.idle)
        Log::warning(u"Dropped the oldest %1 commands without action: over %2 agent commands "
                     u"were waiting"_s.arg(drops.idle)
                         .arg(limit));
    if (drops.drawings)
        Log::warning(u"Dropped %1 drawings: only the newest %2 are shown"_s.arg(drops.drawings)
                         .arg(MaxDrawings));
    if (drops.starts || drops.stops)
        Log::warning(u"Merged session commands that came together: %1 starts and %2 stops "
                     u"dropped"_s.arg(drops.starts)
                         .arg(drops.stops));
    if (drops.optIns)
        Log::warning(u"Opt-in dialog already shown; requests dropped: %1"_s.arg(drops.optIns));
}

void BidirectionalMessageHandler::showDrawing(const QByteArray &imageBytes)
{
    QWindow *window = m_screen->topWindow();
    if (!window)
        return;
    // The header tells the size before anything is decoded: an image larger than the window
    // it covers cannot show more than one of the window's size, and may be a few bytes that
    // decode into gigabytes.
    const QSize size = (QSizeF(window->size()) * window->devicePixelRatio()).toSize();
    QBuffer buffer;
    buffer.setData(imageBytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize imageSize = reader.size();
    QImage image;
    if (imageSize.isValid()) {
        if (imageSize.width() > size.width() || imageSize.height() > size.height()) {
            Log::warning(u"Drawing refused: %1x%2 image is larger than the %3x%4 window"_s
                             .arg(imageSize.width())
                             .arg(imageSize.height())
                             .arg(size.width())
                             .arg(size.height()));
            return;
        }
        image = reader.read();
    }
    // Bytes that are no image (or whose size is unknown) still give an empty overlay for the
    // same time.
    m_drawings.removeIf([](const QPointer<QObject> &view) { return !view || !view->parent(); });
    while (m_drawings.size() >= MaxDrawings)
        m_screen->removeOverlay(m_drawings.takeFirst());
    QObject *view = m_screen->showDrawing(window, image);
    if (!view)
        return;
    m_drawings.append(view);
    // Each drawing keeps its own timer: drawings in quick succession stack, up to MaxDrawings.
    QTimer::singleShot(qRound(m_drawingTimeout * 1000), view,
                       [screen = m_screen, view] { screen->removeOverlay(view); });
}

void BidirectionalMessageHandler::click(QWindow *window, const BidirectionalMessage::Click &click)
{
    // Through single precision, as the agent's numbers travel.
    if (!m_screen->tap(window, QPointF(qreal(float(click.x)), qreal(float(click.y)))))
        Log::warning(u"View not found"_s);
}

void BidirectionalMessageHandler::stop()
{
    if (!m_vistrel || !m_coBrowsing) {
        Log::warning(u"Cannot resolve vistrel or cobrowsing to stop"_s);
        return;
    }
    // Stops the screen session too, which withdraws an open question.
    m_coBrowsing->stop();
}

void BidirectionalMessageHandler::askForOptIn()
{
    // Until the dialog is closed (or turns out impossible), further questions are dropped.
    m_queue.setOptInOpen(true);
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
    QWindow *top = m_screen->topWindow();
    if (!top) {
        m_queue.setOptInOpen(false);
        return;
    }
    ScreenPlatform::OptInTexts texts;
    texts.title = m_uiStrings->find(u"ui.mobile.confirm.title"_s);
    texts.message = m_uiStrings->find(u"ui.mobile.confirm.message"_s);
    texts.accept = m_uiStrings->find(u"ui.confirm.accept"_s).value_or(QString());
    texts.decline = m_uiStrings->find(u"ui.confirm.decline"_s).value_or(QString());
    QPointer<BidirectionalMessageHandler> self(this);
    // Closed either way, or gone with its window: the next question may be asked. Declining
    // only closes the question: nothing is sent.
    m_optInDialog = m_screen->askOptIn(top, texts, [self](bool accepted) {
        if (!self)
            return;
        self->m_queue.setOptInOpen(false);
        if (accepted)
            self->startCoBrowsing();
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
